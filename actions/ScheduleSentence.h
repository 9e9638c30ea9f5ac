#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/Schedule.h"

namespace corvana {

/// Says in the user's language what makes an action run: "every Monday and Thursday at 18:30,
/// between 08:00 and 18:00, only at home". Thread: main.
class ScheduleSentence {
 public:
  /// All outlive this object. `strings` write the times of day.
  ScheduleSentence(const ZAN_DateUtils& calendar, const ZAN_StringTable& table,
                   const ZAN_StringUtils& strings);

  /// For a line of its own: with a capital letter; an application goes by its name.
  std::string inWindow(const ZAN_Value& settings) const;
  /// For the middle of a line; an application goes by what the record says.
  std::string inTerminal(const ZAN_Value& settings) const;

 private:
  std::string sentence(const ZAN_Value& settings, std::string_view application) const;
  std::string time(std::optional<ReferenceTime> stored) const;
  std::string weekday(int weekday) const;
  std::string joined(const std::vector<std::string>& words) const;
  std::string occasion(const Schedule& schedule, const ZAN_Value& settings,
                       std::string_view application) const;
  std::string occasion(const ScheduleEntry& entry) const;
  std::string days(const ScheduleEntry& entry) const;
  std::string daysOfWeek(const ScheduleEntry& entry) const;
  std::string daysOfMonth(const ScheduleEntry& entry) const;

  const ZAN_DateUtils& mCalendar;
  const ZAN_StringTable& mTable;
  ZAN_StringUtils mClock;  ///< writes seconds in day, so that no day's change of clocks counts
};

}  // namespace corvana
