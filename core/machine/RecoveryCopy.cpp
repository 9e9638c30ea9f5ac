#include "core/machine/RecoveryCopy.h"

#include "core/record/Records.h"
#include "platform/RunLoop.h"
#include "volumes/ZAN_MountVolume.h"

namespace corvana {

void RecoveryCopy::copyRecoveryPartition(const ZAN_Value& userInfo) {
  const std::string source = userInfo.string("sourceDeviceIdentifier");
  const std::string target = userInfo.string("DeviceIdentifier");
  m.platform.runLoop.detachThread("copyRecoveryPartition", [source, target, tools = mTools,
                                                            &loop = m.platform.runLoop,
                                                            &channel = m.channel] {
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
