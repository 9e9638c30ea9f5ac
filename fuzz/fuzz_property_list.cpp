// Property lists and keyed archives of any bytes; what is read can be shown.

#include <cstdlib>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_PropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using corvana::ZAN_KeyedUnarchiver;
  using corvana::ZAN_PropertyList;
  const auto list = ZAN_PropertyList::propertyListWithData(std::as_bytes(std::span(data, size)));
  // What shows as JSON is of bounded size however much the list shares, so it may be written out.
  if (!list || !corvana::ZAN_Json::jsonWithValue(*list)) return 0;
  const std::string xml = ZAN_PropertyList::xmlPropertyList(*list);
  if (!ZAN_PropertyList::propertyListWithData(std::as_bytes(std::span(xml.data(), xml.size())))) {
    std::abort();
  }
  if (const auto value = ZAN_KeyedUnarchiver::unarchiveObject(*list)) {
    (void)corvana::ZAN_Json::jsonWithValue(*value);
  }
  return 0;
}
