#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class DistributedNotifications;
class Preferences;
class Processes;
class SurveyExecution;
struct RunningProcess;
struct SchedulerState;

/// Whether the other programs of the product run, told by the path of their bundle. Each question
/// lists the running applications anew. Thread: main.
class SiblingWatch {
 public:
  SiblingWatch(Processes& processes, SurveyExecution& survey, std::string mainAppBundlePath,
               std::string executeAppBundlePath);

  /// Of the programs that it looks for.
  std::vector<std::string> bundlePaths() const {
    return {mMainAppBundlePath, mExecuteAppBundlePath};
  }

  bool isMainAppLaunched();
  /// One that was killed and that the system cannot end does not count.
  bool isExecuteAppLaunched();
  /// The same of a listing that the caller has at hand.
  bool isMainAppAmong(std::span<const RunningProcess> running) const;
  bool isExecuteAppAmong(std::span<const RunningProcess> running) const;
  /// The processes of the execute application, whoever started them.
  std::vector<std::int64_t> executeApps();

 private:
  Processes& mProcesses;
  SurveyExecution& mSurvey;
  std::string mMainAppBundlePath;
  std::string mExecuteAppBundlePath;
};

/// What the agent listens to; sent by the main application and the execute application.
inline constexpr std::string_view kSchedulerNotification = "CVA9_SchedulerNotification";
inline constexpr std::string_view kMainAppliNotification = "CVA9_MainAppliNotification";
inline constexpr std::string_view kExecuteNotification = "CVA9_ExecuteNotification";

/// The agent's messages to its sibling programs, delivered at once. Nobody answers here. Thread:
/// main.
class SiblingChannel {
 public:
  /// `bundlePath` of the agent.
  SiblingChannel(DistributedNotifications& notifications, SiblingWatch& watch,
                 const SchedulerState& state, const Preferences& preferences,
                 std::string bundlePath);

  /// Only while the main application is found running; otherwise the message is dropped. `userInfo`
  /// is a dictionary with text keys, or null for none.
  bool isMainAppLaunched() const;
  void postToMainApp(std::string_view object, const ZAN_Value& userInfo = {});
  /// Whether it runs or not.
  void postToExecute(std::string_view object, const ZAN_Value& userInfo = {});

  /// Posts "ReturnCVAProcessStatus": where the agent is and what it does.
  void sendStatus();
  /// Posts "ReturnCVASchedulerStatus" with one number, see `schedulerStatus`.
  void sendSchedulerStatusToMainApp();
  /// The details of "ReturnCVAProcessStatus".
  ZAN_Value processStatus() const;
  /// 4 switched off by the user, 3 paused, 2 an execution runs, 1 otherwise.
  int schedulerStatus() const;

 private:
  DistributedNotifications& mNotifications;
  SiblingWatch& mWatch;
  const SchedulerState& mState;
  const Preferences& mPreferences;
  std::string mBundlePath;
};

}  // namespace corvana
