#include "actions/Forecast.h"

#include <gmock/gmock.h>

#include <random>

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Why = Forecast::Never::Why;

class ForecastTest : public testing::Test {
 protected:
  static const ZAN_DateUtils& paris() {
    static const ZAN_DateUtils calendar("Europe/Paris", "fr_FR");
    return calendar;
  }
  static ReferenceTime at(int year, int month, int day, int hour = 0, int minute = 0) {
    return paris().dateForComponents(
        {.year = year, .month = month, .day = day, .hour = hour, .minute = minute});
  }
  static ReferenceTime clock(int hour, int minute = 0) { return at(2026, 7, 1, hour, minute); }
  static Schedule periodic(ScheduleKind kind, ReferenceTime last) {
    Schedule schedule;
    schedule.automatic = true;
    schedule.kind = kind;
    schedule.lastScheduleDate = last;
    return schedule;
  }
  static Schedule listed(ScheduleEntry entry, ReferenceTime last) {
    Schedule schedule = periodic(ScheduleKind::listOnly, last);
    schedule.list.push_back(entry);
    return schedule;
  }
  static Schedule within(Schedule schedule, ReferenceTime from, ReferenceTime to) {
    schedule.hasAllowedHours = true;
    schedule.allowedFrom = from;
    schedule.allowedTo = to;
    return schedule;
  }
  static ScheduleEntry monthly(ScheduleEntry::MonthMode mode, std::uint32_t days = 0) {
    ScheduleEntry entry;
    entry.mode = ScheduleEntry::Mode::daysOfMonth;
    entry.monthMode = mode;
    entry.monthDays = days;
    entry.monthWeekDay = 6;
    entry.time = clock(18, 30);
    return entry;
  }
  /// The days of the first runs, each carried out at its date.
  static std::vector<std::string> days(const Schedule& schedule, ReferenceTime now, int count) {
    Forecast forecast(paris(), schedule);
    std::vector<std::string> texts;
    while (static_cast<int>(texts.size()) < count) {
      const auto run = forecast.next(now);
      if (!run) break;
      texts.push_back(paris().format(run->date, "%Y-%m-%d %H:%M"));
      forecast.setLastRun(run->date);
      now = std::max(now, run->date);
    }
    return texts;
  }
  /// "action day hour:minute" of the first runs of several.
  static std::vector<std::string> first(ComingRuns& runs, int count) {
    std::vector<std::string> texts;
    for (int i = 0; i < count; ++i) {
      const auto run = runs.next();
      if (!run) break;
      texts.push_back(std::to_string(run->action) + paris().format(run->date, " %d %H:%M"));
    }
    return texts;
  }
};

TEST_F(ForecastTest, NoMonthAndNoYearIsTooFar) {
  using Mode = ScheduleEntry::MonthMode;
  const ReferenceTime now = at(2026, 11, 22, 12);
  EXPECT_THAT(days(listed(monthly(Mode::days, 1U << 31), now), now, 5),
              ElementsAre("2026-12-31 18:30", "2027-01-31 18:30", "2027-03-31 18:30",
                          "2027-05-31 18:30", "2027-07-31 18:30"));
  EXPECT_THAT(
      days(listed(monthly(Mode::days, 1U << 30), now), now, 4),
      ElementsAre("2026-11-30 18:30", "2026-12-30 18:30", "2027-01-30 18:30", "2027-03-30 18:30"));
  EXPECT_THAT(
      days(listed(monthly(Mode::lastWeekday), now), now, 4),
      ElementsAre("2026-11-27 18:30", "2026-12-25 18:30", "2027-01-29 18:30", "2027-02-26 18:30"));
  ScheduleEntry leapDay;
  leapDay.mode = ScheduleEntry::Mode::yearly;
  leapDay.day = 29;
  leapDay.month = 2;
  leapDay.time = clock(8);
  EXPECT_THAT(days(listed(leapDay, now), at(2096, 3, 1), 2),
              ElementsAre("2104-02-29 08:00", "2108-02-29 08:00"));
  leapDay.day = 30;
  EXPECT_THAT(days(listed(leapDay, now), now, 1), IsEmpty());
}

