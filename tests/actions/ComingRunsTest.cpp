#include "actions/Forecast.h"

#include <gmock/gmock.h>

namespace corvana {
namespace {

using testing::ElementsAre;

class ComingRunsTest : public testing::Test {
 protected:
  static ReferenceTime at(int month, int day, int hour, int minute = 0) {
    return paris().dateForComponents(
        {.year = 2026, .month = month, .day = day, .hour = hour, .minute = minute});
  }
  static const ZAN_DateUtils& paris() {
    static const ZAN_DateUtils calendar("Europe/Paris", "fr_FR");
    return calendar;
  }
  static Schedule schedule(std::int64_t kind, ReferenceTime time, ReferenceTime last) {
    Schedule schedule;
    schedule.automatic = true;
    schedule.kind = static_cast<ScheduleKind>(kind);
    schedule.time = time;
    schedule.lastScheduleDate = last;
    return schedule;
  }
  /// "action day hour:minute" of the first runs.
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

TEST_F(ComingRunsTest, ActionsTakeTurnsAcrossAChangeOfTheClocks) {
  const ReferenceTime now = at(10, 24, 1);
  ComingRuns runs(paris(), now, {});
  runs.add(schedule(1, at(7, 1, 2, 30), now), ActionContext::none);
  runs.add(schedule(22, 0, now), ActionContext::none);
  runs.add(schedule(25, 0, now), ActionContext::none);
  EXPECT_THAT(first(runs, 12), ElementsAre("0 24 02:30", "1 24 03:00", "1 24 06:00", "1 24 09:00",
                                           "1 24 12:00", "1 24 15:00", "1 24 18:00", "1 24 21:00",
                                           "1 25 00:00", "0 25 02:30", "1 25 02:00", "1 25 05:00"))
      << "three hours after 0:00 it is 2:00 again";
}

TEST_F(ComingRunsTest, WeeksAheadAreReached) {
  ComingRuns runs(paris(), at(11, 21, 12), {});
  Schedule weekly = schedule(0, 0, at(11, 21, 12));
  ScheduleEntry entry;
  entry.mode = ScheduleEntry::Mode::daysOfWeek;
  entry.weekdays = 1 << 6;
  entry.time = at(7, 1, 18, 30);
  weekly.list.push_back(entry);
  runs.add(weekly, ActionContext::none);
  EXPECT_THAT(first(runs, 3), ElementsAre("0 27 18:30", "0 04 18:30", "0 11 18:30"));
}

TEST_F(ComingRunsTest, AllowedHoursComeAgainTheNextDay) {
  ComingRuns runs(paris(), at(11, 21, 12), {});
  Schedule hourly = schedule(21, 0, at(11, 21, 12));
  hourly.hasAllowedHours = true;
  hourly.allowedFrom = at(1, 1, 10);
  hourly.allowedTo = at(1, 1, 14);
  runs.add(hourly, ActionContext::none);
  hourly.allowedTo = at(1, 1, 9);
  runs.add(hourly, ActionContext::none);
  EXPECT_THAT(first(runs, 4), ElementsAre("0 21 13:00", "0 21 14:00", "0 22 10:00", "0 22 11:00"));
}

TEST_F(ComingRunsTest, WhatIsOverdueRunsNowAndGoesOnFromNow) {
  ComingRuns runs(paris(), at(11, 21, 12), {});
  runs.add(schedule(1, at(7, 1, 8), at(11, 19, 8)), ActionContext::none);
  EXPECT_THAT(first(runs, 3), ElementsAre("0 21 08:00", "0 22 08:00", "0 23 08:00"));
}

TEST_F(ComingRunsTest, EachRunSaysWhatWouldHoldItUp) {
  const ReferenceTime now = at(11, 21, 12);
  const auto holds = [&](const Circumstances& circumstances) {
    ComingRuns runs(paris(), now, circumstances);
    runs.add(schedule(1, at(7, 1, 8), now), ActionContext::none);
    runs.add(schedule(1, at(7, 1, 9), now), ActionContext::office);
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
