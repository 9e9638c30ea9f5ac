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
  void tell(const char* object, ZAN_Value userInfo = {}) {
    day.machine.notifications.receive("CVA9_SchedulerNotification", object, std::move(userInfo));
    day.runFor(0.2);
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
  EXPECT_TRUE(day.machine.userInterface.changes.back().has(Change::progress));
  EXPECT_TRUE(day.machine.userInterface.changes.back().has(Change::survey));
  tell("SurveyReplyNotification", ZAN_Value::dictionary({{"ExecuteReplyMessage", "copying"}}));
  EXPECT_EQ(day.agent->supervisor().executeReply(), "copying");

  tell("ActionHistoryChanged");
  EXPECT_TRUE(day.machine.userInterface.changes.back().has(Change::history))
      << "the latest actions are drawn again";
}

TEST_F(SiblingsTest, AnExceptionEndsTheHandlingOfItsMessageOnly) {
  start();
  day.machine.machine.onStartupVolumeRead = [](int) -> std::optional<StartupVolume> {
    throw std::runtime_error("no luck");
  };
  for (int times = 0; times < 2; ++times) tell("ConfirmStartupDisk");
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