TEST_F(ForecastTest, HoursHideARunOfTheSeriesNotTheSeries) {
  const ReferenceTime now = at(2026, 11, 22, 19);
  Schedule hourly = within(periodic(ScheduleKind::hourly, now), clock(8), clock(18));
  EXPECT_THAT(days(hourly, now, 1), ElementsAre("2026-11-23 08:00"));
  hourly.lastScheduleDate = at(2026, 12, 30, 18);
  hourly.list.push_back(monthly(ScheduleEntry::MonthMode::days, 1U << 31));
  hourly.list.back().time = clock(9, 30);
  EXPECT_THAT(
      days(hourly, at(2026, 12, 30, 18), 4),
      ElementsAre("2026-12-31 08:00", "2026-12-31 09:00", "2026-12-31 09:30", "2026-12-31 10:00"))
      << "a far date of the list does not stand for the next one of the series";
  // What was due within today's hours is over with them, and not due now.
  Schedule daily = within(periodic(ScheduleKind::daily, at(2026, 11, 20)), clock(8), clock(18));
  daily.time = clock(17, 50);
  EXPECT_THAT(days(daily, now, 1), ElementsAre("2026-11-23 17:50"));
  EXPECT_THAT(days(daily, at(2026, 11, 22, 17, 55), 1), ElementsAre("2026-11-22 17:50"));
  // The day that begins has to reach its hours first: 8:00 itself is passed by.
  Schedule every =
      within(periodic(ScheduleKind::minutes, at(2026, 11, 22, 18)), clock(8), clock(23));
  every.minutes = 14 * 60;
  EXPECT_THAT(days(every, now, 1), ElementsAre("2026-11-23 22:00"));
}

/// As the agent does it: it looks every ten minutes, when a date that it saw has come, when the
/// hours begin and when a series begins anew with the day. It runs nothing outside of the hours.
std::vector<ReferenceTime> lookedAtAgainAndAgain(const ZAN_DateUtils& calendar, Schedule schedule,
                                                 ReferenceTime from, int minutes) {
  std::vector<ReferenceTime> runs;
  std::optional<ReferenceTime> seen;
  const auto secondsOf = [&](const std::optional<ReferenceTime>& time) {
    return time ? calendar.secondsInDay(*time) : 0;
  };
  const bool beginsAnew =
      schedule.kind == ScheduleKind::hourly || schedule.kind == ScheduleKind::threeHourly;
  for (int minute = 0; minute <= minutes; ++minute) {
    const ReferenceTime now = from + minute * 60.0;
    const int seconds = calendar.secondsInDay(now);
    const auto look = [&] {
      const bool isOut = schedule.hasAllowedHours && (seconds < secondsOf(schedule.allowedFrom) ||
                                                      seconds > secondsOf(schedule.allowedTo));
      seen = isOut ? std::nullopt
                   : ActionsTools(calendar, now).getNextScheduleDateForSettings(schedule, false);
    };
    const bool wasSeen = seen && *seen <= now;
    if (!wasSeen && (minute == 0 || seconds / 60 % 10 == 5 || (beginsAnew && seconds == 0) ||
                     (schedule.hasAllowedHours && seconds == secondsOf(schedule.allowedFrom))))
      look();
    if (!seen || *seen > now) continue;
    runs.push_back(now);
    schedule.lastScheduleDate = now;
    look();
  }
  return runs;
}

