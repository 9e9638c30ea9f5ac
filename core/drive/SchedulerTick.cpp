#include "core/drive/SchedulerTick.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <string>
#include <utility>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionStore.h"
#include "core/drive/LaunchStep.h"
#include "core/drive/SiblingStatus.h"
#include "core/machine/FreeSpaceSurvey.h"
#include "core/machine/SettingsBackup.h"
#include "core/machine/StartupDisk.h"
#include "core/machine/VolumeMounter.h"
#include "core/machine/VolumeWatch.h"
#include "core/machine/VolumesFolderSurvey.h"
#include "core/machine/WakeUp.h"
#include "core/record/DebugLog.h"
#include "core/record/ExceptionGuard.h"
#include "core/record/Messages.h"
#include "core/record/SchedulerState.h"
#include "core/record/SiblingWatch.h"
#include "core/work/ActionQueue.h"
#include "core/work/ExecuteSupervisor.h"
#include "core/work/TriggerEvaluation.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
#include "platform/Processes.h"
#include "platform/UserInterface.h"
#include "ui/FloatingIcon.h"
#include "ui/StatusItem.h"

namespace corvana {

namespace {

constexpr double kStalled = 15.0;
constexpr int kTicksAfterStall = 20;
/// So far back the clock may go between two ticks before it counts as set back.
constexpr double kClockSetBack = 2.0;
constexpr double kCheckInterval = 600.0;
constexpr int kActivityTicks = 60;
constexpr double kFirstRelaunch = 10800.0;
constexpr double kRelaunchInterval = 3700.0;
constexpr double kKeepAwayFromAction = 300.0;
constexpr int kFarAway = 100;
constexpr int kLookAhead = 15;
constexpr int kCountDownFrom = 59;
constexpr int kSettingsTicks = 600;
constexpr int kFirstSettingsTick = 121;

}  // namespace

// In this order. Everything below the first row waits while the machine wakes up.
const SchedulerTick::Row SchedulerTick::kRows[] = {
    {kActivityTicks, nullptr, &SchedulerTick::saveActivity},
    {1, nullptr, &SchedulerTick::followUser},
    {1, &SchedulerTick::messageIsOver, &SchedulerTick::closeMessage},
    {1, &SchedulerTick::checkIsDue, &SchedulerTick::checkTriggers},
    {1, &SchedulerTick::noticeWaits, &SchedulerTick::postNotice},
    {1, &SchedulerTick::savingIsDue, &SchedulerTick::saveVolumes},
    {20, &SchedulerTick::startupDiskIsLogged, &SchedulerTick::logStartupDisk},
    {20, &SchedulerTick::wakeUpIsOn, &SchedulerTick::setWakeup},
    {20, &SchedulerTick::surveyIsVisible, &SchedulerTick::refreshSurvey},
    {kSettingsTicks, &SchedulerTick::settingsMayBeCopied, &SchedulerTick::copySettings},
    {1, &SchedulerTick::freeSpaceIsDue, &SchedulerTick::checkFreeSpace},
    {1, &SchedulerTick::cleaningIsDue, &SchedulerTick::cleanVolumes},
    {10, nullptr, &SchedulerTick::watchMainApp},
    {10, &SchedulerTick::strayFoldersAreShown, &SchedulerTick::checkVolumesFolder},
    {1, &SchedulerTick::folderSurveyIsDue, &SchedulerTick::surveyVolumesFolder},
    {1, &SchedulerTick::messageCanFollow, &SchedulerTick::showNextMessage},
    {1, nullptr, &SchedulerTick::launch},
    {1, &SchedulerTick::mountedForActionsIsOver, &SchedulerTick::unmountVolumes},
    {1, nullptr, &SchedulerTick::lookAhead},
    {1, nullptr, &SchedulerTick::drawStatusIcon},
    {1, nullptr, &SchedulerTick::restWhenIdle},
    {1, &SchedulerTick::mountListIsReady, &SchedulerTick::buildMountList},
};

SchedulerTick::SchedulerTick(const Surroundings& surroundings)
    : m(surroundings),
      mLastTimerExecution(m.platform.clock.now()),
      mSchedulerLaunchTime(m.state.deadlines, m.platform.clock.now() + kFirstRelaunch) {}

void SchedulerTick::schedulerTick(std::int64_t n) {
  mLastTick = n;
  try {
    mNow = m.platform.clock.now();
    noticeClock();
    bool gateIsOpen = true;
    for (const Row& row : kRows) {
      if (&row == &kRows[1]) gateIsOpen = !sleepGate();
      if (!gateIsOpen) return;
      if (n % row.every == 0 && (row.due == nullptr || (this->*row.due)())) (this->*row.duty)(n);
    }
  } catch (const std::exception& exception) {
    m.platform.systemLog.write(
        ZAN_StringUtils::format("Exception updating Corvana 9 Scheduler Timer: %@: %@",
                                {ExceptionGuard::nameOf(exception), exception.what()}));
  }
}

/// A timer that stalled, a clock that was set back.
void SchedulerTick::noticeClock() {
  const double sinceLast = mNow - mLastTimerExecution;
  // A machine that slept has also stalled: the longer of the two waits counts.
  if (sinceLast > kStalled) {
    mWakeAfterSleepCounter = std::max(mWakeAfterSleepCounter, kTicksAfterStall);
  }
  if (sinceLast < -kClockSetBack) {
    const double jump = sinceLast - kInterval;
    m.state.deadlines.moveDeadlines(jump, mNow);
    m.state.checkAt(mNow);
  }
  mLastTimerExecution = mNow;
}

/// Whether the machine is still waking up.
bool SchedulerTick::sleepGate() {
  if (mWakeAfterSleepCounter < 1) return false;
  --mWakeAfterSleepCounter;
  m.state.userWasActive(mNow);
  return true;
}

bool SchedulerTick::messageIsOver() const { return m.messages.isOver(mNow); }
bool SchedulerTick::checkIsDue() const { return m.state.mNextCheck.isReached(mNow); }
bool SchedulerTick::noticeWaits() const { return m.evaluation.hasNotExecutedNotices(); }
bool SchedulerTick::savingIsDue() const { return m.volumes.isSavingDue(mNow); }
bool SchedulerTick::startupDiskIsLogged() const { return m.startupDisk.logs(); }
bool SchedulerTick::wakeUpIsOn() const { return m.wakeUp.isOn(); }
bool SchedulerTick::freeSpaceIsDue() const { return m.freeSpace.isCheckDue(mNow); }
bool SchedulerTick::cleaningIsDue() const { return m.freeSpace.isCleaningDue(mNow); }
bool SchedulerTick::strayFoldersAreShown() const { return m.folderSurvey.isErrorShown(); }
bool SchedulerTick::folderSurveyIsDue() const { return m.folderSurvey.isSurveyDue(mNow); }
bool SchedulerTick::surveyIsVisible() const {
  return m.platform.userInterface.isWindowVisible(Window::executionSurvey);
}
bool SchedulerTick::settingsMayBeCopied() const { return !m.settingsBackup.isRunning(); }
bool SchedulerTick::messageCanFollow() const {
  return m.messages.hasPending() && !m.messages.isShown();
}

/// The queue has become empty, and volumes were mounted for it.
bool SchedulerTick::mountedForActionsIsOver() const {
  return m.mounter.hasVolumesToUnmount() && m.queue.empty() && !m.supervisor.isExecuting();
}
bool SchedulerTick::mountListIsReady() const { return m.mounter.isListReady(); }

void SchedulerTick::saveActivity(std::int64_t) {
  const auto running = m.platform.processes.running();
  m.store.activity().saveActivity(std::nullopt, m.siblingWatch.isMainAppAmong(running),
                                  m.siblingWatch.isExecuteAppAmong(running), std::nullopt, running);
}

void SchedulerTick::followUser(std::int64_t) {
  Input& input = m.platform.input;
  const auto pointer = input.pointer();
  if (const auto idle = input.idleSeconds()) {
    const ReferenceTime lastUse = mNow - std::max(*idle, 0.0);
    if (lastUse > m.state.mStartOfIdleTime.at()) m.state.userWasActive(lastUse);
  } else if (!pointer) {
    // Nobody can be seen to be away.
    m.state.userWasActive(mNow);
  }
  if (!pointer) return;
  if (*pointer != mLastMouseLocation) {
    m.state.userWasActive(mNow);
    mLastMouseLocation = *pointer;
  }
  const Rect screen = input.mainScreen();
  if (screen != mLastScreen) {
    mLastScreen = screen;
    if (m.platform.userInterface.isWindowVisible(Window::floatingIcon)) {
      // A new one finds its place on the new screen.
      m.platform.userInterface.hideWindow(Window::floatingIcon);
      m.platform.userInterface.showWindow(Window::floatingIcon);
    }
    if (onScreenChanged) onScreenChanged();
  }
  m.floatingIcon.hover(*pointer, screen, input.visibleFrame());
}

void SchedulerTick::closeMessage(std::int64_t) { m.messages.closeMessageWindow(); }

void SchedulerTick::checkTriggers(std::int64_t) {
  m.state.checkAt(mNow + kCheckInterval);
  if (onToolTip) onToolTip();
  m.evaluation.checkActionsToLaunch();
}

void SchedulerTick::postNotice(std::int64_t) { m.evaluation.postNextNotExecutedNotice(); }

void SchedulerTick::saveVolumes(std::int64_t) {
  m.volumes.saveVolumesInfos(m.supervisor.isExecuting());
}

void SchedulerTick::logStartupDisk(std::int64_t) { m.startupDisk.logStartupDiskInformation(false); }

void SchedulerTick::setWakeup(std::int64_t) { m.wakeUp.doSetWakeup(); }

void SchedulerTick::refreshSurvey(std::int64_t) { m.supervisor.doSurvey5Seconds(); }

void SchedulerTick::copySettings(std::int64_t n) {
  if (n >= kFirstSettingsTick) m.settingsBackup.backupSettings();
}

void SchedulerTick::watchMainApp(std::int64_t) {
  const bool runs = m.siblingWatch.isMainAppLaunched();
  m.state.mMainAppLaunched = runs;
  // An evaluation may have seen it before: who has been told counts.
  if (runs == std::exchange(mMainAppWasThere, runs)) return;
  if (runs) {
    m.siblings.sendSchedulerStatusToMainApp();
  } else {
    m.statusItem.canHide().set(mNow + 3.0);
  }
}

void SchedulerTick::showNextMessage(std::int64_t) {
  m.debugLog.logMessage("Scheduler display next pending message", false);
  m.messages.showNextPendingMessage();
}

void SchedulerTick::checkFreeSpace(std::int64_t) { m.freeSpace.checkStartupDiskFreeSpace(); }
void SchedulerTick::cleanVolumes(std::int64_t) { m.freeSpace.cleanVolumesInfos(); }
void SchedulerTick::checkVolumesFolder(std::int64_t) { m.folderSurvey.checkIfVolumesFolderClean(); }
void SchedulerTick::surveyVolumesFolder(std::int64_t) { m.folderSurvey.surveyVolumesFolder(); }

void SchedulerTick::launch(std::int64_t) { m.launchStep.run(); }

int SchedulerTick::secondsToNextAction() const {
  // The list is of the time before, and no evaluation makes a new one.
  if (!m.state.takesDueActions()) return kFarAway;
  const double seconds = m.evaluation.startOfNextAction() - m.platform.clock.now();
  // Whole seconds first: what was due less than a second ago is due now.
  const auto whole = static_cast<int>(std::clamp(seconds, -1e9, 1e9));
  return whole < 0 ? kFarAway : whole;
}

void SchedulerTick::unmountVolumes(std::int64_t) { m.mounter.unmountVolumesMountedByScheduler(); }

void SchedulerTick::lookAhead(std::int64_t) {
  mCountDown.reset();
  const int seconds = secondsToNextAction();
  if (seconds < kLookAhead && !m.evaluation.listNextWasUpdated()) {
    m.evaluation.setListNextWasUpdated(true);
    m.evaluation.enqueueActionsDueWithinAMinute();
  } else if (seconds > kCountDownFrom && m.state.mPauseBeforeNextStep.isPassed(mNow)) {
    keepWindowsAndIcon();
  } else {
    mSchedulerLaunchTime.notBefore(mNow + kKeepAwayFromAction);
    mCountDown = seconds;
  }
}

void SchedulerTick::keepWindowsAndIcon() {
  UserInterface& ui = m.platform.userInterface;
  if (m.queue.empty() && ui.isWindowVisible(Window::queue) && !queueWindowOpenedByUser()) {
    ui.hideWindow(Window::queue);
  }
  const bool isNeeded = m.state.mMainAppLaunched || m.supervisor.isExecuting() ||
                        !m.queue.empty() || ui.isWindowVisible(Window::nextActions) ||
                        ui.isWindowVisible(Window::status);
  m.statusItem.applyMode(isNeeded);
}

void SchedulerTick::drawStatusIcon(std::int64_t n) { m.statusItem.update(n, mCountDown); }

bool SchedulerTick::rests() const {
  return !m.messages.hasPending() && m.queue.empty() && !m.settingsBackup.isRunning() &&
         !(isBusyElsewhere && isBusyElsewhere());
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

void SchedulerTick::restWhenIdle(std::int64_t) {
  if (!rests()) return;
  if (mustTerminateWhenAllDone && mustTerminateWhenAllDone()) {
    onAllDone();
  } else if (mSchedulerLaunchTime.isPassed(mNow) && !userIsBusyHere()) {
    mSchedulerLaunchTime.set(mNow + kRelaunchInterval);
    if (onRelaunchWanted) onRelaunchWanted();
  }
}

void SchedulerTick::buildMountList(std::int64_t) { m.mounter.takeUpdatedList(); }

/// Whether keyboard, pointer and screen are as the last tick found them, and nothing comes of that.
bool SchedulerTick::inputRests() const {
  Input& input = m.platform.input;
  if (input.keyMap() != KeyMap{}) return false;
  const auto pointer = input.pointer();
  if (!pointer) return true;
  const Rect screen = input.mainScreen();
  return *pointer == mLastMouseLocation && screen == mLastScreen &&
         m.floatingIcon.rests(*pointer, screen, input.visibleFrame());
}

int SchedulerTick::emptyTicks() const {
  if (mWakeAfterSleepCounter > 0 || m.state.mMenuMustBeUpdatedTicks != 0 ||
      !m.launchStep.isAtRest() || m.evaluation.hasNotExecutedNotices() || surveyIsVisible() ||
      (mustTerminateWhenAllDone && mustTerminateWhenAllDone()) || !inputRests() ||
      m.evaluation.idleTimeScheduling() || m.startupDisk.logs() || !m.wakeUp.rests() ||
      m.mounter.hasVolumesToUnmount() || m.mounter.isUpdatingMountedVolumes()) {
    return 0;
  }
  const ReferenceTime now = m.platform.clock.now();
  // A jump of the clock is for the next tick to notice.
  if (std::abs(now - mLastTimerExecution) > kClockSetBack) return 0;
  ReferenceTime next = std::min({m.state.mNextCheck.at(), m.volumes.nextSaving(),
                                 mSchedulerLaunchTime.at(), m.freeSpace.nextWork()});
  for (const ReferenceTime at : {m.state.mPauseBeforeNextStep.at(), m.statusItem.canHide().at()}) {
    if (at >= now) next = std::min(next, at);
  }
  const ReferenceTime start = m.evaluation.startOfNextAction();
  if (start > now - 1) next = std::min(next, start - (kCountDownFrom + 2));
  const auto ticksUntil = [now](ReferenceTime date) {
    const double ticks = std::floor((date - now) / kInterval) - 1;
    return ticks <= 0 ? 0 : static_cast<int>(std::min(ticks, 1e6));
  };
  // The last two look at files.
  if (ticksUntil(next) == 0) return 0;
  next = std::min(next, m.folderSurvey.nextWork());
  if (m.settingsBackup.hasDestinations()) {
    const std::int64_t due = (mLastTick / kSettingsTicks + 1) * kSettingsTicks;
    next = std::min(next, now + static_cast<double>(due - mLastTick) * kInterval);
  }
  return ticksUntil(next);
}

void SchedulerTick::skipTicks(std::int64_t last, int count, ReferenceTime at) {
  if (count == 0) return;
  mLastTick = last;
  mLastTimerExecution = at;
  m.folderSurvey.leaveOut(at, kInterval);
  // The record of activity is the one thing that such ticks would have written.
  const std::int64_t before = last - count;
  const std::int64_t first =
      before < 0 ? 0 : (before / kActivityTicks + 1) * std::int64_t{kActivityTicks};
  if (first > last) return;
  const auto running = m.platform.processes.running();
  m.store.activity().noteActivity({at - static_cast<double>(last - first) * kInterval, at,
                                   m.siblingWatch.isMainAppAmong(running),
                                   m.siblingWatch.isExecuteAppAmong(running)});
}

}  // namespace corvana
