// What reads as a sequential archive can be written, and what was written reads as the same value.

#include <cstdlib>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_Json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using corvana::ZAN_Archiver;
  using corvana::ZAN_Unarchiver;
  const auto value = ZAN_Unarchiver::unarchiveObjectWithData(std::as_bytes(std::span(data, size)));
  if (!value) return 0;
  const auto written = ZAN_Archiver::archivedDataWithRootObject(*value);
  const auto again = ZAN_Unarchiver::unarchiveObjectWithData(written);
  // A number that is none equals nothing, so the bytes are compared, and the values where they can
  // be.
  if (!again || ZAN_Archiver::archivedDataWithRootObject(*again) != written) std::abort();
  if (*value == *value && !(*again == *value)) {
    const auto first = corvana::ZAN_Json::jsonWithValue(*value);
    const auto second = corvana::ZAN_Json::jsonWithValue(*again);
    if (!first || !second || *first != *second) std::abort();
  }
  return 0;
}
