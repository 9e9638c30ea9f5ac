#include <array>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/Schedule.h"
#include "command/ScheduleWords.h"

// What the command says about schedules, in English.

namespace corvana {

namespace {

std::string timeText(ReferenceTime date, const ZAN_DateUtils& calendar) {
  const int seconds = calendar.secondsInDay(date);
  return ZAN_StringUtils::twoDigits(seconds / 3600) + ":" +
         ZAN_StringUtils::twoDigits(seconds / 60 % 60);
}

std::string joined(const std::vector<std::string>& words, const std::string& lastSeparator) {
  std::string text;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i > 0) text += i + 1 == words.size() ? lastSeparator : ", ";
    text += words[i];
  }
  return text;
}

std::string weekdayText(int weekday) {
  constexpr std::array<const char*, 8> kNames{"?",         "Sunday",   "Monday", "Tuesday",
                                              "Wednesday", "Thursday", "Friday", "Saturday"};
  return kNames.at(static_cast<std::size_t>(weekday));
}

std::string parityText(ScheduleEntry::Parity parity, const std::string& what) {
  if (parity == ScheduleEntry::Parity::every) return {};
  return (parity == ScheduleEntry::Parity::odd ? " in odd " : " in even ") + what;
}

std::string monthText(const ScheduleEntry& entry) {
  switch (entry.monthMode) {
    case ScheduleEntry::MonthMode::days: {
      std::vector<std::string> days;
      for (int day = 1; day <= 31; ++day) {
        if (entry.choosesMonthDay(day)) days.push_back(std::to_string(day));
      }
      return "on day " + joined(days, " and ") + " of the month";
    }
    case ScheduleEntry::MonthMode::firstDay:
      return "on the first day of the month";
    case ScheduleEntry::MonthMode::firstWorkingDay:
      return "on the first working day of the month";
    case ScheduleEntry::MonthMode::lastDay:
      return "on the last day of the month";
    case ScheduleEntry::MonthMode::lastWorkingDay:
      return "on the last working day of the month";
    case ScheduleEntry::MonthMode::firstWeekday:
      return "on the first " + weekdayText(entry.monthWeekDay) + " of the month";
    case ScheduleEntry::MonthMode::lastWeekday:
      return "on the last " + weekdayText(entry.monthWeekDay) + " of the month";
    case ScheduleEntry::MonthMode::secondWeekday:
      return "on the second " + weekdayText(entry.monthWeekDay) + " of the month";
    default:
      return "never";
  }
}

std::string dayText(const ScheduleEntry& entry) {
  switch (entry.mode) {
    case ScheduleEntry::Mode::everyDay:
      return "every day" + parityText(entry.parity, "days of the month");
    case ScheduleEntry::Mode::daysOfWeek: {
      std::vector<std::string> days;
      for (const int weekday : {2, 3, 4, 5, 6, 7, 1}) {
        if (entry.choosesWeekday(weekday)) days.push_back(weekdayText(weekday));
      }
      return (days.empty() ? "never" : "every " + joined(days, " and ")) +
             parityText(entry.parity, "weeks");
    }
    case ScheduleEntry::Mode::daysOfMonth:
      return monthText(entry) + parityText(entry.parity, "months");
    case ScheduleEntry::Mode::yearly: {
      return "every year on " + std::to_string(entry.day) + "." + std::to_string(entry.month) + ".";
    }
    case ScheduleEntry::Mode::never:
      break;
  }
  return "never";
}

std::string entryText(const ScheduleEntry& entry, const ZAN_DateUtils& calendar) {
  if (entry.occasion == ScheduleEntry::Occasion::shutDown) {
    const std::string days = dayText(entry);
    return "at shut-down" + (days == "every day" ? std::string() : " " + days);
  }
  return dayText(entry) + (entry.time ? " at " + timeText(*entry.time, calendar) : " at no time");
}

std::string hourText(const std::string& text, int hourDelay) {
  return hourDelay == 0 ? text : text + " at " + std::to_string(hourDelay * 15) + " past";
}

std::string frequencyText(const Schedule& schedule, const ZAN_Value& settings,
                          const ZAN_DateUtils& calendar) {
  switch (schedule.kind) {
    case ScheduleKind::daily:
      return "every day at " +
             (schedule.time ? timeText(*schedule.time, calendar) : std::string("no time"));
    case ScheduleKind::volumeMounted:
      return "when one of its volumes is mounted";
    case ScheduleKind::applicationQuit:
      return "when " + settings.string("TriggerAppQuitPath") + " quits";
    case ScheduleKind::minutes:
      if (schedule.minutes == 1) return "every minute";
      if (schedule.minutes % 60 == 0 && schedule.minutes > 60) {
        return "every " + std::to_string(schedule.minutes / 60) + " hours";
      }
      return "every " + std::to_string(schedule.minutes) + " minutes";
    case ScheduleKind::hourly:
      return hourText("every hour", schedule.hourDelay);
    case ScheduleKind::threeHourly:
      return hourText("every 3 hours", schedule.hourDelay);
    case ScheduleKind::firstStartUpOfDay:
      return "at the first start-up of a day";
    case ScheduleKind::startUp:
      return "at start-up";
    case ScheduleKind::nextDay:
      return "on the day after it ran";
    case ScheduleKind::idle: {
      const auto minutes = settings.integer("TriggerScheduleMinutes");
      return "after " + std::to_string(minutes > 0 ? minutes : 10) + " minutes without use";
    }
    default:
      return {};
  }
}

}  // namespace

std::string scheduleInWords(const ZAN_Value& settings, const ZAN_DateUtils& calendar) {
  const Schedule schedule(settings);
  if (!schedule.automatic) return "only when it is launched";
  std::vector<std::string> occasions;
  if (std::string text = frequencyText(schedule, settings, calendar); !text.empty()) {
    occasions.push_back(std::move(text));
  }
  for (const ScheduleEntry& entry : schedule.list) {
    occasions.push_back(entryText(entry, calendar));
  }
  std::string text = occasions.empty() ? "never" : joined(occasions, ", and ");
  if (!schedule.listDamage.empty()) text += " (its list of dates is damaged)";
  if (schedule.hasAllowedHours) {
    const auto bound = [&](const std::optional<ReferenceTime>& time) {
      return time ? timeText(*time, calendar) : std::string("00:00");
    };
    text += ", between " + bound(schedule.allowedFrom) + " and " + bound(schedule.allowedTo);
  }
  constexpr std::array<const char*, 4> kContexts{"", "in the office", "at home", "on the road"};
  const auto context = settings.integer("TriggerContextPopup");
  if (context >= 1 && context <= 3) {
    text += std::string(", only ") + kContexts[static_cast<std::size_t>(context)];
  }
  return text;
}

}  // namespace corvana
