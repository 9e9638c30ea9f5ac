#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "WorkWorld.h"
#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/RecordKeys.h"

namespace corvana::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr double kDay = 86400;

class TriggerEvaluationTest : public testing::Test, protected WorkWorld {
 protected:
  /// Due every day at that hour of the clock.
  ZAN_Value daily(int ref, double hour,
                  std::initializer_list<std::pair<std::string_view, ZAN_Value>> more = {}) {
    ZAN_Value record = automatic(ref, 1, more);
    record.setValue("TriggerScheduleTime", ZAN_Value::date(hour * 3600));
    if (!record.contains("LastScheduleDate"))
      record.setValue("LastScheduleDate", ZAN_Value::date(now() - 600));
    return record;
  }
  ReferenceTime today(double hour) const { return 725889600.0 - 12 * 3600 + hour * 3600; }
  /// The listed date of an action, 0 without one.
  ReferenceTime listed(int ref) const {
    const auto& list = evaluation.actionsNextList();
    const auto found = std::ranges::find_if(
        list, [&](const NextAction& next) { return !next.isGroup && next.ref == ref; });
    EXPECT_NE(found, list.end()) << ref;
    return found != list.end() && found->hasDate ? found->date : 0;
  }
  void empty() {
    while (!queue.empty()) queue.removeHead();
  }
};

TEST_F(TriggerEvaluationTest, OpenQuestionsOnlyMoveTheNextCheck) {
  setActions({daily(1, 11)});
  state.mStartedFromNewMachine = true;
  evaluation.checkActionsToLaunch();
  EXPECT_EQ(state.mNextCheck.at(), now() + 15.0);
  state.mStartedFromNewMachine = false;
  state.mScheduleDisabledWhenDone = true;
  state.checkAt(now() + 600);
  evaluation.checkActionsToLaunch();
  EXPECT_EQ(state.mNextCheck.at(), now() + 15.0);
  state.mScheduleDisabledWhenDone = false;

  state.mScheduleDisabled = state.mFirstCheckAfterStartup = true;
  evaluation.checkActionsToLaunch();
  EXPECT_EQ(state.mNextCheck.at(), now() + 5.0);
  machine.processes.startApplication(
      store.installPaths().installPathForCode(InstallPaths::mainAppBundle));
  evaluation.checkActionsToLaunch();
  EXPECT_EQ(state.mNextCheck.at(), now() + 1.0);
  EXPECT_TRUE(state.mFirstCheckAfterStartup);
  EXPECT_THAT(evaluation.actionsNextList(), IsEmpty());
}

TEST_F(TriggerEvaluationTest, WhatIsDueIsQueuedTwoSecondsAheadUnlessDisabled) {
  setActions({daily(1, 11, {{"LastScheduleDate", ZAN_Value::date(now() - kDay)}}), daily(2, 13),
              daily(3, 11.5, {{"TriggerAutomatic", 0}})});
  state.mScheduleDisabled = true;
  evaluation.checkActionsToLaunch();
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(listed(1), today(11));
  EXPECT_EQ(state.mNextCheck.at(), now() + 60.0);
  EXPECT_EQ(evaluation.startOfNextAction(), 0);

  state.mScheduleDisabled = false;
  state.checkAt(now() + 600);
  evaluation.checkActionsToLaunch();
  EXPECT_THAT(asked(queue.actionsList()), ElementsAre(QueueRecord{1, now() + 2, 0, today(11)}));
  EXPECT_EQ(listed(1), today(11));
  EXPECT_EQ(state.mNextCheck.at(), now() + 5.0);
  EXPECT_EQ(evaluation.startOfNextAction(), today(13));

  // Its occasion is marked, so it is not queued again once it has run.
  empty();
  evaluation.checkActionsToLaunch();
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(listed(1), today(11) + kDay);
}

TEST_F(TriggerEvaluationTest, WhatCouldNotReachItsTargetIsTriedAgainOnce) {
  const auto putOff = [&](int ref, double seconds) {
    return daily(ref, 23, {{EngineKey::tryAgain, ZAN_Value::date(now() + seconds)}});
  };
  ZAN_Value manual = putOff(3, -60);
  manual.setValue("TriggerAutomatic", 0);
  setActions({putOff(1, -60), putOff(2, 900), manual});
  evaluation.checkActionsToLaunch();
  ASSERT_EQ(queue.actionsList().size(), 1u);
  EXPECT_EQ(queue.actionsList().front().ref, 1);
  empty();
  evaluation.checkActionsToLaunch();
  EXPECT_TRUE(queue.empty()) << "until it is put off again";
  advance(901);
  evaluation.checkActionsToLaunch();
  ASSERT_EQ(queue.actionsList().size(), 1u);
  EXPECT_EQ(queue.actionsList().front().ref, 2);
}

