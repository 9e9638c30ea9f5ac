#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "WorkWorld.h"

namespace corvana::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

class ActionQueueTest : public testing::Test, protected WorkWorld {};

TEST_F(ActionQueueTest, TheHeadIsNeverDisplacedAndNothingComesTwice) {
  setActions({action(1), action(2), action(3), action(4), action(5)});
  EXPECT_EQ(queue.addActionToQueue(1, now(), 0), QueueAddition::queued);
  queue.addActionToQueue(2, now(), 10);
  queue.addActionToQueue(3, now(), 0);
  EXPECT_THAT(queued(), ElementsAre(1, 3, 2));
  queue.addActionToQueue(4, now(), 2);
  EXPECT_THAT(queued(), ElementsAre(1, 3, 4, 2));
  EXPECT_EQ(queue.addActionToQueue(3, now() + 500, -1), QueueAddition::alreadyQueued);
  EXPECT_EQ(queue.actionsList()[1].date, now());
  queue.addActionToQueue(5, now() + 7, -1, false, false, true);
  EXPECT_EQ(asked(queue.actionsList()).back(), (QueueRecord{5, now() + 7, 1}));
}

TEST_F(ActionQueueTest, RefusesWhatTheActionForbids) {
  setActions({action(1, {{"TriggerPreventManualLaunch", 1}}),
              action(2, {{"TriggerPreventRemoteLaunch", 1}}), action(3)});
  EXPECT_EQ(queue.addActionToQueue(9, now(), -1), QueueAddition::unknownAction);
  EXPECT_EQ(queue.addActionToQueue(1, now(), -1, true, false, false), QueueAddition::notPermitted);
  EXPECT_EQ(queue.addActionToQueue(2, now(), -1, false, true, false), QueueAddition::notPermitted);
  EXPECT_EQ(report(), "") << "whoever asks so is answered";
  for (const int ref : {1, 8, 0}) queue.addWish(ref, now(), false, false);
  queue.addWish(2, now(), true, false);
  EXPECT_THAT(report(), HasSubstr("“A1” was asked for and not run, since its settings do not"));
  EXPECT_THAT(report(), HasSubstr("“A2” was asked for and not run, since its settings do not"));
  EXPECT_THAT(report(), HasSubstr("Action 8 was asked for and not run, since there is no such"));
  EXPECT_THAT(report(), Not(HasSubstr("Action 0")));
  EXPECT_THAT(notices(), ElementsAre(HasSubstr("“A1” was asked"), HasSubstr("Action 8")))
      << "another machine raises none";
  EXPECT_EQ(lastScheduleDate(1), 0);
  EXPECT_EQ(queue.addActionToQueue(1, now(), -1), QueueAddition::queued);
  EXPECT_EQ(queue.addActionToQueue(2, now(), -1, true, false, false), QueueAddition::queued);
  EXPECT_THAT(report(), HasSubstr("“A1” was added to the queue\n"));
  EXPECT_THAT(report(), HasSubstr("“A2” was added to the queue by hand"));
  EXPECT_THAT(notices(),
              IsSupersetOf({"“A1” was added to the queue", "“A2” was added to the queue"}));
}

TEST_F(ActionQueueTest, MissingVolumesRefuseButStillMarkTheOccasion) {
  const std::string there = machine.folder.makeFolder("there");
  const std::string gone = machine.volumes.folder + "/Gone/Photos";
  setActions({action(1, {{"TriggerIfVolumesMounted", 1},
                         {"ItemsSource", item(there)},
                         {"ItemsDestination", item(gone)}}),
              action(2, {{"TriggerIfVolumesMounted", 0}, {"ItemsSource", item(gone)}}),
              action(3, {{"TriggerIfVolumesMounted", 1}, {"ItemsSource", item(there)}})});
  EXPECT_EQ(queue.addActionToQueue(1, now() + 2, -1), QueueAddition::volumesMissing);
  EXPECT_EQ(lastScheduleDate(1), now() + 2);
  EXPECT_THAT(report(), HasSubstr("“A1” was not added"));
  EXPECT_THAT(notices(), ElementsAre(HasSubstr("“A1” was not added")));
  queue.addActionToQueue(2, now(), -1);
  queue.addActionToQueue(3, now(), -1);
  EXPECT_THAT(queued(), ElementsAre(2, 3));
}

