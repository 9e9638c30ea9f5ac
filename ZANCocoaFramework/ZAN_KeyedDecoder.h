#pragma once

#include <unordered_map>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// Turns the property list of a keyed archive into the value that was archived. Every object is
/// built once; references are followed only as far as the depth limit.
class ZAN_KeyedDecoder {
 public:
  explicit ZAN_KeyedDecoder(const ZAN_Value& propertyList);
  Result<ZAN_Value> decode();

 private:
  enum class State : std::uint8_t { unread, open, done };

  /// The number of the object that a value refers to; nothing for a value that stands for itself.
  static std::optional<std::uint64_t> referenceOf(const ZAN_Value& value);

  bool resolve(const ZAN_Value& value, int depth, ZAN_Value& into);
  bool readEntry(std::uint64_t index, int depth, ZAN_Value& into);
  bool readPlain(const ZAN_Value& value, int depth, ZAN_Value& into);
  bool readObject(const ZAN_Value& entry, int depth, ZAN_Value& into);
  bool readOfClass(std::string_view name, const ZAN_Value& entry, int depth, ZAN_Value& into);

  bool readList(const ZAN_Value& entry, std::string_view prefix, int depth,
                std::vector<ZAN_Value>& list);
  bool readDictionary(const ZAN_Value& entry, int depth, ZAN_Value& into);
  bool readIndexSet(const ZAN_Value& entry, int depth, ZAN_Value& into);
  bool readScalar(const ZAN_Value& entry, std::span<const std::string_view> keys,
                  ZAN_Value::Kind kind, int depth, ZAN_Value& into);
  bool readOpaque(const ZAN_Value& entry, const ZAN_Value& classEntry, int depth, ZAN_Value& into);

  bool spend(std::size_t elements);
  bool fail(const char* reason, ErrorKind kind = ErrorKind::damaged);

  const ZAN_Value& mList;
  std::span<const ZAN_Value> mEntries;
  std::vector<ZAN_Value> mObjects;
  std::vector<State> mStates;
  std::unordered_map<std::uint64_t, ZAN_Value>
      mPlain;           ///< containers that are no objects, by identity
  std::size_t mBudget;  ///< elements; several objects may name one long list
  Error mError;
};

}  // namespace corvana