TEST_F(ForecastTest, PromisesWhatTheAgentWillDoInBothDirections) {
  std::mt19937 random(20261122);
  const auto between = [&](int least, int most) {
    return std::uniform_int_distribution<int>(least, most)(random);
  };
  const std::vector<ZAN_DateUtils> calendars{
      paris(), {"America/New_York", "en_US"}, {"Asia/Kolkata", "C"}};
  std::size_t runsSeen = 0;
  for (int round = 0; round < 100; ++round) {
    const ZAN_DateUtils& calendar = calendars[static_cast<std::size_t>(between(0, 2))];
    // Days around the changes of the clocks, and others.
    const ReferenceTime from =
        calendar.dateForComponents({.year = 2026,
                                    .month = std::vector{3, 10, 11, 2}[between(0, 3) & 3],
                                    .day = between(20, 28),
                                    .hour = between(0, 23),
                                    .minute = between(0, 59)});
    Schedule schedule =
        periodic(std::vector{ScheduleKind::daily, ScheduleKind::minutes, ScheduleKind::hourly,
                             ScheduleKind::threeHourly,
                             ScheduleKind::listOnly}[static_cast<std::size_t>(between(0, 4))],
                 from - between(0, 3000) * 60.0);
    schedule.minutes = std::vector{
        7, 30, 45, 61, 600, 840, 1440, 1441, 2880}[static_cast<std::size_t>(between(0, 8))];
    schedule.hourDelay = static_cast<std::uint8_t>(between(0, 3));
    schedule.time = clock(between(4, 23), between(0, 59));
    if (between(0, 1) == 0)
      schedule = within(schedule, clock(between(4, 14), between(0, 59)),
                        clock(between(15, 22), between(0, 59)));
    if (schedule.kind == ScheduleKind::listOnly || between(0, 3) == 0) {
      ScheduleEntry entry;
      entry.mode =
          between(0, 1) == 0 ? ScheduleEntry::Mode::everyDay : ScheduleEntry::Mode::daysOfWeek;
      entry.weekdays = static_cast<std::uint8_t>(between(1, 127) << 1);
      entry.time = clock(between(4, 23), between(0, 59));
      schedule.list.push_back(entry);
    }
    constexpr int kMinutes = 4 * 1440;
    const auto runs = lookedAtAgainAndAgain(calendar, schedule, from, kMinutes);
    runsSeen += runs.size();

    SCOPED_TRACE(testing::Message()
                 << "round " << round << " " << calendar.zoneName() << " kind "
                 << static_cast<int>(schedule.kind) << " minutes " << schedule.minutes << " from "
                 << calendar.format(from, "%m-%d %H:%M") << " last "
                 << calendar.format(*schedule.lastScheduleDate, "%d %H:%M") << " hours "
                 << schedule.hasAllowedHours);
    Forecast forecast(calendar, schedule);
    std::vector<ReferenceTime> promised;
    for (ReferenceTime now = from;;) {
      const auto run = forecast.next(now);
      if (!run || run->date > from + kMinutes * 60.0) break;
      now = std::max(now, run->date);
      promised.push_back(now);
      forecast.setLastRun(now);
    }
    const auto texts = [&](const std::vector<ReferenceTime>& dates) {
      std::vector<std::string> list;
      for (const ReferenceTime date : dates) list.push_back(calendar.format(date, "%d %H:%M"));
      return list;
    };
    ASSERT_EQ(texts(promised), texts(runs));

    const Forecast backward(calendar, schedule);
    const ReferenceTime until = from + between(1, kMinutes) * 60.0;
    std::optional<ReferenceTime> last;
    for (const ReferenceTime run : runs)
      if (run <= until && run > from) last = run;
    const auto found = backward.lastWithin(from, until);
    if (schedule.kind == ScheduleKind::minutes && !schedule.list.empty()) {
      // Each date of the list moves the steps; where they stood in the end is no matter.
      EXPECT_NEAR(found.value_or(0), last.value_or(0), static_cast<double>(schedule.minutes) * 60);
    } else {
      EXPECT_EQ(texts({found.value_or(0)}), texts({last.value_or(0)}))
          << calendar.format(until, "until %d %H:%M");
    }
  }
  EXPECT_GT(runsSeen, 2000U);
}

TEST_F(ForecastTest, WhatCanNeverRunIsToldWithTheReason) {
  const ReferenceTime now = at(2026, 11, 22, 15);
  const auto whys = [&](const Schedule& schedule) {
    std::vector<Why> list;
    for (const auto& never : Forecast::partsThatNeverRun(paris(), schedule, now))
      list.push_back(never.why);
    return list;
  };
  Schedule every = periodic(ScheduleKind::minutes, now);
  every.minutes = 1440;
  EXPECT_THAT(whys(every), IsEmpty());
  EXPECT_THAT(whys(within(every, clock(8), clock(10))), ElementsAre(Why::outsideHours));
  EXPECT_THAT(whys(within(every, clock(14), clock(16))), ElementsAre(Why::outsideHours))
      << "after one missed day it would go on from midnight";
  every.minutes = 90;
  EXPECT_THAT(whys(within(every, clock(8), clock(10))), IsEmpty());
  EXPECT_THAT(whys(within(every, clock(22), clock(6))), ElementsAre(Why::hoursNeverCome));
  Schedule hourly = periodic(ScheduleKind::hourly, now);
  hourly.hourDelay = 2;
  EXPECT_THAT(whys(within(hourly, clock(8), clock(8, 15))), ElementsAre(Why::outsideHours));
  Schedule lists = listed(monthly(ScheduleEntry::MonthMode::days, 1U << 31), now);
  EXPECT_THAT(whys(within(lists, clock(8), clock(18))), ElementsAre(Why::outsideHours));
  lists.list.push_back(monthly(ScheduleEntry::MonthMode::days));
  EXPECT_THAT(whys(lists), ElementsAre(Why::noSuchDay));
  Schedule spring = periodic(ScheduleKind::daily, now);
  spring.time = clock(2, 30);
  EXPECT_THAT(whys(within(spring, clock(3), clock(4))), ElementsAre(Why::outsideHours))
      << "on the one day on which the clocks go forward it would";
  for (const ScheduleKind kind :
       {ScheduleKind::volumeMounted, ScheduleKind::firstStartUpOfDay, ScheduleKind::nextDay})
    EXPECT_THAT(whys(within(periodic(kind, now), clock(8), clock(9))), IsEmpty());
}

