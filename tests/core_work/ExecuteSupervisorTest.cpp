#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "WorkWorld.h"
#include "actions/TaskRequest.h"
#include "core/work/ZAN_TaskWrapper.h"

namespace corvana::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class ExecuteSupervisorTest : public testing::Test, protected WorkWorld {
 protected:
  /// Launches the head and lets the ticks supervise it until it is over.
  void execute(ChildScript script) {
    machine.processes.next(std::move(script));
    ASSERT_EQ(supervisor.launchNextAction(), LaunchResult::launched);
    for (int tick = 0; supervisor.isExecuting() && tick < 1000; ++tick) {
      advance(0.5);
      supervisor.supervise();
    }
  }
  const ZAN_Value lastLogEntry() {
    const ZAN_Value list = actionLog.readLogList();
    return list.at(list.size() - 1);
  }
};

TEST_F(ExecuteSupervisorTest, ANormalRunIsRecordedAndLeavesTheQueue) {
  setActions(
      {action(7, {{"LastExecutionDate", ZAN_Value::date(5000)}, {"AdminMode", 1}}), action(8)});
  const std::string program = installExecute();
  machine.folder.write(program.substr(machine.folder.path().size() + 1) + " Admin", "");
  preferences.mPrefShowActionProgress = 1;
  preferences.mPrefSetFrontProcess = 1;
  supervisor.setExecutionMode(3);
  machine.processes.startApplication(
      store.installPaths().installPathForCode(InstallPaths::mainAppBundle));
  enqueue({7, 8});
  machine.processes.next({.seconds = 3, .output = "one\ntwo"});
  ASSERT_EQ(supervisor.launchNextAction(), LaunchResult::launched);
  EXPECT_THAT(machine.processes.starts.back()->arguments,
              ElementsAre(program + " Admin", "7", "1", "0", "1", "0", "0", "", "0", "1"));
  EXPECT_TRUE(machine.processes.starts.back()->standardInput);
  EXPECT_EQ(state.mProcessStatus, 2);
  EXPECT_EQ(state.mPauseBeforeNextStep.at(), now() + 1.0);
  EXPECT_THAT(report(), HasSubstr("“A7” was started"));
  EXPECT_EQ(lastLogEntry().integer("C"), LogCode::launched);
  EXPECT_EQ(lastLogEntry().integer("R"), 7);
  EXPECT_EQ(counters.counter("Nb", 7), 1);

  advance(0.5);
  supervisor.supervise();
  EXPECT_EQ(state.mProcessStatus, 3);
  EXPECT_EQ(supervisor.startOfCurrentAction(), now());
  advance(3);
  supervisor.supervise();
  EXPECT_THAT(queued(), ElementsAre(8));
  EXPECT_EQ(state.mProcessStatus, 0);
  EXPECT_EQ(settings(7)["LastBackupDateForFilter"].asDate(), 5000);
  EXPECT_EQ(state.mPauseBeforeNextStep.at(), now() + 2.0);
  EXPECT_EQ(machine.notifications.count("CVA9_MainAppliNotification", "UpdateHistory"), 1u);
  EXPECT_THAT(report(), Not(HasSubstr("ended unexpectedly")));
}

TEST_F(ExecuteSupervisorTest, AnEstimateLeavesTheBackupDateAlone) {
  setActions({action(7, {{"LastExecutionDate", ZAN_Value::date(5000)}})});
  installExecute();
  queue.addActionToQueue(7, now(), -1, true, false, true);
  execute({.seconds = 2});
  EXPECT_EQ(machine.processes.starts.back()->arguments[8], "1");
  EXPECT_TRUE(settings(7)["LastBackupDateForFilter"].isNull());
  EXPECT_TRUE(queue.empty());
}

