#include <gtest/gtest.h>

#include "tests/core_drive/Drive.h"

namespace corvana {
namespace {

/// Moments of one day with the main application, each with what comes of it.
struct Story {
  Drive day{true};
  std::string text;

  void then(
      const char* moment, double seconds, const std::function<void()>& does = [] {}) {
    text += std::string("-- ") + moment + ": " + day.effect(does, seconds) + "\n";
  }
  ~Story() {}
};

TEST(SiblingMessages, TellOfTwoRunsFromTheQueueToTheEnd) {
  Story story;
  Drive& day = story.day;
  day.scripts["Mail"] = {.seconds = 10, .steps = {{3, [&](StartedChild&) {
                                                     day.hear("ExecuteProgress",
                                                              info("ProgressValue", 42));
                                                   }}}};
  day.begin();
  story.then("both are queued by hand", 0.25, [&] {
    day.tell("LaunchAction", info("Ref", 102));
    day.tell("LaunchAction", info("Ref", 101));
  });
  story.then("the first is launched", 1.5);
  story.then("it tells how far it is", 5);
  story.then("it ends", 5);
  story.then("the second follows", 5);
  story.then("all is done", 20);
  EXPECT_EQ(
      story.text,
      "-- both are queued by hand: main ActionListChanged; main ActionListChanged; main "
      "LogChanged; main ReturnCVASchedulerStatus {SchedulerStatus=2}; controls: on; current: "
      "{ref=102 title=Mail progress=0 retry=0}; executing: 1; icon: running; queue: [{ref=102 "
      "title=Mail date=12:00:05 running=1} {ref=101 title=Photos date=12:00:05}]; queueCount: 2; "
      "schedulerStatus: 2; stored SchedulerActionsToDoList: [{Ref=101 Date=12:00:05 "
      "EstimateSize=0}]; title: Running: Mail; report: “Mail” was added to the queue by hand; "
      "report: “Photos” was added to the queue by hand; report: “Mail” was started; log 1\n"
      "-- the first is launched: current: {ref=102 title=Mail progress=0 retry=0 "
      "started=12:00:06}; information: An action is running\n"
      "-- it tells how far it is: current: {ref=102 title=Mail progress=42 retry=0 "
      "started=12:00:06}; progress: 0 42\n"
      "-- it ends: main ActionListChanged; main ReturnCVASchedulerStatus {SchedulerStatus=1}; main "
      "UpdateHistory; executing: 0; icon: normal; progress: -1 0; queue: [{ref=101 title=Photos "
      "date=12:00:05}]; queueCount: 1; schedulerStatus: 1; stored SchedulerActionsToDoList: []; "
      "title: Next: Photos at 6:00 PM; current no more\n"
      "-- the second follows: main LogChanged; main ReturnCVASchedulerStatus {SchedulerStatus=2}; "
      "current: {ref=101 title=Photos progress=0 retry=0 started=12:00:19}; executing: 1; icon: "
      "running; queue: [{ref=101 title=Photos date=12:00:05 running=1}]; schedulerStatus: 2; "
      "title: Running: Photos; report: “Photos” was started; log 1\n"
      "-- all is done: main ActionListChanged; main ReturnCVASchedulerStatus {SchedulerStatus=1}; "
      "main UpdateHistory; controls: off; executing: 0; icon: normal; information: ; queue: []; "
      "queueCount: 0; schedulerStatus: 1; title: Next: Photos at 6:00 PM; current no more\n");
}

TEST(SiblingMessages, TellOfACrashAndItsRepetition) {
  Story story;
  story.day.scripts["Mail"] = {.seconds = 10, .status = 11, .output = "one\ntwo\n"};
  story.day.begin();
  story.then("launched", 3, [&] { story.day.tell("LaunchAction", info("Ref", 102)); });
  story.then("crashed", 12);
  story.then("what follows is said", 14);
  story.then("launched again", 11);
  story.then("crashed again", 12);
  story.then("all is over", 30);
  EXPECT_EQ(
      story.text,
      "-- launched: main ActionListChanged; main LogChanged; main ReturnCVASchedulerStatus "
      "{SchedulerStatus=2}; controls: on; current: {ref=102 title=Mail progress=0 retry=0 "
      "started=12:00:06}; executing: 1; icon: running; information: An action is running; queue: "
      "[{ref=102 title=Mail date=12:00:05 running=1}]; queueCount: 1; schedulerStatus: 2; stored "
      "SchedulerActionsToDoList: []; title: Running: Mail; report: “Mail” was added to the queue "
      "by hand; report: “Mail” was started; log 1\n"
      "-- crashed: main ActionListChanged; main LogChanged; main ReturnCVASchedulerStatus "
      "{SchedulerStatus=1}; main UpdateHistory; errorCode: 6; executing: 0; hold: {cause=message "
      "text=The next action waits while a message is shown until=12:00:30}; icon: error; message: "
      "An action ended unexpectedly: “Mail” did not finish. The log says where it was.; queue: "
      "[{ref=102 title=Mail date=12:00:05}]; schedulerStatus: 1; stored "
      "SchedulerFailuresNotSeen: [{R=102 C=6}]; stored "
      "SchedulerPrefErrorInExecution: 6; title: Next: Photos at 6:00 PM; current no more; report: "
      "The execution of “Mail” ended unexpectedly after 8 s. It is run once more.; report:     "
      "one; "
      "report:     two; log 6\n"
      "-- what follows is said: hold: {cause=message text=The next action waits while a message is "
      "shown until=12:00:40}; message: The action is run once more: “Mail” starts again in a "
      "moment.\n"
      "-- launched again: main LogChanged; main ReturnCVASchedulerStatus {SchedulerStatus=2}; "
      "current: {ref=102 title=Mail progress=0 retry=1 started=12:00:42}; executing: 1; message: ; "
      "queue: [{ref=102 title=Mail date=12:00:05 running=1}]; schedulerStatus: 2; title: Running: "
      "Mail; hold no more; report: “Mail” was started; log 1\n"
      "-- crashed again: main ActionListChanged; main LogChanged; main ReturnCVASchedulerStatus "
      "{SchedulerStatus=1}; main UpdateHistory; controls: off; executing: 0; message: An action "
      "ended unexpectedly: “Mail” did not finish. The log says where it was.; queue: []; "
      "queueCount: 0; schedulerStatus: 1; title: Next: Photos at 6:00 PM; current no more; report: "
      "The execution of “Mail” ended unexpectedly after 8 s. It is not run again.; report:     "
      "one; "
      "report:     two; log 6\n"
      "-- all is over: information: ; message: \n");
  // The fifth argument tells the execute application that it does a crashed run again.
  const auto& starts = story.day.machine.processes.starts;
  ASSERT_EQ(starts.size(), 2U);
  EXPECT_EQ(starts[0]->arguments.at(5) + starts[1]->arguments.at(5), "01");
}

TEST(SiblingMessages, TellOfTheStartOnceTheMainApplicationIsThere) {
  Story story;
  story.day.writeTree();
  story.day.start();
  story.then("started", 70);
  story.then("the main application goes", 6, [&] {
    story.day.machine.processes.quitApplication(
        story.day.store().installPaths().installPathForCode(InstallPaths::mainAppBundle));
  });
  story.then("turned off meanwhile", 1, [&] { story.day.commands().disableSchedule(); });
  story.then("it comes back", 10, [&] { story.day.startMainApp(); });
  story.then("a volume is mounted", 10,
             [&] { story.day.machine.volumes.mount({.name = "Stick"}); });
  story.then("the agent quits", 0, [&] { story.day.agent->terminateBySelf(); });
  EXPECT_EQ(
      story.text,
      "-- started: main ReturnCVASchedulerStatus {SchedulerStatus=1}; main "
      "ReturnCVASchedulerStatus {SchedulerStatus=1}; icon: normal; nextCheck: 12:10:01; opacity: "
      "80; title: Next: Photos at 6:00 "
      "PM; windows:  floatingIcon\n"
      "-- the main application goes: \n"
      "-- turned off meanwhile: enabled: 0; icon: disabled; message: Automatic execution was "
      "turned off; nextCheck: 12:02:16; schedulerStatus: 4; stored SchedulerPrefLastNotifications: "
      "(121 bytes); stored SchedulerPrefScheduleDisabled: 1; title: Automatic execution is off; "
      "report: Automatic execution was turned off; log 12\n"
      "-- it comes back: main ReturnCVASchedulerStatus {SchedulerStatus=4}; message: \n"
      "-- a volume is mounted: nextCheck: 12:02:27; volumes:  / ~/Volumes/Stick\n"
      "-- the agent quits: main LogChanged; agent: gone; stored SchedulerQuitDate: 12:01:37; log "
      "21\n");
}

}  // namespace
}  // namespace corvana
