#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// Builds a value from the parts of a JSON text in the order in which they come. A function that
/// gives false has set `error`, and nothing more may follow.
class ZAN_JsonBuilder {
 public:
  bool addScalar(ZAN_Value value);
  bool openList(bool isObject);
  bool addKey(std::string key);
  bool closeList();

  bool fail(std::string reason, ErrorKind kind = ErrorKind::damaged);
  const std::optional<Error>& error() const { return mError; }
  ZAN_Value take() { return std::move(mRoot); }

 private:
  struct Frame {
    bool isObject = false;
    int depth = 1;  ///< levels of values below, this one included
    std::vector<ZAN_Value> elements;
    std::vector<ZAN_Value::Entry> entries;
  };

  bool add(ZAN_Value value, int depth);
  /// The value that an object with a "$" key stands for.
  std::optional<ZAN_Value> formOf(const Frame& frame, int& depth);

  std::vector<Frame> mOpen;
  ZAN_Value mRoot;
  std::optional<Error> mError;
};

/// What {"key": inner} stands for, with the second entry of the object where it has one; nothing
/// when the key is unknown or the value is not as it has to be.
std::optional<ZAN_Value> valueOfJsonForm(std::string_view key, const ZAN_Value& inner,
                                         const ZAN_Value& type);

}  // namespace corvana
