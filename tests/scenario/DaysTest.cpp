#include <gtest/gtest.h>

#include "tests/scenario/Scenario.h"

namespace corvana {
namespace {

TEST(Days, DueActionsRunOnceAndAreRecorded) {
  Scenario day;
  const ReferenceTime begin = day.machine.clock.now();
  day.action("Photos", daily(day.timeOfDay("14:30"), begin));
  day.action("Mail", hourly(begin));
  day.action("Off",
             ZAN_Value::dictionary({{"TriggerAutomatic", 0}, {"TriggerFrequencyPopup", 21}}));
  day.writeTree();
  day.start();
  day.runUntil("2024-01-02 16:10:00");
  EXPECT_EQ(day.executions(),
            "2024-01-02 13:00:00 Mail\n"
            "2024-01-02 14:00:00 Mail\n"
            "2024-01-02 14:30:00 Photos\n"
            "2024-01-02 15:00:00 Mail\n"
            "2024-01-02 16:00:00 Mail\n");
  EXPECT_EQ(day.machine.systemLog.lines, std::vector<std::string>{});
  // Started, one launch, restarted when idle for three hours, and the other launches.
  EXPECT_EQ(day.logCodes(), (std::vector<std::int64_t>{20, 1, 1, 1, 1, 21, 20, 1}));
}

TEST(Days, ARestartWhenIdleLosesNothingThatWasJustLaunched) {
  Scenario day;
  const std::int64_t photos =
      day.action("Photos", ZAN_Value::dictionary({{"TriggerAutomatic", 0}}));
  day.writeTree();
  day.start();
  // The restart is decided at the first tick later than three hours after the start.
  day.runFor(3 * 3600 + 0.6);
  ASSERT_TRUE(day.agent->commands().launchAction(photos, false));
  day.runFor(60);
  EXPECT_EQ(day.executionsOf("Photos"), 1U);
  EXPECT_EQ(day.logCodes(), (std::vector<std::int64_t>{20, 1})) << "not restarted";
  day.runFor(3700);
  EXPECT_EQ(day.logCodes(), (std::vector<std::int64_t>{20, 1, 21, 20}));
}

TEST(Days, AnIdleUserIsSeenByWhateverTheDesktopOffers) {
  const auto idleRuns = [](std::optional<Point> pointer, std::optional<double> idle) {
    Scenario day;
    day.machine.input.position = pointer;
    day.machine.input.idle = idle;
    day.action("Tidy", ZAN_Value::dictionary(
                           {{"TriggerFrequencyPopup", 40}, {"TriggerScheduleMinutes", 20}}));
    day.writeTree();
    day.start();
    day.runUntil("2024-01-02 12:40:00");
    return day.executionsOf("Tidy");
  };
  EXPECT_EQ(idleRuns(Point{400, 300}, std::nullopt), 1U) << "the pointer rests";
  EXPECT_EQ(idleRuns(std::nullopt, std::nullopt), 0U) << "nobody can be seen to be away";
  EXPECT_EQ(idleRuns(Point{400, 300}, 5), 0U) << "the desktop has seen the user";
  EXPECT_EQ(idleRuns(std::nullopt, 7200), 1U);
}

TEST(Days, LeavingOutEmptyTicksChangesNothing) {
  const auto night = [](bool skips) {
    Scenario night;
    const ReferenceTime begin = night.machine.clock.now();
    night.action("Photos", daily(night.timeOfDay("02:30"), begin));
    night.action("Mail", everyMinutes(120, begin));
    night.writeTree();
    if (skips) night.allowSkipping();
    night.start();
    night.runUntil("2024-01-03 03:00:00");
    night.quit();
    return std::tuple(night.executions(), night.logCodes(),
                      night.store().activity().readActivity()["SchedulerActivity"],
                      night.skippedCalls());
  };
  const auto skipped = night(true);
  const auto unskipped = night(false);
  EXPECT_FALSE(std::get<0>(skipped).empty());
  EXPECT_EQ(std::get<0>(skipped), std::get<0>(unskipped));
  EXPECT_EQ(std::get<1>(skipped), std::get<1>(unskipped));
  EXPECT_EQ(std::get<2>(skipped), std::get<2>(unskipped));
  // Fifteen hours are 216,000 calls.
  EXPECT_GT(std::get<3>(skipped), 190'000);
  EXPECT_EQ(std::get<3>(unskipped), 0);
}

}  // namespace
}  // namespace corvana
