#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "tests/scenario/Scenario.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;

bool anyContains(const std::vector<std::string>& lines, std::string_view text) {
  return std::ranges::any_of(
      lines, [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

TEST(Trouble, AnActionDeletedWhileItWaitsLeavesTheQueue) {
  Scenario day;
  const ReferenceTime begin = day.machine.clock.now();
  const std::int64_t photos = day.action("Photos", daily(day.timeOfDay("12:30"), begin));
  day.action("Mail", hourly(begin));
  day.writeTree();
  day.start();
  day.runUntil("2024-01-02 12:29:50");
  ASSERT_EQ(day.agent->queue().actionsList().size(), 1U);
  day.removeAction(photos);
  day.runUntil("2024-01-02 13:05:00");
  EXPECT_EQ(day.executions(), "2024-01-02 13:00:00 Mail\n");
  EXPECT_TRUE(day.agent->queue().empty());
}

TEST(Trouble, ADamagedTreeIsSaidKeptAndNeverWrittenOver) {
  Scenario day;
  const std::int64_t photos =
      day.action("Photos", daily(day.timeOfDay("12:30"), day.machine.clock.now()));
  day.writeTree();
  const fs::path tree =
      day.store().folder().dataFolderPathWithFileName("Programmed Actions.cva9data");
  const auto size = fs::file_size(tree);
  fs::resize_file(tree, size / 2);
  // A change that waits to be merged must survive as well.
  const ZAN_Value change =
      ZAN_Value::dictionary({{"Ref", photos}, {"ChangesObject", 1}, {"ChangesKey", "ExecCounter"}});
  ASSERT_TRUE(day.store().tree().appendToChangesList(change));
  day.start();
  day.runUntil("2024-01-02 14:00:00");
  EXPECT_TRUE(anyContains(day.machine.systemLog.lines, "Programmed Actions.cva9data"));
  EXPECT_EQ(fs::file_size(tree), size / 2);
  EXPECT_EQ(day.store().tree().readChangesList().size(), 1U);
  // Mended, it is taken up without a restart.
  day.writeTree();
  day.runUntil("2024-01-02 14:30:00");
  EXPECT_EQ(day.executionsOf("Photos"), 1U);
}

TEST(Trouble, DisabledSchedulingLaunchesOnlyWhatIsAskedFor) {
  Scenario day;
  const ReferenceTime begin = day.machine.clock.now();
  const std::int64_t photos = day.action("Photos", daily(day.timeOfDay("12:30"), begin));
  day.action("Mail", hourly(begin));
  day.writeTree();
  day.start();
  day.runUntil("2024-01-02 12:10:00");
  day.agent->commands().disableSchedule();
  day.runUntil("2024-01-02 13:10:00");
  EXPECT_EQ(day.executions(), "");
  ASSERT_TRUE(day.agent->commands().launchAction(photos, false));
  day.agent->commands().executeNow(photos);
  day.runUntil("2024-01-02 13:11:00");
  EXPECT_EQ(day.executionsOf("Photos"), 1U);
  // What was missed meanwhile runs once when scheduling is switched on again.
  day.agent->commands().enableSchedule();
  day.runUntil("2024-01-02 13:20:00");
  EXPECT_EQ(day.executionsOf("Mail"), 1U) << day.executions();
}

TEST(Trouble, DisableWhenAllIsDoneLetsTheQueueFinish) {
  Scenario day;
  const ReferenceTime begin = day.machine.clock.now();
  day.action("Photos", daily(day.timeOfDay("12:30"), begin));
  day.action("Music", daily(day.timeOfDay("12:30"), begin));
  day.action("Mail", hourly(begin));
  day.writeTree();
  day.start();
  day.runUntil("2024-01-02 12:30:05");
  day.agent->commands().disableScheduleWhenAllDone();
  day.runUntil("2024-01-02 13:30:00");
  EXPECT_EQ(day.machine.processes.starts.size(), 2U) << day.executions();
  EXPECT_TRUE(day.agent->state().mScheduleDisabled);
  EXPECT_FALSE(day.agent->state().mScheduleDisabledWhenDone);
}

TEST(Trouble, WhatChangesBeforeADateCountsWhenItComes) {
  Scenario day;
  const ReferenceTime begin = day.machine.clock.now();
  ZAN_Value atOffice = daily(day.timeOfDay("12:30"), begin);
  atOffice.setValue("TriggerContextPopup", 1);
  ZAN_Value atHome = daily(day.timeOfDay("12:31"), begin);
  atHome.setValue("TriggerContextPopup", 2);
  day.action("Office", atOffice);
  day.action("Home", atHome);
  day.action("Mail", daily(day.timeOfDay("12:40"), begin));
  day.writeTree();
  day.start();
  day.agent->commands().setContext(1);
  day.runUntil("2024-01-02 12:29:30");
  day.agent->commands().setContext(2);
  day.runUntil("2024-01-02 12:35:00");
  EXPECT_EQ(day.executions(), "2024-01-02 12:31:00 Home\n");
  day.runUntil("2024-01-02 12:39:30");
  day.agent->commands().disableSchedule();
  day.runUntil("2024-01-02 12:50:00");
  EXPECT_TRUE(day.agent->queue().empty());
  EXPECT_EQ(day.executionsOf("Mail"), 0U);
}

TEST(Trouble, DisableWhenAllIsDoneCanBeTakenBack) {
  Scenario day;
  const ReferenceTime begin = day.machine.clock.now();
  day.scripts["Photos"] = {.seconds = 300};
  day.action("Photos", daily(day.timeOfDay("12:30"), begin));
  day.action("Mail", hourly(begin));
  day.writeTree();
  day.start();
  day.runUntil("2024-01-02 12:30:05");
  day.agent->commands().changeExecutionStatus(1);
  day.runUntil("2024-01-02 12:31:00");
  day.agent->commands().changeExecutionStatus(0);
  day.runUntil("2024-01-02 13:10:00");
  EXPECT_FALSE(day.agent->state().mScheduleDisabled);
  EXPECT_EQ(day.executionsOf("Mail"), 1U) << day.executions();

  // Disabled at once, it no longer waits for an end either: it stays off and lists what comes.
  day.agent->commands().disableSchedule();
  day.agent->commands().changeExecutionStatus(1);
  day.runUntil("2024-01-02 13:20:00");
  EXPECT_FALSE(day.agent->state().mScheduleDisabledWhenDone);
  EXPECT_TRUE(day.agent->state().mScheduleDisabled);
}

TEST(Trouble, AnotherStartupDiskHoldsEverythingUntilTheUserDecides) {
  Scenario day;
  const StartupVolume usual{"Disk", 500'000'000'000, 600'000'000, 490'000'000'000};
  day.machine.machine.startup = usual;
  day.action("Photos", daily(day.timeOfDay("12:10"), day.machine.clock.now()));
  day.writeTree();
  auto& questions = day.machine.userInterface.questions;
  day.start();
  day.runUntil("2024-01-02 12:04:00");
  ASSERT_TRUE(questions.empty());

  // The disk was enlarged under the running agent: its second look, five minutes on, sees it.
  StartupVolume larger = usual;
  larger.size *= 2;
  day.machine.machine.startup = larger;
  day.machine.userInterface.setAnswer(Window::startupDisk, false);
  day.runUntil("2024-01-02 12:20:00");
  ASSERT_EQ(questions.size(), 1U) << "once";
  EXPECT_EQ(questions[0].window, Window::startupDisk);
  EXPECT_EQ(day.executions(), "") << "not even what was listed before";

  day.machine.userInterface.setAnswer(Window::startupDisk, true);
  day.start(true);
  day.runUntil("2024-01-02 12:22:00");
  EXPECT_EQ(questions.size(), 2U);
  EXPECT_EQ(day.executionsOf("Photos"), 1U);
}

TEST(Trouble, TheShutDownHelperRunsWhileSomethingWaitsForTheShutDown) {
  Scenario day;
  const std::string& helper =
      day.store().installPaths().installPathForCode(InstallPaths::shutDownBundle);
  fs::create_directories(helper);
  const auto atShutDown = scheduled(
      {ZAN_Value::dictionary({{"TriggerScheduleMode", 0}, {"TriggerFrequencyPopup", 21}})},
      day.machine.clock.now());
  const std::int64_t photos = day.action("Photos", atShutDown);
  day.writeTree();
  day.start();
  day.runUntil("2024-01-02 12:05:00");
  EXPECT_TRUE(day.machine.processes.isRunning(helper));
  EXPECT_EQ(day.machine.processes.opened.size(), 1U);
  const auto tell = [&](const char* object) {
    day.machine.notifications.receive("CVA9_SchedulerNotification", object);
    day.runFor(1);
  };
  tell("ActionListChanged");
  EXPECT_EQ(day.machine.processes.opened.size(), 1U) << "it runs already";

  day.machine.notifications.receive("CVA9_SchedulerNotification", "LaunchShutDownActions");
  day.machine.runLoop.runFor(60);
  EXPECT_EQ(day.executionsOf("Photos"), 1U);
  EXPECT_EQ(day.machine.runLoop.quitCode(), 0);
  EXPECT_FALSE(day.machine.processes.isRunning(helper));
  EXPECT_EQ(day.machine.power.shutDowns, 1);

  // A machine that stays on keeps its agent, and the helper that waits for the next time.
  day.start(true);
  day.machine.power.shutDownOutcome = Error{ErrorKind::refused, "somebody else works here"};
  tell("LaunchShutDownActions");
  day.machine.power.shutDownIsOff();
  day.runFor(60);
  EXPECT_EQ(day.machine.power.shutDowns, 1);
  const auto starts = [&] { return std::ranges::count(day.logCodes(), LogCode::agentStarted); };
  const auto before = starts();
  tell("ShutDownMac");
  day.runFor(5);
  EXPECT_EQ(day.machine.power.shutDowns, 2);
  EXPECT_EQ(starts(), before + 1);
  EXPECT_TRUE(day.machine.processes.isRunning(helper));

  day.start(true);
  EXPECT_TRUE(day.machine.processes.isRunning(helper));
  day.removeAction(photos);
  tell("ActionListChanged");
  EXPECT_FALSE(day.machine.processes.isRunning(helper));
}

TEST(Trouble, AnExceptionEndsItsTickOnly) {
  Scenario day;
  bool thrown = false;
  day.scripts["Photos"] = {.seconds = 5, .onStart = [&](StartedChild&) {
                             if (!std::exchange(thrown, true)) throw std::runtime_error("no luck");
                           }};
  day.action("Photos", daily(day.timeOfDay("12:30"), day.machine.clock.now()));
  day.writeTree();
  day.start();
  day.runUntil("2024-01-02 12:31:00");
  EXPECT_EQ(day.machine.systemLog.lines,
            std::vector<std::string>{"Exception updating Corvana 9 Scheduler Timer: "
                                     "std::runtime_error: no luck"});
  EXPECT_EQ(day.logCodes(), (std::vector<std::int64_t>{20, 1}));
  EXPECT_TRUE(day.agent->queue().empty());
}

TEST(Trouble, TheAnnounceStandsASecondBeforeTheLaunch) {
  Scenario day;
  day.action("Photos", daily(day.timeOfDay("12:30"), day.machine.clock.now()));
  day.writeTree();
  day.start();
  day.agent->preferences().mPrefShowMessageBeforeAction = 1;
  day.runUntil("2024-01-02 12:31:00");
  ASSERT_EQ(day.machine.userInterface.announces.size(), 1U);
  EXPECT_EQ(day.executions(), "2024-01-02 12:30:00 Photos\n");
  EXPECT_FALSE(day.machine.userInterface.announce) << "it goes with the end of the execution";
}

TEST(Trouble, TheAnnounceGoesWithTheActionThatItNames) {
  Scenario day;
  const ReferenceTime begin = day.machine.clock.now();
  day.action("Photos", daily(day.timeOfDay("12:30"), begin));
  day.action("Music", daily(day.timeOfDay("12:30"), begin));
  day.writeTree();
  day.start();
  day.agent->preferences().mPrefShowMessageBeforeAction = 1;
  const auto removeHead = [&] {
    day.agent->commands().removeFromQueue({0});
    day.runFor(1);
  };
  day.runUntil("2024-01-02 12:29:50");
  ASSERT_EQ(day.agent->queue().actionsList().size(), 2U);
  const std::string first = day.machine.userInterface.announce.value();
  removeHead();
  ASSERT_TRUE(day.machine.userInterface.announce);
  EXPECT_NE(*day.machine.userInterface.announce, first);
  removeHead();
  EXPECT_FALSE(day.machine.userInterface.announce);
}

}  // namespace
}  // namespace corvana
