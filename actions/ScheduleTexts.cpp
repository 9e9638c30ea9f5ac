#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/ActionsTools.h"

// What the user reads about schedules.

namespace corvana {

std::string ActionsTools::getNextScheduleModeForSettings(const ZAN_Value& settings,
                                                         const Texts& texts) const {
  const Schedule schedule(settings);
  const ZAN_StringTable& table = texts.table;
  if (!schedule.automatic) return table.text("ScheduleNotAutomatic");
  const int minutesPast = schedule.hourDelay * 15;
  switch (schedule.kind) {
    case ScheduleKind::daily:
      if (schedule.time)
        return table.text("ScheduleDaily", {texts.strings.getShortTime(todayAt(*schedule.time))});
      break;
    case ScheduleKind::volumeMounted:
      return table.text("ScheduleVolumeMounted");
    case ScheduleKind::applicationQuit:
      return table.text(
          "ScheduleApplicationQuit",
          {ZAN_FilesUtils::nameWithoutExtension(settings["TriggerAppQuitPath"].stringView())});
    case ScheduleKind::minutes:
      if (schedule.minutes == 1) return table.text("ScheduleEveryMinute");
      return table.text("ScheduleMinutes", {schedule.minutes});
    case ScheduleKind::hourly:
      if (minutesPast == 0) return table.text("ScheduleHourly");
      return table.text("ScheduleHourlyPast", {minutesPast});
    case ScheduleKind::threeHourly:
      if (minutesPast == 0) return table.text("ScheduleThreeHourly");
      return table.text("ScheduleThreeHourlyPast", {minutesPast});
    case ScheduleKind::firstStartUpOfDay:
      return table.text("ScheduleFirstStartUp");
    case ScheduleKind::startUp:
      return table.text("ScheduleStartUp");
    case ScheduleKind::nextDay:
      return table.text("ScheduleNextDay");
    case ScheduleKind::idle: {
      const std::int64_t minutes = settings.integer("TriggerScheduleMinutes");
      return table.text("ScheduleIdle", {minutes > 0 ? minutes : std::int64_t{10}});
    }
    default:
      break;
  }
  return table.text(schedule.list.empty() ? "ScheduleNoDate" : "ScheduleList");
}

std::string ActionsTools::getNextScheduleStringForSettings(const ZAN_Value& settings,
                                                           const Texts& texts) const {
  const Schedule schedule(settings);
  bool shutDown = false;
  const std::optional<ReferenceTime> date =
      getNextScheduleDateForSettings(schedule, false, &shutDown);
  if (!date) return texts.table.text("ScheduleNoDate");
  if (shutDown) return getShutdownStringForDate(*date, texts);
  const Programmed programmed = getNextScheduleProgrammed(schedule);
  if (programmed.startUp && programmed.date == date) return getStartupStringForDate(*date, texts);
  return getScheduleStringForDate(*date, texts);
}

std::string ActionsTools::getNextScheduleSummaryForSettings(const ZAN_Value& settings,
                                                            const Texts& texts) const {
  const std::string mode = getNextScheduleModeForSettings(settings, texts);
  const Schedule schedule(settings);
  if (!getNextScheduleDateForSettings(schedule, false)) return mode;
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

ReferenceTime ActionsTools::todayAt(ReferenceTime storedTime) const {
  return mCalendar.timeOnDay(mTodayNumber, mCalendar.secondsInDay(storedTime));
}

}  // namespace corvana