TEST_F(ExecuteSupervisorTest, ACrashIsAnsweredByOneNewTry) {
  setActions({action(7), action(8)});
  installExecute();
  enqueue({7, 8});
  std::string output;
  for (int line = 1; line <= 250; ++line) output += "line " + std::to_string(line) + ".\n";

  execute({.seconds = 4, .status = 11, .output = output, .farewell = "last words"});
  EXPECT_THAT(queued(), ElementsAre(7, 8));
  EXPECT_EQ(supervisor.retryNb(), 1);
  EXPECT_EQ(state.mPauseBeforeNextStep.at(), now() + 25.0);
  EXPECT_EQ(lastLogEntry().integer("C"), LogCode::crashed);
  EXPECT_EQ(lastLogEntry().integer("S"), 11);
  EXPECT_EQ(lastLogEntry().string("P"), "???");
  EXPECT_THAT(report(), HasSubstr("“A7” ended unexpectedly after 3 s. It is run once more"));
  EXPECT_THAT(report(), HasSubstr("line 52.\n"));
  EXPECT_THAT(report(), HasSubstr("line 250.\n    last words"));
  EXPECT_THAT(report(), Not(HasSubstr("line 51.\n")));
  EXPECT_EQ(machine.userInterface.messages.back().seconds, 15.0);
  EXPECT_TRUE(messages.hasPending());

  execute({.seconds = 4, .status = 11});
  EXPECT_EQ(machine.processes.starts.back()->arguments[5], "1");
  EXPECT_THAT(queued(), ElementsAre(8));
  EXPECT_EQ(supervisor.retryNb(), 0);
  EXPECT_EQ(state.mPauseBeforeNextStep.at(), now() + 15.0);
  EXPECT_THAT(report(), HasSubstr("“A7” ended unexpectedly after 3 s. It is not run again"));

  execute({.seconds = 1, .status = 1});
  EXPECT_EQ(supervisor.retryNb(), 1);
  execute({.seconds = 1, .status = 0});
  EXPECT_EQ(supervisor.retryNb(), 0);
  EXPECT_TRUE(queue.empty());

  // Killed after it has told how it ended, it has not crashed; what it told before does not count.
  const auto tellsAndEnds = [&](int status) {
    machine.processes.next({.seconds = 1, .status = status});
    EXPECT_EQ(supervisor.launchNextAction(), LaunchResult::launched);
    log.addSchedulerLog(ZAN_Value::dictionary({{"R", 7}, {"C", LogCode::completed}}));
    for (int tick = 0; tick < 4; ++tick) {
      advance(0.5);
      supervisor.supervise();
    }
    return lastLogEntry().integer("C");
  };
  enqueue({7, 8});
  EXPECT_EQ(tellsAndEnds(9), LogCode::completed);
  EXPECT_THAT(queued(), ElementsAre(8));
  enqueue({7});
  execute({.seconds = 1, .status = 0});
  execute({.seconds = 1, .status = 9});
  EXPECT_EQ(lastLogEntry().integer("C"), LogCode::crashed);
  EXPECT_EQ(tellsAndEnds(1), LogCode::crashed) << "it says that it could not store what it told";
}

TEST_F(ExecuteSupervisorTest, ATaskIsNeitherARunNorInTheWayOfOne) {
  setActions(
      {action(7, {{"TriggerPreventManualLaunch", 1}, {"LastScheduleDate", ZAN_Value::date(5000)}}),
       action(8)});
  const std::string program = installExecute();
  const auto ask = [&](std::string_view task) {
    const std::string name =
        TaskRequest::nameFor(7, 100, now() + static_cast<double>(machine.processes.starts.size()));
    std::ofstream(TaskRequest::pathIn(store.folder().hiddenFolderPath(), name)) << "{}";
    EXPECT_EQ(queue.addTask(7, task, name), QueueAddition::queued);
    return name;
  };
  EXPECT_EQ(queue.addTask(7, "restore", "Request 7 1 1.json"), QueueAddition::unknownAction)
      << "nobody has written it";
  EXPECT_EQ(queue.addTask(7, "restore", "../Request 7 1 1.json"), QueueAddition::unknownAction);

  enqueue({8});
  const std::string request = ask("restore");
  EXPECT_THAT(queued(), ElementsAre(7, 8)) << "somebody waits for it";
  EXPECT_EQ(lastScheduleDate(7), 5000);
  EXPECT_EQ(queue.addActionToQueue(7, now(), -1), QueueAddition::queued) << "its occasion stays";
  state.mScheduleDisabled = true;
  EXPECT_TRUE(queue.hasExecuteNowAction());

  const double counted = counters.counter("Nb", 7);
  execute({.seconds = 2});
  const auto& words = machine.processes.starts.back()->arguments;
  ASSERT_EQ(words.size(), 11U);
  EXPECT_EQ(words[8], "1") << "a program that knows no requests changes nothing";
  EXPECT_EQ(words[10], TaskRequest::pathIn(store.folder().hiddenFolderPath(), request));
  EXPECT_EQ(counters.counter("Nb", 7), counted);
  EXPECT_EQ(actionLog.readLogList().size(), 0U);
  EXPECT_THAT(report(), HasSubstr("“A7 (restoring)” was started"));
  EXPECT_THAT(queued(), ElementsAre(8, 7));

  // One that was cut off is tried again as long as its request is there.
  const std::string second = ask("verify");
  execute({.seconds = 2, .status = 9});
  EXPECT_EQ(queue.actionsList()[0].request, second);
  EXPECT_EQ(lastLogEntry().string("Task"), "verify");
  std::filesystem::remove(TaskRequest::pathIn(store.folder().hiddenFolderPath(), second));
  EXPECT_EQ(supervisor.launchNextAction(), LaunchResult::taskGone);
}

