#include "core/drive/NotificationDispatch.h"

#include <utility>

#include "actions/ActionsTools.h"
#include "actions/TaskRequest.h"
#include "core/drive/Controls.h"
#include "core/drive/LaunchStep.h"
#include "core/machine/MachineDuties.h"

namespace corvana {

namespace {

constexpr double kManualLaunchDelay = 0.01;
constexpr double kAnswerDelay = 0.1;
constexpr double kUnmountDelay = 0.1;
constexpr double kDefaultMessageSeconds = 10.0;

}  // namespace

std::span<const NotificationDispatch::Row> NotificationDispatch::rows() {
  static constexpr Row kRows[] = {
      {"LaunchAction", &NotificationDispatch::launchAction},
      {"ApplicationIsLaunched", &NotificationDispatch::applicationIsLaunched},
      {"ApplicationWillQuit", &NotificationDispatch::applicationWillQuit},
      {"PreferencesDidChange", &NotificationDispatch::preferencesDidChange},
      {"OpenPreferences", &NotificationDispatch::openPreferences},
      {"ActionListChanged", &NotificationDispatch::actionListChanged},
      {"ActionChanged", &NotificationDispatch::actionChanged},
      {"ExecuteProgress", &NotificationDispatch::executeProgress},
      {"UnmountVolume", &NotificationDispatch::unmountVolume},
      {"UnmountVolumeImmediate", &NotificationDispatch::unmountVolumeImmediate},
      {"Message", &NotificationDispatch::message},
      {"MessageOff", &NotificationDispatch::messageOff},
      {"ActivateExecution", &NotificationDispatch::activateExecution},
      {"ActionPause", &NotificationDispatch::actionPause},
      {"SetContext", &NotificationDispatch::setContext},
      {"ActionHistoryChanged", &NotificationDispatch::actionHistoryChanged},
      {"AddToLog", &NotificationDispatch::addToLog},
      {"DisplayUserNotification", &NotificationDispatch::displayUserNotification},
      {"GetCVAProcessStatus", &NotificationDispatch::getProcessStatus},
      {"QuitCVAProcess", &NotificationDispatch::quitProcess},
      {"StopExecution", &NotificationDispatch::stopExecution},
      {"ShowPendingActions", &NotificationDispatch::showPendingActions},
      {"ShowLatestActions", &NotificationDispatch::showLatestActions},
      {"ShowAllVisibleWindowsActions", &NotificationDispatch::showAllVisibleWindows},
      {"LaunchShutDownActions", &NotificationDispatch::launchShutDownActions},
      {"ShutDownMac", &NotificationDispatch::shutDownMac},
      {"SendReportEmail", &NotificationDispatch::sendReportEmail},
      {"SurveyReplyNotification", &NotificationDispatch::surveyReply},
      {"ConfirmStartupDisk", &NotificationDispatch::confirmStartupDisk},
      {"ErrorsWereSeen", &NotificationDispatch::errorsWereSeen},
      {"CleanVolumesFolder", &NotificationDispatch::cleanVolumesFolder},
      {"SendCopyRecoveryHD", &NotificationDispatch::sendCopyRecoveryHD},
  };
  return kRows;
}

NotificationDispatch::NotificationDispatch(Records& records, Work& work, MachineDuties& machine,
                                           LaunchStep& launchStep, Controls& controls)
    : m(records),
      mWork(work),
      mMachine(machine),
      mLaunchStep(launchStep),
      mControls(controls),
      mBurst(m.platform.clock),
      mMainAppReceiveNotifications(m.state.mMainAppLaunched) {}

NotificationDispatch::~NotificationDispatch() {
  m.platform.notifications.stopObserving(std::string(kSchedulerNotification));
  m.platform.notifications.stopObserving(std::string(kExecuteNotification));
}

void NotificationDispatch::observe() {
  m.platform.notifications.observe(
      std::string(kSchedulerNotification),
      [this](const DistributedNotification& note) { schedulerNotificationReceived(note); });
  // Whoever tells the execute application to stop does not tell the agent.
  m.platform.notifications.observe(std::string(kExecuteNotification),
                                   [this](const DistributedNotification& note) {
                                     if (note.object == "ActionStop")
                                       mWork.supervisor.stopWasAsked();
                                   });
}

void NotificationDispatch::schedulerNotificationReceived(
    const DistributedNotification& notification) {
  const SurveyExecution::Bracket bracket(m.survey, "receiveNotification");
  if (notification.name != kSchedulerNotification) return;
  const double start = m.platform.clock.monotonic();
  if (!mLaunchStep.welcomeMessageWasDisplayed()) m.state.holdBackUntil(m.platform.clock.now());
  for (const Row& row : rows()) {
    if (row.object != notification.object) continue;
    m.guard.run([&] { (this->*row.action)(notification.userInfo); });
    break;
  }
  m.changes.touch();
  m.debugLog.addToTimer(DebugLog::Timer::notifications, m.platform.clock.monotonic() - start);
}

void NotificationDispatch::launchAction(const ZAN_Value& userInfo) {
  mLaunches.push_back(userInfo);
  // Many that come at once are stored once.
  if (mLaunches.size() == 1) m.platform.runLoop.performAfter(0, [this] { launchTogether(); });
  m.debugLog.logMessage("Scheduler received notification for action manually launched", true);
}

void NotificationDispatch::applicationIsLaunched(const ZAN_Value&) {
  mMainAppReceiveNotifications = true;
  mControls.mainAppListens();
}

void NotificationDispatch::launchTogether() {
  mWork.interruptions.settle();
  mWork.queue.burst([this] {
    return mBurst.goOn(mLaunches, [this](const ZAN_Value& launch) { takeUpLaunch(launch); });
  });
  if (mLaunches.empty() && !mBurst.isOpen()) return;
  m.platform.runLoop.performAfter(Burst::pause(mLaunches), [this] { launchTogether(); });
}

void NotificationDispatch::takeUpLaunches() {
  if (mLaunches.empty() && !mBurst.isOpen()) return;
  mWork.interruptions.settle();
  mWork.queue.burst([this] {
    for (const ZAN_Value& launch : std::exchange(mLaunches, {})) takeUpLaunch(launch);
    mBurst.end();
    return false;
  });
}

void NotificationDispatch::takeUpLaunch(const ZAN_Value& launch) {
  if (launch.contains(TaskRequest::kFileKey)) {
    // Who asked for it looks into the queue.
    (void)mWork.queue.addTask(launch.integer("Ref"), launch.string(TaskRequest::kTaskKey),
                              launch.string(TaskRequest::kFileKey));
    return;
  }
  mWork.queue.addWish(launch.integer("Ref"), m.platform.clock.now() + kManualLaunchDelay, false,
                      launch.integer("EstimateSize") != 0);
}

void NotificationDispatch::preferencesDidChange(const ZAN_Value&) {
  mControls.preferencesDidChange();
}

void NotificationDispatch::openPreferences(const ZAN_Value&) {
  mControls.showWindow(Window::preferences);
}

void NotificationDispatch::readTreeAnew() {
  m.tree.releaseRootItem();
  mWork.supervisor.stopIfActionIsGone();
  m.log.keepLacking([this](std::int64_t reference) {
    return m.tree.rootItem().actionForReference(reference) != nullptr;
  });
}

void NotificationDispatch::actionListChanged(const ZAN_Value&) {
  readTreeAnew();
  mWork.evaluation.checkActionsToLaunch();
  mWork.evaluation.rebuildActionsList();
  mMachine.shutdownHelper.update();
  m.changes.note(Change::tree);
}

void NotificationDispatch::actionChanged(const ZAN_Value&) {
  readTreeAnew();
  m.channel.postToMainApp("ActionListChanged");
}

void NotificationDispatch::cleanVolumesFolder(const ZAN_Value&) {
  mMachine.folderSurvey.removeExtraItemsInVolumesFolder();
}

void NotificationDispatch::executeProgress(const ZAN_Value& userInfo) {
  mWork.supervisor.takeProgress(userInfo);
}

void NotificationDispatch::unmountVolume(const ZAN_Value& userInfo) {
  mMachine.mounter.rememberVolumeMountedByScheduler(userInfo.string("Path"));
}

void NotificationDispatch::unmountVolumeImmediate(const ZAN_Value& userInfo) {
  m.platform.runLoop.performAfter(kUnmountDelay, [this, path = userInfo.string("Path")] {
    mMachine.mounter.unmountVolume(path);
  });
}

void NotificationDispatch::message(const ZAN_Value& userInfo) {
  const double seconds =
      userInfo.contains("Seconds") ? userInfo["Seconds"].doubleValue() : kDefaultMessageSeconds;
  m.messages.showMessage(userInfo.string("Title"), userInfo.string("Text"), seconds, true);
}

void NotificationDispatch::messageOff(const ZAN_Value&) { m.messages.closeMessageWindow(); }

void NotificationDispatch::activateExecution(const ZAN_Value& userInfo) {
  if (userInfo.contains("Activate")) {
    mControls.setSchedulerActive(userInfo["Activate"].boolValue());
  }
}

void NotificationDispatch::actionPause(const ZAN_Value& userInfo) {
  if (userInfo.contains("Pause")) mControls.setPause(userInfo["Pause"].boolValue());
}

void NotificationDispatch::setContext(const ZAN_Value& userInfo) {
  if (userInfo["Context"].isNumber()) mControls.setContextMode(userInfo.integer("Context"));
}

void NotificationDispatch::actionHistoryChanged(const ZAN_Value&) {
  m.history.results().updateActionResults();
  m.history.reloadProgrammedHistoryList();
  m.changes.note(Change::history);
}

void NotificationDispatch::addToLog(const ZAN_Value& userInfo) { m.log.addSchedulerLog(userInfo); }

void NotificationDispatch::displayUserNotification(const ZAN_Value& userInfo) {
  constexpr int kFolderSurvey = 1;
  if (userInfo.contains("Msg"))
    m.messages.sendUserNotification(userInfo.string("Msg"), userInfo.string("Titl"));
  if (!userInfo.contains("Type") || userInfo.integer("Type") != kFolderSurvey) return;
  ZAN_Value result = ZAN_Value::dictionary({{"Date", ZAN_Value::date(m.platform.clock.now())}});
  for (const char* const key : {"Msg", "Ref", "SurveyResults"}) {
    if (userInfo.contains(key)) result.setValue(key, userInfo[key]);
  }
  m.state.mSurveyFolderResult = result;
  m.state.updateMenu();
}

void NotificationDispatch::getProcessStatus(const ZAN_Value&) {
  m.platform.runLoop.performAfter(kAnswerDelay, [this] { m.channel.sendStatus(); });
}

void NotificationDispatch::quitProcess(const ZAN_Value&) {
  if (mWork.supervisor.isExecuting()) mControls.stopExecution();
  m.platform.runLoop.performAfter(kAnswerDelay, [this] { mControls.terminateBySelf(); });
}

void NotificationDispatch::stopExecution(const ZAN_Value&) { mControls.stopExecution(); }

void NotificationDispatch::showPendingActions(const ZAN_Value&) {
  mControls.showWindow(Window::queue);
}

void NotificationDispatch::showLatestActions(const ZAN_Value&) { mControls.showLatestActions(); }

void NotificationDispatch::showAllVisibleWindows(const ZAN_Value& userInfo) {
  std::map<std::string, std::string> desktop;
  for (const char* name : kDesktopVariables) {
    if (userInfo[name].isString()) desktop[name] = userInfo.string(name);
  }
  if (!desktop.empty() && onDesktopOffered) onDesktopOffered(desktop);
  mControls.bringWindowsToFront();
}

void NotificationDispatch::launchShutDownActions(const ZAN_Value&) {
  ProgrammedAction::Nodes actions;
  const ActionsTools today(mWork.evaluation.calendar(), m.platform.clock.now());
  m.tree.rootItem().getListOfShutDownActions(actions, &today);
  // An addition may release the tree, and its nodes with it.
  std::vector<std::int64_t> references;
  for (const ProgrammedAction* action : actions) references.push_back(action->getReference());
  for (const std::int64_t ref : references)
    mWork.queue.addActionToQueue(ref, m.platform.clock.now(), -1);
  m.state.mMustTerminateWhenAllDone = true;
}

void NotificationDispatch::errorsWereSeen(const ZAN_Value&) { mControls.errorsWereSeen(); }

void NotificationDispatch::confirmStartupDisk(const ZAN_Value&) { mControls.confirmStartupDisk(); }

void NotificationDispatch::sendReportEmail(const ZAN_Value&) { mControls.sendDailyReportNow(); }

void NotificationDispatch::shutDownMac(const ZAN_Value&) {
  mLaunchStep.shutDownAfterCurrentAction();
}

void NotificationDispatch::surveyReply(const ZAN_Value& userInfo) {
  if (userInfo.contains("ExecuteReplyMessage"))
    mWork.supervisor.showExecuteReply(userInfo.string("ExecuteReplyMessage"));
}

void NotificationDispatch::sendCopyRecoveryHD(const ZAN_Value& userInfo) {
  mMachine.recoveryCopy.copyRecoveryPartition(userInfo);
}

}  // namespace corvana
