#pragma once

#include <cstdint>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/ActionContext.h"
#include "actions/Schedule.h"

namespace corvana {

/// What the evaluation asks of a settings record at every pass, decoded once: beside the schedule
/// the events that start the action, the notice that it was not executed for long, and what it is
/// listed with.
struct TriggerSettings {
  TriggerSettings() = default;
  explicit TriggerSettings(const ZAN_Value& settings);

  /// Whether a change of the value under that key makes what was decoded stale. "LastScheduleDate"
  /// does not: `schedule.setLastScheduleDate` takes it.
  static bool dependsOnKey(std::string_view key);

  Schedule schedule;
  ZAN_Value title;                              ///< "Title" as stored
  ZAN_Value shortcut;                           ///< "Shortcut" as stored
  std::int64_t mode = 0;                        ///< "Mode"
  ActionContext context = ActionContext::none;  ///< "TriggerContextPopup"
  std::int64_t idleMinutes = 0;                 ///< "TriggerScheduleMinutes" as stored
  std::int64_t notExecuted = 0;  ///< "TriggerNotificationNotExecuted": bit 0 message, bit 1 mail
  std::int64_t notExecutedDays = 0;  ///< "TriggerDelayNotExecuted" as stored
  ZAN_Value appQuitPath;             ///< "TriggerAppQuitPath": text or null
};

}  // namespace corvana
