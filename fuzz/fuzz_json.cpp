// JSON of any bytes; what can be packed shows as JSON that packs to the same bytes.

#include <cstdlib>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_Json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using corvana::ZAN_Archiver;
  using corvana::ZAN_Json;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto value = ZAN_Json::valueWithJson(text);
  if (!value) return 0;
  const auto packed = ZAN_Archiver::archivedDataWithRootObject(*value);
  const auto unpacked = corvana::ZAN_Unarchiver::unarchiveObjectWithData(packed);
  if (!unpacked) return 0;
  const auto json = ZAN_Json::jsonWithValue(*unpacked);
  if (!json) return 0;
  const auto again = ZAN_Json::valueWithJson(*json);
  if (!again || ZAN_Archiver::archivedDataWithRootObject(*again) != packed) std::abort();
  return 0;
}
