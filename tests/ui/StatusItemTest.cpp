#include "ui/StatusItem.h"

#include <gtest/gtest.h>

#include "tests/scenario/Scenario.h"

namespace corvana {
namespace {

/// What of several states is drawn, at odd and at even ticks.
TEST(StatusItem, oneStateGoesBeforeAnother) {
  Scenario day;
  day.writeTree();
  day.start(true);
  const UserInterfaceSources sources = day.agent->userInterfaceSources();
  SimulatedUserInterface& screen = day.machine.userInterface;
  ASSERT_TRUE(screen.statusItem);

  enum State {
    kError = 1,
    kDisabled = 2,
    kPaused = 4,
    kSurvey = 8,
    kRuns = 16,
    kWillDisable = 32,
    kLacks = 64
  };
  using Icon = StatusIcon;
  struct Row {
    int states;
    std::int64_t tick;
    std::optional<int> minutes;
    std::optional<Icon> icon;  ///< nothing: the count-down
    bool comesAgain;           ///< the next tick draws anew
  };
  const int all = kError | kDisabled | kPaused | kSurvey | kRuns;
  const Row rows[] = {
      {all, 1, {}, Icon::error, true},
      {all, 2, {}, Icon::disabled, true},
      {kDisabled | kPaused | kSurvey | kRuns, 1, 30, Icon::disabled, false},
      {kPaused | kSurvey | kRuns, 2, 30, Icon::pause, true},
      {kPaused | kSurvey | kRuns, 1, 30, Icon::normal, true},
      {kPaused | kWillDisable, 1, 30, Icon::willDisable, true},
      {kSurvey | kRuns, 2, 30, Icon::surveyResult, true},
      {kSurvey | kRuns, 1, 30, Icon::normal, true},
      {kRuns | kWillDisable, 2, 30, Icon::running, false},
      {kRuns, 1, {}, Icon::running, false},
      {0, 2, 59, {}, false},
      {0, 2, 60, Icon::normal, false},
      {0, 1, 59, Icon::normal, false},
      {kWillDisable, 2, 60, Icon::willDisable, false},
      {kError, 2, 59, {}, true},
      {kLacks, 2, 59, {}, false},
      {kLacks, 1, 59, Icon::lacking, false},
      {kLacks | kError, 1, {}, Icon::error, true},
      {kLacks | kError, 2, {}, Icon::lacking, true},
      {kLacks | kRuns, 2, {}, Icon::running, false},
      {kLacks | kWillDisable, 1, {}, Icon::willDisable, false},
      {0, 2, {}, Icon::normal, false},
  };
  for (const bool otherDisk : {false, true}) {
    for (const Row& row : rows) {
      SCOPED_TRACE(testing::Message() << "states " << row.states << ", tick " << row.tick
                                      << ", other disk " << otherDisk);
      const auto has = [&](State state) { return (row.states & state) != 0; };
      sources.records.state.mErrorInExecution = has(kError) ? 6 : 0;
      sources.records.state.mLacking.assign(has(kLacks) ? 1 : 0, 101);
      sources.records.state.mScheduleDisabled = has(kDisabled);
      sources.records.state.mPause = has(kPaused);
      sources.records.state.mSurveyFolderResult = has(kSurvey) ? ZAN_Value("found") : ZAN_Value();
      sources.records.state.mScheduleDisabledWhenDone = has(kWillDisable);
      sources.records.state.mStartedFromNewMachine = otherDisk;
      sources.records.state.mExecuting = has(kRuns);
      sources.records.state.updateMenu();
      sources.statusItem.turn(row.tick, row.minutes);
      const auto icon = otherDisk ? std::optional(Icon::diskChanged) : row.icon;
      EXPECT_EQ(screen.statusIcon ? std::optional(screen.statusIcon->first) : std::nullopt, icon);
      if (!icon) {
        EXPECT_EQ(screen.countDown->first, row.minutes);
      }
      EXPECT_EQ(sources.records.state.mMenuMustBeUpdatedTicks, row.comesAgain ? 1 : 0);
    }
  }
  // What the start reads in the background is not left alone.
  day.machine.time.finishThreads();
}

}  // namespace
}  // namespace corvana
