#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/core_drive/Drive.h"
#include "volumes/ZAN_MountVolume.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;

/// What keeps "Mail", queued by hand right after, from being launched.
struct Hindrance {
  const char* name;
  double launched;  ///< seconds from the beginning to the launch
  std::function<void(Drive&)> begins;
  double lasts = 0;  ///< then it ends; nothing was launched meanwhile
  std::function<void(Drive&)> ends = {};
  std::function<void(Drive&)> before = {};  ///< before the agent starts
};

void jump(Drive& day, double seconds) {
  day.machine.clock.setNow(day.machine.clock.now() + seconds);
}

TEST(Launches, WaitWhileSomethingIsInTheirWay) {
  const auto disable = [](Drive& day) { day.commands().disableSchedule(); };
  const auto preference = [](const char* key) { return [key](Drive& day) { day.prefer(key, 1); }; };
  const auto message = [](Drive& day, double seconds) {
    ZAN_Value details = info("Title", "Look");
    details.setValue("Seconds", seconds);
    day.tell("Message", details);
  };
  const auto stray = [](const Drive& day) { return day.machine.volumes.folder + "/USB"; };
  const Hindrance kHindrances[] = {
      {"nothing", 0.25, [](Drive&) {}},
      {"a pause", 30.75, [](Drive& day) { day.commands().pauseExecution(); }, 30,
       [](Drive& day) { day.commands().continueExecution(); }},
      {"a pause of the execution", 30.25,
       [](Drive& day) { day.tell("ActionPause", info("Pause", 1)); }, 30,
       [](Drive& day) { day.tell("ActionPause", info("Pause", 0)); }},
      {"a message", 8.25, [&](Drive& day) { message(day, 8); }, 7.5},
      {"a message, closed", 3.25, [&](Drive& day) { message(day, 8); }, 3,
       [](Drive& day) { day.commands().messageClosedByUser(); }},
      {"two messages", 9.75,
       [&](Drive& day) {
         message(day, 5);
         message(day, 4);
       },
       8.5},
      {"a message while another one waits, closed", 7.75,
       [&](Drive& day) {
         message(day, 5);
         message(day, 4);
       },
       3, [](Drive& day) { day.commands().messageClosedByUser(); }},
      {"a message that stays", 60.25, [&](Drive& day) { message(day, 1e9); }, 59},
      {"a message without a screen", 0.25,
       [&](Drive& day) {
         day.ui.screen = false;
         message(day, 8);
       }},
      {"waking", 25.25, [](Drive& day) { day.machine.power.didWake(); }, 24.5},
      {"falling asleep", 25.25, [](Drive& day) { day.machine.power.willSleep(); }, 24.5},
      {"a timer that stalled", 10.25, [](Drive& day) { jump(day, 15.5); }, 9.5},
      {"a timer that came late", 0.25, [](Drive& day) { jump(day, 14); }},
      {"waking after a stall", 26.25,
       [](Drive& day) {
         jump(day, 100);
         day.runFor(1);
         day.machine.power.didWake();
       },
       24},
      {"a stall while waking", 25.25,
       [](Drive& day) {
         day.machine.power.didWake();
         day.runFor(1);
         jump(day, 100);
       },
       23},
      {"execution off", 35.25, disable, 30, [](Drive& day) { day.commands().enableSchedule(); }},
      {"execution off, run now", 30.25, disable, 30,
       [](Drive& day) { day.commands().executeNow(102); }},
      {"execution off since the start", 35.25, [](Drive&) {}, 30,
       [](Drive& day) { day.commands().enableSchedule(); },
       preference("SchedulerPrefScheduleDisabled")},
      {"another execution", 16.75, [](Drive& day) { day.startExecuteApp(); }, 12,
       [](Drive& day) { day.quitExecuteApp(); }},
      {"a volume that is being unmounted",
       10.25,
       [](Drive& day) {
         day.machine.processes.beforeTool = [&day](const auto&) { day.machine.clock.sleep(10); };
         day.tell("UnmountVolumeImmediate", info("Path", day.machine.volumes.folder + "/Stick"));
         day.runFor(0.25);
       },
       9,
       {},
       [](Drive& day) {
         const ZAN_MountVolume tools(day.machine.processes, day.machine.machine,
                                     day.machine.systemLog);
         day.machine.volumes.installTool(day.machine.processes, tools.toolsFolder() + "/diskutil");
         day.machine.volumes.mount({.name = "Stick"});
       }},
      {"a stray folder", 50.75, [&](Drive& day) { fs::create_directories(stray(day)); }, 30,
       [&](Drive& day) { fs::remove(stray(day)); }},
      {"a stray folder for a moment", 6.25, [&](Drive& day) { fs::create_directories(stray(day)); },
       5, [&](Drive& day) { fs::remove(stray(day)); }},
      {"stray folders that nobody cares for",
       0.25,
       [&](Drive& day) { fs::create_directories(stray(day)); },
       0,
       {},
       [](Drive& day) { day.prefer("SchedulerPrefSurveyVolumesFolder", 0); }},
      {"the announce",
       1.75,
       [](Drive&) {},
       1,
       {},
       preference("SchedulerPrefShowMessageBeforeAction")},
      {"the date of a launch from another machine", 5.25,
       [](Drive& day) { day.commands().launchActionsRemotely(std::vector<std::int64_t>{102}); },
       4.5},
      {"an execute program that is missing", 60.75,
       [](Drive& day) {
         fs::remove(day.store().installPaths().installPathForCode(InstallPaths::executeExecutable));
       },
       30,
       [](Drive& day) {
         std::ofstream(
             day.store().installPaths().installPathForCode(InstallPaths::executeExecutable))
             << "execute";
       }},
      {"an execution before it", 42.76,
       [](Drive& day) {
         day.scripts["Photos"] = {.seconds = 40};
         day.tell("LaunchAction", info("Ref", 101));
         day.runFor(2);
         day.machine.processes.starts.clear();
       },
       37},
  };
  for (const Hindrance& one : kHindrances) {
    SCOPED_TRACE(one.name);
    Drive day;
    if (one.before) one.before(day);
    day.begin();
    const double begun = day.machine.clock.monotonic();
    one.begins(day);
    day.tell("LaunchAction", info("Ref", 102));
    day.runFor(one.lasts);
    if (one.lasts > 0) {
      EXPECT_TRUE(day.machine.processes.starts.empty());
    }
    if (one.ends) one.ends(day);
    auto& starts = day.machine.processes.starts;
    for (int look = 0; look < 600 && starts.empty(); ++look) day.runFor(0.25);
    EXPECT_NEAR(day.machine.clock.monotonic() - begun, one.launched, 1e-6);
    ASSERT_EQ(starts.size(), 1U);
    EXPECT_EQ(starts[0]->arguments.at(1), "102");
  }
}

