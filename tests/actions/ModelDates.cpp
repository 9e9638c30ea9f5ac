#include "tests/actions/ModelDates.h"

#include <algorithm>
#include <cmath>

#include "ZANCocoaFramework/ZAN_Archiver.h"

namespace corvana::model {

namespace {

void setDate(ZAN_Value& dictionary, const char* key, Date date) {
  if (date) dictionary.setValue(key, ZAN_Value::date(*date));
}

}  // namespace

ZAN_Value Entry::value() const {
  ZAN_Value entry = ZAN_Value::dictionary({{"TriggerScheduleMode", mode},
                                           {"TriggerFrequencyPopup", popup},
                                           {"TriggerScheduleEvenOdd", evenOdd},
                                           {"TriggerScheduleMonthMode", monthMode},
                                           {"TriggerScheduleMonthWeekDay", monthWeekDay},
                                           {"TriggerScheduleDay", day},
                                           {"TriggerScheduleMonth", month}});
  setDate(entry, "TriggerScheduleTime", time);
  const char* names[] = {"",          "Sunday",   "Monday", "Tuesday",
                         "Wednesday", "Thursday", "Friday", "Saturday"};
  for (int weekday = 1; weekday <= 7; ++weekday) {
    entry.setValue(std::string("TriggerSchedule") + names[weekday], weekdays[weekday]);
  }
  std::string days;
  for (const int number : monthDays) days += (days.empty() ? "" : ", ") + std::to_string(number);
  entry.setValue("TriggerScheduleMonthDays", days);
  return entry;
}

ZAN_Value Record::settingsWithoutList() const {
  ZAN_Value settings = ZAN_Value::dictionary({{"TriggerAutomatic", automatic},
                                              {"TriggerFrequencyPopup", frequency},
                                              {"TriggerHourDelay", hourDelay},
                                              {"TriggerScheduleMinutes", minutes},
                                              {"TriggerAllowedHours", allowedHours}});
  setDate(settings, "TriggerScheduleTime", time);
  setDate(settings, "TriggerAllowedHoursFrom", from);
  setDate(settings, "TriggerAllowedHoursTo", to);
  setDate(settings, "LastScheduleDate", last);
  return settings;
}

ZAN_Value Record::settings() const {
  ZAN_Value settings = settingsWithoutList();
  if (list.empty()) return settings;
  ZAN_Value entries = ZAN_Value::array();
  for (const Entry& entry : list) entries.append(entry.value());
  settings.setValue("TriggerScheduleList",
                    ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(entries)));
  return settings;
}

Schedule Record::schedule() const {
  Schedule schedule(settingsWithoutList());
  for (const Entry& entry : list) schedule.list.emplace_back(entry.value());
  return schedule;
}

Date Dates::last(const Record& record) const {
  if (record.last && *record.last > mNow + 86400) return mNow;
  return record.last;
}

Dates::Next Dates::nextDate(const Record& record, bool firstAfterStartup) const {
  if (record.automatic == 0) return {};
  const Date last = this->last(record);
  int from = 0;
  int to = 0;
  ReferenceTime dayStart = today();
  if (record.allowedHours != 0) {
    from = record.from ? mZone.secondsInDay(*record.from) : 0;
    to = record.to ? mZone.secondsInDay(*record.to) : 0;
    dayStart = dayPlus(today(), from);
  }
  const std::int64_t offset =
      record.hourDelay >= 1 && record.hourDelay <= 3 ? record.hourDelay * 900 : 0;
  const Date nowIfFirst = firstAfterStartup ? Date(mNow) : Date();
  Date p;
  if (record.frequency == 1 && record.time) {
    p = nextSchedule(today(), last, 0, mZone.secondsInDay(*record.time), 86400);
  } else if (record.frequency == 20) {
    const std::int64_t minutes = std::max<std::int64_t>(record.minutes, 1);
    Date start = last;
    // No offset of these zones is less than a minute off, once they keep standard time.
    while (start && mZone.secondsInDay(*start) % 60 != 0) *start -= 1;
    if (start) *start = std::floor(*start);
    p = nextSchedule(start, dayStart, 0, minutes * 60, minutes * 60);
  } else if (record.frequency == 21) {
    p = nextSchedule(dayStart, last, offset, 0, 3600);
  } else if (record.frequency == 22) {
    p = nextSchedule(dayStart, last, offset, 0, 10800);
  } else if (record.frequency == 30) {
    p = !last || *last < today() - 60 ? nowIfFirst : Date(dayPlus(mZone.nextDay(mNow), from));
  } else if (record.frequency == 31) {
    p = nowIfFirst;
  } else if (record.frequency == 32) {
    if (last && mZone.dayNumber(*last) == mZone.dayNumber(mNow))
      p = dayPlus(mZone.nextDay(mNow), from);
  }
  if (p && record.allowedHours != 0 &&
      (mZone.secondsInDay(*p) < from || mZone.secondsInDay(*p) > to))
    p.reset();
  const Next q = programmed(record);
  Next result;
  result.date = q.date && (!p || *q.date < *p) ? q.date : p;
  result.shutDown = q.shutDown;
  return result;
}