TEST_F(TriggerEvaluationTest, HoursAndContextTakeTheDateAway) {
  const auto hours = [&](int ref, double from, double to) {
    return daily(ref, 12.5,
                 {{"TriggerAllowedHours", 1},
                  {"TriggerAllowedHoursFrom", ZAN_Value::date(from * 3600)},
                  {"TriggerAllowedHoursTo", ZAN_Value::date(to * 3600)}});
  };
  setActions({hours(1, 12, 13), hours(2, 11, 12), hours(3, 22, 14), hours(4, 12.25, 13),
              daily(5, 12.5, {{"TriggerContextPopup", 2}}),
              daily(6, 12.5, {{"TriggerContextPopup", 1}})});
  state.mContext = 1;
  evaluation.checkActionsToLaunch();
  EXPECT_EQ(listed(1), today(12.5));
  EXPECT_EQ(listed(2), 0);  // in its hours at 12:00:00 sharp, but 12:30 is not
  EXPECT_EQ(listed(3), 0);
  EXPECT_EQ(listed(4), 0);
  EXPECT_EQ(listed(5), 0);
  EXPECT_EQ(listed(6), today(12.5));
  state.mContext = 0;
  evaluation.checkActionsToLaunch();
  EXPECT_EQ(listed(5), today(12.5));
}

TEST_F(TriggerEvaluationTest, AMountStartsTheActionsOfThatVolumeAlone) {
  const std::string source = machine.folder.makeFolder("Source");
  const std::string disk = machine.volumes.mount({.name = "Disk", .size = 7});
  const std::string disk2 = machine.volumes.mount({.name = "Disk 2", .size = 7});
  const std::string gone = machine.volumes.folder + "/Gone/Photos";
  setActions(
      {automatic(1, 10, {{"ItemsSource", item(source)}, {"ItemsDestination", item(disk, 7)}}),
       automatic(2, 10, {{"ItemsSource", item(gone)}, {"ItemsDestination", item(disk, 7)}}),
       automatic(3, 10, {{"ItemsSource", item(disk2, 7)}}),
       automatic(4, 10, {{"ItemsDestination", item(disk, 7)}}),
       automatic(5, 10, {{"ItemsSource", item(disk + "/Photos", 7)}}),
       daily(6, 11, {{"LastScheduleDate", ZAN_Value::date(now() - kDay)}})});
  state.mFirstCheckAfterStartup = true;
  state.checkAt(now() + 600);
  evaluation.checkActionsToLaunch(disk);
  EXPECT_THAT(queued(), ElementsAre(1, 5));
  EXPECT_EQ(queue.head().date, now() + 2);
  EXPECT_EQ(listed(6), 0);
  EXPECT_LE(state.mNextCheck.at(), now());
  EXPECT_TRUE(state.mFirstCheckAfterStartup);

  empty();
  state.mScheduleDisabled = true;
  state.mFirstCheckAfterStartup = false;
  evaluation.checkActionsToLaunch(disk);
  EXPECT_TRUE(queue.empty());
}

TEST_F(TriggerEvaluationTest, AnIdleUserStartsAnActionOncePerIdlePeriod) {
  setActions({automatic(1, 40, {{"TriggerScheduleMinutes", 0}}),
              automatic(2, 40, {{"TriggerScheduleMinutes", 20}})});
  state.userWasActive(now() - 600);
  state.checkAt(now() + 600);
  evaluation.checkActionsToLaunch();
  EXPECT_TRUE(queue.empty());
  EXPECT_TRUE(evaluation.idleTimeScheduling());
  EXPECT_EQ(state.mNextCheck.at(), now() + 0.5) << "the end of the span";
  advance(1);
  evaluation.checkActionsToLaunch();
  EXPECT_THAT(queued(), ElementsAre(1));
  empty();
  advance(700);
  evaluation.checkActionsToLaunch();
  EXPECT_THAT(queued(), ElementsAre(2));

  // A new idle period counts only when it began more than three minutes after the last occasion.
  empty();
  const ReferenceTime last = lastScheduleDate(2);
  state.userWasActive(last + 180);
  advance(3600);
  evaluation.checkActionsToLaunch();
  EXPECT_THAT(queued(), ElementsAre(1));
  state.userWasActive(last + 181);
  evaluation.checkActionsToLaunch();
  EXPECT_THAT(queued(), ElementsAre(1, 2));
}

