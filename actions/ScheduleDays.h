#pragma once

#include <cstdint>
#include <optional>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "actions/Schedule.h"

namespace corvana {

/// The days that a schedule entry chooses, one after the other, from a day on and as far as its
/// horizon reaches. The first day counts as the horizon's first; a day that the zone left out
/// neither counts nor is chosen. Days are numbers as in `ZAN_CivilDay`.
class ScheduleDays {
 public:
  /// Both objects must outlive this one. A date a year is looked for in `currentYear` and the next.
  ScheduleDays(const ScheduleEntry& entry, const ZAN_DateUtils& calendar, std::int64_t startDay,
               std::int64_t currentYear);

  /// Null when the horizon is reached.
  std::optional<std::int64_t> next();

  /// How many days that is; 0 for an entry that chooses none.
  static std::int64_t horizonOf(const ScheduleEntry& entry);

 private:
  std::optional<std::int64_t> candidate();
  std::optional<std::int64_t> nextInMonth();
  std::optional<std::int64_t> nextInWeek();
  std::optional<std::int64_t> nextYearly();
  std::uint32_t chosenDaysOfMonth(ZAN_CivilDay day, std::int64_t number) const;

  const ScheduleEntry& mEntry;
  const ZAN_DateUtils& mCalendar;
  std::int64_t mDay;  ///< the next one to look at
  std::int64_t mEnd;
  std::int64_t mSkipped;  ///< the next day that the zone left out
  std::int64_t mYear;
};

}  // namespace corvana
