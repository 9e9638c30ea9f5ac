#include "command/ScheduleWords.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>

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

namespace {

using MonthMode = ScheduleEntry::MonthMode;

constexpr std::array<std::string_view, 7> kWeekdays{"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                    "Thursday", "Friday", "Saturday"};

std::optional<int> numberIn(std::string_view text, int least, int most) {
  int value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool isWhole = error == std::errc() && stop == text.data() + text.size();
  return isWhole && value >= least && value <= most ? std::optional(value) : std::nullopt;
}

/// "8:00" or "08:00" as seconds in day.
std::optional<int> timeOfDay(std::string_view text) {
  const auto colon = text.find(':');
  if (colon == std::string_view::npos || text.size() != colon + 3) return std::nullopt;
  const auto hour = numberIn(text.substr(0, colon), 0, 23);
  const auto minute = numberIn(text.substr(colon + 1), 0, 59);
  if (!hour || !minute) return std::nullopt;
  return *hour * 3600 + *minute * 60;
}

std::vector<std::string_view> parts(std::string_view text, char separator) {
  std::vector<std::string_view> result;
  for (;;) {
    const auto end = text.find(separator);
    result.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return result;
    text.remove_prefix(end + 1);
  }
}

/// "mon" to "monday", in any case: 1 = Sunday to 7 = Saturday; 0 for none.
int weekdayNamed(std::string_view word) {
  if (word.size() < 3) return 0;
  for (std::size_t day = 0; day < kWeekdays.size(); ++day) {
    const bool isBeginning = word.size() <= kWeekdays[day].size() &&
                             std::equal(word.begin(), word.end(), kWeekdays[day].begin(),
                                        [](char a, char b) { return (a | 0x20) == (b | 0x20); });
    if (isBeginning) return static_cast<int>(day) + 1;
  }
  return 0;
}

}  // namespace

ScheduleWords::ScheduleWords(Arguments& arguments) {
  takeFrequencies(arguments);
  takeDates(arguments);
  takeHours(arguments);
  if (mPlan.isManual &&
      (mPlan.kind || !mPlan.entries.empty() || !mPlan.daily.empty() || mPlan.atShutDown)) {
    arguments.complain("--manual goes with no other schedule");
  }
}

void ScheduleWords::setKind(ScheduleKind kind, std::string_view word, Arguments& arguments) {
  if (mPlan.kind) {
    arguments.complain(mKindWord + " and " + std::string(word) +
                       " do not go together: make two actions");
  }
  mPlan.kind = kind;
  mKindWord = word;
}

void ScheduleWords::takeFrequencies(Arguments& arguments) {
  mPlan.isManual = arguments.flag("--manual");
  mPlan.atShutDown = arguments.flag("--at-shutdown");
  if (arguments.flag("--hourly")) setKind(ScheduleKind::hourly, "--hourly", arguments);
  if (arguments.flag("--on-mount")) setKind(ScheduleKind::volumeMounted, "--on-mount", arguments);
  if (arguments.flag("--at-startup")) setKind(ScheduleKind::startUp, "--at-startup", arguments);
  if (const auto text = arguments.option("--every")) {
    setKind(ScheduleKind::minutes, "--every", arguments);
    const char unit = text->empty() ? '\0' : text->back();
    const auto number =
        numberIn(std::string_view(*text).substr(0, text->empty() ? 0 : text->size() - 1), 1, 9999);
    if (!number || (unit != 'm' && unit != 'h')) {
      arguments.complain("--every wants a number of minutes or hours such as 15m or 2h, not \"" +
                         *text + "\"");
    } else {
      mPlan.minutes = unit == 'h' ? *number * 60 : *number;
    }
  }
  if (const auto minutes = arguments.number("--on-idle", 1, 1440)) {
    setKind(ScheduleKind::idle, "--on-idle", arguments);
    mPlan.minutes = *minutes;
  }
  if (const auto application = arguments.option("--on-quit")) {
    setKind(ScheduleKind::applicationQuit, "--on-quit", arguments);
    mPlan.application = *application;
    if (application->empty()) arguments.complain("--on-quit wants an application");
  }
}

void ScheduleWords::takeDates(Arguments& arguments) {
  for (const std::string& text : arguments.options("--daily")) {
    if (const auto time = timeOfDay(text)) {
      mPlan.daily.push_back(*time);
    } else {
      arguments.complain("--daily wants a time such as 08:00, not \"" + text + "\"");
    }
  }
  for (const std::string& days : arguments.options("--weekly")) takeWeekly(days, arguments);
  for (const std::string& word : arguments.options("--monthly")) takeMonthly(word, arguments);
  for (const std::string& date : arguments.options("--yearly")) takeYearly(date, arguments);
  const auto times = arguments.options("--at");
  if (times.size() > 1) {
    arguments.complain("--at is given twice: make two actions");
  } else if (times.size() == 1) {
    mPlan.at = timeOfDay(times[0]);
    if (!mPlan.at) arguments.complain("--at wants a time such as 18:30, not \"" + times[0] + "\"");
    if (mPlan.entries.empty()) arguments.complain("--at goes with --weekly, --monthly or --yearly");
  } else if (!mPlan.entries.empty()) {
    arguments.complain("--at is missing: at what time of the day?");
  }
}

void ScheduleWords::takeWeekly(std::string_view days, Arguments& arguments) {
  std::vector<int> weekdays;
  for (const std::string_view word : parts(days, ',')) {
    const int day = weekdayNamed(word);
    if (day == 0) {
      return arguments.complain("--weekly wants days such as mon,thu, not \"" + std::string(days) +
                                "\"");
    }
    weekdays.push_back(day);
  }
  mPlan.entries.push_back(SchedulePlan::weekly(weekdays));
}

void ScheduleWords::takeMonthly(const std::string& word, Arguments& arguments) {
  constexpr std::array<std::pair<std::string_view, MonthMode>, 4> kDays{
      {{"first-day", MonthMode::firstDay},
       {"first-working-day", MonthMode::firstWorkingDay},
       {"last-day", MonthMode::lastDay},
       {"last-working-day", MonthMode::lastWorkingDay}}};
  constexpr std::array<std::pair<std::string_view, MonthMode>, 3> kOccurrences{
      {{"first-", MonthMode::firstWeekday},
       {"last-", MonthMode::lastWeekday},
       {"second-", MonthMode::secondWeekday}}};
  for (const auto& [name, mode] : kDays) {
    if (word == name) return mPlan.entries.push_back(SchedulePlan::monthly(mode));
  }
  for (const auto& [beginning, mode] : kOccurrences) {
    if (!word.starts_with(beginning)) continue;
    if (const int day = weekdayNamed(std::string_view(word).substr(beginning.size())))
      return mPlan.entries.push_back(SchedulePlan::monthly(mode, day));
  }
  const auto numbers = parts(word, ',');
  if (!std::all_of(numbers.begin(), numbers.end(),
                   [](std::string_view number) { return numberIn(number, 1, 31).has_value(); })) {
    return arguments.complain("--monthly does not know \"" + word + "\"");
  }
  mPlan.entries.push_back(SchedulePlan::monthly(word));
}

void ScheduleWords::takeYearly(std::string_view date, Arguments& arguments) {
  constexpr std::array<int, 12> kLengths{31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  auto numbers = parts(date, '.');
  if (numbers.size() == 3 && numbers[2].empty()) numbers.pop_back();
  const auto month = numbers.size() == 2 ? numberIn(numbers[1], 1, 12) : std::nullopt;
  const auto day = month ? numberIn(numbers[0], 1, kLengths[static_cast<std::size_t>(*month) - 1])
                         : std::nullopt;
  if (!day) {
    return arguments.complain("--yearly wants a day and a month such as 29.2., not \"" +
                              std::string(date) + "\"");
  }
  mPlan.entries.push_back(SchedulePlan::yearly(*day, *month));
}

void ScheduleWords::takeHours(Arguments& arguments) {
  const auto text = arguments.option("--hours");
  if (!text) return;
  if (*text == "any") {
    mPlan.hours = SchedulePlan::Hours{.isAny = true};
    return;
  }
  const auto bounds = parts(*text, '-');
  const auto from = bounds.size() == 2 ? timeOfDay(bounds[0]) : std::nullopt;
  const auto to = bounds.size() == 2 ? timeOfDay(bounds[1]) : std::nullopt;
  if (!from || !to) {
    return arguments.complain("--hours wants two times such as 08:00-18:00, or any, not \"" +
                              *text + "\"");
  }
  mPlan.hours = SchedulePlan::Hours{.from = *from, .to = *to};
}

namespace {

/// A date as it is shown begins with its day of the week.
std::string withoutWeekday(const std::string& words) {
  constexpr std::array<std::string_view, 7> kDays{"Mon ", "Tue ", "Wed ", "Thu ",
                                                  "Fri ", "Sat ", "Sun "};
  const bool hasDay =
      std::ranges::any_of(kDays, [&](std::string_view day) { return words.starts_with(day); });
  return hasDay ? words.substr(kDays.front().size()) : words;
}

}  // namespace

Result<ReferenceTime> pastDate(const std::string& given, ReferenceTime now,
                               const ZAN_DateUtils& calendar) {
  const std::string words = withoutWeekday(given);
  const Error refused{ErrorKind::refused, "\"" + words +
                                              "\" is no date; for instance yesterday, 2026-11-14, "
                                              "\"2026-11-14 18:30\", \"3 days ago\""};
  // Whatever was made within the second belongs to it.
  constexpr double kNearlyASecond = 0.999;
  if (words == "now" || words == "today") return now;
  if (words == "yesterday") return calendar.dayAt0h00(now) - 1 + kNearlyASecond;
  int year = 0;
  int month = 0;
  int day = 0;
  int length = 0;
  if (std::sscanf(words.c_str(), "%4d-%2d-%2d%n", &year, &month, &day, &length) == 3) {
    const auto number = calendar.dayNumberForDay(day, month, year);
    if (!number) return refused;
    const std::string rest = words.substr(static_cast<std::size_t>(length));
    if (rest.empty()) return calendar.firstInstantOfDay(*number + 1) - 1 + kNearlyASecond;
    int hour = 0;
    int minute = 0;
    int second = 59;
    int end = 0;
    char between = ' ';
    const bool isMinute =
        std::sscanf(rest.c_str(), "%c%2d:%2d%n", &between, &hour, &minute, &end) == 3;
    std::string_view behind = isMinute
                                  ? std::string_view(rest).substr(static_cast<std::size_t>(end))
                                  : std::string_view();
    if (isMinute && !behind.empty()) {
      int more = 0;
      if (std::sscanf(std::string(behind).c_str(), ":%2d%n", &second, &more) != 1 ||
          static_cast<std::size_t>(more) != behind.size())
        return refused;
    }
    if (!isMinute || (between != ' ' && between != 'T') || hour < 0 || hour > 23 || minute < 0 ||
        minute > 59 || second < 0 || second > 59)
      return refused;
    return calendar.timeOnDay(*number, hour * 3600 + minute * 60 + second) + kNearlyASecond;
  }
  std::istringstream stream(words);
  int count = 0;
  std::string unit;
  std::string ago;
  std::string more;
  if (!(stream >> count >> unit >> ago) || ago != "ago" || stream >> more || count < 0)
    return refused;
  if (unit.ends_with('s')) unit.pop_back();
  if (unit == "minute") return now - count * 60.0;
  if (unit == "hour") return now - count * 3600.0;
  if (unit == "day") return calendar.addClockSeconds(now, -std::int64_t{count} * 86400);
  if (unit == "week") return calendar.addClockSeconds(now, -std::int64_t{count} * 7 * 86400);
  if (unit != "month" && unit != "year") return refused;
  auto parts = calendar.components(now);
  (unit == "month" ? parts.month : parts.year) -= count;
  return calendar.dateForComponents(parts);
}

}  // namespace corvana
