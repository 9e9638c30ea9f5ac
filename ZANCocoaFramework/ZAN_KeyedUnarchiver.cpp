#include "ZANCocoaFramework/ZAN_KeyedUnarchiver.h"

#include "ZANCocoaFramework/ZAN_KeyedDecoder.h"
#include "ZANCocoaFramework/ZAN_PropertyList.h"

namespace corvana {

bool ZAN_KeyedUnarchiver::isKeyedArchive(const ZAN_Value& propertyList) {
  return propertyList["$archiver"].isString() && propertyList["$objects"].isArray() &&
         propertyList["$top"].isDictionary();
}

Result<ZAN_Value> ZAN_KeyedUnarchiver::unarchiveObject(const ZAN_Value& propertyList) {
  if (!isKeyedArchive(propertyList)) return Error{ErrorKind::damaged, "this is no keyed archive"};
  return ZAN_KeyedDecoder(propertyList).decode();
}

Result<ZAN_Value> ZAN_KeyedUnarchiver::unarchiveObjectWithData(std::span<const std::byte> data) {
  const auto list = ZAN_PropertyList::propertyListWithData(data);
  if (!list) return list.error();
  return unarchiveObject(*list);
}

}  // namespace corvana