ReferenceTime Dates::nextSchedule(Date start, Date last, std::int64_t startTime,
                                  std::int64_t increment, std::int64_t delay) const {
  const ReferenceTime first = start.value_or(today());
  ReferenceTime candidate;
  if (delay == 86400) {
    // Seconds on the clock: of the day, or from a time of day on.
    const bool isDay = first == *mZone.firstInstantOfDay(mZone.dayNumber(first));
    candidate = isDay ? dayPlus(first, increment) : mZone.instantOf(mZone.civil(first) + increment);
  } else {
    candidate = first + static_cast<double>(increment);
  }
  while (last && candidate < *last + 120) {
    if (delay == 86400) {
      candidate = dayPlus(mZone.nextDay(candidate), increment);
    } else {
      candidate += static_cast<double>(delay);
    }
  }
  return candidate + static_cast<double>(startTime);
}

Dates::Next Dates::programmed(const Record& record) const {
  const bool allowed = record.allowedHours != 0;
  const int from = allowed && record.from ? mZone.secondsInDay(*record.from) : 0;
  const int to = allowed && record.to ? mZone.secondsInDay(*record.to) : 0;
  const ReferenceTime start = allowed ? dayPlus(today(), from) : today();
  Next best;
  for (const Entry& entry : record.list) {
    const Next next = this->entry(entry, start, last(record));
    if (!next.date) continue;
    if (allowed && (mZone.secondsInDay(*next.date) < from || mZone.secondsInDay(*next.date) > to))
      continue;
    if (best.date && *next.date >= *best.date) continue;
    best.date = next.date;
    best.startUp |= next.startUp;
    best.shutDown |= next.shutDown;
  }
  return best;
}

Dates::Next Dates::entry(const Entry& entry, ReferenceTime start, Date last) const {
  const bool evenOdd = entry.evenOdd == 1 || entry.evenOdd == 2;
  int days = 0;
  if (entry.mode == 0) days = evenOdd ? 3 : 2;
  if (entry.mode == 1) days = evenOdd ? 15 : 8;
  if (entry.mode == 2) days = evenOdd ? 63 : 32;
  if (entry.mode == 3) days = 368;
  ReferenceTime day = start;
  for (int walked = 0; walked < days; ++walked, day = mZone.nextDay(day)) {
    if (!qualifies(entry, day) || !entry.time) continue;
    const ReferenceTime candidate = dayPlus(day, mZone.secondsInDay(*entry.time));
    if (last && candidate < *last + 120) continue;
    if (mZone.dayNumber(candidate) != mZone.dayNumber(day)) continue;
    return {candidate, entry.popup == 20, entry.popup == 21};
  }
  return {};
}

bool Dates::qualifies(const Entry& entry, ReferenceTime day) const {
  const std::int64_t number = mZone.dayNumber(day);
  const auto parity = [&](int value) {
    return entry.evenOdd == 1 ? value % 2 == 1 : entry.evenOdd == 2 ? value % 2 == 0 : true;
  };
  switch (entry.mode) {
    case 0:
      return parity(dayOf(number).day);
    case 1:
      return entry.weekdays[weekdayOf(number)] && parity(weekOf(number, mWeeksBeginOnMonday));
    case 2:
      return parity(dayOf(number).month) && qualifiesInMonth(entry, number);
    case 3: {
      const int year = dayOf(mZone.dayNumber(mNow)).year;
      for (const int candidate : {year, year + 1}) {
        const Date date = dateForDay(entry.day, entry.month, candidate);
        if (date && mZone.dayNumber(*date) == number) return true;
      }
      return false;
    }
    default:
      return false;
  }
}

bool Dates::qualifiesInMonth(const Entry& entry, std::int64_t number) const {
  const int month = dayOf(number).month;
  const auto isWorking = [](std::int64_t day) {
    return weekdayOf(day) >= 2 && weekdayOf(day) <= 6;
  };
  /// How many days of the month before or after this one pass a test.
  const auto countBefore = [&](auto test) {
    int count = 0;
    for (std::int64_t day = number - 1; dayOf(day).month == month; --day)
      count += test(day) ? 1 : 0;
    return count;
  };
  const auto countAfter = [&](auto test) {
    int count = 0;
    for (std::int64_t day = number + 1; dayOf(day).month == month; ++day)
      count += test(day) ? 1 : 0;
    return count;
  };
  const auto any = [](std::int64_t) { return true; };
  const auto isTheWeekday = [&](std::int64_t day) { return weekdayOf(day) == entry.monthWeekDay; };
  switch (entry.monthMode) {
    case 1:
      return std::ranges::find(entry.monthDays, dayOf(number).day) != entry.monthDays.end();
    case 10:
      return countBefore(any) == 0;
    case 11:
      return isWorking(number) && countBefore(isWorking) == 0;
    case 12:
      return countAfter(any) == 0;
    case 13:
      return isWorking(number) && countAfter(isWorking) == 0;
    case 14:
      return isTheWeekday(number) && countBefore(isTheWeekday) == 0;
    case 15:
      return isTheWeekday(number) && countAfter(isTheWeekday) == 0;
    case 16:
      return isTheWeekday(number) && countBefore(isTheWeekday) == 1;
    default:
      return false;
  }
}

Date Dates::dateForDay(std::int64_t day, std::int64_t month, int year) const {
  const auto number = numberOf({year, static_cast<int>(month), static_cast<int>(day)});
  return number ? mZone.firstInstantOfDay(*number) : Date();
}

}  // namespace corvana::model
