#pragma once

#include <string_view>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class DistributedNotifications;
class SiblingWatch;

/// What the agent listens to; sent by the main application and the execute application.
inline constexpr std::string_view kSchedulerNotification = "CVA9_SchedulerNotification";
inline constexpr std::string_view kMainAppliNotification = "CVA9_MainAppliNotification";
inline constexpr std::string_view kExecuteNotification = "CVA9_ExecuteNotification";

/// The agent's messages to its sibling programs, delivered at once. Nobody answers here. Thread:
/// main.
class SiblingChannel {
 public:
  SiblingChannel(DistributedNotifications& notifications, SiblingWatch& watch);

  /// Only while the main application is found running; otherwise the message is dropped. `userInfo`
  /// is a dictionary with text keys, or null for none.
  bool isMainAppLaunched() const;
  void postToMainApp(std::string_view object, const ZAN_Value& userInfo = {});
  /// Whether it runs or not.
  void postToExecute(std::string_view object, const ZAN_Value& userInfo = {});

 private:
  DistributedNotifications& mNotifications;
  SiblingWatch& mWatch;
};

}  // namespace corvana
