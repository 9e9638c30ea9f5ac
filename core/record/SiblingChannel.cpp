#include "core/record/SiblingChannel.h"

#include "core/record/SiblingWatch.h"
#include "platform/DistributedNotifications.h"

namespace corvana {

SiblingChannel::SiblingChannel(DistributedNotifications& notifications, SiblingWatch& watch)
    : mNotifications(notifications), mWatch(watch) {}

bool SiblingChannel::isMainAppLaunched() const { return mWatch.isMainAppLaunched(); }

void SiblingChannel::postToMainApp(std::string_view object, const ZAN_Value& userInfo) {
  if (!mWatch.isMainAppLaunched()) return;
  mNotifications.post({std::string(kMainAppliNotification), std::string(object), userInfo});
}

void SiblingChannel::postToExecute(std::string_view object, const ZAN_Value& userInfo) {
  mNotifications.post({std::string(kExecuteNotification), std::string(object), userInfo});
}

}  // namespace corvana
