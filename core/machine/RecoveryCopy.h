#pragma once

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class RunLoop;
class SiblingChannel;
class ZAN_MountVolume;

/// Copies a recovery partition for the main application. Thread: main; the copy itself runs in the
/// background.
class RecoveryCopy {
 public:
  RecoveryCopy(RunLoop& runLoop, SiblingChannel& channel, const ZAN_MountVolume& tools)
      : mRunLoop(runLoop), mChannel(channel), mTools(tools) {}

  /// From "sourceDeviceIdentifier" to "DeviceIdentifier" (BSD names). The main application hears
  /// "SendCopyRecoveryHDCompleted" with both and, when the new partition was given its type,
  /// "commandResult".
  void copyRecoveryPartition(const ZAN_Value& userInfo);

 private:
  RunLoop& mRunLoop;
  SiblingChannel& mChannel;
  const ZAN_MountVolume& mTools;
};

}  // namespace corvana
