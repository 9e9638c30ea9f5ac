#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/scenario/Scenario.h"

namespace corvana {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

/// "Photos" daily at 14:00, "Mail" hourly, from 12:00 on.
struct EndingDay : Scenario {
  EndingDay() {
    photos = action("Photos", daily(timeOfDay("14:00:00"), timeOfDay("12:00:00")));
    mail = action("Mail", hourly(timeOfDay("12:00:00")));
    executionsAreRecorded = true;
    writeTree();
    start();
  }
  std::string message() { return machine.userInterface.messages.back().title; }
  std::int64_t photos = 0;
  std::int64_t mail = 0;
};

TEST(EndsTest, WhatWaitsSurvivesAKillInTheHoldAfterTheStartAndInAPause) {
  EndingDay day;
  day.runUntil("2024-01-02 12:59:00");
  day.kill();
  day.sleepUntil("2024-01-02 13:05:00");
  day.start();
  day.runUntil("2024-01-02 13:05:40");
  ASSERT_EQ(day.agent->queue().actionsList().size(), 1U);
  EXPECT_EQ(day.executionsOf("Mail"), 0U) << "a login is given some time";
  day.kill();
  day.start();
  day.runUntil("2024-01-02 13:06:00");
  day.agent->commands().pauseExecution();
  day.runUntil("2024-01-02 14:10:00");
  day.kill();
  day.start();
  day.runUntil("2024-01-02 14:30:00");
  EXPECT_EQ(day.executionsOf("Photos"), 1U) << day.executions();
  EXPECT_EQ(day.executionsOf("Mail"), 2U) << day.executions();
}

TEST(EndsTest, AnExecutionThatWasCutOffIsToldAndRunOnceMoreAndNoThirdTime) {
  EndingDay day;
  day.scripts["Photos"] = {.seconds = 600};
  day.runUntil("2024-01-02 14:05:00");
  for (int cut = 0; cut < 2; ++cut) {
    day.kill();
    for (const auto& child : day.machine.processes.starts)
      if (child->running) day.machine.processes.endChild(child->pid, 9);
    day.start();
    EXPECT_THAT(day.message(), HasSubstr(cut == 0 ? "It is run once more" : "It is not run again"));
    EXPECT_EQ(day.agent->state().mErrorInExecution, LogCode::crashed);
    day.runFor(120);
  }
  EXPECT_EQ(day.executionsOf("Photos"), 2U);
  day.runUntil("2024-01-02 14:50:00");
  EXPECT_EQ(day.executionsOf("Photos"), 2U) << "two ends are enough";
  EXPECT_THAT(day.report(), Contains(HasSubstr("“Photos” that began")));
  History history(day.store());
  EXPECT_EQ(history.historyEntryAtIndex(0).integer("C"), LogCode::crashed);
}

TEST(EndsTest, AnExecutionThatEndedUnseenIsNotTakenForACutOffOne) {
  EndingDay day;
  day.scripts["Photos"] = {.seconds = 600};
  day.runUntil("2024-01-02 14:05:00");
  day.kill();
  // It goes on by itself, and the next agent waits for its end.
  day.start();
  day.runUntil("2024-01-02 14:08:00");
  EXPECT_EQ(day.agent->queue().unfinished().size(), 1U);
  const auto goesOn = [](const auto& child) { return child->running; };
  while (std::ranges::any_of(day.machine.processes.starts, goesOn)) day.runFor(0.25);
  // Who wants it again just then is not told that it waits already.
  Outcome launched;
  AgentAnswers& answers = *day.agentObject.answers;
  answers.together([&] {
    launched = answers.launch(day.photos);
    return false;
  });
  EXPECT_TRUE(launched) << launched.error().text;
  day.runUntil("2024-01-02 15:30:00");
  EXPECT_EQ(day.executionsOf("Photos"), 2U) << day.executions();
  EXPECT_THAT(day.logCodes(), Not(Contains(LogCode::crashed)));
  EXPECT_TRUE(day.agent->queue().unfinished().empty());
}

TEST(EndsTest, AQueueThatIsNotKeptIsToldOf) {
  EndingDay day;
  day.agent->preferences().setPref("SchedulerPrefKeepQueueAtShutdown", 0);
  day.agent->preferences().savePrefs();
  day.agent->commands().pauseExecution();
  day.runUntil("2024-01-02 14:10:00");
  day.quit();
  day.start();
  EXPECT_TRUE(day.agent->queue().empty());
  EXPECT_THAT(day.report(), Contains(HasSubstr("“Photos” waited in the queue and was not run")));
  day.runUntil("2024-01-02 14:50:00");
  EXPECT_EQ(day.executionsOf("Photos"), 0U);
}

TEST(EndsTest, WhileTheTreeIsAwayNothingLeavesTheQueue) {
  EndingDay day;
  const std::string path = day.store().folder().pathOf(DataFolder::kActions);
  day.runUntil("2024-01-02 13:59:59");
  const auto tree = ZAN_FilesUtils::readFile(path);
  ASSERT_TRUE(tree);
  const auto put = [&](std::string_view bytes) {
    (void)ZAN_FilesUtils::removeFile(path);
    (void)ZAN_FilesUtils::appendToFile(path, bytes, false);
    day.agent->tree().releaseRootItem();
    day.runFor(20);
  };
  ASSERT_EQ(day.agent->queue().actionsList().size(), 2U);
  for (const std::size_t part : {std::size_t{0}, tree->bytes.size() / 2}) {
    put(std::string_view(tree->bytes).substr(0, part));
    EXPECT_EQ(day.agent->queue().actionsList().size(), 2U) << part;
  }
  EXPECT_EQ(day.machine.userInterface.messages.size(), 2U)
      << "that nothing starts, and that the file is damaged, each once";
  EXPECT_EQ(day.executionsOf("Photos") + day.executionsOf("Mail"), 1U) << day.executions();
  put(tree->bytes);
  day.runFor(60);
  EXPECT_EQ(day.executionsOf("Photos") + day.executionsOf("Mail"), 3U) << day.executions();
}

TEST(EndsTest, WhatCannotBeCopiedIsAmberUntilItIsSeenAndNeverRed) {
  EndingDay day;
  bool lacksOthers = true;
  day.scripts["Mail"] = {
      .seconds = 20, .status = 0, .onEnd = [&](StartedChild&) {
        ZAN_Value entry = ZAN_Value::dictionary(
            {{"C", LogCode::completedWithErrors}, {"R", day.mail}, {RunKey::onlyLacks, 1}});
        if (lacksOthers) entry.setValue(RunKey::lacksOthers, 1);
        day.machine.notifications.post({std::string(kSchedulerNotification), "AddToLog", entry});
      }};
  const auto icon = [&] { return day.machine.userInterface.statusIcon->first; };
  day.runUntil("2024-01-02 13:02:00");
  EXPECT_EQ(icon(), StatusIcon::lacking);
  EXPECT_EQ(day.agent->state().mErrorInExecution, 0);
  EXPECT_THAT(day.machine.userInterface.toolTip, HasSubstr("“Mail” is complete but for"));
  EXPECT_EQ(day.agentObject.answers->status()["lacking"].at(0).string("title"), "Mail");
  day.kill();
  day.start();
  day.runUntil("2024-01-02 13:10:00");
  EXPECT_EQ(icon(), StatusIcon::lacking) << "nobody has seen it";
  day.agent->commands().errorsWereSeen();
  lacksOthers = false;
  day.runUntil("2024-01-02 15:10:00");
  EXPECT_EQ(icon(), StatusIcon::normal) << "the same has been seen";
  lacksOthers = true;
  day.runUntil("2024-01-02 16:02:00");
  EXPECT_EQ(icon(), StatusIcon::lacking);
  day.scripts["Mail"].onEnd = [&](StartedChild&) {
    day.machine.notifications.post(
        {std::string(kSchedulerNotification), "AddToLog",
         ZAN_Value::dictionary({{"C", LogCode::completed}, {"R", day.mail}})});
  };
  day.runUntil("2024-01-02 17:02:00");
  EXPECT_EQ(icon(), StatusIcon::normal);
}

}  // namespace
}  // namespace corvana