TEST_F(ExecuteSupervisorTest, ATryOfAnotherActionIsNotTakenForTheNewTry) {
  setActions({action(7), action(8)});
  installExecute();
  enqueue({7, 8});
  execute({.seconds = 1, .status = 1});
  queue.removeFromQueue({0});
  execute({.seconds = 1, .status = 1});
  EXPECT_EQ(machine.processes.starts.back()->arguments[5], "0");
  EXPECT_THAT(queued(), ElementsAre(8));
}

TEST_F(ExecuteSupervisorTest, TheLogSaysWhereACrashHappened) {
  setActions({action(7)});
  installExecute();
  enqueue({7});
  const auto report = [&](StartedChild&) {
    for (int i = 0; i < 600; ++i) {
      supervisor.takeProgress(
          ZAN_Value::dictionary({{"CurrentPath", "/data/" + std::to_string(i)}}));
    }
    EXPECT_EQ(supervisor.latestExecuteCurrentPath().size(), 501u);
    std::ofstream(dataFile("Corvana 9 CurrentPath.txt"));
  };
  execute({.seconds = 1, .status = 1, .steps = {{0.1, report}}});
  EXPECT_EQ(lastLogEntry().string("P"), "/data/99");
  const auto write = [&](StartedChild&) {
    std::ofstream(dataFile("Corvana 9 CurrentPath.txt")) << "/data/ä";
  };
  execute({.seconds = 1, .status = 1, .steps = {{0.1, write}}});
  EXPECT_EQ(lastLogEntry().string("P"), "/data/ä");

  // What an earlier run left behind says nothing about this one.
  enqueue({7});
  execute({.seconds = 1, .status = 1});
  EXPECT_EQ(lastLogEntry().string("P"), "???");
}

TEST_F(ExecuteSupervisorTest, TheDateOfTheBackupIsTheOneThatTheChildHasNoted) {
  setActions({action(7, {{"LastExecutionDate", ZAN_Value::date(5000)}})});
  installExecute();
  enqueue({7});
  const auto note = [&](StartedChild&) {
    ActionStore own(machine.clock, machine.machine, machine.systemLog);
    (void)own.tree().appendToChangesList(
        ZAN_Value::dictionary({{"Ref", 7},
                               {"ChangesObject", ZAN_Value::date(6000)},
                               {"ChangesKey", "LastExecutionDate"}}));
  };
  execute({.seconds = 1, .steps = {{0.8, note}}});
  EXPECT_EQ(settings(7)["LastBackupDateForFilter"].asDate(), 6000);
  ActionStore other(machine.clock, machine.machine, machine.systemLog);
  ActionTree read(other.tree(), machine.clock, machine.systemLog, texts);
  EXPECT_EQ(
      read.rootItem().actionForReference(7)->getSettings()["LastBackupDateForFilter"].asDate(),
      6000);
}

