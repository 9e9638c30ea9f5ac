#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "actions/History.h"
#include "tests/scenario/Scenario.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

/// The agent with a main application and an execute application played by the test.
struct SiblingsTest : testing::Test {
  Scenario day;
  std::int64_t photos =
      day.action("Photos", daily(day.timeOfDay("18:00"), day.machine.clock.now()));

  void start() {
    day.writeTree();
    day.start(true);
    day.runFor(5);
  }
  void startMainApp() {
    day.machine.processes.startApplication(
        day.store().installPaths().installPathForCode(InstallPaths::mainAppBundle));
    day.runFor(6);
  }
  void tell(const char* object, ZAN_Value userInfo = {}) {
    day.machine.notifications.receive("CVA9_SchedulerNotification", object, std::move(userInfo));
    day.runFor(0.2);
  }
  const DistributedNotification* toMainApp(std::string_view object) {
    return day.machine.notifications.latest("CVA9_MainAppliNotification", object);
  }
  std::size_t toExecute(std::string_view object) {
    return day.machine.notifications.count("CVA9_ExecuteNotification", object);
  }
  ZAN_Value setting(std::string_view key) {
    return day.store().settings().mainAppSettingForKey(key);
  }
};

TEST_F(SiblingsTest, TheExecuteApplicationReportsItsProgress) {
  start();
  for (int i = 1; i <= 600; ++i) {
    day.machine.notifications.receive(
        "CVA9_SchedulerNotification", "ExecuteProgress",
        ZAN_Value::dictionary({{"CurrentPath", "/a/" + std::to_string(i) + ".JPG"},
                               {"Title", "kept as it is"},
                               {"ProgressValue", i / 6.0},
                               {"SizeCopied", ZAN_Value::integer(3'000'000'000, 'q')},
                               {"FilesCopied", i},
                               {"ErrorsCounter", 2}}));
  }
  day.runFor(0.1);
  // Trimmed to 500 before each addition, not after.
  const auto& reports = day.agent->supervisor().latestExecuteCurrentPath();
  ASSERT_EQ(reports.size(), 501U);
  EXPECT_EQ(reports.front().string("CurrentPath"), "/a/100.JPG");
  EXPECT_EQ(reports.front().string("CurrentIcon"), "image-x-generic");
  EXPECT_EQ(reports.back().string("Title"), "kept as it is");
  EXPECT_EQ(day.machine.userInterface.sizeCopied, 3'000'000'000);
  EXPECT_EQ(day.machine.userInterface.progress, 100);
  EXPECT_EQ(day.machine.userInterface.errors, 2);
  for (const Window window : {Window::executionSurvey, Window::queue, Window::status})
    EXPECT_EQ(day.machine.userInterface.windowChanges[window], 600);
  tell("SurveyReplyNotification", ZAN_Value::dictionary({{"ExecuteReplyMessage", "copying"}}));
  EXPECT_EQ(day.agent->supervisor().executeReply(), "copying");

  const int before = day.machine.userInterface.listChanges;
  tell("ActionHistoryChanged");
  EXPECT_GT(day.machine.userInterface.listChanges, before) << "the latest actions are drawn again";
}

TEST_F(SiblingsTest, APauseThatTheExecuteApplicationTellsIsNotSentBack) {
  start();
  const ZAN_Value yes = ZAN_Value::dictionary({{"Pause", true}});
  for (int i = 0; i < 2; ++i) {
    tell("ActionPause", yes);
    EXPECT_TRUE(day.agent->state().mPause);
  }
  EXPECT_EQ(toExecute("ActionPause"), 0U);
  day.agent->commands().pauseExecution();
  EXPECT_FALSE(day.agent->state().mPause);
  EXPECT_EQ(toExecute("ActionPause"), 1U);

  day.agent->commands().setPreference("SchedulerPrefCurrentContext", 0x1'0000'0000LL);
  EXPECT_EQ(day.agent->state().mContext, 3) << "more than the last one is the last one";
}

TEST_F(SiblingsTest, TheMainApplicationIsToldAndAsks) {
  start();
  tell("GetCVAProcessStatus");
  EXPECT_EQ(toMainApp("ReturnCVAProcessStatus"), nullptr) << "nobody there to hear it";
  // An evaluation sees it before the look every five seconds does.
  day.agent->commands().setContext(1);
  startMainApp();
  ASSERT_NE(toMainApp("ReturnCVASchedulerStatus"), nullptr);
  EXPECT_EQ(toMainApp("ReturnCVASchedulerStatus")->userInfo.integer("SchedulerStatus"), 1);

  day.scripts["Photos"] = {.seconds = 60};
  tell("LaunchAction", ZAN_Value::dictionary({{"Ref", photos}}));
  tell("LaunchAction", ZAN_Value::dictionary({{"Ref", photos}}));
  day.runFor(5);
  EXPECT_EQ(toMainApp("ReturnCVASchedulerStatus")->userInfo.integer("SchedulerStatus"), 2);
  day.agent->commands().disableScheduleWhenAllDone();
  tell("GetCVAProcessStatus");
  ASSERT_NE(toMainApp("ReturnCVAProcessStatus"), nullptr);
  const ZAN_Value status = toMainApp("ReturnCVAProcessStatus")->userInfo;
  EXPECT_EQ(status.string("path"), day.machine.machine.bundle);
  EXPECT_EQ(status.integer("processStatus"), 3);
  EXPECT_EQ(status.integer("extraStatus"), 1 + 2);
  EXPECT_EQ(status.integer("disabled"), 0);
  EXPECT_EQ(day.executionsOf("Photos"), 1U);

  tell("AddToLog", ZAN_Value::dictionary({{"C", 14}, {"R", photos}, {"N", "Photos"}}));
  EXPECT_NE(toMainApp("LogChanged"), nullptr);
  EXPECT_EQ(day.logCodes().back(), 14);
  EXPECT_EQ(day.agent->state().mErrorInExecution, 14);
  day.machine.notifications.receive("CVA9_SchedulerNotification", "QuitCVAProcess");
  day.machine.runLoop.runFor(0.2);
  EXPECT_EQ(toExecute("ActionStop"), 1U);
  EXPECT_EQ(day.machine.runLoop.quitCode(), 0);
}

TEST_F(SiblingsTest, AFolderSurveyWaitsToBeSeen) {
  start();
  day.agent->preferences().mPrefShowMessageInNotificationCenter = 1;
  const auto found = [](int type) {
    return ZAN_Value::dictionary({{"Msg", "3 new files"},
                                  {"Titl", "Show"},
                                  {"Type", type},
                                  {"Ref", 7},
                                  {"SurveyResults", 3}});
  };
  tell("DisplayUserNotification", found(2));
  ASSERT_EQ(day.machine.userInterface.notifications.size(), 1U);
  EXPECT_EQ(day.machine.userInterface.notifications[0].button, "Show");
  EXPECT_TRUE(day.agent->state().mSurveyFolderResult.isNull());
  tell("DisplayUserNotification", found(1));
  EXPECT_EQ(day.agent->state().mSurveyFolderResult.integer("SurveyResults"), 3);
  day.runFor(2);
  EXPECT_THAT(day.machine.userInterface.statusIcons, testing::Contains(StatusIcon::surveyResult));
  startMainApp();
  day.agent->commands().showSurveyFolderResults();
  ASSERT_NE(toMainApp("SurveyFolderResults"), nullptr);
  EXPECT_EQ(toMainApp("SurveyFolderResults")->userInfo.integer("Ref"), 7);
  EXPECT_TRUE(day.agent->state().mSurveyFolderResult.isNull());
}

TEST_F(SiblingsTest, AnExceptionEndsTheHandlingOfItsMessageOnly) {
  start();
  day.agent->messages().onNotificationsChanged = [] { throw std::runtime_error("no luck"); };
  for (const bool on : {false, true}) {
    tell("ActivateExecution", ZAN_Value::dictionary({{"Activate", on}}));
  }
  tell("ActionPause", ZAN_Value::dictionary({{"Pause", true}}));
  EXPECT_TRUE(day.agent->state().mPause);
  EXPECT_THAT(day.machine.systemLog.lines,
              ElementsAre("Exception in Corvana 9 Scheduler: std::runtime_error: no luck"));
}

TEST_F(SiblingsTest, SettingsAreCopiedByTheTickAndHoldARestartBack) {
  const fs::path stick = fs::path(day.machine.folder.path()) / "Stick";
  fs::create_directories(stick);
  ASSERT_TRUE(day.store().settings().setMainAppSetting(
      ZAN_Value::array({ZAN_Value::dictionary({{"path", stick.string()}})}),
      "CopySettingsDestinations"));
  day.allowSkipping();
  start();
  const ReferenceTime begin = day.machine.clock.now() - 5;
  day.runUntil("2024-01-02 15:30:00");
  EXPECT_TRUE(fs::exists(stick / "Corvana 9 (Settings) Copy/Programmed Actions.cva9data"));
  // At 300 s, and again at the first look two hours later; the restarts count anew.
  const double last =
      setting("CopySettingsDestinations").at(0)["date"].asDate().value_or(0) - begin;
  EXPECT_GE(last, 300 + 7200);
  EXPECT_LE(last, 300 + 7200 + 600);
  std::ifstream log(stick / "Corvana 9 (Settings) Copy/_Backup Settings.txt");
  const std::string text{std::istreambuf_iterator<char>(log), {}};
  EXPECT_EQ(std::ranges::count(text, '\n'), 2) << text;
}

}  // namespace
}  // namespace corvana
