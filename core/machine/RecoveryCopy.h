#pragma once

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class ZAN_MountVolume;
struct Records;

/// Copies a recovery partition for the main application. Thread: main; the copy itself runs in the
/// background.
class RecoveryCopy {
 public:
  RecoveryCopy(Records& records, const ZAN_MountVolume& tools) : m(records), mTools(tools) {}

  /// From "sourceDeviceIdentifier" to "DeviceIdentifier" (BSD names). The main application hears
  /// "SendCopyRecoveryHDCompleted" with both and, when the new partition was given its type,
  /// "commandResult".
  void copyRecoveryPartition(const ZAN_Value& userInfo);

 private:
  Records& m;
  const ZAN_MountVolume& mTools;
};

}  // namespace corvana
