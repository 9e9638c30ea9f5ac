#pragma once

#include <functional>
#include <string>

namespace corvana {

class ExecuteSupervisor;
class Preferences;
class SiblingChannel;
class ZAN_Value;
struct SchedulerState;

/// What the agent tells the main application about itself; nothing while that does not run. Thread:
/// main.
class SiblingStatus {
 public:
  SiblingStatus(SiblingChannel& channel, SchedulerState& state, Preferences& preferences,
                ExecuteSupervisor& supervisor, std::string bundlePath);

  /// The status is worth telling; called whether or not the main application runs.
  std::function<void()> onStatusSent;

  /// Posts "ReturnCVAProcessStatus": where the agent is and what it does.
  void sendStatus();
  /// Posts "ReturnCVASchedulerStatus" with one number, see `schedulerStatus`.
  void sendSchedulerStatusToMainApp();
  void postActionListChanged();

  /// The details of "ReturnCVAProcessStatus".
  ZAN_Value processStatus() const;
  /// 4 switched off by the user, 3 paused, 2 an execution runs, 1 otherwise.
  int schedulerStatus() const;

 private:
  SiblingChannel& mChannel;
  SchedulerState& mState;
  Preferences& mPreferences;
  ExecuteSupervisor& mSupervisor;
  std::string mBundlePath;
};

}  // namespace corvana
