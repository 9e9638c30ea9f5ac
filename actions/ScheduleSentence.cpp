#include "actions/ScheduleSentence.h"

#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/ActionsTools.h"
#include "actions/Forecast.h"

// What the user reads about schedules.

namespace corvana {

namespace {

using Parity = ScheduleEntry::Parity;

constexpr std::int64_t kUsualIdleMinutes = 10;

/// No text of a schedule begins with a letter beyond ASCII, unless it is a name.
std::string capitalized(std::string text) {
  if (!text.empty() && text.front() >= 'a' && text.front() <= 'z') text.front() -= 'a' - 'A';
  return text;
}

}  // namespace

ScheduleSentence::ScheduleSentence(const ZAN_DateUtils& calendar, const ZAN_StringTable& table,
                                   const ZAN_StringUtils& strings)
    : mCalendar(calendar), mTable(table), mClock(strings) {
  mClock.setTimeZone("UTC");
}

std::string ScheduleSentence::inWindow(const ZAN_Value& settings) const {
  return capitalized(sentence(
      settings, ZAN_FilesUtils::nameWithoutExtension(settings["TriggerAppQuitPath"].stringView())));
}

std::string ScheduleSentence::inTerminal(const ZAN_Value& settings) const {
  return sentence(settings, settings["TriggerAppQuitPath"].stringView());
}

std::string ScheduleSentence::sentence(const ZAN_Value& settings,
                                       std::string_view application) const {
  const Schedule schedule(settings);
  if (!schedule.automatic) return mTable.text("ScheduleNotAutomatic");
  std::vector<std::string> occasions;
  if (std::string text = occasion(schedule, settings, application); !text.empty())
    occasions.push_back(std::move(text));
  for (const ScheduleEntry& entry : schedule.list) occasions.push_back(occasion(entry));

  std::string text = occasions.empty() ? mTable.text("ScheduleNever") : std::string();
  for (std::size_t i = 0; i < occasions.size(); ++i) {
    if (i == 0) {
      text = occasions[i];
    } else if (i + 1 < occasions.size()) {
      text += ", " + occasions[i];
    } else {
      text = mTable.text("ScheduleLastOccasion", {text, occasions[i]});
    }
  }
  if (!schedule.listDamage.empty()) text = mTable.text("ScheduleDamaged", {text});
  if (schedule.hasAllowedHours)
    text =
        mTable.text("ScheduleHours", {text, time(schedule.allowedFrom), time(schedule.allowedTo)});
  switch (static_cast<ActionContext>(settings.integer(ActionKey::context))) {
    case ActionContext::office:
      return mTable.text("ScheduleInOffice", {text});
    case ActionContext::home:
      return mTable.text("ScheduleAtHome", {text});
    case ActionContext::nomad:
      return mTable.text("ScheduleOnTheRoad", {text});
    case ActionContext::none:
      break;
  }
  return text;
}

/// A time that is missing is the beginning of the day.
std::string ScheduleSentence::time(std::optional<ReferenceTime> stored) const {
  return mClock.getShortTime(stored ? mCalendar.secondsInDay(*stored) : 0);
}

std::string ScheduleSentence::weekday(int weekday) const {
  switch (weekday) {
    case 1:
      return mTable.text("Sunday");
    case 2:
      return mTable.text("Monday");
    case 3:
      return mTable.text("Tuesday");
    case 4:
      return mTable.text("Wednesday");
    case 5:
      return mTable.text("Thursday");
    case 6:
      return mTable.text("Friday");
    case 7:
      return mTable.text("Saturday");
    default:
      return "?";
  }
}

std::string ScheduleSentence::joined(const std::vector<std::string>& words) const {
  std::string text;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i == 0) {
      text = words[i];
    } else if (i + 1 < words.size()) {
      text += ", " + words[i];
    } else {
      text = mTable.text("ScheduleLastOfDays", {text, words[i]});
    }
  }
  return text;
}