TEST_F(ExecuteSupervisorTest, AChildGoesOnAfterTheAgentUnlessItIsBeingStopped) {
  setActions({action(7)});
  installExecute();
  // What a child says is of interest to the main application alone.
  machine.processes.startApplication(
      store.installPaths().installPathForCode(InstallPaths::mainAppBundle));
  Records talkative{machine.platform()};
  auto own = std::make_unique<Work>(talkative);
  own->queue.addActionToQueue(7, now(), -1, true, false, false);
  machine.processes.next(
      {.seconds = ChildScript::kUntilStopped, .output = std::string(5000, 'x') + "\nso far"});
  ASSERT_EQ(own->supervisor.launchNextAction(), LaunchResult::launched);
  own->supervisor.agentEnds();
  own.reset();
  StartedChild& child = *machine.processes.starts.back();
  EXPECT_TRUE(child.running);
  EXPECT_FALSE(child.terminated);
  std::ifstream log(dataFile("Corvana Log.txt"));
  EXPECT_THAT(std::string(std::istreambuf_iterator<char>(log), {}), HasSubstr("\n    so far\n"));

  own = std::make_unique<Work>(talkative);
  own->queue.addActionToQueue(7, now(), -1, true, false, false);
  EXPECT_EQ(own->supervisor.launchNextAction(), LaunchResult::otherExecution);
  machine.processes.endChild(child.pid, 0);
  machine.processes.next({.seconds = ChildScript::kUntilStopped});
  ASSERT_EQ(own->supervisor.launchNextAction(), LaunchResult::launched);
  own->supervisor.stopExecution();
  own->supervisor.agentEnds();
  EXPECT_TRUE(machine.processes.starts.back()->terminated);
}

/// An execution is followed as the tick does it.
class WatchedExecutionTest : public ExecuteSupervisorTest {
 protected:
  static constexpr const char* kOwn = "OptionsPerformer";

  void launch(const std::vector<ZAN_Value>& actions, ChildScript script = untilStopped()) {
    setActions(actions);
    installExecute();
    preferences.mPrefShowMessageInNotificationCenter = 0;
    for (const ZAN_Value& one : actions)
      queue.addActionToQueue(one.integer("Ref"), now(), -1, true, false, false);
    machine.processes.next(std::move(script));
    ASSERT_EQ(supervisor.launchNextAction(), LaunchResult::launched);
  }
  static ChildScript untilStopped() { return {.seconds = ChildScript::kUntilStopped}; }
  /// How many of the seconds pass until the condition holds; all of them when it does not.
  double follow(
      double seconds, const std::function<bool()>& until = [] { return false; }) {
    double passed = 0;
    for (; passed < seconds && !until(); passed += 0.5) {
      advance(0.5);
      if (supervisor.nextSupervision() <= now()) supervisor.supervise();
    }
    return passed;
  }
  double followUntilStuck(double seconds) {
    return follow(seconds, [this] { return messages.isShown(); });
  }
  void progress(double value) {
    supervisor.takeProgress(ZAN_Value::dictionary({{"ProgressValue", value}}));
  }
  StartedChild& child() { return *machine.processes.starts.back(); }
};

TEST_F(WatchedExecutionTest, WithoutProgressForTenMinutesItIsStuckWhichIsSaidOnce) {
  launch(
      {action(7, {{kOwn, "corvana9"}}), action(8), action(9), action(10), action(11), action(12)});
  follow(300);
  progress(1);
  EXPECT_EQ(followUntilStuck(900), 600);
  ASSERT_TRUE(supervisor.stall());
  EXPECT_EQ(supervisor.stall()->kind, Stall::Kind::noProgress);
  EXPECT_EQ(supervisor.stall()->since, now() - 600);
  const std::string text = supervisor.stallText();
  EXPECT_THAT(text, HasSubstr("“A7” has made no progress since"));
  EXPECT_THAT(text, HasSubstr("Waiting behind it: “A8”, “A9”, “A10” and 2 more."));
  EXPECT_EQ(lastLogEntry().string("N"), text);
  EXPECT_THAT(report(), HasSubstr(text));
  EXPECT_EQ(state.mErrorInExecution, LogCode::message);

  messages.closeMessageWindow();
  progress(1);
  EXPECT_EQ(followUntilStuck(900), 900) << "the same again is no progress, and nothing new";
  progress(2);
  EXPECT_FALSE(supervisor.stall());
  EXPECT_EQ(followUntilStuck(900), 600);
}

TEST_F(WatchedExecutionTest, OnlyTimeInWhichItCouldWorkCounts) {
  launch({action(7, {{kOwn, "corvana9"}})});
  follow(300);
  supervisor.pauseChanged(true);
  EXPECT_EQ(supervisor.nextSupervision(), kNever);
  follow(3600);
  supervisor.pauseChanged(false);
  follow(100);
  machine.clock.setNow(now() + 8 * 3600.0);
  EXPECT_EQ(followUntilStuck(900), 200);
}

