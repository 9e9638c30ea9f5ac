#include <gtest/gtest.h>

#include "actions/ActionTree.h"
#include "actions/ProgrammedAction.h"
#include "tests/scenario/Scenario.h"

namespace corvana {
namespace {

/// Photos daily at 14:30, Mail every hour, from noon on.
struct ClockDay : Scenario {
  ClockDay() {
    const ReferenceTime begin = machine.clock.now();
    photos = action("Photos", daily(timeOfDay("14:30"), begin));
    mail = action("Mail", hourly(begin));
    writeTree();
    start();
  }
  std::int64_t photos = 0;
  std::int64_t mail = 0;
};

TEST(ClockTest, SleepOverDueDatesMakesUpOnceInOrderAndSaysHowLate) {
  ClockDay day;
  day.runUntil("2024-01-02 13:10:00");
  day.machine.power.willSleep();
  day.runFor(5);
  day.machine.clock.setNow(day.at("2024-01-04 18:20:00"));
  day.machine.power.didWake();
  day.runUntil("2024-01-04 19:05:00");
  EXPECT_EQ(day.executions(),
            "2024-01-02 13:00:00 Mail\n"
            "2024-01-04 18:20:27 Mail\n"
            "2024-01-04 18:20:49 Photos\n"
            "2024-01-04 19:00:00 Mail\n");
  EXPECT_EQ(day.plannedDates(),
            "2024-01-02 13:00:00\n2024-01-04 00:00:00\n2024-01-04 14:30:00\n"
            "2024-01-04 19:00:00\n");
}

TEST(ClockTest, AnHourForwardLosesNothingAndAnHourBackDoublesNothing) {
  ClockDay day;
  day.runUntil("2024-01-02 12:40:00");
  day.machine.clock.setNow(day.at("2024-01-02 13:40:00"));
  day.runUntil("2024-01-02 14:10:00");
  const std::string forward = day.executions();
  EXPECT_EQ(day.executionsOf("Mail"), 2U) << forward;
  day.machine.clock.setNow(day.at("2024-01-02 13:10:00"));
  day.runUntil("2024-01-02 14:20:00");
  EXPECT_EQ(day.executions(), forward) << "14:00 has run already";
  day.runUntil("2024-01-02 15:10:00");
  EXPECT_EQ(day.executions(), forward + "2024-01-02 14:30:00 Photos\n2024-01-02 15:00:00 Mail\n");
}

TEST(ClockTest, AYearAheadAndBackLeavesTheScheduleWorking) {
  ClockDay day;
  day.runUntil("2024-01-02 12:40:00");
  day.machine.clock.setNow(day.at("2025-01-02 15:40:00"));
  day.runUntil("2025-01-02 15:50:00");
  EXPECT_EQ(day.executionsOf("Photos"), 1U) << day.executions();
  EXPECT_EQ(day.executionsOf("Mail"), 1U) << day.executions();
  day.machine.clock.setNow(day.at("2024-01-02 12:50:00"));
  day.runUntil("2024-01-02 12:55:00");
  EXPECT_EQ(day.machine.processes.starts.size(), 2U) << day.executions();
  // The last dates, a year ahead, count as now; that is said once for each.
  day.runUntil("2024-01-02 16:10:00");
  EXPECT_EQ(day.executionsOf("Photos"), 2U) << day.executions();
  EXPECT_EQ(day.executionsOf("Mail"), 5U) << day.executions();
  EXPECT_EQ(day.machine.systemLog.lines.size(), 2U);
}

TEST(ClockTest, ADayBackMovesWhatWaitsAlong) {
  ClockDay day;
  day.runUntil("2024-01-02 12:59:50");
  ASSERT_EQ(day.agent->queue().actionsList().size(), 1U) << "the next one is queued a little ahead";
  day.machine.clock.setNow(day.at("2024-01-01 12:59:50"));
  day.runUntil("2024-01-01 13:00:30");
  EXPECT_EQ(day.executions(), "2024-01-01 13:00:00 Mail\n");
}

TEST(ClockTest, AMachineThatTravelsRunsADailyActionOnceADay) {
  ClockDay day;
  day.runUntil("2024-01-02 15:10:00");
  day.machine.machine.timeZone = "Asia/Tokyo";
  day.runUntil("2024-01-03 15:10:00");
  day.machine.machine.timeZone = "America/Los_Angeles";
  day.runUntil("2024-01-04 15:10:00");
  EXPECT_EQ(day.executionsOf("Photos"), 3U) << day.executions();
  EXPECT_EQ(day.executionsOf("Mail"), 51U);
}

TEST(ClockTest, RestartsNeitherLoseNorDouble) {
  ClockDay day;
  day.executionsAreRecorded = true;
  for (const char* time : {"2024-01-02 12:58:30", "2024-01-02 13:00:10", "2024-01-02 14:29:30",
                           "2024-01-02 14:45:00"}) {
    day.runUntil(time);
    day.quit();
    day.start(true);
  }
  day.runUntil("2024-01-02 15:10:00");
  EXPECT_EQ(day.executionsOf("Photos"), 1U) << day.executions();
  EXPECT_EQ(day.executionsOf("Mail"), 3U) << day.executions();
}

TEST(ClockTest, NightsOfChangeRunEachActionOnce) {
  for (const auto& [begin, end] : {std::pair("2024-03-30 12:00:00", "2024-03-31 12:00:00"),
                                   std::pair("2024-10-26 12:00:00", "2024-10-27 12:00:00")}) {
    Scenario night(begin);
    night.action("Photos", daily(night.timeOfDay("02:30"), night.machine.clock.now()));
    night.writeTree();
    night.start();
    night.runUntil(end);
    EXPECT_EQ(night.executionsOf("Photos"), 1U) << night.executions();
  }
}

}  // namespace
}  // namespace corvana
