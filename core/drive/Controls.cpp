#include "core/drive/Controls.h"

#include <utility>

#include "core/drive/LaunchStep.h"
#include "core/machine/MachineDuties.h"

namespace corvana {

namespace {

/// A launch asked for by hand comes a moment later, when the asking is over.
constexpr double kManualLaunchDelay = 0.01;
constexpr double kRemoteLaunchDelay = 5.0;
constexpr double kContinueDelay = 0.5;
constexpr double kQuitDelay = 1.0;

}  // namespace

Controls::Controls(Records& records, Work& work, MachineDuties& machine, LaunchStep& launchStep)
    : m(records), mWork(work), mMachine(machine), mLaunchStep(launchStep) {}

void Controls::setSchedulerActive(bool active) { mWork.automatic.setActive(active); }

void Controls::disableScheduleWhenAllDone() { mWork.automatic.disableWhenAllDone(); }

void Controls::changeExecutionStatus(int item) {
  if (item == 0) enableSchedule();
  if (item == 1) disableScheduleWhenAllDone();
  if (item == 2) disableSchedule();
}

void Controls::setContextMode(std::int64_t context) { mWork.contexts.setContextMode(context); }

void Controls::setContext(std::int64_t context) { mWork.contexts.setContext(context); }

void Controls::pauseExecution() { togglePause(true); }

void Controls::setPause(bool pause) {
  m.state.mPause = !pause;
  togglePause(false);
}

void Controls::togglePause(bool tellExecute) {
  m.state.mMenuWasUsed = true;
  m.state.mPause = !m.state.mPause;
  mMachine.folderSurvey.pauseChanged(m.state.mPause);
  mWork.supervisor.pauseChanged(m.state.mPause);
  if (tellExecute) {
    m.channel.postToExecute("ActionPause", ZAN_Value::dictionary({{"Pause", m.state.mPause}}));
  }
  mLaunchStep.clearStatusInformation();
  m.state.updateMenu();
  m.executionStatusChanged();
}

void Controls::strayFoldersWereSeen() {
  if (mMachine.folderSurvey.hasPaused()) {
    continueExecution();
  } else {
    m.platform.userInterface.hideWindow(Window::volumesFolderError);
    mMachine.folderSurvey.forgetCleanLooks();
  }
}

void Controls::continueExecution() {
  m.platform.userInterface.hideWindow(Window::volumesFolderError);
  mMachine.folderSurvey.forgetCleanLooks();
  if (!m.state.mPause) return;
  m.platform.runLoop.performAfter(kContinueDelay, [this] {
    if (m.state.mPause) pauseExecution();
  });
}

void Controls::stopExecution() {
  m.state.mMenuWasUsed = true;
  mWork.supervisor.stopExecution();
}

void Controls::skipItem() { m.channel.postToExecute("SkipItem"); }

void Controls::showProgress() { m.channel.postToExecute("ShowProgress"); }

void Controls::setExecutionMode(int mode) {
  mWork.supervisor.setExecutionMode(mode);
  m.channel.postToExecute("SetExecutionMode", ZAN_Value::dictionary({{"ExecutionMode", mode}}));
}

Outcome Controls::launchAction(std::int64_t ref, bool estimateSize) {
  const std::string name = "action " + std::to_string(ref);
  switch (mWork.queue.addActionToQueue(ref, m.platform.clock.now() + kManualLaunchDelay, -1, true,
                                       false, estimateSize)) {
    case QueueAddition::queued:
      return {};
    case QueueAddition::alreadyQueued:
      return Error{ErrorKind::refused, name + ": it already waits in the queue"};
    case QueueAddition::unknownAction:
      return Error{ErrorKind::absent, name + ": there is no such action"};
    case QueueAddition::treeUnreadable:
      return Error{ErrorKind::unreadable,
                   name + ": the file with the actions cannot be read at the moment"};
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
  mWork.queue.batch([&] {
    for (const std::int64_t ref : refs) mWork.queue.addWish(ref, due, true, false);
  });
}

void Controls::executeNow(std::int64_t ref) { mWork.queue.executeNow(ref); }

void Controls::removeFromQueue(const std::vector<std::size_t>& rows) {
  mWork.queue.removeFromQueue({rows.begin(), rows.end()});
}

void Controls::moveInQueue(std::size_t from, std::size_t to) { mWork.queue.moveRecord(from, to); }

void Controls::menuWillOpen() {
  mMachine.mounter.buildVolumesToMountList();
  m.state.mMenuWasUsed = false;
  if (m.state.mErrorInExecution != 0) showErrorSummary();
}

void Controls::showWindow(Window window) {
  if (window == Window::queue) mListActionWasOpenByUser = true;
  m.platform.userInterface.showWindow(window);
  if (window == Window::executionSurvey) mWork.supervisor.doSurvey5Seconds();
}

void Controls::hideWindow(Window window) {
  if (window == Window::queue) mListActionWasOpenByUser = false;
  // Nobody would count the clean looks that end the pause.
  if (window == Window::volumesFolderError) return strayFoldersWereSeen();
  m.platform.userInterface.hideWindow(window);
}

void Controls::showAllVisibleWindows() {
  if (mWork.supervisor.isExecuting()) m.channel.postToExecute("ShowAllVisibleWindowsActions");
  if (m.state.mMainAppLaunched) openMainApp();
  bringWindowsToFront();
}

void Controls::bringWindowsToFront() { m.platform.userInterface.bringWindowsToFront(); }

void Controls::showErrorSummary() {
  // The menu that is just being opened keeps the keyboard.
  m.platform.userInterface.showWindowQuietly(Window::errorSummary);
}

void Controls::errorsWereSeen() { m.log.clearErrorState(); }

void Controls::showOverview() {
  const std::string& program =
      m.store.installPaths().installPathForCode(InstallPaths::mainAppExecutable);
  if (ZAN_FilesUtils::exists(program)) return openMainApp();
  showWindow(Window::status);
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
  if (const Outcome opened = m.platform.processes.open(
          m.store.installPaths().installPathForCode(InstallPaths::mainAppBundle));
      !opened) {
    m.platform.systemLog.write(opened.error().text);
  }
}

void Controls::showRestore() {
  mWantsRestore = true;
  const bool isHeard = m.channel.isMainAppLaunched();
  openMainApp();
  // One that is only starting says when it listens.
  if (isHeard) mainAppListens();
}

void Controls::mainAppListens() {
  if (std::exchange(mWantsRestore, false)) m.channel.postToMainApp("ShowRestore");
}

void Controls::askAboutStartupDiskChange() { mMachine.startupDisk.askAboutStartupDiskChange(); }

void Controls::confirmStartupDisk() { mMachine.startupDisk.confirmStartupDisk(); }

Result<std::string> Controls::saveListProcess() {
  return mMachine.systemInformation.saveListProcess();
}

void Controls::showAllDisksInformation() {
  if (m.platform.userInterface.isWindowVisible(Window::allDisks)) showWindow(Window::allDisks);
  mMachine.systemInformation.showAllDisksInformation();
}

void Controls::mountVolumes() {
  UserInterface& ui = m.platform.userInterface;
  if (ui.isWindowVisible(Window::mountVolumes)) {
    ui.hideWindow(Window::mountVolumes);
    ui.rearrangeMessageWindows();
    return;
  }
  mMachine.mounter.updateListOfVolumesToMount();
  ui.showWindow(Window::mountVolumes);
}

void Controls::updateListOfVolumesToMount() { mMachine.mounter.updateListOfVolumesToMount(); }

void Controls::repairAndContinueExecution() {
  mMachine.folderSurvey.moveAside([this] { continueExecution(); });
}

void Controls::deleteStrayFolders() {
  std::vector<std::string> paths;
  Volumes::Contents all;
  bool isCounted = true;
  for (const StrayContents::Stray& stray : mMachine.folderSurvey.strays()) {
    paths.push_back(stray.path);
    isCounted = isCounted && stray.contents && *stray.contents;
    if (!isCounted) continue;
    all.files += (*stray.contents)->files;
    all.bytes += (*stray.contents)->bytes;
  }
  if (paths.empty()) return;
  const std::string names = VolumesFolder::namesOf(paths);
  m.platform.userInterface.ask(
      Window::volumesFolderError, m.texts.text("StrayDeleteTitle"),
      isCounted ? m.texts.text("StrayDeleteText",
                               {names, m.strings.getShortSizeBytes(all.bytes), all.files})
                : m.texts.text("StrayDeleteUncountedText", {names}),
      [this, paths](bool deletes) {
        if (deletes) mMachine.folderSurvey.deleteStrays(paths, [this] { continueExecution(); });
      });
}

void Controls::mountVolume(std::size_t index) { mMachine.mounter.selectVolumeToMountInMenu(index); }

void Controls::mountSelectedVolumes(const std::vector<std::size_t>& rows) {
  mMachine.mounter.mountSelectedVolumes(rows);
}

void Controls::setMountsSystemPartitions(bool also) {
  mMachine.mounter.setMountsSystemPartitions(also);
}

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
  m.store.settings().applyDateLocaleFromSettings(m.strings);
  mMachine.wakeUp.followPreferences();
  if (!mWork.queue.empty()) mWork.queue.saveActionsQueue();
  m.changes.note(Change::preferences);
  mWork.evaluation.checkActionsToLaunch();
  m.state.updateMenu();
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
  const std::string& title = m.texts.text("QuitSchedulerTitle");
  if (!mWork.supervisor.isExecuting()) {
    ui.ask(Window::status, title, m.texts.text("QuitSchedulerText"), [this](bool quits) {
      mAsksToQuit = false;
      if (quits) quitNow();
    });
    return;
  }
  ui.askWhich(title, m.texts.text("QuitRunningText", {mWork.supervisor.runningTitle()}),
              {m.texts.text("QuitStopButton"), m.texts.text("QuitGoOnButton")},
              [this](std::optional<int> choice) {
                mAsksToQuit = false;
                if (!choice) return;
                if (*choice == 0) mWork.supervisor.stopExecution();
                quitNow();
              });
}

void Controls::quitNow() {
  m.platform.userInterface.hideWindow(Window::status);
  m.platform.runLoop.performAfter(kQuitDelay, [this] { terminateBySelf(); });
  m.store.texts().addToReportFile(m.texts.text("ReportQuitScheduler"));
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