TEST_F(WatchedExecutionTest, IsToldAsTheUserWantsIt) {
  struct Row {
    const char* name;
    int preference;
    std::optional<int> ownMinutes;
    bool ours;
    bool posts;
    double stuck;  ///< seconds until it is said; 0: never
  };
  const Row kRows[] = {{"as it comes", 10, {}, true, false, 600},
                       {"another program that says nothing", 10, {}, false, false, 0},
                       {"another program that tells of its progress", 10, {}, false, true, 600},
                       {"another time", 3, {}, true, false, 180},
                       {"a time of its own", 3, 20, true, false, 1200},
                       {"switched off", 0, {}, true, true, 0},
                       {"switched off for it", 10, 0, true, true, 0},
                       {"switched on for it", 0, 5, true, true, 300},
                       {"a time that is none", 10, -5, true, true, 0}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    preferences.mPrefNoProgressMinutes = row.preference;
    ZAN_Value one = action(7);
    if (row.ours) one.setValue(kOwn, "corvana9");
    if (row.ownMinutes) one.setValue("OptionsNoProgressMinutes", *row.ownMinutes);
    launch({one});
    if (row.posts) progress(1);
    EXPECT_EQ(followUntilStuck(1700), row.stuck == 0 ? 1700 : row.stuck);
    machine.processes.endChild(child().pid, 0);
    follow(1);
    messages.closeMessageWindow();
  }
}

TEST_F(WatchedExecutionTest, MuchLongerThanUsualIsStuckToo) {
  const auto ran = [this](int ref, double seconds) {
    records.history.addHistoryEntry(
        ZAN_Value::dictionary({{"Ref", ref},
                               {"C", LogCode::completed},
                               {"Date", ZAN_Value::date(now() - 86400 + ref)},
                               {"EndDate", ZAN_Value::date(now() - 86400 + ref + seconds)}}));
  };
  ran(7, 60);
  ran(8, 1000);
  for (const auto& [ref, stuck] : {std::pair(7, 1800.0), std::pair(8, 5000.0)}) {
    launch({action(ref)});
    const ReferenceTime start = now();
    EXPECT_EQ(followUntilStuck(6000), stuck);
    ASSERT_TRUE(supervisor.stall());
    EXPECT_EQ(supervisor.stall()->kind, Stall::Kind::longerThanUsual);
    EXPECT_EQ(supervisor.stall()->since, start);
    EXPECT_THAT(supervisor.stallText(), HasSubstr("much longer than usual"));
    machine.processes.endChild(child().pid, 0);
    follow(1);
    messages.closeMessageWindow();
  }
  launch({action(9)});
  EXPECT_EQ(followUntilStuck(20000), 20000) << "nobody knows how long it takes";
}

TEST_F(WatchedExecutionTest, AStopComesToAnEnd) {
  ChildScript deaf = untilStopped();
  deaf.ignoresTerminate = true;
  ChildScript held = deaf;
  held.ignoresKill = true;
  launch({action(7, {{kOwn, "corvana9"}})}, held);
  records.history.addHistoryEntry(ZAN_Value::dictionary(
      {{"Ref", 7}, {"Date", ZAN_Value::date(now())}, {"C", LogCode::launched}}));
  follow(60);
  supervisor.stopExecution();
  advance(9);
  EXPECT_NEAR(supervisor.nextSupervision(), now() + 1, 1e-6);
  advance(1);
  EXPECT_EQ(supervisor.nextSupervision(), kAtOnce) << "due whatever time passes in the tick";
  EXPECT_EQ(follow(60, [this] { return child().terminated; }), 0.5);
  EXPECT_EQ(follow(60, [this] { return child().killed; }), 20);
  EXPECT_EQ(follow(60, [this] { return !supervisor.isExecuting(); }), 5);
  EXPECT_TRUE(queue.empty());
  EXPECT_THAT(machine.userInterface.message->title, HasSubstr("“A7” cannot be ended"));
  EXPECT_EQ(records.history.getProgrammedHistoryList().at(1).integer("C"), LogCode::abortedByUser);
  EXPECT_THAT(report(), Not(HasSubstr("unexpectedly")));

  // It hangs in the system for good, and the next one begins all the same.
  ASSERT_TRUE(child().running);
  launch({action(8, {{kOwn, "corvana9"}})}, deaf);
  supervisor.stopExecution();
  EXPECT_EQ(follow(60, [this] { return !supervisor.isExecuting(); }), 30);
  EXPECT_EQ(lastLogEntry().integer("C"), LogCode::abortedByUser);
  EXPECT_EQ(lastLogEntry().integer("S"), 9);
  EXPECT_TRUE(queue.empty()) << "no new try";

  launch({action(9, {{kOwn, "corvana9"}})});
  supervisor.stopExecution();
  supervisor.stopExecution();
  follow(5);
  EXPECT_FALSE(child().terminated) << "a second click takes none of its time";
  machine.processes.endChild(child().pid, 0);
  follow(60);
  EXPECT_EQ(lastLogEntry().integer("C"), LogCode::launched) << "it records its end itself";
  EXPECT_FALSE(child().terminated);
}