TEST(Launches, AreHeldBackAfterTheStart) {
  struct Start {
    const char* name;
    double launched;  ///< seconds from the start
    bool relaunched = false;
    bool withMainApp = false;
    std::function<void(Drive&)> before = {};
    std::function<void(Drive&)> after = {};
    const char* told = "";
  };
  const auto welcome = [](Drive& day) { day.prefer("SchedulerPrefShowWelcomeMessage", 1); };
  const Start kStarts[] = {
      {"at login", 60.25},
      {"with the main application", 1.25, false, true},
      {"started anew", 2.25, true},
      {"with a welcome", 70.75, false, false, welcome, {}, "Automatic execution: on / "},
      {"with a welcome in a context",
       80.75,
       false,
       false,
       [&](Drive& day) {
         welcome(day);
         day.prefer("SchedulerPrefCurrentContext", 2);
       },
       {},
       "Automatic execution: on / Context: Home / "},
      {"with a welcome as a notice",
       60.25,
       false,
       false,
       [&](Drive& day) {
         welcome(day);
         day.prefer("SchedulerPrefShowMessageInNotificationCenter", 1);
       },
       {},
       "Corvana 9 Scheduler is ready\nAutomatic execution: on / "},
      {"with a sibling that speaks", 10.75, false, false, welcome,
       [](Drive& day) { day.tell("ActionHistoryChanged"); }, "Automatic execution: on / "},
      {"with another program that asks",
       0.25,
       false,
       false,
       {},
       [](Drive& day) { EXPECT_TRUE(day.agentObject.answers->launch(101)); }},
  };
  for (const Start& one : kStarts) {
    SCOPED_TRACE(one.name);
    Drive day(one.withMainApp);
    if (one.before) one.before(day);
    day.prefer("SchedulerActionsToDoList",
               ZAN_Value::array({ZAN_Value::dictionary(
                   {{"Ref", 102}, {"Date", ZAN_Value::date(day.machine.clock.now())}})}));
    day.writeTree();
    day.start(one.relaunched);
    day.count();
    if (one.after) one.after(day);
    std::string told;
    for (int look = 0; look < 600 && day.launchedAfter() < 0; ++look) {
      day.runFor(0.25);
      if (day.ui.message) told = day.ui.message->text;
    }
    for (const auto& notice : day.ui.notifications) told += notice.text;
    EXPECT_EQ(day.launchedAfter(), one.launched);
    EXPECT_EQ(told, one.told);
  }
}

