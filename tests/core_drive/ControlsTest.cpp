#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "actions/History.h"
#include "core/machine/VolumeMounter.h"
#include "tests/core_drive/Drive.h"

namespace corvana {
namespace {

TEST(Controls, EachCommandHasItsEffectAndNoOther) {
  expectEffects({
      {"disable", [](Drive& day) { day.commands().disableSchedule(); }, kTurnedOff},
      {"disable twice, enable",
       [](Drive& day) {
         day.commands().disableSchedule();
         day.commands().setSchedulerActive(false);
         day.commands().enableSchedule();
         day.commands().setSchedulerActive(true);
       },
       "main LogChanged; main ReturnCVASchedulerStatus {SchedulerStatus=4}; main LogChanged; main "
       "ReturnCVASchedulerStatus {SchedulerStatus=1}; message: Automatic execution was turned off; "
       "nextCheck: 12:10:05; stored SchedulerPrefLastNotifications: (178 bytes); stored "
       "SchedulerPrefScheduleDisabled: 0; report: Automatic execution was turned off; report: "
       "Automatic execution was turned on; log 12; log 12"},
      {"disable when done", [](Drive& day) { day.commands().changeExecutionStatus(1); },
       "main ReturnCVASchedulerStatus {SchedulerStatus=1}; main LogChanged; main "
       "ReturnCVASchedulerStatus {SchedulerStatus=4}; enabled: 0; icon: disabled; message: "
       "Automatic execution was turned off; nextCheck: 12:01:05; schedulerStatus: 4; stored "
       "SchedulerPrefLastNotifications: (121 bytes); stored SchedulerPrefScheduleDisabled: 1; "
       "title: Automatic execution is off; report: Automatic execution was turned off; log 12"},
      {"enable by the pop-up", [](Drive& day) { day.commands().changeExecutionStatus(0); }, ""},
      {"disable by the pop-up", [](Drive& day) { day.commands().changeExecutionStatus(2); },
       kTurnedOff},
      {"an item that is none", [](Drive& day) { day.commands().changeExecutionStatus(3); }, ""},
      {"pause", [](Drive& day) { day.commands().pauseExecution(); },
       "execute ActionPause {Pause=1}; main ReturnCVASchedulerStatus {SchedulerStatus=3}; icon: "
       "pause; information: The execution is paused; paused: 1; schedulerStatus: 3; title: Paused"},
      {"pause and continue",
       [](Drive& day) {
         day.commands().pauseExecution();
         day.commands().continueExecution();
       },
       "execute ActionPause {Pause=1}; main ReturnCVASchedulerStatus {SchedulerStatus=3}; execute "
       "ActionPause {Pause=0}; main ReturnCVASchedulerStatus {SchedulerStatus=1}"},
      {"continue", [](Drive& day) { day.commands().continueExecution(); }, ""},
      {"context", [](Drive& day) { day.commands().setContext(2); },
       "context: 2; nextCheck: 12:10:05; stored SchedulerPrefCurrentContext: 2; report: The "
       "context was changed"},
      {"skip", [](Drive& day) { day.commands().skipItem(); }, "execute SkipItem"},
      {"show progress", [](Drive& day) { day.commands().showProgress(); }, "execute ShowProgress"},
      {"execution mode", [](Drive& day) { day.commands().setExecutionMode(3); },
       "execute SetExecutionMode {ExecutionMode=3}"},
      {"stop", [](Drive& day) { day.commands().stopExecution(); }, "execute ActionStop"},
      {"launch", [](Drive& day) { EXPECT_TRUE(day.commands().launchAction(102, true)); },
       "main ActionListChanged; main LogChanged; main ReturnCVASchedulerStatus "
       "{SchedulerStatus=2}; controls: on; current: {ref=102 title=Mail progress=0 retry=0}; "
       "executing: 1; icon: running; queue: [{ref=102 title=Mail date=12:00:05 estimateSize=1 "
       "running=1}]; queueCount: 1; schedulerStatus: 2; stored SchedulerActionsToDoList: []; "
       "title: Running: Mail; report: “Mail” was added to the queue by hand; report: “Mail” was "
       "started; log 1"},
      {"launch remotely",
       [](Drive& day) {
         day.commands().launchActionsRemotely(std::vector<std::int64_t>{102, 999});
       },
       "main ActionListChanged; controls: on; hold: {cause=date text=The next action starts at "
       "12:00:10 PM until=12:00:10}; information: The next action starts in 3 s; queue: "
       "[{ref=102 title=Mail date=12:00:10}]; queueCount: 1; stored SchedulerActionsToDoList: []; "
       "report: “Mail” was added to the queue; report: Action 999 was asked for and not run, since "
       "there is no such action"},
      {"open the menu",
       [](Drive& day) {
         std::ofstream(day.store().folder().aliasFolderPath() + "/share.desktop")
             << "[Desktop Entry]\nType=Link\nURL=smb://server/share\n";
         day.commands().menuWillOpen();
         EXPECT_EQ(day.agent->userInterfaceSources().machine.mounter.volumesToMountList().size(),
                   1U);
       },
       ""},
      {"open the menu after an error",
       [](Drive& day) {
         day.tell("AddToLog", info("C", 5));
         day.commands().menuWillOpen();
       },
       "main LogChanged; errorCode: 5; stored SchedulerFailuresNotSeen: [{R=0 C=5}]; stored "
       "SchedulerPrefErrorInExecution: 5; windows:  errorSummary (quietly) floatingIcon; log 5"},
      {"see the error",
       [](Drive& day) {
         day.tell("AddToLog", info("C", 5));
         day.commands().errorsWereSeen();
       },
       "main LogChanged; stored SchedulerPrefErrorInExecution: 0; log 5"},
      {"overview", [](Drive& day) { day.commands().showOverview(); },
       "windows:  status floatingIcon"},
      {"restore", [](Drive& day) { day.commands().showRestore(); },
       "main ShowRestore; opens ~/Applications/Corvana 9.app"},
      {"overview in the main application",
       [](Drive& day) {
         const std::filesystem::path program =
             day.store().installPaths().installPathForCode(InstallPaths::mainAppExecutable);
         std::filesystem::create_directories(program.parent_path());
         std::ofstream(program) << "a program";
         day.commands().showOverview();
       },
       "opens ~/Applications/Corvana 9.app"},
      {"show the queue", [](Drive& day) { day.commands().showWindow(Window::queue); },
       "windows:  queue floatingIcon"},
      {"show the survey", [](Drive& day) { day.commands().showWindow(Window::executionSurvey); },
       "windows:  executionSurvey floatingIcon"},
      {"show all windows", [](Drive& day) { day.commands().showAllVisibleWindows(); },
       "fronts: 1; opens ~/Applications/Corvana 9.app"},
      {"show errors", [](Drive& day) { day.commands().showErrorSummary(); },
       "windows:  errorSummary (quietly) floatingIcon"},
      {"announce position",
       [](Drive& day) {
         day.commands().setAnnouncePosition({30, 40});
         EXPECT_EQ(day.agent->preferences().mShowMiniProgressPosition, (Point{30, 40}));
         day.commands().setPreference("SchedulerPrefShowAnnouncePositionX", {});
       },
       ""},
      {"message closed",
       [](Drive& day) {
         day.tell("Message", info("Title", "Look"));
         day.commands().messageClosedByUser();
       },
       "execute MessageClosedByUser"},
      {"notice clicked", [](Drive& day) { day.commands().userNotificationActivated(); },
       "fronts: 1"},
      {"open a notice", [](Drive& day) { day.commands().openNotificationInMainApp(2); },
       "main ShowLatestNotifications {Index=2}; opens ~/Applications/Corvana 9.app"},
      {"survey of nothing", [](Drive& day) { day.commands().showSurveyFolderResults(); }, ""},
      {"latest actions", [](Drive& day) { day.commands().showLatestActions(); },
       "windows:  latestActions floatingIcon"},
      {"mount window", [](Drive& day) { day.commands().mountVolumes(); },
       "windows:  mountVolumes floatingIcon"},
      {"mount window twice",
       [](Drive& day) {
         day.commands().mountVolumes();
         day.commands().mountVolumes();
       },
       ""},
      {"all disks", [](Drive& day) { day.commands().showAllDisksInformation(); },
       "windows:  allDisks floatingIcon; system log: diskutil: it did not list the disks"},
      {"preference",
       [](Drive& day) { day.commands().setPreference("SchedulerPrefShowActionProgress", 1); },
       "stored SchedulerPrefShowActionProgress: 1"},
      {"disabled as a preference",
       [](Drive& day) { day.commands().setPreference("SchedulerPrefScheduleDisabled", 1); },
       kTurnedOff},
      {"context as a preference",
       [](Drive& day) { day.commands().setPreference("SchedulerPrefCurrentContext", 7); },
       "context: 3; nextCheck: 12:10:05; stored SchedulerPrefCurrentContext: 3; report: The "
       "context was changed"},
      {"icon never",
       [](Drive& day) { day.commands().setPreference("SchedulerPrefDisplayIcon", 3); },
       "icon: none; stored SchedulerPrefDisplayIcon: 3"},
      {"floating icon never",
       [](Drive& day) { day.commands().setPreference("SchedulerPrefDisplayIconWindow", 2); },
       "stored SchedulerPrefDisplayIconWindow: 2; windows: "},
      {"quit twice",
       [](Drive& day) {
         day.commands().showWindow(Window::nextActions);
         day.commands().quitScheduler();
         day.commands().quitScheduler();
       },
       "fronts: 1; question: Quit the scheduler?"},
      {"quit",
       [](Drive& day) {
         day.ui.setAnswer(Window::status, true);
         day.commands().quitScheduler();
       },
       "main LogChanged; agent: gone; stored SchedulerQuitDate: 12:00:06; question: Quit the "
       "scheduler?; report: The scheduler was quit by the user. Actions are not executed until it "
       "is opened again.; log 21"},
      {"quit not",
       [](Drive& day) {
         day.ui.setAnswer(Window::status, false);
         day.commands().quitScheduler();
         day.runFor(1);
         day.commands().quitScheduler();
       },
       "question: Quit the scheduler?; question: Quit the scheduler?"},
      {"relaunch for an update",
       [](Drive& day) {
         day.commands().showWindow(Window::update);
         day.commands().relaunchScheduler();
       },
       "main LogChanged; agent: gone; stored SchedulerNextCheckUpdatesDate: 725886035; stored "
       "SchedulerQuitDate: 12:00:05; windows:  update floatingIcon; relaunches "
       "~/Applications/Corvana 9.app/Contents/Resources/Corvana 9 "
       "Scheduler.app/Contents/MacOS/Corvana 9 Scheduler; system log: ~/Applications/Corvana "
       "9.app/Contents/Resources/Corvana 9 Scheduler.app/Contents/MacOS/Corvana 9 Scheduler: the "
       "loop does not run; log 21"},
  });
}

TEST(Controls, CommandsWhileSomethingRuns) {
  expectEffects(
      {
          {"disable", [](Drive& day) { day.commands().disableSchedule(); },
           "main LogChanged; main ReturnCVASchedulerStatus {SchedulerStatus=4}; enabled: 0; icon: "
           "disabled; message: Automatic execution was turned off; nextCheck: 12:01:10; "
           "schedulerStatus: 4; stored SchedulerPrefLastNotifications: (121 bytes); stored "
           "SchedulerPrefScheduleDisabled: 1; title: Automatic execution is off; report: Automatic "
           "execution was turned off; log 12"},
          {"pause", [](Drive& day) { day.commands().pauseExecution(); },
           "execute ActionPause {Pause=1}; main ReturnCVASchedulerStatus {SchedulerStatus=3}; "
           "icon: pause; information: The execution is paused; paused: 1; schedulerStatus: 3; "
           "title: Paused"},
          {"stop", [](Drive& day) { day.commands().stopExecution(); },
           "execute ActionStop; current: {ref=102 title=Mail progress=0 retry=0 started=12:00:06 "
           "stopping=1}"},
          {"launch what waits",
           [](Drive& day) {
             EXPECT_EQ(day.commands().launchAction(101, false).error().text,
                       "action 101: it already waits in the queue");
             EXPECT_EQ(day.commands().launchAction(999, false).error().text,
                       "action 999: there is no such action");
           },
           ""},
          {"remove",
           [](Drive& day) {
             day.commands().removeFromQueue({0, 1});
           },
           "queue: [{ref=102 title=Mail date=12:00:05 running=1}]; queueCount: 1; stored "
           "SchedulerActionsToDoList: []; report: “Photos” was taken out of the queue and not run"},
          {"move", [](Drive& day) { day.commands().moveInQueue(1, 0); }, ""},
          {"show all windows", [](Drive& day) { day.commands().showAllVisibleWindows(); },
           "execute ShowAllVisibleWindowsActions; fronts: 1; opens ~/Applications/Corvana 9.app"},
          {"status while it is to be turned off",
           [](Drive& day) {
             day.commands().disableScheduleWhenAllDone();
             day.tell("GetCVAProcessStatus");
           },
           "main ReturnCVASchedulerStatus {SchedulerStatus=2}; main ReturnCVAProcessStatus "
           "{path=~/Applications/Corvana 9.app/Contents/Resources/Corvana 9 Scheduler.app "
           "disabled=0 disabledDiskChange=0 paused=0 context=0 processStatus=3 extraStatus=3}; "
           "disabledWhenDone: 1"},
          {"quit by a sibling", [](Drive& day) { day.tell("QuitCVAProcess"); },
           "execute ActionStop; main LogChanged; agent: gone; stored SchedulerQuitDate: 12:00:10; "
           "log 21"},
      },
      [](Drive& day) {
        day.scripts["Mail"] = {.seconds = 3600};
        day.tell("LaunchAction", info("Ref", 102));
        day.tell("LaunchAction", info("Ref", 101));
        day.runFor(5);
      });
}

TEST(Controls, QuittingAsksWhatIsToBecomeOfTheExecution) {
  for (const std::optional<int> choice :
       {std::optional<int>(), std::optional(0), std::optional(1)}) {
    SCOPED_TRACE(choice.value_or(-1));
    Drive day;
    day.scripts["Mail"] = {.seconds = ChildScript::kUntilStopped};
    day.begin();
    day.tell("LaunchAction", info("Ref", 102));
    day.runFor(5);
    StartedChild& mail = *day.machine.processes.starts.back();
    day.commands().quitScheduler();
    EXPECT_NE(day.ui.questions.back().text.find("“Mail” is running"), std::string::npos);
    ASSERT_TRUE(day.ui.answerWhich(choice));
    day.machine.runLoop.runFor(2);
    EXPECT_EQ(day.agentObject.answers == nullptr, choice.has_value());
    EXPECT_EQ(mail.terminated, choice == 0);
    const auto asked = day.machine.notifications.count(kExecuteNotification, "ActionStop");
    EXPECT_EQ(asked, choice == 0 ? 1U : 0U);
    if (choice != 1) continue;

    day.agent.reset();
    day.machine.time.dropLoopEvents();
    EXPECT_TRUE(mail.running);
    day.start(true);
    day.tell("LaunchAction", info("Ref", 101));
    day.runFor(60);
    EXPECT_EQ(day.executionsOf("Photos"), 0U) << "it waits for what still runs";
    const ZAN_Value date = ZAN_Value::date(day.machine.clock.now());
    History(day.store())
        .addHistoryEntry(ZAN_Value::dictionary(
            {{"Ref", 102}, {"Date", ZAN_Value::date(mail.date)}, {"EndDate", date}, {"C", 2}}));
    day.machine.processes.endChild(mail.pid, 0);
    day.runFor(20);
    EXPECT_EQ(day.executionsOf("Photos"), 1U);
    EXPECT_EQ(day.executionsOf("Mail"), 1U) << "not repeated";
  }
}

}  // namespace
}  // namespace corvana