TEST_F(WatchedExecutionTest, AnotherProgramIsForcedOnlyWhenAskedAgain) {
  ChildScript deaf = untilStopped();
  deaf.ignoresTerminate = true;
  launch({action(7)}, deaf);
  supervisor.stopExecution();
  follow(3600);
  EXPECT_FALSE(child().terminated);
  supervisor.stopExecution();
  EXPECT_EQ(follow(60, [this] { return child().terminated; }), 0.5);
  EXPECT_EQ(follow(60, [this] { return child().killed; }), 20);
  follow(5);
  EXPECT_TRUE(queue.empty());

  // One that the agent of before has left behind.
  const auto pid = machine.processes.startApplication(
      store.installPaths().installPathForCode(InstallPaths::executeBundle));
  enqueue({7});
  EXPECT_EQ(supervisor.launchNextAction(), LaunchResult::otherExecution);
  machine.processes.terminations.clear();
  supervisor.stopExecution();
  follow(60);
  EXPECT_THAT(machine.processes.terminations, ElementsAre());
  supervisor.stopExecution();
  follow(1);
  EXPECT_THAT(machine.processes.terminations, ElementsAre(pid));
  follow(20);
  EXPECT_EQ(supervisor.launchNextAction(), LaunchResult::launched) << "it was killed";
}

TEST_F(WatchedExecutionTest, WhatOthersHaveStoppedIsNoCrashEither) {
  launch({action(7)});
  follow(2);
  supervisor.stopWasAsked();
  supervisor.stopWasAsked();
  follow(60);
  EXPECT_FALSE(child().terminated);
  machine.processes.endChild(child().pid, 3);
  follow(1);
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(lastLogEntry().integer("C"), LogCode::abortedByUser);
}

TEST_F(WatchedExecutionTest, ADeletedActionIsStoppedAndAnUnreadableTreeIsNone) {
  launch({action(7), action(8)});
  follow(2);
  const std::string file = dataFile(std::string(DataFolder::kActions));
  std::filesystem::rename(file, file + " away");
  tree.releaseRootItem();
  supervisor.stopIfActionIsGone();
  std::ofstream(file) << "";
  tree.releaseRootItem();
  supervisor.stopIfActionIsGone();
  EXPECT_EQ(supervisor.stopStage(), ExecutionStop::Stage::none);
  setActions({action(8)});
  supervisor.stopIfActionIsGone();
  EXPECT_EQ(supervisor.stopStage(), ExecutionStop::Stage::asked);
}

TEST_F(ExecuteSupervisorTest, AMissingProgramIsSaidOnceAndTheHeadStays) {
  setActions({action(7)});
  enqueue({7});
  EXPECT_EQ(supervisor.launchNextAction(), LaunchResult::programMissing);
  EXPECT_EQ(state.mPauseBeforeNextStep.at(), now() + 60.0);
  advance(60);
  installExecute();
  machine.processes.failNextStart({ErrorKind::unavailable, "/x: permission denied"});
  EXPECT_EQ(supervisor.launchNextAction(), LaunchResult::programMissing);
  EXPECT_FALSE(supervisor.isExecuting());
  EXPECT_THAT(queued(), ElementsAre(7));
  EXPECT_THAT(notices(), ElementsAre(HasSubstr("“A7”"), HasSubstr("cannot be executed")));

  execute({.seconds = 1});
  EXPECT_TRUE(queue.empty());
  enqueue({7});
  machine.processes.failNextStart({ErrorKind::unavailable, "/x: permission denied"});
  EXPECT_EQ(supervisor.launchNextAction(), LaunchResult::programMissing);
  EXPECT_THAT(notices().back(), HasSubstr("/x: permission denied"));
}