TEST(Launches, WhatRunsIsLookedAfterWhateverHoldsTheNextOneBack) {
  Drive day;
  for (const char* title : {"Mail", "Photos"}) day.scripts[title] = {.seconds = 20};
  day.begin();
  for (const int ref : {102, 101}) day.tell("LaunchAction", info("Ref", ref));
  day.runFor(5);
  for (int i = 0; i < 3; ++i) day.tell("Message", info("Seconds", 20));
  day.commands().pauseExecution();
  day.runFor(20);
  EXPECT_FALSE(day.agent->supervisor().isExecuting());
  EXPECT_EQ(day.agent->queue().actionsList().size(), 1U);
  day.commands().continueExecution();
  day.runFor(30);
  EXPECT_EQ(day.executionsOf("Photos"), 0U);
  day.runFor(20);
  EXPECT_EQ(day.executionsOf("Photos"), 1U);
}

TEST(Launches, EndWithTheRunningOneWhenTheMachineIsToBeShutDown) {
  Drive day;
  day.scripts["Mail"] = {.seconds = 60};
  day.begin();
  day.tell("LaunchAction", info("Ref", 102));
  day.tell("LaunchAction", info("Ref", 101));
  day.runFor(5);
  day.tell("ShutDownMac");
  day.commands().disableScheduleWhenAllDone();
  day.runFor(50);
  EXPECT_EQ(day.machine.power.shutDowns, 0);
  day.machine.runLoop.runFor(10);
  EXPECT_EQ(day.machine.power.shutDowns, 1);
  EXPECT_EQ(day.executionsOf("Photos"), 0U);
  EXPECT_FALSE(day.agent->state().mScheduleDisabled) << "the machine goes down as it is";
}

TEST(Launches, AskedForNowRunWhileExecutionIsOffAndNothingElse) {
  Drive day;
  day.begin();
  day.commands().disableSchedule();
  for (const int ref : {101, 102}) day.tell("LaunchAction", info("Ref", ref));
  day.runFor(20);
  EXPECT_EQ(day.launchedAfter(), -1);
  day.commands().executeNow(102);
  day.commands().executeNow(102);
  day.runFor(0.5);
  EXPECT_EQ(day.agent->userInterfaceSources().launchStep.statusInformation(), "");
  day.runFor(60);
  EXPECT_EQ(day.executionsOf("Mail"), 1U);
  EXPECT_EQ(day.executionsOf("Photos"), 0U);
  day.commands().enableSchedule();
  day.runFor(30);
  EXPECT_EQ(day.executionsOf("Photos"), 1U);
  // Turned on in between, nothing is asked for any more.
  day.commands().pauseExecution();
  day.commands().disableSchedule();
  day.tell("LaunchAction", info("Ref", 101));
  day.commands().executeNow(101);
  for (const bool on : {true, false}) {
    day.commands().setSchedulerActive(on);
    day.runFor(15);
  }
  day.commands().continueExecution();
  day.runFor(30);
  EXPECT_EQ(day.executionsOf("Photos"), 1U);
}

