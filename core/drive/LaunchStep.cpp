#include "core/drive/LaunchStep.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "actions/ActionContext.h"
#include "core/machine/MachineDuties.h"

namespace corvana {

namespace {

constexpr double kWelcomeSeconds = 10.0;
constexpr double kWelcomeSecondsWithContext = 20.0;
/// So long the announce is on screen before the launch, at least.
constexpr double kAnnounceSeconds = 1.0;
constexpr double kSaveVolumesAfterLaunch = 5.0;
/// From here on an idle user is worth a line.
constexpr double kIdleSecondsToTell = 120.0;
constexpr double kMinute = 60.0;

}  // namespace

void LaunchStep::run() {
  if (mWork.announce.isOutOfDate()) mWork.announce.closeAnnounceWindow();
  const ReferenceTime now = m.platform.clock.now();
  if (!m.state.mPauseBeforeNextStep.isPassed(now)) return;
  const bool requestsRemain = updateExecuteNowRequests();
  if (!mWelcomeMessageWasDisplayed) showWelcomeMessage();
  // Also where no welcome is given, or nothing would run and nobody would know why.
  if (m.state.mStartedFromNewMachine && !mStartupDiskWasAsked) {
    mStartupDiskWasAsked = true;
    mMachine.startupDisk.askSoon();
  }
  if (m.state.mScheduleDisabledWhenDone && isAllDone()) {
    m.state.mScheduleDisabledWhenDone = false;
    mWork.automatic.setActive(false);
  }
  if (m.state.mScheduleDisabled && !requestsRemain && !mWork.supervisor.isExecuting()) {
    setStatusInformation({});
    return;
  }
  if (m.state.mPause) {
    setStatusInformation(m.texts.text("ActionPaused"));
    return;
  }
  if (mWork.supervisor.isExecuting()) {
    setStatusInformation(m.texts.text("ExecutingAction", {mRunningTitle}));
  } else if (mMustShutDownAfterCurrentAction) {
    mMustShutDownAfterCurrentAction = false;
    onShutDownWanted();
  } else if (mWork.queue.empty()) {
    setStatusInformation({});
  } else if (!isMessageToBeRead()) {
    launchHead();
  }
}

/// Whether nothing is left to wait for before execution is disabled; a machine to be shut down is.
bool LaunchStep::isAllDone() const {
  if (mWork.supervisor.isExecuting() || mMustShutDownAfterCurrentAction) return false;
  return mWork.queue.empty() || m.state.mScheduleDisabled;
}

/// Whether records are still to be run although automatic execution is off.
bool LaunchStep::updateExecuteNowRequests() {
  if (mWork.queue.executeNowActionsList().empty()) return false;
  if (!m.state.mScheduleDisabled) {
    mWork.queue.clearExecuteNowActions();
    return false;
  }
  mWork.queue.dropFinishedExecuteNowActions();
  if (mWork.queue.executeNowActionsList().empty()) return false;
  setStatusInformation(m.texts.text("DisabledInfo"));
  return true;
}

void LaunchStep::showWelcomeMessage() {
  mWelcomeMessageWasDisplayed = true;
  if (m.preferences.mPrefShowWelcomeMessage != 0) {
    std::string text = ZAN_StringUtils::format(
        "%@ %@ / ", {m.texts.text("Executions"),
                     m.texts.text(m.state.mScheduleDisabled ? "Disabled" : "Enabled")});
    const int context = m.state.mContext;
    if (context != 0) {
      const std::string& name = contextName(static_cast<ActionContext>(context), m.texts);
      text = ZAN_StringUtils::format("%@%@ %@ / ", {text, m.texts.text("Context"), name});
    }
    const double seconds = context == 0 ? kWelcomeSeconds : kWelcomeSecondsWithContext;
    if (m.preferences.mPrefShowMessageInNotificationCenter != 0) {
      m.messages.sendUserNotification(m.texts.text("SchedulerLaunchedTitle") + "\n" + text);
    } else {
      m.messages.showMessage(m.texts.text("SchedulerLaunchedTitle"), text, seconds, true);
    }
    m.debugLog.logMessage("Scheduler show welcome message", false);
  }
}

std::string_view LaunchHold::nameOf(Cause cause) {
  switch (cause) {
    case Cause::none:
      return {};
    case Cause::switchedOff:
      return "switched off";
    case Cause::paused:
      return "paused";
    case Cause::strayFolders:
      return "stray folders";
    case Cause::unmounting:
      return "unmounting";
    case Cause::treeUnreadable:
      return "actions unreadable";
    case Cause::programMissing:
      return "program missing";
    case Cause::otherExecution:
      return "other execution";
    case Cause::message:
      return "message";
    case Cause::wakingUp:
      return "waking up";
    case Cause::afterStart:
      return "after start";
    case Cause::afterCrash:
      return "after crash";
    case Cause::date:
      return "date";
  }
  return {};
}

/// What needs somebody comes before what passes by itself.
LaunchHold LaunchStep::hold() const {
  using Cause = LaunchHold::Cause;
  if (mWork.queue.empty() || mWork.supervisor.isExecuting()) return {};
  const ReferenceTime now = m.platform.clock.now();
  const ReferenceTime heldBack = m.state.mPauseBeforeNextStep.at();
  const bool isHeldBack = !m.state.mPauseBeforeNextStep.isPassed(now);
  if (m.state.mScheduleDisabled && !mWork.queue.hasExecuteNowAction()) return {Cause::switchedOff};
  if (m.state.mPause)
    return {mMachine.folderSurvey.hasPaused() ? Cause::strayFolders : Cause::paused};
  if (mMachine.folderSurvey.isHolding()) return {Cause::strayFolders};
  if (mMachine.mounter.isUnmounting()) return {Cause::unmounting};
  if (mWork.supervisor.missesTree()) return {Cause::treeUnreadable};
  if (mWork.supervisor.missesProgram()) return {Cause::programMissing, heldBack};
  if (mWork.supervisor.waitsForOtherExecution()) return {Cause::otherExecution};
  if (isMessageToBeRead()) return {Cause::message, m.messages.holdsLaunchingUntil()};
  if (m.state.mWakingUp) return {Cause::wakingUp};
  const ReferenceTime date = mWork.queue.head().date;
  if (isHeldBack && heldBack >= date) {
    if (m.state.mHeldBackBy == SchedulerState::HeldBack::afterStart)
      return {Cause::afterStart, heldBack};
    if (m.state.mHeldBackBy == SchedulerState::HeldBack::afterCrash)
      return {Cause::afterCrash, heldBack};
  }
  if (now < date) return {Cause::date, date};
  return {};
}

std::string LaunchStep::holdText() const {
  const LaunchHold held = hold();
  const auto until = [&] { return m.strings.getShortTimeWithSeconds(held.until); };
  switch (held.cause) {
    case LaunchHold::Cause::none:
      return {};
    case LaunchHold::Cause::switchedOff:
      return m.texts.text("DisabledInfo");
    case LaunchHold::Cause::paused:
      return m.texts.text("ActionPaused");
    case LaunchHold::Cause::strayFolders:
      return m.texts.text("HoldStrayFolders");
    case LaunchHold::Cause::unmounting:
      return m.texts.text("HoldUnmounting");
    case LaunchHold::Cause::treeUnreadable:
      return m.texts.text("HoldTreeUnreadable");
    case LaunchHold::Cause::programMissing:
      return m.texts.text("HoldProgramMissing", {until()});
    case LaunchHold::Cause::otherExecution:
      return m.texts.text("OtherExecution");
    case LaunchHold::Cause::message:
      return m.texts.text("HoldMessage");
    case LaunchHold::Cause::wakingUp:
      return m.texts.text("HoldWakingUp");
    case LaunchHold::Cause::afterStart:
      return m.texts.text("HoldAfterStart", {until()});
    case LaunchHold::Cause::afterCrash:
      return m.texts.text("HoldAfterCrash", {until()});
    case LaunchHold::Cause::date:
      return m.texts.text("HoldDate", {until()});
  }
  return {};
}

std::string LaunchStep::statusInformation() const {
  if (std::string stuck = mWork.supervisor.stallText(); !stuck.empty()) return stuck;
  return mStatusInformation.empty() ? holdText() : mStatusInformation;
}

void LaunchStep::launchHead() {
  m.state.mProgress.value = 0;
  if (mMachine.mounter.isUnmounting()) return;
  if (mMachine.folderSurvey.holdsLaunchBack()) return;
  const ReferenceTime now = m.platform.clock.now();
  if (m.preferences.mPrefShowMessageBeforeAction != 0 && !mWork.announce.isOpen()) {
    mWork.announce.showAnnounceForQueueHead();
    if (mWork.announce.isOpen()) {
      m.state.holdBackUntil(now + kAnnounceSeconds);
      return;
    }
  }
  const ReferenceTime date = mWork.queue.head().date;
  if (now < date) {
    setStatusInformation(
        m.texts.text("WillExecuteAction", {static_cast<std::int64_t>(std::floor(date - now))}));
    return;
  }
  switch (mWork.supervisor.launchNextAction()) {
    case LaunchResult::launched:
      mRunningTitle = mWork.queue.titleOf(mWork.queue.head());
      m.debugLog.logMessage("Scheduler launch Execute process", true);
      break;
    case LaunchResult::actionGone:
      m.store.texts().addToReportFile(m.texts.text("ReportActionGone", {mWork.queue.head().ref}));
      mWork.supervisor.executionDidEnd();
      break;
    case LaunchResult::taskGone:
      mWork.supervisor.executionDidEnd();
      break;
    case LaunchResult::treeUnreadable:
      return;
    case LaunchResult::otherExecution:
      setStatusInformation(m.texts.text("OtherExecution"));
      return;
    case LaunchResult::programMissing:
    case LaunchResult::queueEmpty:
      break;
  }
  mMachine.volumeWatch.saveVolumesInfosAt(m.platform.clock.now() + kSaveVolumesAfterLaunch);
  setStatusInformation({});
}

ReferenceTime LaunchStep::nextWork() const {
  if (mWork.announce.isOutOfDate()) return kAtOnce;
  const ReferenceTime read = isMessageToBeRead() ? m.messages.holdsLaunchingUntil() : kNever;
  const ReferenceTime from = hasWork() ? headIsFarUntil() : std::min(nextIdleMinute(), read);
  return from == kNever ? kNever : std::max(m.state.mPauseBeforeNextStep.passing(), from);
}

/// A message is up, and there is still time to read it.
bool LaunchStep::isMessageToBeRead() const {
  return m.messages.holdsLaunchingUntil() > m.platform.clock.now();
}

/// Whether `run` would do anything once the hold-back is over, asked in its order.
bool LaunchStep::hasWork() const {
  const bool executing = mWork.supervisor.isExecuting();
  const bool requestsWait = !mWork.queue.executeNowActionsList().empty();
  if (!mWelcomeMessageWasDisplayed) return true;
  if (m.state.mStartedFromNewMachine && !mStartupDiskWasAsked) return true;
  if (m.state.mScheduleDisabledWhenDone && isAllDone()) return true;
  if (requestsWait && !(m.state.mScheduleDisabled && executing)) return true;
  if (m.state.mScheduleDisabled && !requestsWait && !executing) return saysWhatIsOver();
  if (m.state.mPause) return mStatusInformation != m.texts.text("ActionPaused");
  if (executing) return mStatusInformation.empty();
  if (mMustShutDownAfterCurrentAction) return true;
  return mWork.queue.empty() ? saysWhatIsOver() : !isMessageToBeRead();
}

/// Nothing holds the scheduler up any more, and the line still says so. That a user is idle is said
/// anew with each evaluation.
bool LaunchStep::saysWhatIsOver() const {
  return !mStatusInformation.empty() && !mWork.evaluation.idleTimeScheduling();
}

/// When the line about an idle user has another minute.
ReferenceTime LaunchStep::nextIdleMinute() const {
  const bool silent = !m.state.mPause && !mWork.supervisor.isExecuting() &&
                      (mWork.queue.empty() || m.state.mScheduleDisabled);
  if (!silent || !mWork.evaluation.idleTimeScheduling()) return kNever;
  const ReferenceTime start = m.state.mStartOfIdleTime.at();
  const double idle = m.platform.clock.now() - start;
  if (idle <= kIdleSecondsToTell)
    return mStatusInformation.empty() ? start + kIdleSecondsToTell : kAtOnce;
  const auto minutes = static_cast<std::int64_t>(idle / kMinute);
  return mStatusInformation == m.texts.text("IdleTimeInformation", {minutes})
             ? start + static_cast<double>(minutes + 1) * kMinute
             : kAtOnce;
}

/// A minute before the date of a head that is announced and far from due, while nobody sees the
/// seconds count down.
ReferenceTime LaunchStep::headIsFarUntil() const {
  const bool announced = m.preferences.mPrefShowMessageBeforeAction == 0 || mWork.announce.isOpen();
  if (mWork.queue.empty() || mWork.supervisor.isExecuting() || !announced) return kAtOnce;
  if (mStatusInformation.empty() || m.platform.userInterface.isWindowVisible(Window::status))
    return kAtOnce;
  return mWork.queue.head().date - kMinute;
}

void LaunchStep::clearStatusInformation() {
  mStatusInformation.clear();
  m.changes.note(Change::statusLine);
}

void LaunchStep::setStatusInformation(std::string text) {
  if (text.empty() && mWork.evaluation.idleTimeScheduling()) {
    const double idle = m.platform.clock.now() - m.state.mStartOfIdleTime.at();
    if (idle > kIdleSecondsToTell) {
      text = m.texts.text("IdleTimeInformation", {static_cast<std::int64_t>(idle / kMinute)});
    }
  }
  if (text == mStatusInformation) return;
  mStatusInformation = std::move(text);
  m.changes.note(Change::statusLine);
}

}  // namespace corvana