TEST_F(ActionQueueTest, OnlyAnAutomaticAdditionMarksADateAhead) {
  setActions({action(1), action(2), action(3)});
  queue.addActionToQueue(1, now() + 40, -1);
  queue.addActionToQueue(2, now() + 40, -1, true, false, false);
  queue.addActionToQueue(3, now() - 40, -1);
  EXPECT_EQ(lastScheduleDate(1), now() + 40);
  EXPECT_EQ(lastScheduleDate(2), now());
  EXPECT_EQ(lastScheduleDate(3), now());
}

TEST_F(ActionQueueTest, TheSavedQueueLeavesTheHeadOutAndComesBackInOrder) {
  setActions({action(1), action(2), action(3)});
  const auto saved = [&] { return preferences.prefForKey("SchedulerActionsToDoList"); };
  enqueue({1});
  EXPECT_EQ(saved().size(), 0u);
  queue.addActionToQueue(2, now() + 5, -1, true, false, true);
  enqueue({3});
  ASSERT_EQ(saved().size(), 2u);
  preferences.mPrefKeepQueueAtShutdown = 0;
  queue.saveActionsQueue();
  EXPECT_TRUE(saved().isArray());
  EXPECT_EQ(saved().size(), 0u);
  preferences.mPrefKeepQueueAtShutdown = 1;
  queue.saveActionsQueue();

  // An agent of before knew no occasions. Elements that are no records do not stop the others.
  std::filesystem::remove(store.folder().pathOf(DataFolder::kOccasions));
  ZAN_Value list = saved();
  list.insert(1, "nonsense");
  list.insert(1, ZAN_Value::dictionary({{"Date", ZAN_Value::date(now())}}));
  preferences.setPref("SchedulerActionsToDoList", list);
  preferences.savePrefs();

  preferences.loadPrefs();
  ActionQueue later(records, volumes, work.automatic);
  later.restoreActionsQueue();
  EXPECT_THAT(later.actionsList(),
              ElementsAre(QueueRecord{2, now() + 5, 1}, QueueRecord{3, now(), 0}));
}

TEST_F(ActionQueueTest, AnEndOfWhateverKindKeepsEveryOccasion) {
  setActions({action(1), action(2), action(3)});
  enqueue({1, 2, 3});
  queue.headBegins(now());
  queue.insertCopyOfHead();
  queue.moveRecord(3, 2);
  const auto restored = [&] {
    auto again = std::make_unique<ActionQueue>(records, volumes, work.automatic);
    again->restoreActionsQueue();
    return again;
  };
  {
    const auto again = restored();
    ASSERT_EQ(again->unfinished().size(), 1U);
    EXPECT_EQ(again->unfinished()[0].begun, now());
    EXPECT_EQ(again->addActionToQueue(1, now(), -1), QueueAddition::alreadyQueued);
    ASSERT_EQ(again->actionsList().size(), 3U);
    EXPECT_EQ(again->head().ref, 1);
    EXPECT_EQ(again->head().retry, 1) << "the new try stays one";
    EXPECT_EQ(again->actionsList()[1].ref, 3);
  }
  // Whoever does not want the queue kept is told of what is left behind.
  preferences.mPrefKeepQueueAtShutdown = 0;
  EXPECT_EQ(restored()->dropped().size(), 3U);
  EXPECT_EQ(restored()->unfinished().size(), 1U);
  preferences.mPrefKeepQueueAtShutdown = 1;
  state.mStartedFromNewMachine = true;
  EXPECT_EQ(restored()->dropped().size(), 3U);
  state.mStartedFromNewMachine = false;

  // A cut-off file is no empty queue; a clock that was wrong makes no occasion wait for years.
  machine.clock.setNow(now() - 40 * 86400.0);
  EXPECT_EQ(restored()->head().date, now());
  std::filesystem::resize_file(store.folder().pathOf(DataFolder::kOccasions), 0);
  EXPECT_EQ(restored()->actionsList().size(), 3U);
}

TEST_F(ActionQueueTest, ARunningHeadIsNeitherRemovedNorPassed) {
  setActions({action(1), action(2), action(3), action(4)});
  enqueue({1, 2, 3, 4});
  queue.setHeadIsRunning(true);
  queue.removeFromQueue({0, 2});
  EXPECT_THAT(queued(), ElementsAre(1, 2, 4));
  EXPECT_THAT(report(), HasSubstr("“A3” was taken out of the queue and not run"));
  EXPECT_THAT(report(), Not(HasSubstr("“A1” was taken"))) << "it runs";
  queue.moveRecord(2, 0);
  EXPECT_THAT(queued(), ElementsAre(1, 4, 2));
  queue.moveRecord(0, 2);
  EXPECT_THAT(queued(), ElementsAre(1, 4, 2));
  queue.setHeadIsRunning(false);
  state.mProgress.value = 7;
  queue.removeFromQueue({0, 1});
  EXPECT_THAT(queued(), ElementsAre(2));
  EXPECT_EQ(state.mProgress.value, 0);
}

