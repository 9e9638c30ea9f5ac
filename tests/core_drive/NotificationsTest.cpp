#include <gtest/gtest.h>

#include "tests/core_drive/Drive.h"
#include "volumes/ZAN_MountVolume.h"

namespace corvana {
namespace {

ZAN_Value details(std::initializer_list<std::pair<std::string_view, ZAN_Value>> entries) {
  return ZAN_Value::dictionary(entries);
}

TEST(Notifications, EachHasItsEffectAndNoOther) {
  const auto says = [](const char* object, ZAN_Value userInfo = {}) {
    return [=](Drive& day) { day.tell(object, userInfo); };
  };
  const auto center = [](Drive& day) {
    day.prefer("SchedulerPrefShowMessageInNotificationCenter", 1);
  };
  const auto stick = [](Drive& day) {
    day.prefer("SchedulerPrefAutoUnmountVolumes", 1);
    const ZAN_MountVolume tools(day.machine.processes, day.machine.machine, day.machine.systemLog);
    day.machine.volumes.installTool(day.machine.processes, tools.toolsFolder() + "/diskutil");
    day.machine.volumes.mount({.name = "Stick"});
  };
  expectEffects({
      {"launch", says("LaunchAction", info("Ref", 102)),
       "main ActionListChanged; main LogChanged; main ReturnCVASchedulerStatus "
       "{SchedulerStatus=2}; controls: on; current: {ref=102 title=Mail progress=0 retry=0}; "
       "executing: 1; icon: running; queue: [{ref=102 title=Mail date=12:00:05 running=1}]; "
       "queueCount: 1; schedulerStatus: 2; stored SchedulerActionsToDoList: []; title: Running: "
       "Mail; report: “Mail” was added to the queue by hand; report: “Mail” was started; log 1"},
      {"launch to estimate", says("LaunchAction", details({{"Ref", 102}, {"EstimateSize", 1}})),
       "main ActionListChanged; main LogChanged; main ReturnCVASchedulerStatus "
       "{SchedulerStatus=2}; controls: on; current: {ref=102 title=Mail progress=0 retry=0}; "
       "executing: 1; icon: running; queue: [{ref=102 title=Mail date=12:00:05 estimateSize=1 "
       "running=1}]; queueCount: 1; schedulerStatus: 2; stored SchedulerActionsToDoList: []; "
       "title: Running: Mail; report: “Mail” was added to the queue by hand; report: “Mail” was "
       "started; log 1"},
      {"preferences",
       [](Drive& day) {
         day.prefer("SchedulerPrefDisplayIconWindow", 2);
         day.prefer("SchedulerPrefScheduleDisabled", 1);
         day.tell("PreferencesDidChange");
       },
       "stored SchedulerPrefDisplayIconWindow: 2; stored SchedulerPrefScheduleDisabled: 1; "
       "windows: "},
      {"open preferences", says("OpenPreferences"), "windows:  preferences floatingIcon"},
      {"action list",
       [](Drive& day) {
         day.removeAction(101);
         day.tell("ActionListChanged");
       },
       "next: [{ref=102 title=Mail type=2}]; title: No action is scheduled; nextDate no more"},
      {"action",
       [](Drive& day) {
         day.removeAction(101);
         day.tell("ActionChanged");
       },
       "main ActionListChanged"},
      {"progress", says("ExecuteProgress", details({{"ProgressValue", 250}, {"SizeCopied", 7}})),
       "progress: 7 100"},
      {"no progress",
       says("ExecuteProgress", details({{"ProgressValue", -3}, {"CurrentPath", "/a"}})),
       "progress: 0 0"},
      {"unmount later", says("UnmountVolume", info("Path", "~/Volumes/Stick")),
       "system log: diskutil info: diskutil: ended with status 1", stick},
      {"unmount when all is done",
       [](Drive& day) {
         day.tell("UnmountVolume", info("Path", day.machine.volumes.folder + "/Stick"));
       },
       "volumes:  /; system log: diskutil info: diskutil: ended with status 1; system log: "
       "diskutil info: diskutil: ended with status 1",
       stick},
      {"unmount",
       [](Drive& day) {
         day.tell("UnmountVolumeImmediate", info("Path", day.machine.volumes.folder + "/Stick/"));
       },
       "volumes:  /; system log: diskutil info: diskutil: ended with status 1; system log: "
       "diskutil info: diskutil: ended with status 1",
       stick},
      {"message", says("Message", details({{"Title", "Look"}, {"Text", "here"}, {"Seconds", 3}})),
       "message: Look: here"},
      {"message is over",
       says("Message", details({{"Title", "Look"}, {"Seconds", 3}})),
       "",
       {},
       3.75},
      {"message of ten seconds", says("Message", info("Title", "Look")), "message: Look", {}, 9.75},
      {"message is over after ten seconds", says("Message", info("Title", "Look")), "", {}, 10.75},
      {"message off",
       [](Drive& day) {
         day.tell("Message", info("Title", "Look"));
         day.tell("Message", info("Title", "Again"));
         day.tell("MessageOff");
       },
       "message: Again"},
      {"deactivate", says("ActivateExecution", info("Activate", 0)), kTurnedOff},
      {"activate", says("ActivateExecution", info("Activate", 1)), ""},
      {"pause", says("ActionPause", info("Pause", 1)),
       "main ReturnCVASchedulerStatus {SchedulerStatus=3}; icon: pause; information: The execution "
       "is paused; paused: 1; schedulerStatus: 3; title: Paused"},
      {"no pause", says("ActionPause", info("Pause", 0)),
       "main ReturnCVASchedulerStatus {SchedulerStatus=1}"},
      {"log", says("AddToLog", details({{"C", 14}, {"R", 102}, {"N", "Mail"}})),
       "main LogChanged; errorCode: 14; message: “Mail” was completed with errors; stored "
       "SchedulerFailuresNotSeen: [{R=102 C=14}]; stored SchedulerPrefErrorInExecution: 14; "
       "report: "
       "“Mail” was completed with errors; log 14"},
      {"log of a missing volume", says("AddToLog", details({{"C", 4}, {"R", 102}, {"N", "Mail"}})),
       "main LogChanged; main LogChanged; errorCode: 4; message: “Mail” was not executed: a volume "
       "or folder it needs is not available; stored SchedulerFailuresNotSeen: [{R=102 C=4}]; "
       "stored SchedulerPrefErrorInExecution: 4; stored "
       "SchedulerPrefLastNotifications: (160 bytes); report: “Mail” was not executed: a volume or "
       "folder it needs is not available; log 4; log 13"},
      {"log of a success", says("AddToLog", details({{"C", 2}, {"R", 102}, {"N", "Mail"}})),
       "main LogChanged; log 2"},
      {"notice", says("DisplayUserNotification", details({{"Msg", "new"}, {"Type", 2}})),
       "notice: new", center},
      {"survey",
       says("DisplayUserNotification",
            details({{"Msg", "new"}, {"Titl", "Show"}, {"Type", 1}, {"Ref", 7}})),
       "icon: surveyResult; notice: new", center},
      {"survey is seen",
       [](Drive& day) {
         day.tell("DisplayUserNotification", details({{"Type", 1}, {"Ref", 7}}));
         day.commands().showSurveyFolderResults();
         day.commands().showSurveyFolderResults();
       },
       "main SurveyFolderResults {Date=12:00:05 Ref=7}; opens ~/Applications/Corvana 9.app"},
      {"status", says("GetCVAProcessStatus"),
       "main ReturnCVAProcessStatus {path=~/Applications/Corvana 9.app/Contents/Resources/Corvana "
       "9 Scheduler.app disabled=0 disabledDiskChange=0 paused=0 context=0 processStatus=0 "
       "extraStatus=0}"},
      {"quit", says("QuitCVAProcess"),
       "main LogChanged; agent: gone; stored SchedulerQuitDate: 12:00:05; log 21"},
      {"queue", says("ShowPendingActions"), "windows:  queue floatingIcon"},
      {"latest actions", says("ShowLatestActions"), "windows:  latestActions floatingIcon"},
      {"all windows", says("ShowAllVisibleWindowsActions"), "fronts: 1"},
      {"shut down", says("ShutDownMac"),
       "main LogChanged; agent: gone; powered off: 1; stored SchedulerQuitDate: 12:00:05; log 21"},
      {"shut down when done", says("LaunchShutDownActions"), "stored SchedulerActionsToDoList: []"},
      {"report", says("SendReportEmail"), "",
       [](Drive& day) { day.prefer("SchedulerPrefShowMessageInNotificationCenter", 1); }},
      {"reply", says("SurveyReplyNotification", info("ExecuteReplyMessage", "copying")),
       "reply: copying"},
      {"start-up disk", says("ConfirmStartupDisk"), ""},
      {"recovery", says("SendCopyRecoveryHD", info("DeviceIdentifier", "sdb1")),
       "main SendCopyRecoveryHDCompleted {DeviceIdentifier=sdb1 sourceDeviceIdentifier=}"},
  });
}

TEST(Notifications, MissingAndWrongDetailsDoNothing) {
  Drive day(true);
  day.begin();
  const auto hearAll = [&](const ZAN_Value& userInfo) {
    for (const char* object :
         {"", "launchaction", "Nonsense", "ApplicationIsLaunched", "ApplicationWillQuit",
          "LaunchAction", "ActivateExecution", "ActionPause", "AddToLog", "ExecuteProgress",
          "DisplayUserNotification", "SurveyReplyNotification", "UnmountVolume",
          "UnmountVolumeImmediate"})
      day.tell(object, userInfo);
  };
  const std::string effect = day.effect([&] {
    hearAll({});
    hearAll("text");
    hearAll(ZAN_Value::array({1, "two"}));
    hearAll(details({{"Path", 7}, {"Type", "x"}, {"activate", 1}}));
    day.machine.notifications.receive("CVA9_MainAppliNotification", "QuitCVAProcess");
  });
  EXPECT_EQ(effect, "main LogChanged; log 0") << "an entry of the log needs no code";
}

}  // namespace
}  // namespace corvana
