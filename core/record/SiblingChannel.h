#pragma once

#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class DistributedNotifications;
class Preferences;
class SiblingWatch;
struct SchedulerState;

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
