#include "core/drive/SiblingStatus.h"

#include "ZANCocoaFramework/ZAN_Value.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerState.h"
#include "core/record/SiblingChannel.h"
#include "core/work/ExecuteSupervisor.h"

namespace corvana {

SiblingStatus::SiblingStatus(SiblingChannel& channel, SchedulerState& state,
                             Preferences& preferences, ExecuteSupervisor& supervisor,
                             std::string bundlePath)
    : mChannel(channel),
      mState(state),
      mPreferences(preferences),
      mSupervisor(supervisor),
      mBundlePath(std::move(bundlePath)) {}

void SiblingStatus::sendStatus() {
  mChannel.postToMainApp("ReturnCVAProcessStatus", processStatus());
}

void SiblingStatus::sendSchedulerStatusToMainApp() {
  mChannel.postToMainApp("ReturnCVASchedulerStatus",
                         ZAN_Value::dictionary({{"SchedulerStatus", schedulerStatus()}}));
  if (onStatusSent) onStatusSent();
}

void SiblingStatus::postActionListChanged() { mChannel.postToMainApp("ActionListChanged"); }

ZAN_Value SiblingStatus::processStatus() const {
  constexpr int kExecuting = 1;
  constexpr int kWillBeDisabled = 2;
  constexpr int kOtherMachine = 4;
  int extra = mSupervisor.isExecuting() ? kExecuting : 0;
  if (mState.mScheduleDisabledWhenDone) extra |= kWillBeDisabled;
  if (mState.mStartedFromNewMachine) extra |= kOtherMachine;
  return ZAN_Value::dictionary({{"path", mBundlePath},
                                {"disabled", mState.mScheduleDisabled ? 1 : 0},
                                {"disabledDiskChange", mState.mStartedFromNewMachine ? 1 : 0},
                                {"paused", mState.mPause ? 1 : 0},
                                {"context", mState.mContext},
                                {"processStatus", mSupervisor.processStatus()},
                                {"extraStatus", extra}});
}

int SiblingStatus::schedulerStatus() const {
  if (mState.mScheduleDisabled && mPreferences.mPrefScheduleDisabled != 0) return 4;
  if (mState.mPause) return 3;
  return mSupervisor.isExecuting() ? 2 : 1;
}

}  // namespace corvana