/// A restart when idle comes three hours after the start, and then every 3,700 s.
TEST(Launches, ARestartWaitsUntilNobodyUsesTheAgent) {
  Drive day;
  day.begin();
  const auto restarts = [&](double seconds) {
    const auto before = day.machine.processes.relaunches.size();
    day.machine.runLoop.runFor(seconds);
    return day.machine.processes.relaunches.size() != before;
  };
  day.commands().pauseExecution();
  jump(day, 3 * 3600.0 - 5 - 20);
  EXPECT_FALSE(restarts(30)) << "paused";
  day.commands().showWindow(Window::queue);
  day.commands().continueExecution();
  Window last = Window::queue;
  for (const Window window :
       {Window::nextActions, Window::latestActions, Window::status, Window::mountVolumes,
        Window::allDisks, Window::lowSpace, Window::startupDisk, Window::errorSummary,
        Window::preferences, Window::executionSurvey}) {
    EXPECT_FALSE(restarts(2.5)) << static_cast<int>(last);
    day.commands().showWindow(window);
    day.commands().hideWindow(last);
    last = window;
  }
  EXPECT_FALSE(restarts(2.5));
  day.tell("Message", info("Title", "Look"));
  day.tell("Message", info("Title", "Again"));
  day.commands().hideWindow(last);
  EXPECT_FALSE(restarts(9)) << "a message waits";
  EXPECT_TRUE(restarts(2.5));
}

TEST(Launches, ARestartComesThreeHoursAfterTheStartOrFiveMinutesAfterAnExecution) {
  Drive idle;
  idle.begin();
  jump(idle, 10'770);
  idle.runFor(26);
  EXPECT_EQ(idle.logCodes().size(), 1U);
  idle.runFor(0.5);
  EXPECT_EQ(idle.logCodes().size(), 3U) << "25 s and the second in which somebody may still come";
  Drive day;
  day.scripts["Mail"] = {.seconds = 600};
  day.begin();
  jump(day, 10'799);
  day.tell("LaunchAction", info("Ref", 102));
  day.runFor(580);
  EXPECT_EQ(day.logCodes(), (std::vector<std::int64_t>{20, 1}));
  // Five minutes after its end, at 610.27 s, and the second in which somebody may still come.
  day.runFor(332);
  EXPECT_EQ(day.logCodes(), (std::vector<std::int64_t>{20, 1}));
  day.runFor(2);
  EXPECT_EQ(day.logCodes(), (std::vector<std::int64_t>{20, 1, 21, 20}));
}

/// Of two instances the one that started later leaves, whatever folder the other one lies in.
TEST(Launches, AreLeftToAnInstanceThatStartedBefore) {
  struct Other {
    std::string bundle;
    double started;  ///< seconds after this one
    bool leaves;
  };
  const std::string kName = "Corvana 9 Scheduler.app";
  for (const Other& other :
       {Other{"/opt/" + kName, -60, true}, Other{"/opt/" + kName, 0, false},
        Other{"/opt/" + kName, 60, false}, Other{"/opt/Another.app", -60, false}}) {
    SCOPED_TRACE(other.bundle + " " + std::to_string(other.started));
    Drive day;
    day.prefer("SchedulerActionsToDoList", ZAN_Value::array());
    day.writeTree();
    jump(day, other.started);
    day.machine.processes.startApplication(other.bundle);
    jump(day, -other.started);
    const double begun = day.machine.clock.monotonic();
    day.start();
    EXPECT_NEAR(day.machine.clock.monotonic() - begun, other.leaves ? 15 : 0, 0.1);
    EXPECT_EQ(day.ui.paints, other.leaves ? 1 : 0);
    EXPECT_EQ(day.agentObject.answers == nullptr, other.leaves);
    EXPECT_EQ(day.machine.notifications.isObserved("CVA9_SchedulerNotification"), !other.leaves);
    day.machine.runLoop.runFor(1);
    EXPECT_EQ(day.machine.runLoop.quitCode().has_value(), other.leaves);
    if (!other.leaves) continue;
    EXPECT_EQ(day.said(), std::vector<std::string>{"scheduler ShowAllVisibleWindowsActions"});
    EXPECT_EQ(day.logCodes(), std::vector<std::int64_t>{13});
    EXPECT_EQ(day.ui.message->seconds, 10);
    EXPECT_TRUE(day.store().settings().schedulerSettings()["SchedulerQuitDate"].isNull());
  }
}

}  // namespace
}  // namespace corvana
