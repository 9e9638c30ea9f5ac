#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "core/record/Deadline.h"

namespace corvana {

/// How far the running execution is, as it last reported; of the bounds that a display can draw.
struct ExecutionProgress {
  double value = 0;              ///< per cent
  std::int64_t sizeCopied = -1;  ///< bytes; -1: nothing reported yet
  std::int64_t filesCopied = 0;
  std::int64_t errors = 0;
  int percent() const { return value >= 0 ? static_cast<int>(std::min(value, 100.0)) : 0; }
};

/// What three or more duties of the scheduler share: whether it may work, what it waits for, and
/// what the user sees of it. Small values without behaviour of their own. Thread: main.
struct SchedulerState {
  explicit SchedulerState(ReferenceTime now)
      : mPauseBeforeNextStep(deadlines),
        mNextCheck(deadlines, now + 60.0),
        mStartOfIdleTime(deadlines, now + 60.0),
        mCanHideMenubarIcon(deadlines, now + 60.0) {}

  /// First, since deadlines register here while they are made.
  DeadlineList deadlines;

  /// Automatic execution is off; so it starts, and the end of the start-up enables it.
  bool mScheduleDisabled = true;
  /// Automatic execution goes off when the queue is empty and nothing runs.
  bool mScheduleDisabledWhenDone = false;
  bool mPause = false;
  /// An execution is held: its child runs, or its end is not yet dealt with.
  bool mExecuting = false;
  /// 0 none, 2 launched and not yet seen running, 3 seen running.
  int mProcessStatus = 0;
  ExecutionProgress mProgress;
  /// The agent ends, and the machine with it, once everything asked for is done.
  bool mMustTerminateWhenAllDone = false;
  /// The number of an `ActionContext`.
  int mContext = 0;
  /// The start-up disk is another one than the actions were made for, and the question is still
  /// open.
  bool mStartedFromNewMachine = false;
  /// A failure that the user has not seen yet, and that its action has not made good.
  struct Failure {
    std::int64_t ref = 0;  ///< of the action; 0: something else
    int code = 0;          ///< of the log
  };
  /// One an action, the latest last.
  std::vector<Failure> mFailures;
  /// The code of the last one; 0: none. What the menus show as the error state.
  int mErrorInExecution = 0;
  /// The actions, by reference, whose last run lacks nothing but what cannot be copied, and that
  /// the user has not seen so yet. No failure: shown in amber, once, until what is lacking is
  /// another.
  std::vector<std::int64_t> mLacking;
  /// What the last survey of a folder found, until the user has seen it: {"Date", "Msg", "Ref",
  /// "SurveyResults"}, else null.
  ZAN_Value mSurveyFolderResult;
  /// The running action or the next one, as the title of the menu names it when nothing holds the
  /// scheduler up.
  std::string mStatusTitle;
  /// Whether the main application ran when last looked.
  bool mMainAppLaunched = false;
  /// No complete evaluation has happened yet since a cold start.
  bool mFirstCheckAfterStartup = false;
  /// The machine has just woken, and nothing is done for a while.
  bool mWakingUp = false;
  /// Nobody uses keyboard or pointer, and the system tells when somebody does.
  bool mUserRests = false;
  /// The user chose something from the menu.
  bool mMenuWasUsed = false;
  /// The status icon is drawn again at the tick that finds 1; larger values count down.
  int mMenuMustBeUpdatedTicks = 1;

  /// The launch step does nothing before, and why.
  Deadline mPauseBeforeNextStep;
  enum class HeldBack { betweenSteps, afterStart, afterCrash };
  HeldBack mHeldBackBy = HeldBack::betweenSteps;
  /// The next complete trigger evaluation.
  Deadline mNextCheck;
  /// The last moment of user activity; a moment to come just after the start.
  Deadline mStartOfIdleTime;
  /// A status icon that is not always wanted stays until then.
  Deadline mCanHideMenubarIcon;

  /// Whether what falls due may be queued at all.
  bool takesDueActions() const {
    return !mScheduleDisabled && !mScheduleDisabledWhenDone && !mStartedFromNewMachine;
  }
  void holdBackUntil(ReferenceTime at, HeldBack by = HeldBack::betweenSteps) {
    mPauseBeforeNextStep.set(at);
    mHeldBackBy = by;
  }
  void checkAt(ReferenceTime at) { mNextCheck.set(at); }
  void checkAtTheLatestAt(ReferenceTime at) { mNextCheck.atTheLatest(at); }
  void userWasActive(ReferenceTime now) { mStartOfIdleTime.set(now); }
  void updateMenu() { mMenuMustBeUpdatedTicks = 1; }
};

}  // namespace corvana
