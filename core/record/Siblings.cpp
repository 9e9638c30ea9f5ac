#include "core/record/Siblings.h"

#include <algorithm>
#include <utility>

#include "core/record/Diagnostics.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerState.h"
#include "platform/DistributedNotifications.h"
#include "platform/Processes.h"

namespace corvana {

SiblingWatch::SiblingWatch(Processes& processes, SurveyExecution& survey,
                           std::string mainAppBundlePath, std::string executeAppBundlePath)
    : mProcesses(processes),
      mSurvey(survey),
      mMainAppBundlePath(std::move(mainAppBundlePath)),
      mExecuteAppBundlePath(std::move(executeAppBundlePath)) {}

bool SiblingWatch::isMainAppLaunched() {
  const SurveyExecution::Bracket bracket(mSurvey, "isMainAppLaunched_MS");
  return isMainAppAmong(mProcesses.running());
}

bool SiblingWatch::isExecuteAppLaunched() { return isExecuteAppAmong(mProcesses.running()); }

bool SiblingWatch::isMainAppAmong(std::span<const RunningProcess> running) const {
  return std::ranges::find(running, mMainAppBundlePath, &RunningProcess::bundlePath) !=
         running.end();
}

bool SiblingWatch::isExecuteAppAmong(std::span<const RunningProcess> running) const {
  return std::ranges::any_of(running, [this](const RunningProcess& one) {
    return one.bundlePath == mExecuteAppBundlePath && !one.isDying;
  });
}

std::vector<std::int64_t> SiblingWatch::executeApps() {
  std::vector<std::int64_t> pids;
  for (const RunningProcess& one : mProcesses.running())
    if (one.bundlePath == mExecuteAppBundlePath && !one.isDying) pids.push_back(one.pid);
  return pids;
}

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