TEST_F(ForecastTest, TheLastOfManyMissedRunsIsFoundFromTheEnd) {
  const ReferenceTime gone = at(2025, 1, 1, 10, 7);
  Schedule every = periodic(ScheduleKind::minutes, gone);
  every.minutes = 1;
  EXPECT_EQ(Forecast(paris(), every).lastWithin(gone, at(2026, 11, 22, 12) + 30),
            at(2026, 11, 22, 12));
  every = within(every, clock(8), clock(10));
  EXPECT_EQ(Forecast(paris(), every).lastWithin(gone, at(2026, 11, 22, 7)), at(2026, 11, 21, 10));
  Schedule leapDay = listed({}, gone);
  leapDay.list[0].mode = ScheduleEntry::Mode::yearly;
  leapDay.list[0].day = 29;
  leapDay.list[0].month = 2;
  leapDay.list[0].time = clock(8);
  EXPECT_EQ(Forecast(paris(), leapDay).lastWithin(at(2020, 1, 1), at(2026, 11, 22)),
            at(2024, 2, 29, 8));
  leapDay.list[0].occasion = ScheduleEntry::Occasion::shutDown;
  EXPECT_EQ(Forecast(paris(), leapDay).lastWithin(at(2020, 1, 1), at(2026, 11, 22)), std::nullopt);
}

TEST_F(ForecastTest, SeveralActionsTakeTurnsAcrossAChangeOfTheClocks) {
  const ReferenceTime now = at(2026, 10, 24, 1);
  ComingRuns runs(paris(), now, {});
  Schedule daily = periodic(ScheduleKind::daily, now);
  daily.time = clock(2, 30);
  for (const Schedule& schedule : {daily, periodic(ScheduleKind::threeHourly, now),
                                   periodic(static_cast<ScheduleKind>(25), now)})
    runs.add(schedule, ActionContext::none);
  EXPECT_THAT(first(runs, 12), ElementsAre("0 24 02:30", "1 24 03:00", "1 24 06:00", "1 24 09:00",
                                           "1 24 12:00", "1 24 15:00", "1 24 18:00", "1 24 21:00",
                                           "1 25 00:00", "0 25 02:30", "1 25 02:00", "1 25 05:00"))
      << "three hours after 0:00 it is 2:00 again";
}

TEST_F(ForecastTest, WhatIsOverdueRunsNowAndAllowedHoursComeAgainTheNextDay) {
  const ReferenceTime now = at(2026, 11, 21, 12);
  ComingRuns runs(paris(), now, {});
  Schedule daily = periodic(ScheduleKind::daily, at(2026, 11, 19, 8));
  daily.time = clock(8);
  const Schedule hourly = periodic(ScheduleKind::hourly, now);
  runs.add(daily, ActionContext::none);
  runs.add(within(hourly, clock(10), clock(14)), ActionContext::none);
  runs.add(within(hourly, clock(10), clock(9)), ActionContext::none);
  EXPECT_THAT(first(runs, 6), ElementsAre("0 21 08:00", "1 21 13:00", "1 21 14:00", "0 22 08:00",
                                          "1 22 10:00", "1 22 11:00"));
}

TEST_F(ForecastTest, EachRunSaysWhatWouldHoldItUp) {
  const ReferenceTime now = at(2026, 11, 21, 12);
  const auto holds = [&](const Circumstances& circumstances) {
    ComingRuns runs(paris(), now, circumstances);
    Schedule daily = periodic(ScheduleKind::daily, now);
    daily.time = clock(8);
    runs.add(daily, ActionContext::none);
    daily.time = clock(9);
    runs.add(daily, ActionContext::office);
    std::vector<Hold> list;
    for (int i = 0; i < 4; ++i) list.push_back(runs.next().value_or(ComingRuns::Run{}).hold);
    return list;
  };
  EXPECT_THAT(holds({.context = ActionContext::office}),
              ElementsAre(Hold::none, Hold::none, Hold::none, Hold::none));
  EXPECT_THAT(holds({.paused = true, .context = ActionContext::home}),
              ElementsAre(Hold::paused, Hold::otherContext, Hold::paused, Hold::otherContext));
  EXPECT_THAT(holds({.disabled = true, .context = ActionContext::home}),
              ElementsAre(Hold::disabled, Hold::disabled, Hold::disabled, Hold::disabled));
}

}  // namespace
}  // namespace corvana
