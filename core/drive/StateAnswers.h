#pragma once

#include "platform/DistributedNotifications.h"

namespace corvana {

class LaunchStep;
class SchedulerCommands;
struct Records;
struct Work;

/// Answers other programs from the state of the agent. Dates are dates, references and counts
/// integers, yes and no booleans; a date that does not exist is left out. Thread: main.
class StateAnswers final : public AgentAnswers {
 public:
  StateAnswers(Records& records, Work& work, LaunchStep& launchStep, SchedulerCommands& commands)
      : m(records), mWork(work), mLaunchStep(launchStep), mCommands(commands) {}

  /// "home", "pid", "started", "enabled", "disabledWhenDone", "otherStartupDisk", "paused",
  /// "context" (0 none, 1 office, 2 home, 3 nomad), "errorCode" (of the last failure not yet looked
  /// at, else 0), "schedulerStatus" (4 switched off, 3 paused, 2 executing, 1 otherwise),
  /// "executing", "waitsForOther" (an execution started elsewhere), "idleTimeIsSeen", "queueCount",
  /// "hold" {"cause", "text", "until"} (why the head of the queue does not start now),
  /// "nextDate" (of the earliest action), "nextCheck"; while an action is executed "current":
  /// {"ref", "title", "started", "progress" (per cent), "retry"}.
  ZAN_Value status() override;
  /// {"ref", "title", "date", "estimateSize", "running"} each; for a task "task" and "request" too.
  ZAN_Value queue() override;
  /// {"ref", "title", "type", "date"} each, those without a date last; no groups.
  ZAN_Value next() override;
  Result<std::vector<std::string>> why(std::int64_t ref) override;
  /// As a launch by a sibling program it ends the wait after the start.
  Outcome launch(std::int64_t ref) override;
  bool together(const std::function<bool()>& body) override;

 private:
  Records& m;
  Work& mWork;
  LaunchStep& mLaunchStep;
  SchedulerCommands& mCommands;
};

}  // namespace corvana
