#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "core/machine/MachineDuties.h"
#include "tests/scenario/Scenario.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;

class StrayFolders : public testing::Test {
 protected:
  StrayFolders() {
    day.action("Photos", daily(day.timeOfDay("12:10"), day.machine.clock.now()));
    day.writeTree();
    fs::create_directories(stray);
    std::ofstream(stray / "left behind") << "x";
  }
  bool isShown() const {
    return day.machine.userInterface.isWindowVisible(Window::volumesFolderError);
  }

  Scenario day;
  fs::path stray = fs::path(day.machine.volumes.folder) / "USB";
};

TEST_F(StrayFolders, HoldExecutionsBackUntilTheyAreGone) {
  // The volume that came back had to take another name.
  const std::string place = day.machine.volumes.mount({.name = "USB"});
  ASSERT_EQ(fs::path(place).filename(), "USB1");
  day.start(true);
  day.runUntil("2024-01-02 12:00:05");
  EXPECT_FALSE(isShown()) << "they have to persist through four looks";
  day.runUntil("2024-01-02 12:00:30");
  EXPECT_TRUE(isShown());
  EXPECT_TRUE(day.agent->state().mPause);
  day.runUntil("2024-01-02 12:12:00");
  EXPECT_EQ(day.executions(), "");
  EXPECT_TRUE(fs::exists(stray / "left behind")) << "nobody asked to delete it";
  fs::remove_all(stray);
  day.runUntil("2024-01-02 12:12:15");
  EXPECT_TRUE(day.agent->state().mPause) << "five clean looks, 5 s apart";
  day.runUntil("2024-01-02 12:13:00");
  EXPECT_FALSE(isShown());
  EXPECT_EQ(day.executionsOf("Photos"), 1U);
}

TEST_F(StrayFolders, ClosingTheirWindowEndsThePauseThatTheyMadeButNotTheUsers) {
  day.start(true);
  day.runUntil("2024-01-02 12:00:30");
  ASSERT_TRUE(isShown());
  fs::remove_all(stray);
  day.agent->commands().hideWindow(Window::volumesFolderError);
  day.runUntil("2024-01-02 12:12:00");
  EXPECT_FALSE(isShown());
  EXPECT_EQ(day.executionsOf("Photos"), 1U);

  day.agent->commands().pauseExecution();
  fs::create_directories(stray);
  day.runUntil("2024-01-02 12:13:00");
  ASSERT_TRUE(isShown());
  fs::remove_all(stray);
  day.runUntil("2024-01-02 12:14:00");
  EXPECT_FALSE(isShown());
  EXPECT_TRUE(day.agent->state().mPause);
}

TEST_F(StrayFolders, ThatGoByThemselvesAreNotMentioned) {
  day.start(true);
  day.runUntil("2024-01-02 12:00:08");
  fs::remove_all(stray);
  day.runUntil("2024-01-02 12:12:00");
  EXPECT_FALSE(isShown());
  EXPECT_EQ(day.executionsOf("Photos"), 1U);
  EXPECT_EQ(day.logCodes(), (std::vector<std::int64_t>{20, 1}));
}

TEST_F(StrayFolders, AreTakenAwayUnaskedWithoutLosingWhatIsInThem) {
  ASSERT_TRUE(day.store().settings().saveSchedulerSettings(
      ZAN_Value::dictionary({{"SchedulerPrefSurveyVolumesFolder", 2}})));
  fs::create_directories(stray.parent_path() / "Sticky");
  day.machine.volumes.sticky = {"Sticky"};
  day.start(true);
  day.runUntil("2024-01-02 12:01:00");
  EXPECT_FALSE(fs::exists(stray));
  EXPECT_TRUE(fs::exists(stray.parent_path() / ".Moved aside/USB/left behind"));
  EXPECT_TRUE(isShown()) << "one of them stayed";
  day.machine.volumes.sticky.clear();
  day.agent->commands().repairAndContinueExecution();
  day.runUntil("2024-01-02 12:01:10");
  EXPECT_FALSE(fs::exists(stray.parent_path() / "Sticky"));
  EXPECT_FALSE(fs::exists(stray.parent_path() / ".Moved aside/Sticky")) << "it was empty";
  fs::create_directories(stray.parent_path() / "Later");
  day.runUntil("2024-01-02 12:12:00");
  EXPECT_FALSE(fs::exists(stray.parent_path() / "Later")) << "the survey goes on";
  EXPECT_EQ(day.executionsOf("Photos"), 1U);
}

