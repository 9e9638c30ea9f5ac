#include "core/drive/SchedulerTimer.h"

#include <algorithm>

#include "core/record/SurveyExecution.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

bool anyKeyDown(const KeyMap& keys) {
  return std::ranges::any_of(keys, [](std::uint8_t byte) { return byte != 0; });
}

}  // namespace

SchedulerTimer::SchedulerTimer(RunLoop& runLoop, Clock& clock, Input& input,
                               SurveyExecution& survey, Hooks hooks)
    : mRunLoop(runLoop), mClock(clock), mInput(input), mSurvey(survey), mHooks(std::move(hooks)) {}

SchedulerTimer::~SchedulerTimer() { stop(); }

void SchedulerTimer::start() {
  if (mTimer == 0) mTimer = mRunLoop.repeat(kInterval, [this] { timerFired(); });
}

void SchedulerTimer::stop() {
  mRunLoop.cancel(mTimer);
  mTimer = 0;
}

void SchedulerTimer::setShortcut(const KeyMap& keys, int operation) {
  mDefinedMacKeyMap = keys;
  mShortcutOperation = operation;
}

void SchedulerTimer::timerFired() {
  mSurvey.startExecutionForKey("timerMethod");
  const double start = mClock.monotonic();
  KeyMap keys = mInput.keyMap();
  checkMenuBarClick();
  mInput.clearCapsLock(keys);
  if (anyKeyDown(keys)) mHooks.userActivity();
  checkShortcut(keys);
  if (mMustReorganizeWindows > 0 && --mMustReorganizeWindows == 0) mHooks.rearrangeWindows();
  ++mCounter;
  if (mCounter % 2 != 0) mHooks.tick(mCounter / 2);
  mTimeSpent += mClock.monotonic() - start;
  mSurvey.endExecutionForKey("timerMethod");
}

/// Option and a mouse button in the middle of the menu bar bring up the floating icon's menu.
void SchedulerTimer::checkMenuBarClick() {
  if (!mInput.optionKeyDown() || !mInput.mouseButtonDown()) return;
  const auto pointer = mInput.pointer();
  if (!pointer) return;
  const Rect screen = mInput.mainScreen();
  if (pointer->y <= menuBarBottom(screen, mInput.visibleFrame())) return;
  const double across = pointer->x - screen.x;
  if (across > 0.3 * screen.width && across < 0.66 * screen.width) mHooks.popUpFloatingMenu();
}

void SchedulerTimer::checkShortcut(const KeyMap& keys) {
  if (keys != mDefinedMacKeyMap) {
    mShortcutDone = false;
  } else if (anyKeyDown(mDefinedMacKeyMap) && !mShortcutDone) {
    mHooks.shortcut(mShortcutOperation);
    mShortcutDone = true;
  }
}

}  // namespace corvana