TEST_F(TriggerEvaluationTest, TheEndOfAnApplicationIsNoticedOnceAndNotLostToAMount) {
  setActions({automatic(1, 11, {{"TriggerAppQuitPath", "/Applications/Mail.app"}}),
              automatic(2, 11, {{"TriggerAppQuitPath", "/usr/bin/editor"}})});
  machine.processes.startApplication("/Applications/Mail.app");
  state.checkAt(now() + 600);
  evaluation.checkActionsToLaunch();
  EXPECT_TRUE(queue.empty());
  EXPECT_TRUE(evaluation.isApplicationOpened("/elsewhere/Mail.app"));
  EXPECT_EQ(state.mNextCheck.at(), now() + 5.0);
  machine.processes.quitApplication("/Applications/Mail.app");
  evaluation.checkActionsToLaunch("/Volumes/Disk");
  EXPECT_TRUE(queue.empty());
  evaluation.checkActionsToLaunch();
  EXPECT_THAT(queued(), ElementsAre(1));
  empty();
  state.checkAt(now() + 600);
  evaluation.checkActionsToLaunch();
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(state.mNextCheck.at(), now() + 15.0);

  // Disabled, it is left to its schedule.
  machine.processes.startApplication("/Applications/Mail.app");
  evaluation.checkActionsToLaunch();
  machine.processes.quitApplication("/Applications/Mail.app");
  state.mScheduleDisabled = true;
  evaluation.checkActionsToLaunch();
  EXPECT_TRUE(queue.empty());
}

TEST_F(TriggerEvaluationTest, TheListIsSortedByDateThenName) {
  const auto named = [](ZAN_Value record, const char* title) {
    record.setValue("Title", title);
    return record;
  };
  ZAN_Value group = ZAN_Value::dictionary({{"Ref", 90}, {"Title", "Ätna"}});
  group.setValue("List", ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(
                             ZAN_Value::array({named(daily(5, 13), "zebra")}))));
  setActions({named(daily(1, 13), "b"), named(action(2), "ähre"), named(daily(3, 13), "A"), group,
              named(daily(4, 12.5), "Z")});
  evaluation.checkActionsToLaunch();
  const auto isSorted = [&] {
    std::vector<std::string> names;
    for (const NextAction& next : evaluation.actionsNextList()) names.push_back(next.name());
    EXPECT_THAT(names, ElementsAre("Z", "A", "b", "zebra", "ähre", "Ätna"));
  };
  isSorted();
  evaluation.rebuildActionsList();
  isSorted();
  EXPECT_TRUE(evaluation.actionsNextList().back().isGroup);
  EXPECT_THAT(state.mStatusTitle, HasSubstr("Z at 12:30"));
  EXPECT_THAT(evaluation.nextActionText(), HasSubstr("Z at 12:30"));

  std::vector<NextAction> mixed(3);
  mixed[0].title = "a";
  mixed[2].hasDate = true;
  sortActions(mixed);
  EXPECT_TRUE(mixed[0].hasDate);
  EXPECT_TRUE(mixed[1].title.isNull());
}

TEST_F(TriggerEvaluationTest, TheLookAheadQueuesTheMinuteAndKeepsTheNextStart) {
  setActions({daily(1, 12 + 10. / 3600),
              daily(2, 12 + 59. / 3600, {{"TriggerPreventManualLaunch", 1}}),
              daily(3, 12 + 60. / 3600), daily(4, 12 + 59. / 3600)});
  evaluation.checkActionsToLaunch();
  EXPECT_TRUE(queue.empty());
  const ReferenceTime start = evaluation.startOfNextAction();
  EXPECT_EQ(start, now() + 10);
  evaluation.setListNextWasUpdated(true);
  evaluation.enqueueActionsDueWithinAMinute();
  EXPECT_THAT(asked(queue.actionsList()),
              ElementsAre(QueueRecord{1, now() + 10, 0}, QueueRecord{4, now() + 59, 0}));
  EXPECT_EQ(evaluation.startOfNextAction(), start);
  EXPECT_FALSE(evaluation.listNextWasUpdated());
  EXPECT_EQ(lastScheduleDate(4), now() + 59);
  EXPECT_EQ(listed(4), now() + 59 + kDay);
  EXPECT_EQ(lastScheduleDate(2), now() - 600);
  EXPECT_THAT(report(), HasSubstr("“A1” was added to the queue\n"));

  // Nothing new: no further evaluation.
  machine.runLoop.runFor(0);
  int evaluations = 0;
  records.changes.listen(
      [&](ChangeSet what) { evaluations += what.has(Change::nextActions) ? 1 : 0; });
  evaluation.enqueueActionsDueWithinAMinute();
  machine.runLoop.runFor(0);
  EXPECT_EQ(evaluations, 0);

  // What may not be launched by hand comes on its own date.
  advance(60);
  evaluation.checkActionsToLaunch();
  EXPECT_THAT(queued(), ElementsAre(1, 4, 2, 3));
}