TEST_F(StrayFolders, AnotherProgramsWishToCleanLosesNothingEither) {
  day.start(true);
  day.runUntil("2024-01-02 12:00:02");
  day.machine.notifications.post({"CVA9_SchedulerNotification", "CleanVolumesFolder", ZAN_Value()});
  day.runUntil("2024-01-02 12:00:04");
  EXPECT_FALSE(fs::exists(stray));
  EXPECT_TRUE(fs::exists(stray.parent_path() / ".Moved aside/USB/left behind"));
}

TEST_F(StrayFolders, AreDeletedOnlyWhenThatIsConfirmedAndOnlyThoseThatWereShown) {
  const auto sources = [&] { return day.agent->userInterfaceSources(); };
  const auto progress = [&] { return sources().machine.folderSurvey.progressText(); };
  std::ofstream(stray / "another") << "x";
  day.start(true);
  day.runUntil("2024-01-02 12:09:00");
  ASSERT_TRUE(isShown());
  const auto& strays = sources().machine.folderSurvey.strays();
  ASSERT_EQ(strays.size(), 1U);
  ASSERT_TRUE(strays[0].contents && *strays[0].contents);
  EXPECT_EQ((*strays[0].contents)->files, 2U);
  EXPECT_EQ((*strays[0].contents)->bytes, 2U);

  day.agent->commands().deleteStrayFolders();
  day.runUntil("2024-01-02 12:09:10");
  EXPECT_TRUE(fs::exists(stray / "another")) << "it is asked for";
  const fs::path later = stray.parent_path() / "Later";
  fs::create_directories(later);
  day.machine.volumes.beforeRemoving = [&] { day.machine.clock.sleep(60); };
  EXPECT_TRUE(day.machine.userInterface.answer(Window::volumesFolderError, true));
  day.agent->commands().repairAndContinueExecution();
  day.runUntil("2024-01-02 12:10:30");
  EXPECT_NE(progress().find("1"), std::string::npos) << progress();
  EXPECT_TRUE(isShown());
  EXPECT_EQ(day.executions(), "") << "it is still being deleted";
  day.runUntil("2024-01-02 12:12:00");
  EXPECT_FALSE(fs::exists(stray));
  EXPECT_TRUE(fs::exists(later)) << "nobody was asked about it";
  EXPECT_EQ(progress(), "");
  EXPECT_TRUE(isShown());
  day.agent->commands().repairAndContinueExecution();
  day.runUntil("2024-01-02 12:13:00");
  EXPECT_FALSE(isShown());
  EXPECT_EQ(day.executionsOf("Photos"), 1U);
}

TEST(FreeSpace, TheUserIsWarnedBelowATenthAndThenOnceADay) {
  Scenario day;
  const auto isShown = [&] { return day.machine.userInterface.isWindowVisible(Window::lowSpace); };
  day.machine.volumes.setFree("/", 50'000'000'000);
  day.start(true);
  day.runUntil("2024-01-02 12:04:00");
  EXPECT_FALSE(isShown()) << "exactly a tenth";
  day.machine.volumes.setFree("/", 49'999'999'999);
  day.runUntil("2024-01-02 12:06:00");
  EXPECT_TRUE(isShown());
  day.machine.userInterface.hideWindow(Window::lowSpace);
  day.runUntil("2024-01-03 12:00:00");
  EXPECT_FALSE(isShown());
  day.runUntil("2024-01-03 12:06:00");
  EXPECT_TRUE(isShown());
}

}  // namespace
}  // namespace corvana
