#pragma once

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class AgentAnswers;
struct Records;
struct Work;

/// How everything stands on this machine, for those that are paired with it.
struct MachineGlance {
  /// Of so many actions at most, in the order of the tree.
  static constexpr std::size_t kMostActions = 500;

  /// "date" (now, there), of the agent's status "enabled", "disabledWhenDone", "paused", "context",
  /// "executing", "queueCount", "nextDate", "hold", "current"; "actions": {"ref", "title", "mode",
  /// "launchable", "lastSuccess", "next"} each, dates that do not exist left out; "leftOut"
  /// (actions beyond the bound); and "attention": what its user should look at, {"kind"} each with
  /// "failed"
  /// ("ref", "title", "code" of the log), "overdue" ("ref", "title", "since") or "storage"
  /// ("text"). Thread: main.
  static ZAN_Value of(Records& records, const Work& work, AgentAnswers& answers);
};

}  // namespace corvana
