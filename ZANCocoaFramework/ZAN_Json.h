#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// Values as JSON and back, with nothing lost but mutability and shared identity.
///
/// true and false are numbers of letter 'c' with 1 and 0; an integer is 'i' when it fits 32 bits,
/// else 'q'; a real, always with a point or an exponent, is 'd'. Any other stored letter, NaN and
/// the infinities are
/// {"$number": "text", "type": "q"}. A date is {"$date": seconds since 2001}, data {"$data":
/// "base64"}, data that holds a sequential archive and re-encodes to the same bytes {"$archive":
/// value}, a set {"$set": […]}, an index set {"$indexes": [[first, count], …]}, an object of an
/// unknown class {"$object": …}, and a dictionary with a key that is not a text or begins with "$"
/// {"$dictionary": [[key, value], …]}. Thread: any.
class ZAN_Json {
 public:
  ZAN_Json() = delete;

  struct Options {
    bool maskPasswords =
        false;             ///< values below keys that hold "password" in any case become "****"
    bool compact = false;  ///< one line, else indented by two blanks
    bool plain = false;    ///< numbers of any letter as JSON numbers, for programs that only read
  };

  /// Texts that are not UTF-8 are shown with replacement characters. `limit` when what is shared
  /// within the value would be written out more often than is reasonable.
  static Result<std::string> jsonWithValue(const ZAN_Value& value, const Options& options);
  static Result<std::string> jsonWithValue(const ZAN_Value& value) {
    return jsonWithValue(value, Options{});
  }

  /// The error's text is the reason alone, with the place where there is one.
  static Result<ZAN_Value> valueWithJson(std::string_view json);
};

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