TEST_F(TriggerEvaluationTest, ADateFromAWrongClockIsHealedOnce) {
  setActions({daily(1, 11, {{"LastScheduleDate", ZAN_Value::date(now() + 365 * kDay)}}),
              daily(2, 11, {{"LastScheduleDate", ZAN_Value::date(now() + kDay)}})});
  evaluation.checkActionsToLaunch();
  EXPECT_EQ(lastScheduleDate(1), now());
  EXPECT_EQ(lastScheduleDate(2), now() + kDay);
  EXPECT_EQ(listed(1), today(11) + kDay);
  const auto lines = [&] {
    return std::ranges::count_if(machine.systemLog.lines, [](const std::string& line) {
      return line.find("\"A1\" lies more than a day ahead") != std::string::npos;
    });
  };
  EXPECT_EQ(lines(), 1);
  tree.releaseRootItem();
  evaluation.checkActionsToLaunch();
  EXPECT_EQ(lines(), 1);
}

TEST_F(TriggerEvaluationTest, StartUpActionsRunInTheFirstCompleteEvaluationOnly) {
  setActions({automatic(1, 31)});
  state.mFirstCheckAfterStartup = true;
  evaluation.checkActionsToLaunch("/Volumes/Disk");
  EXPECT_TRUE(queue.empty());
  evaluation.checkActionsToLaunch();
  EXPECT_THAT(queued(), ElementsAre(1));
  empty();
  evaluation.checkActionsToLaunch();
  EXPECT_TRUE(queue.empty());
}

TEST_F(TriggerEvaluationTest, ANewTimeZoneCountsFromTheNextEvaluation) {
  setActions({automatic(1, 21, {{"LastScheduleDate", ZAN_Value::date(now() - 60)}})});
  evaluation.checkActionsToLaunch();
  EXPECT_EQ(listed(1), today(13));
  machine.machine.timeZone = "Asia/Kolkata";  // five and a half hours ahead
  evaluation.checkActionsToLaunch();
  EXPECT_EQ(evaluation.calendar().zoneName(), "Asia/Kolkata");
  EXPECT_EQ(strings.getShortTime(today(12)), "5:30 PM");
  EXPECT_EQ(listed(1), today(12.5));
}

TEST_F(TriggerEvaluationTest, WhatWaitsToBeMergedIsMergedWhileNobodyElseDoesIt) {
  setActions({daily(1, 13)});
  tree.rootItem().actionForReference(1)->incrementExecutionCounter();
  const auto counted = [&] { return store.tree().readActionsList().at(0).integer("ExecCounter"); };
  const std::string& mainApp = store.installPaths().installPathForCode(InstallPaths::mainAppBundle);
  machine.processes.startApplication(mainApp);
  evaluation.checkActionsToLaunch();
  EXPECT_EQ(counted(), 0) << "the main application merges it";
  machine.processes.quitApplication(mainApp);
  evaluation.checkActionsToLaunch();
  EXPECT_EQ(counted(), 1);
  EXPECT_TRUE(store.tree().readChangesList().empty());
}

TEST_F(TriggerEvaluationTest, TheListAloneCanBeRebuilt) {
  setActions({daily(1, 11, {{"LastScheduleDate", ZAN_Value::date(now() - kDay)}}),
              automatic(2, 40, {}), daily(3, 13)});
  state.userWasActive(now() - 5000);
  const ReferenceTime next = state.mNextCheck.at();
  evaluation.rebuildActionsList();
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(state.mNextCheck.at(), next);
  EXPECT_EQ(listed(1), today(11));
  EXPECT_EQ(listed(2), 0);
  EXPECT_EQ(listed(3), today(13));
}

}  // namespace
}  // namespace corvana::test