std::string ScheduleSentence::occasion(const Schedule& schedule, const ZAN_Value& settings,
                                       std::string_view application) const {
  const int minutesPast = schedule.hourDelay * 15;
  switch (schedule.kind) {
    case ScheduleKind::daily:
      if (!schedule.time)
        return mTable.text("ScheduleDaysAtNoTime", {mTable.text("ScheduleDaily")});
      return mTable.text("ScheduleDaysAt", {mTable.text("ScheduleDaily"), time(schedule.time)});
    case ScheduleKind::volumeMounted:
      return mTable.text("ScheduleVolumeMounted");
    case ScheduleKind::applicationQuit:
      return mTable.text("ScheduleApplicationQuit", {application});
    case ScheduleKind::minutes:
      if (schedule.minutes == 1) return mTable.text("ScheduleEveryMinute");
      if (schedule.minutes % 60 == 0 && schedule.minutes > 60)
        return mTable.text("ScheduleEveryHours", {schedule.minutes / 60});
      return mTable.text("ScheduleMinutes", {schedule.minutes});
    case ScheduleKind::hourly:
      if (minutesPast == 0) return mTable.text("ScheduleHourly");
      return mTable.text("ScheduleHourlyPast", {minutesPast});
    case ScheduleKind::threeHourly:
      if (minutesPast == 0) return mTable.text("ScheduleThreeHourly");
      return mTable.text("ScheduleThreeHourlyPast", {minutesPast});
    case ScheduleKind::firstStartUpOfDay:
      return mTable.text("ScheduleFirstStartUp");
    case ScheduleKind::startUp:
      return mTable.text("ScheduleStartUp");
    case ScheduleKind::nextDay:
      return mTable.text("ScheduleNextDay");
    case ScheduleKind::idle: {
      const std::int64_t minutes = settings.integer("TriggerScheduleMinutes");
      return mTable.text("ScheduleIdle", {minutes > 0 ? minutes : kUsualIdleMinutes});
    }
    default:
      return {};
  }
}

std::string ScheduleSentence::occasion(const ScheduleEntry& entry) const {
  if (entry.occasion == ScheduleEntry::Occasion::shutDown) {
    if (entry.mode == ScheduleEntry::Mode::everyDay && entry.parity == Parity::every)
      return mTable.text("ScheduleShutDown");
    return mTable.text("ScheduleShutDownOn", {days(entry)});
  }
  if (!entry.time) return mTable.text("ScheduleDaysAtNoTime", {days(entry)});
  return mTable.text("ScheduleDaysAt", {days(entry), time(entry.time)});
}

std::string ScheduleSentence::days(const ScheduleEntry& entry) const {
  const bool odd = entry.parity == Parity::odd;
  std::string text;
  switch (entry.mode) {
    case ScheduleEntry::Mode::everyDay:
      text = mTable.text("ScheduleDaily");
      if (entry.parity == Parity::every) return text;
      return mTable.text(odd ? "ScheduleOddDays" : "ScheduleEvenDays", {text});
    case ScheduleEntry::Mode::daysOfWeek:
      text = daysOfWeek(entry);
      if (entry.parity == Parity::every) return text;
      return mTable.text(odd ? "ScheduleOddWeeks" : "ScheduleEvenWeeks", {text});
    case ScheduleEntry::Mode::daysOfMonth:
      text = daysOfMonth(entry);
      if (entry.parity == Parity::every) return text;
      return mTable.text(odd ? "ScheduleOddMonths" : "ScheduleEvenMonths", {text});
    case ScheduleEntry::Mode::yearly:
      return mTable.text("ScheduleYearly",
                         {static_cast<int>(entry.day), static_cast<int>(entry.month)});
    case ScheduleEntry::Mode::never:
      break;
  }
  return mTable.text("ScheduleNever");
}

std::string ScheduleSentence::daysOfWeek(const ScheduleEntry& entry) const {
  std::vector<std::string> names;
  for (const int day : {2, 3, 4, 5, 6, 7, 1}) {
    if (entry.choosesWeekday(day)) names.push_back(weekday(day));
  }
  if (names.empty()) return mTable.text("ScheduleNever");
  return mTable.text("ScheduleWeekdays", {joined(names)});
}

