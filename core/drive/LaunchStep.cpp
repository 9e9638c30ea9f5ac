#include "core/drive/LaunchStep.h"

#include <cmath>
#include <utility>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionContext.h"
#include "actions/ActionTree.h"
#include "actions/ProgrammedAction.h"
#include "core/machine/VolumeWatch.h"
#include "core/record/DebugLog.h"
#include "core/record/Messages.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerState.h"
#include "core/work/ActionQueue.h"
#include "core/work/ExecuteSupervisor.h"
#include "core/work/TriggerEvaluation.h"
#include "platform/Clock.h"
#include "platform/UserInterface.h"
#include "ui/Announce.h"

namespace corvana {

namespace {

constexpr double kWelcomeSeconds = 10.0;
constexpr double kWelcomeSecondsWithContext = 20.0;
/// So long the announce is on screen before the launch, at least.
constexpr double kAnnounceSeconds = 1.0;
constexpr double kSaveVolumesAfterLaunch = 5.0;
/// From here on an idle user is worth a line.
constexpr double kIdleSecondsToTell = 120.0;

}  // namespace

LaunchStep::LaunchStep(const Surroundings& surroundings) : m(surroundings) {}

void LaunchStep::run() {
  m.announce.closeUnlessForQueueHead();
  const ReferenceTime now = m.clock.now();
  if (m.messages.hasPending() || !m.state.mPauseBeforeNextStep.isPassed(now)) return;
  const bool requestsRemain = updateExecuteNowRequests();
  if (!mWelcomeMessageWasDisplayed) showWelcomeMessage();
  // Also where no welcome is given, or nothing would run and nobody would know why.
  if (m.state.mStartedFromNewMachine && !mStartupDiskWasAsked && onStartupDiskQuestion) {
    mStartupDiskWasAsked = true;
    onStartupDiskQuestion();
  }
  if (m.state.mScheduleDisabledWhenDone && isAllDone()) {
    m.state.mScheduleDisabledWhenDone = false;
    onAllDone();
  }
  if (m.state.mScheduleDisabled && !requestsRemain && !m.supervisor.isExecuting()) {
    setStatusInformation({});
    return;
  }
  if (m.state.mPause) {
    setStatusInformation(m.texts.text("ActionPaused"));
    return;
  }
  if (m.supervisor.isExecuting()) {
    m.supervisor.supervise();
    if (m.supervisor.isExecuting())
      setStatusInformation(m.texts.text("ExecutingAction", {mRunningTitle}));
  } else if (mMustShutDownAfterCurrentAction) {
    mMustShutDownAfterCurrentAction = false;
    onShutDownWanted();
  } else if (m.queue.empty()) {
    setStatusInformation({});
  } else if (!m.messages.isShown()) {
    launchHead();
  }
}

/// Whether nothing is left to wait for before execution is disabled; a machine to be shut down is.
bool LaunchStep::isAllDone() const {
  if (m.supervisor.isExecuting() || mMustShutDownAfterCurrentAction) return false;
  return m.queue.empty() || m.state.mScheduleDisabled;
}

/// Whether records are still to be run although automatic execution is off.
bool LaunchStep::updateExecuteNowRequests() {
  if (m.queue.executeNowActionsList().empty()) return false;
  if (!m.state.mScheduleDisabled) {
    m.queue.clearExecuteNowActions();
    m.userInterface.listsChanged();
    return false;
  }
  m.queue.dropFinishedExecuteNowActions();
  if (m.queue.executeNowActionsList().empty()) return false;
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
    m.state.holdBackUntil(m.clock.now() + seconds);
    m.debugLog.logMessage("Scheduler show welcome message", false);
  }
}

void LaunchStep::launchHead() {
  m.supervisor.setProgressValue(0);
  if (isHeldBack && isHeldBack()) return;
  if (onStrayFolders && onStrayFolders()) return;
  const ReferenceTime now = m.clock.now();
  if (m.preferences.mPrefShowMessageBeforeAction != 0 && !m.announce.isOpen()) {
    m.announce.showAnnounceForQueueHead();
    if (m.announce.isOpen()) {
      m.state.holdBackUntil(now + kAnnounceSeconds);
    } else {
      m.supervisor.executionDidEnd();
    }
    return;
  }
  const ReferenceTime date = m.queue.head().date;
  if (now < date) {
    setStatusInformation(
        m.texts.text("WillExecuteAction", {static_cast<std::int64_t>(std::floor(date - now))}));
    return;
  }
  switch (m.supervisor.launchNextAction()) {
    case LaunchResult::launched:
      if (const auto* action = m.tree.rootItem().actionForReference(m.queue.head().ref)) {
        mRunningTitle = action->getTitle();
      }
      m.debugLog.logMessage("Scheduler launch Execute process", true);
      break;
    case LaunchResult::actionGone:
      m.supervisor.executionDidEnd();
      break;
    case LaunchResult::otherExecution:
      setStatusInformation(m.texts.text("OtherExecution"));
      return;
    case LaunchResult::programMissing:
    case LaunchResult::queueEmpty:
      break;
  }
  m.volumes.saveVolumesInfosAt(m.clock.now() + kSaveVolumesAfterLaunch);
  setStatusInformation({});
}

bool LaunchStep::isAtRest() const {
  return mWelcomeMessageWasDisplayed && (mStartupDiskWasAsked || !m.state.mStartedFromNewMachine) &&
         !mMustShutDownAfterCurrentAction && m.queue.empty() && !m.supervisor.isExecuting() &&
         !m.messages.hasPending() && !m.messages.isShown() && !m.state.mScheduleDisabledWhenDone &&
         m.queue.executeNowActionsList().empty();
}

void LaunchStep::clearStatusInformation() {
  mStatusInformation.clear();
  m.userInterface.setStatusInformation({});
}

void LaunchStep::setStatusInformation(std::string text) {
  if (text.empty() && m.evaluation.idleTimeScheduling()) {
    const double idle = m.clock.now() - m.state.mStartOfIdleTime.at();
    if (idle > kIdleSecondsToTell) {
      text = m.texts.text("IdleTimeInformation", {static_cast<std::int64_t>(idle / 60)});
    }
  }
  if (text == mStatusInformation) return;
  mStatusInformation = std::move(text);
  m.userInterface.setStatusInformation(mStatusInformation);
}

}  // namespace corvana
