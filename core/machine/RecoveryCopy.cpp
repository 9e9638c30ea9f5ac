#include "core/machine/RecoveryCopy.h"

#include "core/record/SiblingChannel.h"
#include "platform/RunLoop.h"
#include "volumes/ZAN_MountVolume.h"

namespace corvana {

void RecoveryCopy::copyRecoveryPartition(const ZAN_Value& userInfo) {
  const std::string source = userInfo.string("sourceDeviceIdentifier");
  const std::string target = userInfo.string("DeviceIdentifier");
  mRunLoop.detachThread("copyRecoveryPartition", [source, target, tools = mTools, &loop = mRunLoop,
                                                  &channel = mChannel] {
    ZAN_Value answer =
        ZAN_Value::dictionary({{"DeviceIdentifier", target}, {"sourceDeviceIdentifier", source}});
    if (tools.restore(source, target)) {
      if (const auto result = tools.setFormatType("Apple_Boot", target))
        answer.setValue("commandResult", *result);
    }
    loop.performOnMain(
        [&channel, answer] { channel.postToMainApp("SendCopyRecoveryHDCompleted", answer); });
  });
}

}  // namespace corvana
