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

TEST(Days, SleepingWhileNothingIsDueChangesNothing) {
  const auto days = [](bool staysAwake) {
    Scenario day;
    const ReferenceTime begin = day.machine.clock.now();
    day.action("Photos", daily(day.timeOfDay("02:30"), begin));
    day.action("Mail", everyMinutes(120, begin));
    day.action("Letters",
               scheduled({ZAN_Value::dictionary({{"TriggerScheduleMode", 1},
                                                 {"TriggerScheduleWednesday", 1},
                                                 {"TriggerScheduleTime", ZAN_Value::date(begin)}})},
                         begin));
    day.writeTree();
    if (staysAwake) day.stayAwake();
    day.start();
    day.runUntil("2024-01-03 15:00:00");
    const std::int64_t calls = day.agent->timer().calls();
    day.quit();
    return std::tuple(day.executions(), day.logCodes(),
                      day.store().activity().readActivity()["SchedulerActivity"], calls);
  };
  const auto asleep = days(false);
  const auto awake = days(true);
  EXPECT_FALSE(std::get<0>(asleep).empty());
  EXPECT_EQ(std::get<0>(asleep), std::get<0>(awake));
  EXPECT_EQ(std::get<1>(asleep), std::get<1>(awake));
  EXPECT_EQ(std::get<2>(asleep), std::get<2>(awake));
  // Since the last restart, which comes every few hours.
  EXPECT_LT(std::get<3>(asleep) * 10, std::get<3>(awake));
}

}  // namespace
}  // namespace corvana
