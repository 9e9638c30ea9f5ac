#include "core/record/SiblingChannel.h"

#include <utility>

#include "core/record/Preferences.h"
#include "core/record/SchedulerState.h"
#include "core/record/SiblingWatch.h"
#include "platform/DistributedNotifications.h"

namespace corvana {

SiblingChannel::SiblingChannel(DistributedNotifications& notifications, SiblingWatch& watch,
                               const SchedulerState& state, const Preferences& preferences,
                               std::string bundlePath)
    : mNotifications(notifications),
      mWatch(watch),
      mState(state),
      mPreferences(preferences),
      mBundlePath(std::move(bundlePath)) {}

bool SiblingChannel::isMainAppLaunched() const { return mWatch.isMainAppLaunched(); }

void SiblingChannel::postToMainApp(std::string_view object, const ZAN_Value& userInfo) {
  if (!mWatch.isMainAppLaunched()) return;
  mNotifications.post({std::string(kMainAppliNotification), std::string(object), userInfo});
}

void SiblingChannel::postToExecute(std::string_view object, const ZAN_Value& userInfo) {
  mNotifications.post({std::string(kExecuteNotification), std::string(object), userInfo});
}

void SiblingChannel::sendStatus() { postToMainApp("ReturnCVAProcessStatus", processStatus()); }

void SiblingChannel::sendSchedulerStatusToMainApp() {
  postToMainApp("ReturnCVASchedulerStatus",
                ZAN_Value::dictionary({{"SchedulerStatus", schedulerStatus()}}));
}

ZAN_Value SiblingChannel::processStatus() const {
  constexpr int kExecuting = 1;
  constexpr int kWillBeDisabled = 2;
  constexpr int kOtherMachine = 4;
  int extra = mState.mExecuting ? kExecuting : 0;
  if (mState.mScheduleDisabledWhenDone) extra |= kWillBeDisabled;
  if (mState.mStartedFromNewMachine) extra |= kOtherMachine;
  return ZAN_Value::dictionary({{"path", mBundlePath},
                                {"disabled", mState.mScheduleDisabled ? 1 : 0},
                                {"disabledDiskChange", mState.mStartedFromNewMachine ? 1 : 0},
                                {"paused", mState.mPause ? 1 : 0},
                                {"context", mState.mContext},
                                {"processStatus", mState.mProcessStatus},
                                {"extraStatus", extra}});
}

int SiblingChannel::schedulerStatus() const {
  if (mState.mScheduleDisabled && mPreferences.mPrefScheduleDisabled != 0) return 4;
  if (mState.mPause) return 3;
  return mState.mExecuting ? 2 : 1;
}

}  // namespace corvana
