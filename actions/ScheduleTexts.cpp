#include "actions/ActionsTools.h"
#include "actions/Forecast.h"
#include "actions/ScheduleSentence.h"

// What the user reads about schedules.

namespace corvana {

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