TEST_F(ExecuteSupervisorTest, AChildThatEndsBeforeTheFirstTickEndsTheExecution) {
  setActions({action(7)});
  installExecute();
  enqueue({7});
  execute({.seconds = 0.1});
  EXPECT_FALSE(supervisor.isExecuting());
  EXPECT_TRUE(queue.empty());
}

TEST_F(ExecuteSupervisorTest, AnActionThatGoesIsNotLaunchedOrIsStopped) {
  setActions({action(7)});
  installExecute();
  enqueue({7});
  setActions({});
  EXPECT_EQ(supervisor.launchNextAction(), LaunchResult::actionGone);
  supervisor.executionDidEnd();
  EXPECT_TRUE(queue.empty());

  setActions({action(7)});
  enqueue({7});
  machine.processes.next({.seconds = 5});
  supervisor.launchNextAction();
  setActions({});
  advance(0.5);
  supervisor.supervise();
  EXPECT_EQ(machine.notifications.count("CVA9_ExecuteNotification", "ActionStop"), 1u);
}

TEST_F(ExecuteSupervisorTest, StopWaitsForTheChildUnlessItHasGone) {
  setActions({action(7), action(8)});
  installExecute();
  enqueue({7, 8});
  machine.processes.next({.seconds = 5});
  supervisor.launchNextAction();
  supervisor.stopExecution();
  EXPECT_TRUE(supervisor.isExecuting());
  EXPECT_FALSE(machine.processes.starts.back()->terminated);
  advance(6);
  supervisor.stopExecution();
  EXPECT_FALSE(supervisor.isExecuting());
  EXPECT_THAT(queued(), ElementsAre(8));
  EXPECT_EQ(machine.notifications.count("CVA9_ExecuteNotification", "ActionStop"), 2u);

  machine.processes.next({.seconds = ChildScript::kUntilStopped, .farewell = "interrupted"});
  supervisor.launchNextAction();
  supervisor.stopAndClearProcess();
  EXPECT_TRUE(machine.processes.starts.back()->terminated);
  EXPECT_TRUE(queue.empty());

  enqueue({7});
  machine.processes.next({.seconds = ChildScript::kUntilStopped, .ignoresTerminate = true});
  supervisor.launchNextAction();
  supervisor.stopAndClearProcess();
  advance(3);
  EXPECT_THAT(machine.processes.kills, ElementsAre(machine.processes.starts.back()->pid));
}

TEST_F(ExecuteSupervisorTest, AnExecutionStartedElsewhereIsWaitedFor) {
  setActions({action(7)});
  installExecute();
  enqueue({7});
  const std::string& bundle = store.installPaths().installPathForCode(InstallPaths::executeBundle);
  machine.processes.startApplication(bundle);
  EXPECT_EQ(supervisor.launchNextAction(), LaunchResult::otherExecution);
  EXPECT_EQ(state.mPauseBeforeNextStep.at(), now() + 5.0);
  EXPECT_TRUE(machine.processes.starts.empty());
  EXPECT_THAT(queued(), ElementsAre(7));
  machine.processes.quitApplication(bundle);
  EXPECT_EQ(supervisor.launchNextAction(), LaunchResult::launched);
}

TEST(ChildOutputTest, LinesComeWholeAndAnEndlessOneIsBroken) {
  ChildOutput output;
  EXPECT_EQ(output.append("one\ntw"), "one");
  EXPECT_EQ(output.append("o\n\nthree"), "two\n");
  EXPECT_EQ(output.finish(), "three");
  EXPECT_EQ(output.finish(), "");
  for (int i = 0; i < 300; ++i) output.append(std::string(ChildOutput::kMaximumLineLength, 'x'));
  EXPECT_EQ(output.lastLines().size(), ChildOutput::kMaximumLines);
  EXPECT_EQ(output.lastLines().back().size(), ChildOutput::kMaximumLineLength);
}

TEST_F(ExecuteSupervisorTest, OnlyTheExecuteApplicationAtItsUsualPlaceIsKilled) {
  const std::string usual = "/Applications/Corvana 9.app/Contents/Resources/Corvana 9 Execute.app";
  const auto pid = machine.processes.startApplication(usual);
  machine.processes.startApplication("/opt" + usual);
  supervisor.killExecute();
  EXPECT_THAT(machine.processes.kills, ElementsAre(pid));
}

}  // namespace
}  // namespace corvana::test
