#include "core/drive/Controls.h"

#include <utility>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/TextFiles.h"
#include "core/drive/LaunchStep.h"
#include "core/drive/SiblingStatus.h"
#include "core/machine/VolumeMounter.h"
#include "core/machine/VolumesFolderSurvey.h"
#include "core/record/Messages.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerLog.h"
#include "core/record/SchedulerState.h"
#include "core/record/SiblingChannel.h"
#include "core/work/ActionQueue.h"
#include "core/work/Contexts.h"
#include "core/work/ExecuteSupervisor.h"
#include "core/work/TriggerEvaluation.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"
#include "ui/FloatingIcon.h"
#include "ui/StatusItem.h"

namespace corvana {

namespace {

/// A launch asked for by hand comes a moment later, when the asking is over.
constexpr double kManualLaunchDelay = 0.01;
constexpr double kRemoteLaunchDelay = 5.0;
constexpr double kContinueDelay = 0.5;
constexpr double kQuitDelay = 1.0;
constexpr int kIconNever = 3;

}  // namespace

Controls::Controls(Surroundings surroundings) : m(std::move(surroundings)) {}

void Controls::enableAfterStartup() {
  m.state.mScheduleDisabled = false;
  m.state.checkAt(m.platform.clock.now() + 1.0);
  updateExecutionStatusMenus();
}

void Controls::updateExecutionStatusMenus() {
  m.statusItem.setStatusTitle(std::nullopt);
  m.platform.userInterface.menusChanged();
  m.siblings.sendSchedulerStatusToMainApp();
}

void Controls::setSchedulerActive(bool active) {
  const bool wasToEnd = std::exchange(m.state.mScheduleDisabledWhenDone, false);
  if (active == !m.state.mScheduleDisabled) {
    if (wasToEnd) {
      // Taken back: evaluations have waited meanwhile.
      m.state.checkAt(m.platform.clock.now());
      m.state.updateMenu();
      updateExecutionStatusMenus();
      m.state.mMenuWasUsed = true;
    }
    return;
  }
  m.state.mScheduleDisabled = !active;
  m.preferences.mPrefScheduleDisabled = active ? 0 : 1;
  // What the last evaluation found is right no more.
  m.state.checkAt(m.platform.clock.now());
  m.messages.displayStandardMessage(
      m.texts.text(active ? "ReportEnableScheduler" : "ReportDisableScheduler"),
      LogCode::schedulerMessage);
  m.preferences.setPref(PreferenceKey::scheduleDisabled, m.preferences.mPrefScheduleDisabled);
  m.preferences.savePrefs();
  m.state.updateMenu();
  updateExecutionStatusMenus();
  if (onActiveChanged) onActiveChanged();
  m.state.mMenuWasUsed = true;
}

void Controls::disableScheduleWhenAllDone() {
  m.state.mScheduleDisabledWhenDone = true;
  m.state.updateMenu();
  updateExecutionStatusMenus();
  m.state.mMenuWasUsed = true;
}

void Controls::changeExecutionStatus(int item) {
  if (item == 0) enableSchedule();
  if (item == 1) disableScheduleWhenAllDone();
  if (item == 2) disableSchedule();
}

void Controls::setContextMode(std::int64_t context) { m.contexts.setContextMode(context); }

void Controls::setContext(std::int64_t context) { m.contexts.setContext(context); }

void Controls::pauseExecution() { togglePause(true); }

void Controls::setPause(bool pause) {
  m.state.mPause = !pause;
  togglePause(false);
}

void Controls::togglePause(bool tellExecute) {
  m.state.mMenuWasUsed = true;
  m.state.mPause = !m.state.mPause;
  m.folderSurvey.pauseChanged(m.state.mPause);
  if (tellExecute) {
    m.channel.postToExecute("ActionPause", ZAN_Value::dictionary({{"Pause", m.state.mPause}}));
  }
  m.launchStep.clearStatusInformation();
  m.state.updateMenu();
  updateExecutionStatusMenus();
}

void Controls::strayFoldersWereSeen() {
  if (m.folderSurvey.hasPaused()) {
    continueExecution();
  } else {
    m.platform.userInterface.hideWindow(Window::volumesFolderError);
    m.folderSurvey.forgetCleanLooks();
  }
}

void Controls::continueExecution() {
  m.platform.userInterface.hideWindow(Window::volumesFolderError);
  m.folderSurvey.forgetCleanLooks();
  if (!m.state.mPause) return;
  m.platform.runLoop.performAfter(kContinueDelay, [this] {
    if (m.state.mPause) pauseExecution();
  });
}

void Controls::stopExecution() {
  m.state.mMenuWasUsed = true;
  m.supervisor.stopExecution();
}

void Controls::skipItem() { m.channel.postToExecute("SkipItem"); }

void Controls::showProgress() { m.channel.postToExecute("ShowProgress"); }

void Controls::setExecutionMode(int mode) {
  m.supervisor.setExecutionMode(mode);
  m.channel.postToExecute("SetExecutionMode", ZAN_Value::dictionary({{"ExecutionMode", mode}}));
}

Outcome Controls::launchAction(std::int64_t ref, bool estimateSize) {
  const std::string name = "action " + std::to_string(ref);
  switch (m.queue.addActionToQueue(ref, m.platform.clock.now() + kManualLaunchDelay, -1, true,
                                   false, estimateSize)) {
    case QueueAddition::queued:
      return {};
    case QueueAddition::alreadyQueued:
      return Error{ErrorKind::refused, name + ": it already waits in the queue"};
    case QueueAddition::unknownAction:
      return Error{ErrorKind::absent, name + ": there is no such action"};
    case QueueAddition::notPermitted:
      return Error{ErrorKind::refused,
                   name + ": launching it by hand is switched off in its settings"};
    case QueueAddition::volumesMissing:
      return Error{ErrorKind::unavailable, name + ": its volumes are not all mounted"};
  }
  return {};
}

void Controls::launchActionsRemotely(std::span<const std::int64_t> refs) {
  const ReferenceTime due = m.platform.clock.now() + kRemoteLaunchDelay;
  m.queue.batch([&] {
    for (const std::int64_t ref : refs) m.queue.addActionToQueue(ref, due, -1, false, true, false);
  });
}

void Controls::executeNow(std::int64_t ref) { m.queue.executeNow(ref); }

void Controls::removeFromQueue(const std::vector<std::size_t>& rows) {
  m.queue.removeFromQueue({rows.begin(), rows.end()});
}

void Controls::moveInQueue(std::size_t from, std::size_t to) { m.queue.moveRecord(from, to); }

void Controls::menuWillOpen() {
  m.statusItem.setStatusTitle(std::nullopt);
  m.mounter.buildVolumesToMountList();
  m.platform.userInterface.menusChanged();
  m.state.mMenuWasUsed = false;
  if (m.state.mErrorInExecution != 0) showErrorSummary();
}

void Controls::showWindow(Window window) {
  if (window == Window::queue) mListActionWasOpenByUser = true;
  m.platform.userInterface.showWindow(window);
  if (window == Window::executionSurvey) m.supervisor.doSurvey5Seconds();
}

void Controls::hideWindow(Window window) {
  if (window == Window::queue) mListActionWasOpenByUser = false;
  // Nobody would count the clean looks that end the pause.
  if (window == Window::volumesFolderError) return strayFoldersWereSeen();
  m.platform.userInterface.hideWindow(window);
}

void Controls::showAllVisibleWindows() {
  if (m.supervisor.isExecuting()) m.channel.postToExecute("ShowAllVisibleWindowsActions");
  if (m.state.mMainAppLaunched) openMainApp();
  bringWindowsToFront();
}

void Controls::bringWindowsToFront() { m.platform.userInterface.bringWindowsToFront(); }

void Controls::showErrorSummary() {
  // The menu that is just being opened keeps the keyboard.
  m.platform.userInterface.showWindowQuietly(Window::errorSummary);
  m.log.clearErrorState();
  m.state.updateMenu();
}

void Controls::setAnnouncePosition(const Point& position) {
  m.preferences.mShowMiniProgressPosition = position;
  m.preferences.setPref(PreferenceKey::announcePositionX, position.x);
  m.preferences.setPref(PreferenceKey::announcePositionY, position.y);
}

void Controls::messageClosedByUser() {
  m.messages.closeMessageWindow();
  m.channel.postToExecute("MessageClosedByUser");
}

void Controls::userNotificationActivated() { bringWindowsToFront(); }

void Controls::openNotificationInMainApp(std::size_t index) {
  openMainApp();
  m.channel.postToMainApp("ShowLatestNotifications",
                          ZAN_Value::dictionary({{"Index", static_cast<int>(index)}}));
}

void Controls::showSurveyFolderResults() {
  if (m.state.mSurveyFolderResult.isNull()) return;
  const bool isHeard = m.channel.isMainAppLaunched();
  openMainApp();
  if (!isHeard) return;
  m.channel.postToMainApp("SurveyFolderResults", std::exchange(m.state.mSurveyFolderResult, {}));
  m.state.updateMenu();
}

void Controls::showLatestActions() { m.platform.userInterface.showWindow(Window::latestActions); }

void Controls::openMainApp() {
  if (const Outcome opened = m.platform.processes.open(m.mainAppBundlePath); !opened) {
    m.platform.systemLog.write(opened.error().text);
  }
}

Result<std::string> Controls::saveListProcess() { return onSaveListProcess(); }

void Controls::showAllDisksInformation() {
  if (m.platform.userInterface.isWindowVisible(Window::allDisks)) showWindow(Window::allDisks);
  onShowAllDisksInformation();
}

void Controls::mountVolumes() {
  UserInterface& ui = m.platform.userInterface;
  if (ui.isWindowVisible(Window::mountVolumes)) {
    ui.hideWindow(Window::mountVolumes);
    ui.rearrangeMessageWindows();
    return;
  }
  m.mounter.updateListOfVolumesToMount();
  ui.showWindow(Window::mountVolumes);
}

void Controls::updateListOfVolumesToMount() { m.mounter.updateListOfVolumesToMount(); }

void Controls::repairAndContinueExecution() {
  m.folderSurvey.cleanVolumesFolder([this] { continueExecution(); });
}

void Controls::mountVolume(std::size_t index) { m.mounter.selectVolumeToMountInMenu(index); }

void Controls::mountSelectedVolumes(const std::vector<std::size_t>& rows) {
  m.mounter.mountSelectedVolumes(rows);
}

void Controls::setMountsSystemPartitions(bool also) { m.mounter.setMountsSystemPartitions(also); }

void Controls::setPreference(const std::string& key, const ZAN_Value& value) {
  if (key == PreferenceKey::scheduleDisabled) {
    setSchedulerActive(!value.boolValue());
    return;
  }
  if (key == PreferenceKey::currentContext) {
    setContext(value.integerValue());
    return;
  }
  m.preferences.setPref(key, value);
  // One place has two keys.
  if (key == PreferenceKey::announcePositionX && value.isNull()) {
    m.preferences.setPref(PreferenceKey::announcePositionY, value);
  }
  preferencesDidChange();
}

void Controls::preferencesDidChange() {
  m.preferences.loadPrefs();
  m.preferences.savePrefs();
  if (onPreferencesChanged) onPreferencesChanged();
  m.evaluation.checkActionsToLaunch();
  m.statusItem.forgetCurrentIcon();
  m.state.updateMenu();
  if (m.state.mErrorInExecution != 0) {
    m.statusItem.createStatusItem();
  } else if (m.preferences.mShowIconMenuMode == kIconNever) {
    m.statusItem.removeStatusItem();
  } else if (m.preferences.mShowIconMenuMode == 0) {
    m.statusItem.createStatusItem();
  }
  m.floatingIcon.applyMode();
  m.platform.userInterface.rearrangeMessageWindows();
}

void Controls::sendDailyReportNow() {
  if (onDailyReportWanted) onDailyReportWanted();
}

void Controls::quitScheduler() {
  m.state.mMenuWasUsed = true;
  if (std::exchange(mAsksToQuit, true)) return bringWindowsToFront();
  UserInterface& ui = m.platform.userInterface;
  for (const Window window :
       {Window::nextActions, Window::status, Window::mountVolumes, Window::allDisks}) {
    ui.hideWindow(window);
  }
  ui.ask(Window::status, m.texts.text("QuitSchedulerTitle"), m.texts.text("QuitSchedulerText"),
         [this](bool quits) {
           mAsksToQuit = false;
           if (!quits) return;
           m.platform.userInterface.hideWindow(Window::status);
           m.platform.runLoop.performAfter(kQuitDelay, [this] { terminateBySelf(); });
           m.report.addToReportFile(m.texts.text("ReportQuitScheduler"));
         });
}

void Controls::terminateBySelf() { onQuitWanted(); }

void Controls::relaunchScheduler() {
  if (m.platform.userInterface.isWindowVisible(Window::update)) {
    m.preferences.setPref("SchedulerNextCheckUpdatesDate",
                          static_cast<long long>(m.platform.clock.now() + 30.0));
    m.preferences.savePrefs();
  }
  onRelaunchWanted();
}

}  // namespace corvana
