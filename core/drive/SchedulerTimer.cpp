#include "core/drive/SchedulerTimer.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "core/drive/Controls.h"
#include "core/drive/SchedulerTick.h"
#include "core/record/Records.h"

namespace corvana {

namespace {

/// A call longer than the system takes for a rest.
constexpr int kCallsOfRest = static_cast<int>(Input::kRest / SchedulerTimer::kInterval) + 1;

bool anyKeyDown(const KeyMap& keys) {
  return std::ranges::any_of(keys, [](std::uint8_t byte) { return byte != 0; });
}

}  // namespace

SchedulerTimer::SchedulerTimer(Records& records, SchedulerTick& tick, Controls& controls)
    : m(records), mTick(tick), mControls(controls) {
  m.changes.listen([this](ChangeSet changes) {
    if (changes.has(Change::preferences)) readPreferences();
    arm();
  });
}

SchedulerTimer::~SchedulerTimer() { stop(); }

void SchedulerTimer::start() {
  if (mStart) return;
  readPreferences();
  mStart = m.platform.clock.monotonic();
  mSeesPointer = m.platform.input.pointer().has_value();
  m.platform.clock.observe([this] { mTick.clockWasSet(); });
  mInputTells = m.platform.input.observe([this] {
    m.state.mUserRests = false;
    mStillCalls = 0;
    m.changes.touch();
  });
  arm();
}

void SchedulerTimer::stop() {
  if (!mStart) return;
  m.platform.clock.observe({});
  m.platform.input.observe({});
  m.platform.runLoop.cancel(std::exchange(mTimer, 0));
  mArmedFor.reset();
  mStart.reset();
}

void SchedulerTimer::setSleeps(bool sleeps) {
  mSleeps = sleeps;
  arm();
}

void SchedulerTimer::readPreferences() {
  mDefinedMacKeyMap = m.preferences.keysForShortcut();
  mShortcutOperation = m.preferences.mShortcutOperation;
}

/// For the call that has to come next, which may have become another one.
void SchedulerTimer::arm() {
  if (!mStart) return;
  const auto next = nextCall();
  if (next == mArmedFor) return;
  m.platform.runLoop.cancel(std::exchange(mTimer, 0));
  mArmedFor = next;
  if (!next) return;
  const double at = *mStart + static_cast<double>(*next) * kInterval;
  mTimer = m.platform.runLoop.performAfter(std::max(at - m.platform.clock.monotonic(), 0.0),
                                           [this] { timerFired(); });
}

std::int64_t SchedulerTimer::callsSinceStart() const {
  // Time has whole nanoseconds, which a sum of quarters may miss.
  return static_cast<std::int64_t>((m.platform.clock.monotonic() - *mStart) / kInterval + 1e-6);
}

std::optional<std::int64_t> SchedulerTimer::nextCall() const {
  if (!mSleeps || watchesInput()) return std::max(mCounter, callsSinceStart()) + 1;
  // A tick that is to come at this very instant has not come yet.
  const double passed = (m.platform.clock.monotonic() - *mStart) / kInterval;
  const std::int64_t next =
      std::max(mCounter + 1, static_cast<std::int64_t>(std::ceil(passed - 1e-6)));
  // The tick is performed at odd calls.
  const std::int64_t tick = next / 2;
  const double until =
      *mStart + static_cast<double>(2 * tick + 1) * kInterval - m.platform.clock.monotonic();
  const auto wanted = mTick.nextTick(tick, until);
  return wanted ? std::optional(2 * *wanted + 1) : std::nullopt;
}

/// While the user does something, and that may be for us.
bool SchedulerTimer::watchesInput() const {
  if (m.state.mUserRests) return false;
  if (anyKeyDown(mDefinedMacKeyMap)) return true;
  const UserInterface& ui = m.platform.userInterface;
  return mSeesPointer && (ui.hasStatusItem() || ui.isWindowVisible(Window::floatingIcon));
}

void SchedulerTimer::timerFired() {
  const SurveyExecution::Bracket bracket(m.survey, "timerMethod");
  const double wanted = mArmedFor ? *mStart + static_cast<double>(*mArmedFor) * kInterval
                                  : m.platform.clock.monotonic();
  mTimer = 0;
  mArmedFor.reset();
  ++mCalls;
  Input& input = m.platform.input;
  KeyMap keys = input.keyMap();
  checkMenuBarClick();
  input.clearCapsLock(keys);
  if (anyKeyDown(keys)) m.state.userWasActive(m.platform.clock.now());
  noticeRest(keys);
  checkShortcut(keys);
  mCounter = std::max(mCounter + 1, callsSinceStart());
  if (mCounter % 2 != 0) mTick.schedulerTick(mCounter / 2, wanted);
  arm();
}

/// Where the system tells of the first use after a rest nobody has to look meanwhile.
void SchedulerTimer::noticeRest(const KeyMap& keys) {
  if (!mInputTells) return;
  Input& input = m.platform.input;
  const auto pointer = input.pointer();
  const bool still = !anyKeyDown(keys) && !input.mouseButtonDown() &&
                     pointer == std::exchange(mLastPointer, pointer);
  mStillCalls = still ? mStillCalls + 1 : 0;
  m.state.mUserRests = mStillCalls > kCallsOfRest;
}

/// Option and a mouse button in the middle of the menu bar bring up the floating icon's menu.
void SchedulerTimer::checkMenuBarClick() {
  Input& input = m.platform.input;
  if (!input.optionKeyDown() || !input.mouseButtonDown()) return;
  const auto pointer = input.pointer();
  if (!pointer) return;
  const Rect screen = input.mainScreen();
  if (pointer->y <= menuBarBottom(screen, input.visibleFrame())) return;
  const double across = pointer->x - screen.x;
  if (across > 0.3 * screen.width && across < 0.66 * screen.width)
    m.platform.userInterface.popUpFloatingMenu();
}

/// The operation: 0 searches the actions, 1 shows the windows, 2 does both.
void SchedulerTimer::checkShortcut(const KeyMap& keys) {
  if (keys != mDefinedMacKeyMap) {
    mShortcutDone = false;
  } else if (anyKeyDown(mDefinedMacKeyMap) && !std::exchange(mShortcutDone, true)) {
    if (mShortcutOperation == 0 || mShortcutOperation == 2)
      mControls.showWindow(Window::nextActions);
    if (mShortcutOperation == 1 || mShortcutOperation == 2) mControls.showAllVisibleWindows();
  }
}

}  // namespace corvana
