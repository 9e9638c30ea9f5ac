#include "ZANCocoaFramework/ZAN_Archiver.h"

#include "ZANCocoaFramework/ZAN_ArchiveEncoder.h"

namespace corvana {

std::vector<std::byte> ZAN_Archiver::archivedDataWithRootObject(const ZAN_Value& root) {
  return ZAN_ArchiveEncoder().encode(root);
}

}  // namespace corvana
