#include <gmock/gmock.h>

#include "actions/RecordKeys.h"
#include "tests/core_record/RecordFixture.h"

namespace corvana {
namespace {

using SchedulerLogTest = RecordTest;

TEST_F(SchedulerLogTest, AnEventIsDatedKeptAndTold) {
  RecordedAgent agent(p);
  const ZAN_Value entry = ZAN_Value::dictionary({{"C", 1}, {"N", "Photos"}, {"R", 12}});
  agent.schedulerLog.addSchedulerLog(entry);
  EXPECT_EQ(p.notifications.count(kMainAppliNotification, "LogChanged"), 0U) << "nobody is there";

  p.processes.startApplication(
      agent.store.installPaths().installPathForCode(InstallPaths::mainAppBundle));
  agent.schedulerLog.addSchedulerLog(entry);
  EXPECT_EQ(p.notifications.count(kMainAppliNotification, "LogChanged"), 1U);

  EXPECT_EQ(agent.log.readLogList().size(), 2U);
  EXPECT_EQ(agent.lastLogEntry()["M"].asDate(), agent.now());
  EXPECT_EQ(agent.lastLogEntry().string("N"), "Photos");
  EXPECT_FALSE(entry.contains("M"));
  agent.schedulerLog.addSchedulerLog(ZAN_Value("no entry"));
  EXPECT_EQ(agent.log.readLogList().size(), 2U);
}

TEST_F(SchedulerLogTest, FailuresShowUntilTheyWereSeen) {
  RecordedAgent agent(p);
  int changes = 0;
  agent.records.changes.listen(
      [&changes](ChangeSet what) { changes += what.has(Change::execution) ? 1 : 0; });
  for (const int code : {1, 2, 3, 12, 13, 20, 21}) agent.schedulerLog.addSchedulerLog(code);
  EXPECT_EQ(agent.state.mErrorInExecution, 0);
  for (const int code : {4, 5, 6, 11, 14, 15, 17}) {
    agent.schedulerLog.addSchedulerLog(code);
    p.runLoop.runFor(0);
    EXPECT_EQ(agent.state.mErrorInExecution, code);
  }
  EXPECT_EQ(changes, 7);
  EXPECT_EQ(RecordedAgent(p).preferences.prefForKey("SchedulerPrefErrorInExecution").integerValue(),
            17)
      << "the next run knows";
  agent.schedulerLog.addSchedulerLog(2);
  EXPECT_EQ(agent.state.mErrorInExecution, 17) << "a success does not hide an earlier failure";
  agent.schedulerLog.clearErrorState();
  EXPECT_EQ(agent.state.mErrorInExecution, 0);
  p.runLoop.runFor(0);
  EXPECT_EQ(changes, 8);
  agent.schedulerLog.clearErrorState();
  p.runLoop.runFor(0);
  EXPECT_EQ(changes, 8) << "nothing is left to be seen";
}

TEST_F(SchedulerLogTest, ASuccessTakesBackTheFailureOfItsOwnAction) {
  RecordedAgent agent(p);
  const auto log = [](RecordedAgent& to, int code, std::int64_t ref) {
    to.schedulerLog.addSchedulerLog(ZAN_Value::dictionary({{"C", code}, {"R", ref}}));
  };
  log(agent, 14, 1);
  log(agent, 6, 2);
  log(agent, 5, 1);
  log(agent, 2, 3);
  EXPECT_EQ(agent.state.mErrorInExecution, 5);
  RecordedAgent next(p);
  next.schedulerLog.restoreErrorState();
  ASSERT_EQ(next.state.mFailures.size(), 2U);
  log(next, 2, 1);
  EXPECT_EQ(next.state.mErrorInExecution, 6) << "the other one has not been made good";
  log(next, 2, 2);
  EXPECT_EQ(next.state.mErrorInExecution, 0);
  EXPECT_TRUE(next.preferences.prefForKey("SchedulerFailuresNotSeen").isNull());
  RecordedAgent third(p);
  third.schedulerLog.restoreErrorState();
  EXPECT_TRUE(third.state.mFailures.empty()) << "nothing has failed";
  EXPECT_EQ(third.state.mErrorInExecution, 0);

  // Of an agent that kept no list.
  next.preferences.setPref("SchedulerPrefErrorInExecution", 11);
  next.schedulerLog.restoreErrorState();
  log(next, 2, 1);
  EXPECT_EQ(next.state.mErrorInExecution, 11);
}

TEST_F(SchedulerLogTest, WhatRanWithoutAnAgentIsTakenUpByTheNextOneOnly) {
  RecordedAgent agent(p);
  const auto log = [](RecordedAgent& to, int code, std::int64_t ref, bool untold) {
    to.log.addLog(ZAN_Value::dictionary({{"C", code}, {"R", ref}, {"Untold", untold ? 1 : 0}}));
  };
  agent.schedulerLog.addSchedulerLog(ZAN_Value::dictionary({{"C", 5}, {"R", 1}}));
  log(agent, LogCode::agentStarted, 0, false);
  log(agent, 5, 2, false);
  log(agent, 5, 3, true);
  log(agent, 2, 1, true);
  RecordedAgent next(p);
  next.schedulerLog.restoreErrorState();
  next.schedulerLog.takeUpUntold();
  ASSERT_EQ(next.state.mFailures.size(), 1U) << "told ones are as the user left them";
  EXPECT_EQ(next.state.mFailures[0].ref, 3);
  next.schedulerLog.addSchedulerLog(LogCode::agentStarted);
  next.schedulerLog.clearErrorState();
  next.schedulerLog.takeUpUntold();
  EXPECT_EQ(next.state.mErrorInExecution, 0) << "the user has seen it";
}

TEST_F(SchedulerLogTest, WhatCannotBeCopiedIsShownOnceAndIsNoFailure) {
  RecordedAgent agent(p);
  const auto lacks = [](RecordedAgent& to, std::int64_t ref, bool others) {
    ZAN_Value entry = ZAN_Value::dictionary({{"C", 14}, {"R", ref}, {RunKey::onlyLacks, 1}});
    if (others) entry.setValue(RunKey::lacksOthers, 1);
    to.schedulerLog.addSchedulerLog(entry);
  };
  const auto logged = [](RecordedAgent& to, int code, std::int64_t ref) {
    to.schedulerLog.addSchedulerLog(ZAN_Value::dictionary({{"C", code}, {"R", ref}}));
  };
  logged(agent, 5, 1);
  p.userInterface.message.reset();
  lacks(agent, 1, true);
  lacks(agent, 1, false);
  EXPECT_EQ(agent.state.mErrorInExecution, 0) << "it is as good as a success";
  EXPECT_FALSE(p.userInterface.message);
  EXPECT_EQ(agent.counters.counter(ExecutionCounters::kErrors, 1), 1);

  RecordedAgent next(p);
  next.schedulerLog.restoreErrorState();
  EXPECT_THAT(next.state.mLacking, testing::ElementsAre(1)) << "nobody has seen it";
  next.schedulerLog.clearErrorState();
  EXPECT_TRUE(next.preferences.prefForKey("SchedulerLackingNotSeen").isNull());
  lacks(next, 1, false);
  EXPECT_TRUE(next.state.mLacking.empty()) << "the same was seen";
  lacks(next, 1, true);
  logged(next, 5, 1);
  lacks(next, 1, false);
  EXPECT_THAT(next.state.mLacking, testing::ElementsAre(1)) << "a failure between does not hide it";
  logged(next, 2, 1);
  EXPECT_TRUE(next.state.mLacking.empty());
  lacks(next, 1, true);
  lacks(next, 2, true);
  next.schedulerLog.keepLacking([](std::int64_t reference) { return reference == 2; });
  EXPECT_THAT(next.state.mLacking, testing::ElementsAre(2)) << "the other was deleted";
}

TEST_F(SchedulerLogTest, ErrorsAndCrashesAreCountedForTheirAction) {
  RecordedAgent agent(p);
  for (const int code : {5, 14, 6, 11, 2}) {
    agent.schedulerLog.addSchedulerLog(ZAN_Value::dictionary({{"C", code}, {"R", 12}}));
  }
  EXPECT_EQ(agent.counters.counter(ExecutionCounters::kErrors, 12), 2);
  EXPECT_EQ(agent.counters.counter(ExecutionCounters::kCrashes, 12), 1);
  EXPECT_EQ(agent.counters.counter(ExecutionCounters::kErrors, 13), 0);
}

TEST_F(SchedulerLogTest, AMissingVolumeIsSaidToTheUser) {
  RecordedAgent agent(p);
  agent.schedulerLog.addSchedulerLog(17, "Photos");
  ASSERT_TRUE(p.userInterface.message);
  EXPECT_EQ(p.userInterface.message->title, "Photos has no volume");
  EXPECT_EQ(agent.lastLogEntry().integer("C"), 13);
  EXPECT_EQ(agent.log.readLogList().size(), 2U);
  EXPECT_EQ(agent.state.mErrorInExecution, 17);
  agent.schedulerLog.addSchedulerLog(
      ZAN_Value::dictionary({{"C", 17}, {"N", "Photos"}, {LogKey::unreachable, 1}}));
  EXPECT_EQ(agent.lastLogEntry().string("N"), "Photos has no answer") << "a server is no volume";

  const auto isSaid = [&](const ZAN_Value& entry) {
    agent.messages.closeMessageWindow();
    agent.schedulerLog.addSchedulerLog(entry);
    return p.userInterface.message.has_value();
  };
  const auto ended = [](int code, std::string_view key = "x", const ZAN_Value& value = 1) {
    return ZAN_Value::dictionary({{"C", code}, {"N", "Photos"}, {"R", 12}, {key, value}});
  };
  EXPECT_FALSE(isSaid(ended(LogCode::abortedByUser)));
  agent.preferences.mPrefAlertIfManualInterruption = 1;
  EXPECT_TRUE(isSaid(ended(LogCode::abortedByUser)));
  EXPECT_FALSE(isSaid(ended(LogCode::unexpectedError)));
  EXPECT_TRUE(isSaid(ended(LogCode::unexpectedError, DeletionKey::toConfirm, 3)));
  EXPECT_TRUE(isSaid(ended(LogCode::completedWithErrors)));
  EXPECT_FALSE(isSaid(ended(LogCode::completedWithErrors, RunKey::onlyLacks)));
  EXPECT_FALSE(isSaid(ended(LogCode::completed)));
  EXPECT_TRUE(isSaid(ended(LogCode::completed, CopyKey::losses, "two names")));
  EXPECT_TRUE(isSaid(ended(LogCode::completed, RunKey::isReadBack)));
  agent.state.mMainAppLaunched = true;
  EXPECT_FALSE(isSaid(ended(LogCode::completed, RunKey::isReadBack))) << "it is read there";
}

}  // namespace
}  // namespace corvana
