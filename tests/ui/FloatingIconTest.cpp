#include "ui/FloatingIcon.h"

#include <gtest/gtest.h>

#include "tests/core_work/WorkWorld.h"
#include "ui/StatusItem.h"

namespace corvana {
namespace {

struct FloatingIconTest : testing::Test, test::WorkWorld {
  FloatingIconTest() { prefer(IconShown::onHover, IconShown::onHover); }

  void prefer(int floating, int inMenuBar) {
    preferences.setPref("SchedulerPrefDisplayIconWindow", floating);
    preferences.setPref("SchedulerPrefDisplayIcon", inMenuBar);
    preferences.savePrefs();
    preferences.loadPrefs();
  }
  void point(std::optional<Point> at) {
    machine.input.position = at;
    icon.turn();
  }
  bool isShown() const { return machine.userInterface.isWindowVisible(Window::floatingIcon); }

  static constexpr Point kInMenuBar{1000, 890}, kElsewhere{400, 300};
  StatusItem statusItem{records, work};
  FloatingIcon icon{records, work.announce, statusItem};
};

TEST_F(FloatingIconTest, ComesWithThePointerInTheMenuBarAndGoesSevenSecondsAfterIt) {
  for (const Point& beside : {kElsewhere, Point{964, 890}, Point{1000, 876}}) {
    point(beside);
    EXPECT_FALSE(isShown() || statusItem.exists()) << beside.x << ", " << beside.y;
  }
  point(kInMenuBar);
  EXPECT_TRUE(isShown() && statusItem.exists());
  advance(60);
  point(kInMenuBar);
  for (const auto& [after, shown] : {std::pair{6.9, true}, {0.2, false}}) {
    advance(after);
    point(kElsewhere);
    EXPECT_EQ(isShown(), shown) << after;
  }
  prefer(IconShown::always, IconShown::always);
  icon.applyMode();
  advance(60);
  point(kElsewhere);
  EXPECT_TRUE(isShown()) << "what is always there does not go";
  prefer(IconShown::floatingIconNever, IconShown::statusIconNever);
  icon.applyMode();
  point(kInMenuBar);
  EXPECT_FALSE(isShown());
}

TEST_F(FloatingIconTest, LooksForThePointerOnlyWhereItMayMatter) {
  state.mUserRests = true;
  point(kInMenuBar);
  EXPECT_EQ(icon.nextTurn(), kAtOnce);
  machine.input.position = kElsewhere;
  EXPECT_GT(icon.nextTurn(), now() + 7);
  EXPECT_LT(icon.nextTurn(), now() + 7.1);
  advance(8);
  icon.turn();
  EXPECT_EQ(icon.nextTurn(), kNever) << "until the user does something";
  state.mUserRests = false;
  EXPECT_EQ(icon.nextTurn(), kAtOnce);
  machine.input.position.reset();
  EXPECT_EQ(icon.nextTurn(), kNever) << "nobody says where it is";
  machine.input.position = kInMenuBar;
  for (const int floating : {IconShown::always, IconShown::floatingIconNever}) {
    prefer(floating, IconShown::always);
    EXPECT_EQ(icon.nextTurn(), kNever) << "nothing comes on hover";
    prefer(floating, IconShown::onHover);
    EXPECT_EQ(icon.nextTurn(), kAtOnce);
  }
  machine.userInterface.showWindow(Window::floatingIcon);
  prefer(IconShown::floatingIconNever, IconShown::always);
  EXPECT_EQ(icon.nextTurn(), kAtOnce) << "one that is no longer wanted is to go";
}

TEST_F(FloatingIconTest, ShowsHowFarTheExecutionIs) {
  setActions({action(1)});
  enqueue({1});
  work.announce.showAnnounceForQueueHead();
  state.mProgress.sizeCopied = 2'000'000;
  state.mProgress.filesCopied = 1'234;
  state.mProgress.errors = 3;
  records.changes.note(Change::progress);
  advance(0);
  ASSERT_TRUE(machine.userInterface.announceProgress);
  EXPECT_EQ(machine.userInterface.announceProgress->second, "1,234 (2 MB) Errors: 3");
  EXPECT_EQ(machine.userInterface.sizeCopied, 2'000'000);
  EXPECT_EQ(machine.userInterface.errors, 3);
}

/// When the icon in the menu bar is there, for each way that the user wants it.
TEST_F(FloatingIconTest, TheStatusItemComesWhenItIsNeededAndGoes) {
  const auto note = [&](Change change) {
    records.changes.note(change);
    advance(0);
  };
  const auto isThere = [&](bool comesAnew) {
    if (comesAnew) machine.userInterface.removeStatusItem();
    statusItem.turn(1, {});
    return statusItem.exists();
  };
  prefer(IconShown::floatingIconNever, IconShown::statusIconNever);
  statusItem.createStatusItem();
  EXPECT_FALSE(statusItem.exists());
  for (const bool mainApp : {false, true}) {
    state.mMainAppLaunched = mainApp;
    state.mErrorInExecution = 6;
    note(Change::execution);
    EXPECT_TRUE(statusItem.exists()) << "for an error";
    EXPECT_EQ(statusItem.nextTurn(), kAtOnce) << "which is drawn";
    state.mMenuMustBeUpdatedTicks = 0;
    EXPECT_EQ(statusItem.nextTurn(), kNever);
    state.mErrorInExecution = 0;
    note(Change::execution);
    EXPECT_EQ(statusItem.exists(), mainApp);
  }
  note(Change::preferences);
  EXPECT_FALSE(statusItem.exists());

  prefer(IconShown::floatingIconNever, IconShown::onHover);
  EXPECT_TRUE(isThere(true)) << "the main application is open";
  state.mMainAppLaunched = false;
  EXPECT_FALSE(isThere(true));
  EXPECT_EQ(statusItem.nextTurn(), kNever);
  state.mExecuting = true;
  EXPECT_EQ(statusItem.nextTurn(), kAtOnce);
  EXPECT_TRUE(isThere(true));
  state.mMenuMustBeUpdatedTicks = 0;
  EXPECT_EQ(statusItem.nextTurn(), kNever);
  state.mExecuting = false;
  for (const Window window : {Window::nextActions, Window::status}) {
    machine.userInterface.showWindow(window);
    EXPECT_TRUE(isThere(true));
    machine.userInterface.hideWindow(window);
  }
  state.mMenuMustBeUpdatedTicks = 0;
  state.mCanHideMenubarIcon.set(now() + 5);
  EXPECT_TRUE(isThere(false));
  EXPECT_EQ(statusItem.nextTurn(), state.mCanHideMenubarIcon.passing());
  advance(6);
  EXPECT_FALSE(isThere(false));

  // What it says comes when it is another.
  prefer(IconShown::floatingIconNever, IconShown::always);
  note(Change::preferences);
  EXPECT_TRUE(statusItem.exists());
  state.mLacking = {7};
  setActions({action(7)});
  note(Change::execution);
  EXPECT_NE(machine.userInterface.toolTip.find("A7"), std::string::npos);
  state.mLacking = {7, 8};
  note(Change::execution);
  EXPECT_EQ(machine.userInterface.toolTip.find("A7"), std::string::npos);
  EXPECT_NE(machine.userInterface.toolTip.find("2"), std::string::npos);
}

}  // namespace
}  // namespace corvana
