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

TEST(Days, WhatIsDueSoonAfterItsHoursBeginIsOnTime) {
  Scenario day("2024-01-02 19:07:00");
  const ReferenceTime begin = day.machine.clock.now();
  const auto within = [&](ZAN_Value record, const char* from, const char* to) {
    record.setValue("TriggerAllowedHours", 1);
    record.setValue("TriggerAllowedHoursFrom", ZAN_Value::date(day.timeOfDay(from)));
    record.setValue("TriggerAllowedHoursTo", ZAN_Value::date(day.timeOfDay(to)));
    return record;
  };
  day.action("Short", within(daily(day.timeOfDay("08:02"), begin), "08:00", "08:04"));
  day.action("First", within(hourly(begin), "09:00", "09:30"));
  day.action("Midnight", within(hourly(begin), "00:00", "22:30"));
  day.writeTree();
  day.start();
  day.runUntil("2024-01-03 10:00:00");
  const std::string done = day.executions();
  for (const char* const line : {"2024-01-03 08:02:0", "2024-01-03 09:00:0", "2024-01-03 00:00:0"})
    EXPECT_NE(done.find(line), std::string::npos) << line << '\n' << done;
  for (const std::string& line : day.report())
    EXPECT_EQ(line.find("by hand"), std::string::npos) << line << ": by its schedule";
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

/// How often windows, menus and icon are read anew: `what` of the deliveries since `from`.
std::size_t drawn(const Scenario& day, std::size_t from, ChangeSet what) {
  const auto& changes = day.machine.userInterface.changes;
  return static_cast<std::size_t>(std::count_if(changes.begin() + static_cast<std::ptrdiff_t>(from),
                                                changes.end(),
                                                [&](ChangeSet one) { return one.hasAnyOf(what); }));
}

TEST(Days, WhatChangesTogetherIsDrawnOnce) {
  const ChangeSet lists{Change::queue,   Change::nextActions, Change::execution,
                        Change::history, Change::preferences, Change::tree};
  Scenario day;
  const std::int64_t photos =
      day.action("Photos", daily(day.timeOfDay("23:00"), day.machine.clock.now()));
  day.writeTree();
  day.start();
  day.runFor(120);
  const auto& changes = day.machine.userInterface.changes;
  std::size_t from = changes.size();
  ASSERT_TRUE(day.agent->commands().launchAction(photos, false));
  ASSERT_TRUE(day.machine.runLoop.runUntil([&] { return day.agent->state().mExecuting; }, 10));
  ASSERT_TRUE(
      day.machine.runLoop.runUntil([&] { return day.agent->state().mProcessStatus == 3; }, 10));
  const std::size_t end = changes.size();
  ASSERT_TRUE(day.machine.runLoop.runUntil([&] { return !day.agent->state().mExecuting; }, 60));
  day.machine.runLoop.runFor(0);
  EXPECT_EQ(drawn(day, end, lists), 1U) << "the end of an execution";
  EXPECT_LE(drawn(day, from, lists), 4U) << "from queueing to the end";

  day.runFor(60);
  from = changes.size();
  day.agent->commands().setPreference("SchedulerPrefFloatingIconNbLines", 7);
  day.machine.runLoop.runFor(0.1);
  EXPECT_EQ(drawn(day, from, lists), 1U) << "a preference";
}

TEST(Days, SleepingWhileNothingIsDueChangesNothing) {
  const auto days = [](bool staysAwake) {
    Scenario day;
    const ReferenceTime begin = day.machine.clock.now();
    day.action("Photos", daily(day.timeOfDay("02:30"), begin));
    day.action("Mail", everyMinutes(120, begin));
    day.writeTree();
    if (staysAwake) day.stayAwake();
    day.start();
    day.runUntil("2024-01-03 03:00:00");
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
