#include "actions/ScheduleDays.h"

#include <bit>

namespace corvana {

namespace {

using Mode = ScheduleEntry::Mode;
using MonthMode = ScheduleEntry::MonthMode;
using Parity = ScheduleEntry::Parity;

constexpr int kSaturday = 7;
constexpr int kSunday = 1;
constexpr std::uint32_t kAllDays = 0xFFFFFFFE;  ///< bit 1 to bit 31
constexpr std::uint32_t kOddDays = 0xAAAAAAAA;

std::uint32_t bit(int day) { return std::uint32_t{1} << day; }

/// How many days later the weekday comes again; 0 for the day itself.
int daysUntil(int weekday, int fromWeekday) { return (weekday - fromWeekday + 7) % 7; }

}  // namespace

ScheduleDays::ScheduleDays(const ScheduleEntry& entry, const ZAN_DateUtils& calendar,
                           std::int64_t startDay, std::int64_t currentYear)
    : mEntry(entry),
      mCalendar(calendar),
      mDay(startDay),
      mEnd(startDay + horizonOf(entry)),
      mSkipped(calendar.nextSkippedDay(startDay)),
      mYear(currentYear) {
  for (std::int64_t skipped = mSkipped; skipped < mEnd;
       skipped = calendar.nextSkippedDay(skipped + 1))
    ++mEnd;
}

std::int64_t ScheduleDays::horizonOf(const ScheduleEntry& entry) {
  const bool every = entry.parity == Parity::every;
  switch (entry.mode) {
    case Mode::everyDay:
      return every ? 2 : 3;
    case Mode::daysOfWeek:
      return every ? 8 : 15;
    case Mode::daysOfMonth:
      return every ? 32 : 63;
    case Mode::yearly:
      return 368;
    case Mode::never:
      break;
  }
  return 0;
}

std::optional<std::int64_t> ScheduleDays::next() {
  while (true) {
    const std::optional<std::int64_t> day = candidate();
    if (!day || *day >= mEnd) return std::nullopt;
    mDay = *day + 1;
    if (*day < mSkipped) return day;
    const bool isSkipped = *day == mSkipped;
    mSkipped = mCalendar.nextSkippedDay(mDay);
    if (!isSkipped) return day;
  }
}

/// The first day from `mDay` on that is chosen, whatever the zone says; it may lie behind the end.
std::optional<std::int64_t> ScheduleDays::candidate() {
  switch (mEntry.mode) {
    case Mode::everyDay:
      return mEntry.parity == Parity::every ? mDay : nextInMonth();
    case Mode::daysOfWeek:
      return nextInWeek();
    case Mode::daysOfMonth:
      return nextInMonth();
    case Mode::yearly:
      return nextYearly();
    case Mode::never:
      break;
  }
  return std::nullopt;
}

std::optional<std::int64_t> ScheduleDays::nextInWeek() {
  for (; mDay < mEnd; ++mDay) {
    if (!mEntry.choosesWeekday(ZAN_CivilDay::weekdayOfNumber(mDay))) continue;
    if (mEntry.parity == Parity::every || mEntry.hasParity(mCalendar.weekOfDay(mDay))) return mDay;
  }
  return std::nullopt;
}

std::optional<std::int64_t> ScheduleDays::nextInMonth() {
  while (mDay < mEnd) {
    const ZAN_CivilDay day = ZAN_CivilDay::ofNumber(mDay);
    const std::uint32_t days = chosenDaysOfMonth(day, mDay) >> day.day;
    if (days != 0) return mDay + std::countr_zero(days);
    mDay += ZAN_CivilDay::daysInMonth(day.year, day.month) - day.day + 1;
  }
  return std::nullopt;
}

std::uint32_t ScheduleDays::chosenDaysOfMonth(ZAN_CivilDay day, std::int64_t number) const {
  const int last = ZAN_CivilDay::daysInMonth(day.year, day.month);
  const std::uint32_t existing = kAllDays >> (31 - last) & kAllDays;
  if (mEntry.mode == Mode::everyDay) {
    return existing & (mEntry.parity == Parity::odd ? kOddDays : ~kOddDays);
  }
  if (!mEntry.hasParity(day.month)) return 0;
  const int weekdayOfFirst = ZAN_CivilDay::weekdayOfNumber(number - day.day + 1);
  const int weekdayOfLast = ZAN_CivilDay::weekdayOfNumber(number - day.day + last);
  const auto weekdayOccurrence = [&](int which) {
    if (mEntry.monthWeekDay == 0) return std::uint32_t{0};
    return bit(which * 7 - 6 + daysUntil(mEntry.monthWeekDay, weekdayOfFirst));
  };
  switch (mEntry.monthMode) {
    case MonthMode::days:
      return mEntry.monthDays & existing;
    case MonthMode::firstDay:
      return bit(1);
    case MonthMode::firstWorkingDay:
      return bit(weekdayOfFirst == kSaturday ? 3 : weekdayOfFirst == kSunday ? 2 : 1);
    case MonthMode::lastDay:
      return bit(last);
    case MonthMode::lastWorkingDay:
      return bit(weekdayOfLast == kSaturday ? last - 1
                 : weekdayOfLast == kSunday ? last - 2
                                            : last);
    case MonthMode::firstWeekday:
      return weekdayOccurrence(1);
    case MonthMode::lastWeekday:
      return mEntry.monthWeekDay == 0 ? 0
                                      : bit(last - daysUntil(weekdayOfLast, mEntry.monthWeekDay));
    case MonthMode::secondWeekday:
      return weekdayOccurrence(2);
    case MonthMode::never:
      break;
  }
  return 0;
}

std::optional<std::int64_t> ScheduleDays::nextYearly() {
  for (const std::int64_t year : {mYear, mYear + 1}) {
    const std::optional<std::int64_t> day =
        mCalendar.dayNumberForDay(mEntry.day, mEntry.month, year);
    if (day && *day >= mDay) return day;
  }
  return std::nullopt;
}

}  // namespace corvana
