#include "command/SchedulePlan.h"

#include <array>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Archiver.h"

namespace corvana {

namespace {

constexpr std::array<std::string_view, 8> kWeekdayKeys{"",
                                                       "TriggerScheduleSunday",
                                                       "TriggerScheduleMonday",
                                                       "TriggerScheduleTuesday",
                                                       "TriggerScheduleWednesday",
                                                       "TriggerScheduleThursday",
                                                       "TriggerScheduleFriday",
                                                       "TriggerScheduleSaturday"};

int modeNumber(ScheduleEntry::Mode mode) { return static_cast<int>(mode); }

/// A date whose time of day on the clock is that one. A day on which a change of the clocks skips
/// it will not do.
ZAN_Value storedTime(int seconds, const ZAN_DateUtils& calendar, ReferenceTime now) {
  ReferenceTime day = calendar.dayAt0h00(now);
  while (calendar.secondsInDay(calendar.timeOfDay(day, seconds)) != seconds) {
    day = calendar.nextDay(day);
  }
  return ZAN_Value::date(calendar.timeOfDay(day, seconds));
}

ZAN_Value entryOf(ScheduleEntry::Mode mode) {
  return ZAN_Value::dictionary({{"TriggerScheduleMode", modeNumber(mode)}});
}

}  // namespace

ZAN_Value SchedulePlan::weekly(const std::vector<int>& weekdays) {
  ZAN_Value entry = entryOf(ScheduleEntry::Mode::daysOfWeek);
  for (const int day : weekdays) entry.setValue(kWeekdayKeys.at(static_cast<std::size_t>(day)), 1);
  return entry;
}

ZAN_Value SchedulePlan::monthly(const std::string& days) {
  ZAN_Value entry = entryOf(ScheduleEntry::Mode::daysOfMonth);
  entry.setValue("TriggerScheduleMonthMode", static_cast<int>(ScheduleEntry::MonthMode::days));
  entry.setValue("TriggerScheduleMonthDays", days);
  return entry;
}

ZAN_Value SchedulePlan::monthly(ScheduleEntry::MonthMode mode, int weekday) {
  ZAN_Value entry = entryOf(ScheduleEntry::Mode::daysOfMonth);
  if (weekday != 0) entry.setValue("TriggerScheduleMonthWeekDay", weekday);
  entry.setValue("TriggerScheduleMonthMode", static_cast<int>(mode));
  return entry;
}

ZAN_Value SchedulePlan::yearly(int day, int month) {
  ZAN_Value entry = entryOf(ScheduleEntry::Mode::yearly);
  entry.setValue("TriggerScheduleDay", day);
  entry.setValue("TriggerScheduleMonth", month);
  return entry;
}

void SchedulePlan::applyTo(ZAN_Value& record, const ZAN_DateUtils& calendar,
                           ReferenceTime now) const {
  if (!saysWhen() && !hours) return;
  record.setValue("LastScheduleDate", ZAN_Value::date(now));
  if (hours) {
    record.setValue("TriggerAllowedHours", hours->isAny ? 0 : 1);
    record.setValue("TriggerAllowedHoursFrom", storedTime(hours->from, calendar, now));
    record.setValue("TriggerAllowedHoursTo", storedTime(hours->to, calendar, now));
  }
  if (!saysWhen()) return;
  record.setValue("TriggerAutomatic", isManual ? 0 : 1);
  if (isManual) return;

  for (const char* key : {"TriggerScheduleTime", "TriggerScheduleMinutes", "TriggerHourDelay",
                          "TriggerScheduleList", "TriggerAppQuitPath"}) {
    record.removeKey(key);
  }
  std::vector<ZAN_Value> list;
  const bool isDaily = !kind && daily.size() == 1;
  if (isDaily) {
    record.setValue("TriggerScheduleTime", storedTime(daily[0], calendar, now));
  } else {
    for (const int time : daily) {
      list.push_back(
          ZAN_Value::dictionary({{"TriggerScheduleMode", modeNumber(ScheduleEntry::Mode::everyDay)},
                                 {"TriggerScheduleTime", storedTime(time, calendar, now)}}));
    }
  }
  for (ZAN_Value entry : entries) {
    if (at) entry.setValue("TriggerScheduleTime", storedTime(*at, calendar, now));
    list.push_back(std::move(entry));
  }
  // Without a time the entry has no date that could stand before those of the others.
  if (atShutDown) {
    list.push_back(ZAN_Value::dictionary(
        {{"TriggerScheduleMode", modeNumber(ScheduleEntry::Mode::everyDay)},
         {"TriggerFrequencyPopup", static_cast<int>(ScheduleEntry::Occasion::shutDown)}}));
  }
  record.setValue(
      "TriggerFrequencyPopup",
      static_cast<int>(kind.value_or(isDaily ? ScheduleKind::daily : ScheduleKind::listOnly)));
  if (minutes != 0) record.setValue("TriggerScheduleMinutes", static_cast<int>(minutes));
  if (!application.empty()) record.setValue("TriggerAppQuitPath", application);
  if (!list.empty()) {
    record.setValue("TriggerScheduleList", ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(
                                               ZAN_Value::array(std::move(list)))));
  }
}

}  // namespace corvana