std::string ScheduleSentence::daysOfMonth(const ScheduleEntry& entry) const {
  switch (entry.monthMode) {
    case ScheduleEntry::MonthMode::days: {
      std::vector<std::string> numbers;
      for (int day = 1; day <= 31; ++day) {
        if (entry.choosesMonthDay(day)) numbers.push_back(std::to_string(day));
      }
      return mTable.text("ScheduleDaysOfMonth", {joined(numbers)});
    }
    case ScheduleEntry::MonthMode::firstDay:
      return mTable.text("ScheduleFirstDay");
    case ScheduleEntry::MonthMode::firstWorkingDay:
      return mTable.text("ScheduleFirstWorkingDay");
    case ScheduleEntry::MonthMode::lastDay:
      return mTable.text("ScheduleLastDay");
    case ScheduleEntry::MonthMode::lastWorkingDay:
      return mTable.text("ScheduleLastWorkingDay");
    case ScheduleEntry::MonthMode::firstWeekday:
      return mTable.text("ScheduleFirstWeekday", {weekday(entry.monthWeekDay)});
    case ScheduleEntry::MonthMode::lastWeekday:
      return mTable.text("ScheduleLastWeekday", {weekday(entry.monthWeekDay)});
    case ScheduleEntry::MonthMode::secondWeekday:
      return mTable.text("ScheduleSecondWeekday", {weekday(entry.monthWeekDay)});
    case ScheduleEntry::MonthMode::never:
      break;
  }
  return mTable.text("ScheduleNever");
}

std::string ActionsTools::getNextScheduleModeForSettings(const ZAN_Value& settings,
                                                         const Texts& texts) const {
  return ScheduleSentence(mCalendar, texts.table, texts.strings).inWindow(settings);
}

std::string ActionsTools::getNextScheduleStringForSettings(const ZAN_Value& settings,
                                                           const Texts& texts) const {
  const Schedule schedule(settings);
  const auto run = Forecast(mCalendar, schedule).next(mNow);
  if (!run) return texts.table.text("ScheduleNoDate");
  if (run->shutDown) return getShutdownStringForDate(run->date, texts);
  const Programmed programmed = getNextScheduleProgrammed(schedule);
  if (programmed.startUp && programmed.date == run->date)
    return getStartupStringForDate(run->date, texts);
  return getScheduleStringForDate(run->date, texts);
}

std::string ActionsTools::getNextScheduleSummaryForSettings(const ZAN_Value& settings,
                                                            const Texts& texts) const {
  const std::string mode = getNextScheduleModeForSettings(settings, texts);
  if (!Forecast(mCalendar, Schedule(settings)).next(mNow)) return mode;
  return texts.table.text("ScheduleSummary",
                          {mode, getNextScheduleStringForSettings(settings, texts)});
}

std::string ActionsTools::getScheduleStringForDate(ReferenceTime date, const Texts& texts) const {
  const ZAN_StringTable& table = texts.table;
  const std::string time = texts.strings.getShortTime(date);
  if (date <= mNow) return table.text("ScheduleDue");
  const std::int64_t days = mCalendar.dayNumber(date) - mTodayNumber;
  if (days == 0) return table.text("ScheduleToday", {time});
  if (days == 1) return table.text("ScheduleTomorrow", {time});
  if (days < 7)
    return table.text("ScheduleWeekday",
                      {mCalendar.weekdayName(mCalendar.weekdayForDate(date)), time});
  return table.text("ScheduleDate", {texts.strings.getShortDate(date), time});
}

std::string ActionsTools::getStartupStringForDate(ReferenceTime date, const Texts& texts) const {
  return texts.table.text("ScheduleAtStartUp", {getScheduleStringForDate(date, texts)});
}

std::string ActionsTools::getShutdownStringForDate(ReferenceTime date, const Texts& texts) const {
  return texts.table.text("ScheduleAtShutDown", {getScheduleStringForDate(date, texts)});
}

}  // namespace corvana
