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
  const auto week = [](bool skips) {
    Scenario week;
    const ReferenceTime begin = week.machine.clock.now();
    week.action("Photos", daily(week.timeOfDay("02:30"), begin));
    week.action("Mail", everyMinutes(120, begin));
    week.action(
        "Letters",
        scheduled({ZAN_Value::dictionary({{"TriggerScheduleMode", 1},
                                          {"TriggerScheduleThursday", 1},
                                          {"TriggerScheduleTime", ZAN_Value::date(begin)}})},
                  begin));
    week.writeTree();
    if (skips) week.allowSkipping();
    week.start();
    week.runUntil("2024-01-05 12:00:00");
    week.quit();
    return std::tuple(week.executions(), week.logCodes(),
                      week.store().activity().readActivity()["SchedulerActivity"],
                      week.skippedCalls());
  };
  const auto skipped = week(true);
  const auto unskipped = week(false);
  EXPECT_FALSE(std::get<0>(skipped).empty());
  EXPECT_EQ(std::get<0>(skipped), std::get<0>(unskipped));
  EXPECT_EQ(std::get<1>(skipped), std::get<1>(unskipped));
  EXPECT_EQ(std::get<2>(skipped), std::get<2>(unskipped));
  // Three days are more than a million calls.
  EXPECT_GT(std::get<3>(skipped), 1'000'000);
  EXPECT_EQ(std::get<3>(unskipped), 0);
}

}  // namespace
}  // namespace corvana
