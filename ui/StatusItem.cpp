#include "ui/StatusItem.h"

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerState.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr int kIconNever = 3;
/// More than 59: the pie of the count-down is full, the plain picture is shown.
constexpr int kFullCountDown = 100;

}  // namespace

StatusItem::StatusItem(Clock& clock, UserInterface& userInterface, SchedulerState& state,
                       Preferences& preferences, const ZAN_StringTable& texts)
    : mClock(clock),
      mUserInterface(userInterface),
      mState(state),
      mPreferences(preferences),
      mTexts(texts),
      mCanHideMenubarIcon(state.deadlines, clock.now() + 60.0) {}

void StatusItem::createStatusItem() {
  if (exists()) return;
  if (mPreferences.mShowIconMenuMode == kIconNever && !mState.mMainAppLaunched &&
      mState.mErrorInExecution == 0)
    return;
  mUserInterface.createStatusItem();
  forgetCurrentIcon();
  setMenuBarIcon(StatusIcon::disabled);
  setStatusTitle(std::nullopt);
  mState.updateMenu();
}

void StatusItem::removeStatusItem() {
  if (exists()) mUserInterface.removeStatusItem();
}

void StatusItem::errorsWereSeen() {
  if (mPreferences.mShowIconMenuMode == kIconNever && !mState.mMainAppLaunched) removeStatusItem();
}

void StatusItem::applyMode(bool isNeeded) {
  if (mState.mErrorInExecution != 0 || mPreferences.mShowIconMenuMode == kIconNever) return;
  if (mPreferences.mShowIconMenuMode == 0 || isNeeded) {
    createStatusItem();
  } else if (mCanHideMenubarIcon.isPassed(mClock.now())) {
    removeStatusItem();
  }
}

void StatusItem::update(std::int64_t n, std::optional<int> secondsToNext) {
  if (!exists() || (mState.mMenuMustBeUpdatedTicks != 1 && !secondsToNext)) {
    if (mState.mMenuMustBeUpdatedTicks > 0) --mState.mMenuMustBeUpdatedTicks;
    return;
  }
  const bool odd = n % 2 != 0;
  const bool surveyResult = hasSurveyResult && hasSurveyResult();
  // What alternates has to be drawn again at the next tick.
  bool alternates = mState.mErrorInExecution != 0;
  if (alternates && odd) {
    setMenuBarIcon(StatusIcon::error);
  } else if (mState.mScheduleDisabled) {
    setMenuBarIcon(StatusIcon::disabled);
  } else if (mState.mPause || surveyResult) {
    alternates = true;
    if (odd) {
      setMenuBarTimerIcon(kFullCountDown);
    } else {
      setMenuBarIcon(mState.mPause ? StatusIcon::pause : StatusIcon::surveyResult);
    }
  } else if (isExecuting && isExecuting()) {
    setMenuBarIcon(StatusIcon::running);
  } else {
    setMenuBarTimerIcon(secondsToNext && !odd ? *secondsToNext : kFullCountDown);
  }
  mState.mMenuMustBeUpdatedTicks = alternates ? 1 : 0;
}

void StatusItem::setMenuBarIcon(StatusIcon icon) {
  if (mState.mStartedFromNewMachine) icon = StatusIcon::diskChanged;
  if (mCurrent == icon) return;
  mUserInterface.setStatusIcon(icon, mState.mContext);
  mCurrent = icon;
}

void StatusItem::setMenuBarTimerIcon(int minutes) {
  if (mState.mStartedFromNewMachine) {
    setMenuBarIcon(StatusIcon::diskChanged);
  } else if (minutes > 59) {
    setMenuBarIcon(mState.mScheduleDisabledWhenDone ? StatusIcon::willDisable : StatusIcon::normal);
  } else {
    mUserInterface.setStatusCountDown(minutes, mState.mContext);
    mCurrent.reset();
  }
}

MenuColour StatusItem::titleColour() const {
  if (mState.mStartedFromNewMachine) return MenuColour::alarm;
  if (mState.mPause) return MenuColour::warning;
  return mState.mScheduleDisabled ? MenuColour::secondary : MenuColour::information;
}

void StatusItem::setStatusTitle(std::optional<std::string> text) {
  if (text) mStatusTitle = std::move(*text);
  std::string shown = mStatusTitle.empty() ? mTexts.text("NoNextAction") : mStatusTitle;
  if (mState.mStartedFromNewMachine) {
    shown = mTexts.text("StartedOtherMachine");
  } else if (mState.mPause) {
    shown = mTexts.text("RunningPaused");
  } else if (mState.mScheduleDisabled) {
    shown = mTexts.text("DisabledInfo");
  }
  if (shown == mShownTitle) return;
  mShownTitle = shown;
  mUserInterface.setStatusTitle(shown);
}

}  // namespace corvana
