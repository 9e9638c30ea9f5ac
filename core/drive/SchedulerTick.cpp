#include "core/drive/SchedulerTick.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <utility>

#include "core/drive/Controls.h"
#include "core/drive/LaunchStep.h"
#include "core/machine/MachineDuties.h"

namespace corvana {

namespace {

constexpr double kStalled = 15.0;
constexpr int kTicksAfterStall = 20;
constexpr int kTicksAfterSleep = 50;
/// So far back the clock may go between two ticks before it counts as set back.
constexpr double kClockSetBack = 2.0;
constexpr double kCheckInterval = 600.0;
constexpr double kMinute = 60.0;
constexpr double kFirstRelaunch = 10800.0;
constexpr double kRelaunchInterval = 3700.0;
constexpr double kKeepAwayFromAction = 300.0;
constexpr int kFarAway = 100;
constexpr int kLookAhead = 15;
constexpr int kCountDownFrom = 59;
constexpr int kFirstSettingsTick = 121;
constexpr double kIconAfterMainApp = 3.0;
/// A desktop that got another screen moves its panels for a moment.
constexpr double kRearrangeAfter = 1.0;

ReferenceTime onceIf(bool due) { return due ? kAtOnce : kNever; }

}  // namespace

SchedulerTick::SchedulerTick(Records& records, Work& work, MachineDuties& machine,
                             LaunchStep& launchStep, const Controls& controls)
    : m(records),
      mWork(work),
      mMachine(machine),
      mLaunchStep(launchStep),
      mControls(controls),
      mRows(ownRows()),
      mLastTimerExecution(m.platform.clock.now()),
      mLastMonotonic(m.platform.clock.monotonic()),
      mSchedulerLaunchTime(m.state.deadlines, m.platform.clock.now() + kFirstRelaunch),
      mNextActivity(m.state.deadlines) {
  m.platform.processes.observe(m.siblingWatch.bundlePaths(), [this] {
    mSiblingsMoved = true;
    m.changes.touch();
  });
}

SchedulerTick::~SchedulerTick() { m.platform.processes.observe({}, {}); }

// In this order. Everything below the first row waits while the machine wakes up.
std::vector<TickRow> SchedulerTick::ownRows() {
  const Messages& messages = m.messages;
  MachineDuties& machine = mMachine;
  const auto shown = [this](Window window) {
    return onceIf(m.platform.userInterface.isWindowVisible(window));
  };
  return {
      {"activity", 60, [this] { return mNextActivity.at(); }, [this](auto) { saveActivity(); }},
      {"user", 1, [this] { return userIsWatchedFrom(); }, [this](auto) { followUser(); }, true},
      {"message", 1, [&] { return messages.endOfMessage(); },
       [this](auto) { m.messages.closeMessageWindow(); }},
      {"triggers", 1, [this] { return m.state.mNextCheck.at(); },
       [this](auto) {
         m.state.checkAt(mNow + kCheckInterval);
         mWork.evaluation.checkActionsToLaunch();
       }},
      {"age alarm", 1, [this] { return mWork.ageAlarm.nextLook(); },
       [this](auto) { mWork.ageAlarm.look(mWork.evaluation.calendar()); }},
      {"volumes", 1, [&] { return machine.volumeWatch.nextSaving(); },
       [&](auto) { machine.volumeWatch.saveVolumesInfos(); }},
      {"start-up disk", 20, [&] { return onceIf(machine.startupDisk.logs()); },
       [&](auto) { machine.startupDisk.logStartupDiskInformation(false); }},
      {"wake-up", 20, [&] { return machine.wakeUp.nextWork(); },
       [&](auto) { machine.wakeUp.doSetWakeup(); }},
      {"survey", 20, [shown] { return shown(Window::executionSurvey); },
       [this](auto) { mWork.supervisor.doSurvey5Seconds(); }},
      {"settings", 600, [&] { return onceIf(!machine.settingsBackup.isRunning()); },
       [&](std::int64_t n) {
         if (n >= kFirstSettingsTick) machine.settingsBackup.backupSettings();
       }},
      {"free space", 1, [&] { return machine.freeSpace.nextCheck(); },
       [&](auto) { machine.freeSpace.checkStartupDiskFreeSpace(); }},
      {"pruning", 1, [&] { return machine.freeSpace.nextCleaning(); },
       [&](auto) { machine.freeSpace.cleanVolumesInfos(); }},
      {"main application", 10, [this] { return onceIf(mSiblingsMoved); },
       [this](auto) { watchMainApp(); }},
      {"stray folders", 10, [shown] { return shown(Window::volumesFolderError); },
       [&](auto) { machine.folderSurvey.checkIfVolumesFolderClean(); }},
      {"folder survey", 1, [&] { return machine.folderSurvey.nextSurvey(); },
       [&](auto) { machine.folderSurvey.surveyVolumesFolder(); }},
      {"next message", 1, [&] { return onceIf(messages.hasPending() && !messages.isShown()); },
       [this](auto) {
         m.debugLog.logMessage("Scheduler display next pending message", false);
         m.messages.showNextPendingMessage();
       }},
      {"execution", 1, [this] { return mWork.supervisor.nextSupervision(); },
       [this](auto) { mWork.supervisor.supervise(); }},
      {"interruptions", 1, [this] { return mWork.interruptions.nextLook(); },
       [this](auto) { mWork.interruptions.settle(); }},
      {"launch", 1, [this] { return mLaunchStep.nextWork(); }, [this](auto) { mLaunchStep.run(); },
       true},
      {"unmount", 1,
       [this] {
         return onceIf(mMachine.mounter.hasVolumesToUnmount() && mWork.queue.empty() &&
                       !mWork.supervisor.isExecuting());
       },
       [&](auto) { machine.mounter.unmountVolumesMountedByScheduler(); }},
      {"look-ahead", 1, [this] { return nextLookAhead(); }, [this](auto) { lookAhead(); }, true},
      {"rest", 1, [this] { return nextRest(); }, [this](auto) { restWhenIdle(); }, true},
      {"mount list", 1, [&] { return onceIf(machine.mounter.isListReady()); },
       [&](auto) { machine.mounter.takeUpdatedList(); }},
  };
}

void SchedulerTick::insertAfter(std::string_view name, TickRow row) {
  const auto place = std::ranges::find(mRows, name, &TickRow::name);
  mRows.insert(place == mRows.end() ? place : place + 1, std::move(row));
}

void SchedulerTick::schedulerTick(std::int64_t n, double wanted) {
  try {
    mNow = m.platform.clock.now();
    noticeClock(wanted);
    bool gateIsOpen = true;
    for (const TickRow& row : mRows) {
      if (&row == &mRows[1]) gateIsOpen = !sleepGate();
      if (!gateIsOpen) return;
      if (n % row.every == 0 && (row.always || row.due() <= mNow)) row.duty(n);
    }
  } catch (const std::exception& exception) {
    m.platform.systemLog.write(
        ZAN_StringUtils::format("Exception updating Corvana 9 Scheduler Timer: %@: %@",
                                {ExceptionGuard::nameOf(exception), exception.what()}));
  }
}

std::optional<std::int64_t> SchedulerTick::nextTick(std::int64_t n, double until) const {
  if (mWakeAfterSleepCounter > 0 || mClockWasSet) return n;
  const ReferenceTime first = m.platform.clock.now() + until;
  std::optional<std::int64_t> next;
  for (const TickRow& row : mRows) {
    const ReferenceTime due = row.due();
    if (due == kNever) continue;
    // A hair early rather than a tick late.
    const double after = due <= first ? 0 : std::ceil((due - first) / kInterval - 1e-6);
    // Beyond the range of ticks that anybody lives to see.
    if (after > 1e12) continue;
    const std::int64_t earliest = n + static_cast<std::int64_t>(after);
    const std::int64_t turn = (earliest + row.every - 1) / row.every * row.every;
    if (!next || turn < *next) next = turn;
  }
  return next;
}

void SchedulerTick::machineWillSleep() {
  mWakeAfterSleepCounter = kTicksAfterSleep;
  m.state.mWakingUp = true;
  m.changes.touch();
}

void SchedulerTick::clockWasSet() {
  mClockWasSet = true;
  m.changes.touch();
}

/// A timer that stalled, a clock that was set back.
void SchedulerTick::noticeClock(double wanted) {
  mClockWasSet = false;
  const double monotonic = m.platform.clock.monotonic();
  const double jump = (mNow - mLastTimerExecution) - (monotonic - mLastMonotonic);
  // As if a tick had come before this one: a machine that slept has also stalled, and the longer of
  // the two waits counts.
  const double sinceLast = kInterval + (monotonic - wanted) + jump;
  if (sinceLast > kStalled)
    mWakeAfterSleepCounter = std::max(mWakeAfterSleepCounter, kTicksAfterStall);
  if (sinceLast < -kClockSetBack) {
    m.state.deadlines.moveDeadlines(jump, mNow);
    m.state.checkAt(mNow);
  }
  mLastTimerExecution = mNow;
  mLastMonotonic = monotonic;
}

/// Whether the machine is still waking up.
bool SchedulerTick::sleepGate() {
  m.state.mWakingUp = mWakeAfterSleepCounter > 0;
  if (!m.state.mWakingUp) return false;
  --mWakeAfterSleepCounter;
  m.state.userWasActive(mNow);
  return true;
}

void SchedulerTick::saveActivity() {
  // A minute is noted once; of what runs, each start is noted when it happens.
  mNextActivity.set((std::floor(mNow / kMinute) + 1) * kMinute);
  const auto running = m.platform.processes.running();
  m.store.activity().saveActivity(std::nullopt, m.siblingWatch.isMainAppAmong(running),
                                  m.siblingWatch.isExecuteAppAmong(running), std::nullopt, running);
}

/// Only while an action waits for an idle user and the system cannot say since when.
ReferenceTime SchedulerTick::userIsWatchedFrom() const {
  if (!mWork.evaluation.idleTimeScheduling()) return kNever;
  Input& input = m.platform.input;
  return onceIf(input.pointer().has_value() && !input.idleSeconds());
}

void SchedulerTick::followUser() {
  mWork.evaluation.followIdleTime();
  Input& input = m.platform.input;
  const auto pointer = input.pointer();
  if (!pointer) return;
  if (*pointer != mLastMouseLocation) {
    m.state.userWasActive(mNow);
    mLastMouseLocation = *pointer;
  }
  const Rect screen = input.mainScreen();
  if (screen == mLastScreen) return;
  mLastScreen = screen;
  UserInterface& ui = m.platform.userInterface;
  if (ui.isWindowVisible(Window::floatingIcon)) {
    // A new one finds its place on the new screen.
    ui.hideWindow(Window::floatingIcon);
    ui.showWindow(Window::floatingIcon);
  }
  m.platform.runLoop.performAfter(kRearrangeAfter, [&ui] { ui.rearrangeMessageWindows(); });
}

void SchedulerTick::watchMainApp() {
  mSiblingsMoved = false;
  const bool runs = m.siblingWatch.isMainAppLaunched();
  m.state.mMainAppLaunched = runs;
  // An evaluation may have seen it before: who has been told counts.
  if (runs == std::exchange(mMainAppWasThere, runs)) return;
  if (runs) {
    m.executionStatusChanged();
  } else {
    m.state.mCanHideMenubarIcon.set(mNow + kIconAfterMainApp);
  }
}

int SchedulerTick::secondsToNextAction() const {
  // The list is of the time before, and no evaluation makes a new one.
  if (!m.state.takesDueActions()) return kFarAway;
  const double seconds = mWork.evaluation.startOfNextAction() - m.platform.clock.now();
  // Whole seconds first: what was due less than a second ago is due now.
  const auto whole = static_cast<int>(std::clamp(seconds, -1e9, 1e9));
  return whole < 0 ? kFarAway : whole;
}

ReferenceTime SchedulerTick::nextLookAhead() const {
  if (queueWindowIsLeftOver()) return kAtOnce;
  if (!m.state.takesDueActions()) return kNever;
  const ReferenceTime now = m.platform.clock.now();
  const ReferenceTime start = mWork.evaluation.startOfNextAction();
  // It is over when it was due a second ago.
  if (now >= start + 1) return onceIf(mCountDown.has_value());
  const bool isSeen = m.platform.userInterface.hasStatusItem();
  const ReferenceTime counts = start - (isSeen ? kCountDownFrom + 1 : kLookAhead);
  const bool waits = isSeen || !mWork.evaluation.listNextWasUpdated();
  return waits ? counts : start + 1;
}

void SchedulerTick::lookAhead() {
  mCountDown.reset();
  const int seconds = secondsToNextAction();
  if (seconds < kLookAhead && !mWork.evaluation.listNextWasUpdated()) {
    mWork.evaluation.setListNextWasUpdated(true);
    mWork.evaluation.enqueueActionsDueWithinAMinute();
  } else if (seconds > kCountDownFrom && m.state.mPauseBeforeNextStep.isPassed(mNow)) {
    if (queueWindowIsLeftOver()) m.platform.userInterface.hideWindow(Window::queue);
  } else {
    const ReferenceTime over = seconds > kCountDownFrom ? m.state.mPauseBeforeNextStep.at()
                                                        : mWork.evaluation.startOfNextAction() + 1;
    mSchedulerLaunchTime.notBefore(std::max(mNow, over) + kKeepAwayFromAction);
    mCountDown = seconds;
  }
}

/// The window of the queue came by itself, and there is no queue any more.
bool SchedulerTick::queueWindowIsLeftOver() const {
  return mWork.queue.empty() && m.platform.userInterface.isWindowVisible(Window::queue) &&
         !mControls.queueWindowOpenedByUser();
}

bool SchedulerTick::rests() const {
  return !m.messages.hasPending() && mWork.queue.empty() && !mMachine.settingsBackup.isRunning() &&
         !mMachine.mounter.hasVolumesToUnmount() && !mMachine.mounter.isUnmounting() &&
         !mMachine.folderSurvey.isRemoving();
}

/// What a fresh run would not know of: a pause, and what the user looks at.
bool SchedulerTick::userIsBusyHere() const {
  constexpr Window kOpenedByUser[] = {
      Window::queue,        Window::nextActions, Window::latestActions,  Window::status,
      Window::mountVolumes, Window::allDisks,    Window::lowSpace,       Window::startupDisk,
      Window::errorSummary, Window::preferences, Window::executionSurvey};
  const UserInterface& ui = m.platform.userInterface;
  return m.state.mPause || std::ranges::any_of(kOpenedByUser, [&](Window window) {
           return ui.isWindowVisible(window);
         });
}

ReferenceTime SchedulerTick::nextRest() const {
  if (!rests()) return kNever;
  if (m.state.mMustTerminateWhenAllDone) return kAtOnce;
  return userIsBusyHere() ? kNever : mSchedulerLaunchTime.passing();
}

void SchedulerTick::restWhenIdle() {
  if (!rests()) return;
  if (m.state.mMustTerminateWhenAllDone) {
    onAllDone();
  } else if (mSchedulerLaunchTime.isPassed(mNow) && !userIsBusyHere()) {
    mSchedulerLaunchTime.set(mNow + kRelaunchInterval);
    if (onRelaunchWanted) onRelaunchWanted();
  }
}

}  // namespace corvana