TEST_F(ActionQueueTest, AContextLeavesTheFirstTwoAlone) {
  const auto office = [](int ref) { return action(ref, {{"TriggerContextPopup", 1}}); };
  setActions({office(1), office(2), action(3), office(4), action(5, {{"TriggerContextPopup", 3}})});
  enqueue({1, 2, 3, 4, 5});
  contexts.setContextMode(-1);
  EXPECT_EQ(state.mContext, 0);
  EXPECT_THAT(report(), Not(HasSubstr("context")));
  contexts.setContextMode(7);
  EXPECT_EQ(state.mContext, 3);
  EXPECT_THAT(queued(), ElementsAre(1, 2, 3, 5));
  EXPECT_EQ(preferences.prefForKey("SchedulerActionsToDoList").size(), 3u);
  EXPECT_THAT(report(), HasSubstr("The context was changed"));
  EXPECT_THAT(report(), HasSubstr("“A4” waited in the queue and was not run, since it belongs to"));
  EXPECT_THAT(notices(), Contains("Not run, since they belong to another context: A4"));
  EXPECT_EQ(preferences.prefForKey("SchedulerPrefCurrentContext").integerValue(), 3);
}

TEST_F(ActionQueueTest, ARequestFileIsLaunchedByHandAndEnables) {
  setActions({action(1, {{"TriggerPreventManualLaunch", 1}}), action(2), action(3)});
  const std::string path = dataFile("Corvana 9 Execute Actions.cva9data");
  const auto write = [&] {
    (void)store.files().writeListToPath(
        ZAN_Value::array({ZAN_Value::dictionary({{"Ref", 3}, {"EstimateSize", 1}}),
                          ZAN_Value::dictionary({{"Ref", 1}}),
                          ZAN_Value::dictionary({{"Ref", 2}})}),
        path);
  };
  state.mScheduleDisabled = true;
  preferences.mPrefScheduleDisabled = 1;
  write();
  queue.executeActionsInFile(path);
  EXPECT_THAT(asked(queue.actionsList()),
              ElementsAre(QueueRecord{3, now() + 0.01, 1}, QueueRecord{2, now() + 0.01, 0}));
  EXPECT_TRUE(state.mScheduleDisabled);
  EXPECT_FALSE(std::filesystem::exists(path));

  preferences.mPrefScheduleDisabled = 0;
  write();
  queue.executeActionsInFile(path);
  EXPECT_FALSE(state.mScheduleDisabled);
  EXPECT_EQ(state.mNextCheck.at(), now() + 1.0);
}

TEST_F(ActionQueueTest, ADelayedAdditionDoesNotMoveWhenTheClockIsSetBackUnlessItWaits) {
  setActions({action(1), action(2)});
  enqueue({1});
  queue.addActionToQueue(2, now() + 30, -1);
  queue.setHeadIsRunning(true);
  const ReferenceTime before = now();
  machine.clock.setNow(before - 3600);
  state.deadlines.moveDeadlines(-3600, now());
  EXPECT_EQ(queue.actionsList()[0].date, before);
  EXPECT_EQ(queue.actionsList()[1].date, before + 30 - 3600);
}

TEST_F(ActionQueueTest, ExecuteNowComesNextAndIsForgottenOnceItLeftTheQueue) {
  setActions({action(1), action(2), action(3)});
  enqueue({1, 2});
  queue.addActionToQueue(3, now() + 600, -1);
  EXPECT_FALSE(queue.executeNow(9));
  EXPECT_TRUE(queue.executeNow(3));
  EXPECT_THAT(queued(), ElementsAre(3, 1, 2));
  EXPECT_EQ(queue.head().date, now());
  queue.dropFinishedExecuteNowActions();
  EXPECT_EQ(queue.executeNowActionsList().size(), 1u);
  queue.removeFromQueue({0});
  queue.dropFinishedExecuteNowActions();
  EXPECT_THAT(queue.executeNowActionsList(), IsEmpty());
}

}  // namespace
}  // namespace corvana::test
