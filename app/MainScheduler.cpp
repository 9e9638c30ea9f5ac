#include "app/MainScheduler.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "actions/ProgrammedAction.h"
#include "platform/AgentObject.h"
#include "platform/Clock.h"
#include "platform/Input.h"
#include "platform/Machine.h"
#include "platform/Power.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"
#include "platform/ServiceDiscovery.h"
#include "platform/UserInterface.h"
#include "volumes/VolumeReference.h"

namespace corvana {

namespace {

constexpr double kHoldWithMainApp = 1.0;
constexpr double kHoldAtLogin = 30.0;
constexpr double kHoldAfterRelaunch = 2.0;
/// A quit no longer ago than this was a relaunch.
constexpr double kRelaunchWindow = 10.0;
constexpr double kStartupDiskCheckDelay = 300.0;
constexpr double kStartupDiskQuestionDelay = 2.0;
constexpr double kLoginItemsDelay = 25.0;
/// In calls of the timer: a desktop that got another screen moves its panels for a moment.
constexpr int kRearrangeAfter = 4;
constexpr std::int64_t kActivityQuits = 1;
constexpr std::int64_t kActivityStarted = 2;
constexpr std::string_view kRequestFile = "Corvana 9 Execute Actions.cva9data";

}  // namespace

MainScheduler::MainScheduler(Platform platform)
    : mGuard(platform.systemLog),
      mRunLoop(platform.runLoop, mGuard),
      mPlatform(platform.withRunLoop(mRunLoop)),
      mStartOfScheduler(platform.processes.ownStart()),
      mStore(platform.clock, platform.machine, platform.systemLog),
      mStrings(platform.machine.regionName(), platform.machine.timeZoneName()),
      mState(platform.clock.now()),
      mPreferences(mStore.settings(), platform.machine, mState.deadlines, platform.clock.now()),
      mSurvey(platform.clock, mRunLoop,
              std::filesystem::path(platform.machine.bundlePath()).stem().string()),
      mSiblingWatch(platform.processes, mSurvey,
                    mStore.installPaths().installPathForCode(InstallPaths::mainAppBundle),
                    mStore.installPaths().installPathForCode(InstallPaths::executeBundle)),
      mChannel(platform.notifications, mSiblingWatch),
      mCounters(mStore),
      mActionLog(mStore),
      mHistory(mStore),
      mLog(platform.clock, mActionLog, mCounters, mChannel, mPreferences, mState, mTexts),
      mDebugLog(platform.clock, mStore.texts(), mStartOfScheduler,
                mSiblingWatch.isMainAppLaunched()),
      mMessages(platform.clock, mRunLoop, platform.machine, platform.userInterface,
                mState.deadlines, mPreferences, mLog, mStore.texts(), mStrings),
      mTree(mStore.tree(), platform.clock, platform.systemLog, mTexts),
      mVolumeIdentity(platform.volumes),
      mMountVolume(platform.processes, platform.machine, platform.systemLog),
      mMountedVolumes(platform.volumes),
      mConnectedVolumes(mRunLoop, mMountVolume),
      mVolumeWatch(mPlatform, mState.deadlines, mDebugLog, mMountedVolumes, mConnectedVolumes),
      mAliasMounter(mPlatform, mMessages, mTexts, mMountVolume.toolsFolder()),
      mVolumeMounter({mPlatform, mState, mPreferences, mMessages, mTexts, mMountVolume,
                      mConnectedVolumes, mAliasMounter, mStore.folder().pathOf("Alias")}),
      mRecoveryCopy(mRunLoop, mChannel, mMountVolume),
      mStartupDisk({mPlatform, mState, mPreferences, mTree, mLog, mMessages, mChannel,
                    mSiblingWatch, mTexts, mStrings,
                    mStore.installPaths().installPathForCode(InstallPaths::mainAppBundle)}),
      mSystemInformation(mPlatform, mStore, mStrings),
      mFreeSpaceHistory(mStore, mMountedVolumes),
      mMountedVolumesHistory(mStore, mMountedVolumes),
      mFreeSpaceSurvey(mPlatform, mPreferences, mFreeSpaceHistory),
      mVolumesFolderSurvey({mPlatform, mState, mPreferences, mStore.texts(), mLog, mChannel,
                            mSurvey, mTexts, mStrings}),
      mMail({mPlatform.clock, mPlatform.runLoop, mPlatform.machine, mPlatform.processes,
             mPlatform.systemLog, mPlatform.network}),
      mQueue(workSurroundings()),
      mEvaluation(workSurroundings(), mQueue, mMail),
      mSupervisor(workSurroundings(), mQueue),
      mContexts(workSurroundings(), mQueue),
      mEmailReport({mPlatform, mStore, mHistory, mPreferences, mMessages, mMail, mTexts, mStrings}),
      mSettingsBackup(workSurroundings()),
      mLongDisabledWarning(workSurroundings(), mHistory, mEvaluation),
      mWakeUp(workSurroundings(), mEvaluation, mSupervisor),
      mShutdownHelper(workSurroundings()),
      mInstanceCheck(mPlatform, mLog, mMessages, mTexts),
      mStatusItem(platform.clock, platform.userInterface, mState, mPreferences, mTexts),
      mFloatingIcon(platform.clock, platform.userInterface, mState, mPreferences, mStatusItem),
      mAnnounce(platform.userInterface, mTree, mQueue, mStrings, mTexts),
      mSiblingStatus(mChannel, mState, mPreferences, mSupervisor, platform.machine.bundlePath()),
      mLaunchStep({platform.clock, platform.userInterface, mState, mPreferences, mMessages,
                   mDebugLog, mTree, mQueue, mEvaluation, mSupervisor, mVolumeWatch, mAnnounce,
                   mTexts}),
      mControls({mPlatform, mState, mPreferences, mStore.texts(), mLog, mMessages, mChannel,
                 mSiblingStatus, mQueue, mEvaluation, mSupervisor, mContexts, mStatusItem,
                 mFloatingIcon, mLaunchStep, mVolumeMounter, mVolumesFolderSurvey, mTexts,
                 mStore.installPaths().installPathForCode(InstallPaths::mainAppBundle)}),
      mRemoteControl({mPlatform, mState, mPreferences, mTree, mControls, mLog, mMessages, mTexts}),
      mTick({mPlatform,       mState,       mStore,        mDebugLog,        mMessages,
             mSiblingWatch,   mQueue,       mEvaluation,   mSupervisor,      mVolumeWatch,
             mVolumeMounter,  mStatusItem,  mFloatingIcon, mLaunchStep,      mSiblingStatus,
             mSettingsBackup, mStartupDisk, mWakeUp,       mFreeSpaceSurvey, mVolumesFolderSurvey}),
      mTimer(mRunLoop, platform.clock, platform.input, mSurvey,
             {[this](std::int64_t n) { mTick.schedulerTick(n); },
              [this] { mState.userWasActive(mPlatform.clock.now()); },
              [this] { mPlatform.userInterface.popUpFloatingMenu(); },
              [this](int operation) { showShortcutTargets(operation); },
              [this] { mPlatform.userInterface.rearrangeMessageWindows(); }}),
      mDispatch({mPlatform, mState, mTree, mLog, mDebugLog, mSurvey, mMessages, mSiblingStatus,
                 mQueue, mEvaluation, mSupervisor, mAnnounce, mLaunchStep, mControls,
                 mVolumeMounter, mRecoveryCopy, mVolumesFolderSurvey, mGuard}),
      mAnswers({mPlatform, mState, mPreferences, mTree, mQueue, mEvaluation, mSupervisor,
                mLaunchStep, mSiblingStatus, mControls, mVolumeIdentity, mTexts, mStrings}) {
  wire();
  setUp();
}

MainScheduler::~MainScheduler() {
  if (mPlatform.agentObject != nullptr) mPlatform.agentObject->disappear();
  mPlatform.power.observe({});
}

void MainScheduler::wireWindows() {
  UserInterface& ui = mPlatform.userInterface;
  const auto surveyChanged = [&ui] { ui.windowChanged(Window::executionSurvey); };
  mSurvey.onUpdated = surveyChanged;
  mSupervisor.onExecuteReply = surveyChanged;
  mSupervisor.onSurveyLine = [this, surveyChanged](const std::string& line) {
    mSurveyLine = line;
    surveyChanged();
  };
}

WorkSurroundings MainScheduler::workSurroundings() {
  return {mPlatform, mTree,         mStore,          mCounters, mPreferences,
          mState,    mLog,          mDebugLog,       mSurvey,   mMessages,
          mChannel,  mSiblingWatch, mVolumeIdentity, mTexts,    mStrings};
}

UserInterfaceSources MainScheduler::userInterfaceSources() {
  UserInterfaceSources sources{mPlatform,   mControls,   mState,  mPreferences,    mStore,
                               mTree,       mHistory,    mLog,    mMessages,       mQueue,
                               mEvaluation, mSupervisor, mSurvey, mVolumeIdentity, mVolumeMounter,
                               mStatusItem, mTexts,      mStrings};
  sources.statusInformation = [this] { return mLaunchStep.statusInformation(); };
  sources.surveyLine = [this] { return mSurveyLine; };
  sources.lacking = [this](Ability ability) {
    if (ability == Ability::wake) return mWakeUp.hindrance();
    if (ability == Ability::network && mPlatform.services.isAway())
      return mTexts.text("LackingNetwork");
    const bool needsInput = ability == Ability::seeKeyboard || ability == Ability::seePointer;
    return needsInput && !mPlatform.input.pointer() ? mTexts.text("LackingInput") : std::string();
  };
  sources.strayFolders = [this] { return mVolumesFolderSurvey.errorText(); };
  sources.strayFoldersDate = [this] { return mVolumesFolderSurvey.errorDate(); };
  sources.strayFoldersProgress = [this] { return mVolumesFolderSurvey.progressText(); };
  sources.repairAndContinue = [this] { mControls.repairAndContinueExecution(); };
  sources.freePercent = [this] { return mFreeSpaceSurvey.lowSpacePercent(); };
  return sources;
}

void MainScheduler::wire() {
  mLog.showStandardMessage = [this](const std::string& text, int code) {
    mMessages.displayStandardMessage(text, code);
  };
  mLog.onErrorStateChanged = [this] {
    mState.updateMenu();
    if (mState.mErrorInExecution != 0) {
      mStatusItem.createStatusItem();
    } else {
      mStatusItem.errorsWereSeen();
    }
    tellThatAnswersChanged();
  };
  mLog.onFailure = [this] {
    if (mPreferences.mShowErrorWindows != 0)
      mPlatform.userInterface.showWindow(Window::errorSummary);
  };
  mMessages.onNotificationsChanged = [this] { mPlatform.userInterface.menusChanged(); };
  wireWork();
  wireVolumes();
  wireDrive();
  wireMachine();
  wireWindows();
}

void MainScheduler::wireWork() {
  mQueue.onQueueChanged = [this] { listsChanged(); };
  mQueue.onStatusItemNeeded = [this] { mStatusItem.createStatusItem(); };
  mQueue.onExecutionStatusChanged = [this] { mControls.updateExecutionStatusMenus(); };
  mQueue.onProgressReset = [this] { mPlatform.userInterface.setActionExecuted(-1, 0, 0); };
  mEvaluation.onNextActionsChanged = [this] { listsChanged(); };
  mEvaluation.onNextActionText = [this](const std::string& text) {
    mStatusItem.setStatusTitle(text);
    refreshToolTip(text);
  };
  mEvaluation.onCalendarChanged = [this](const ZAN_DateUtils& calendar) {
    mStrings.setTimeZone(calendar.zoneName());
  };
  mSupervisor.onProgressReset = mQueue.onProgressReset;
  mSupervisor.onStatusChanged = [this] { mSiblingStatus.sendSchedulerStatusToMainApp(); };
  mSupervisor.onStatusItemMayHide = [this](ReferenceTime at) { mStatusItem.canHide().set(at); };
  mSupervisor.onCurrentActionText = [this](const std::string& text) {
    mStatusItem.setStatusTitle(text);
  };
  mSupervisor.onExecutionEnded = [this] {
    mAnnounce.closeAnnounceWindow();
    mEvaluation.checkActionsToLaunch();
    listsChanged();
  };
  mContexts.onContextChanged = [this] {
    mStatusItem.forgetCurrentIcon();
    mState.updateMenu();
    // Who is due next is another question now.
    mState.checkAt(mPlatform.clock.now());
    tellThatAnswersChanged();
  };
}

void MainScheduler::wireVolumes() {
  mVolumeWatch.onVolumeMounted = [this](const std::string& path) {
    mEvaluation.checkActionsToLaunch(path);
  };
  mVolumeWatch.onListsUpdated = [this] { mPlatform.userInterface.menusChanged(); };
  mVolumeMounter.onCandidatesChanged = mVolumeWatch.onListsUpdated;
  mVolumeMounter.onSaveVolumesInfos = [this] {
    mVolumeWatch.saveVolumesInfos(mSupervisor.isExecuting());
  };
  mVolumeWatch.onSaveVolumesInfos = [this] {
    mFreeSpaceHistory.addVolumesSurveyorData();
    mMountedVolumesHistory.updateSurveyMountedVolumes();
  };
  mVolumeWatch.onMountedVolumesChanged = [this] {
    mMountedVolumesHistory.updateSurveyMountedVolumes();
  };
  mLaunchStep.isHeldBack = [this] { return mVolumeMounter.isUnmounting(); };
  mLaunchStep.onStrayFolders = [this] { return mVolumesFolderSurvey.holdsLaunchBack(); };
  mVolumesFolderSurvey.isExecuting = [this] { return mSupervisor.isExecuting(); };
  mVolumesFolderSurvey.onFinishedProcess = [this] { mSupervisor.clearFinishedProcess(); };
  mVolumesFolderSurvey.onPauseWanted = [this] { mControls.pauseExecution(); };
  mVolumesFolderSurvey.onContinueWanted = [this] { mControls.strayFoldersWereSeen(); };
}

void MainScheduler::wireDrive() {
  mSiblingStatus.onStatusSent = [this] { tellThatAnswersChanged(); };
  mStatusItem.isExecuting = [this] { return mSupervisor.isExecuting(); };
  mStatusItem.hasSurveyResult = [this] { return !mState.mSurveyFolderResult.isNull(); };
  mLaunchStep.onShutDownWanted = [this] { terminateAndShutDown(); };
  mLaunchStep.onAllDone = [this] { mControls.disableSchedule(); };
  mControls.onQuitWanted = [this] { terminateBySelf(); };
  mControls.onRelaunchWanted = [this] { relaunchScheduler(); };
  mControls.onActiveChanged = [this] { mRemoteControl.publishRemoteControl(); };
  mControls.onDailyReportWanted = [this] { mEmailReport.sendDailyReportNow(); };
  mControls.onPreferencesChanged = [this] {
    mStore.settings().applyDateLocaleFromSettings(mStrings);
    readShortcut();
    listsChanged();
    mRemoteControl.publishRemoteControl();
    mWakeUp.followPreferences();
    if (!mQueue.empty()) mQueue.saveActionsQueue();
  };
  mTick.onScreenChanged = [this] { mTimer.rearrangeWindowsAfter(kRearrangeAfter); };
  mTick.onToolTip = [this] { refreshToolTip({}); };
  mTick.onRelaunchWanted = [this] {
    mPlatform.runLoop.performAfter(1.0, [this] {
      if (mTick.rests()) mControls.relaunchScheduler();
    });
  };
  mTick.isBusyElsewhere = [this] {
    return mMail.isSending() || mVolumeMounter.hasVolumesToUnmount() ||
           mVolumeMounter.isUnmounting() || mVolumesFolderSurvey.isRemoving();
  };
  mTick.mustTerminateWhenAllDone = [this] { return mMustTerminateWhenAllDone; };
  mTick.onAllDone = [this] {
    if (std::exchange(mShutsDown, true)) return;
    mQueue.saveActionsQueue();
    mPlatform.runLoop.performAfter(0.05, [this] { shutDownMachine(); });
  };
  mTick.queueWindowOpenedByUser = [this] { return mControls.queueWindowOpenedByUser(); };
  mDispatch.onActionListChanged = [this] {
    mEvaluation.rebuildActionsList();
    mShutdownHelper.update();
    mPlatform.userInterface.menusChanged();
    mRemoteControl.publishRemoteControl();
  };
  mDispatch.onHistoryChanged = [this] {
    mHistory.results().updateActionResults();
    mHistory.reloadProgrammedHistoryList();
    listsChanged();
  };
  mDispatch.onDesktopOffered = [this](const auto& desktop) { moveTo(desktop); };
  mDispatch.onTerminateWhenAllDone = [this] { mMustTerminateWhenAllDone = true; };
}

void MainScheduler::wireMachine() {
  mPlatform.power.observe({[this] { machineWillSleep(); }, [this] { machineWillSleep(); },
                           // Others go on working on this machine, so does the agent.
                           [this] {
                             mMustTerminateWhenAllDone = false;
                             mShutdownHelper.update();
                           }});
  mLaunchStep.onStartupDiskQuestion = [this] {
    mPlatform.runLoop.performAfter(kStartupDiskQuestionDelay,
                                   [this] { mStartupDisk.askAboutStartupDiskChange(); });
  };
  mStartupDisk.liesOnStartupDisk = [this](const std::string& path) {
    const auto mount = VolumeReference(mPlatform.volumes).ofPath(path);
    return mount && mount->target == "/";
  };
  mSystemInformation.getAllVolumesDictionary = [this]() -> Result<ZAN_Value> {
    ZAN_Value list = mMountVolume.getAllVolumesDictionary();
    if (list.isNull()) return Error{ErrorKind::unavailable, "diskutil: it did not list the disks"};
    return list;
  };
  mStartupDisk.onChanged = [this] { mControls.updateExecutionStatusMenus(); };
  mControls.onAskAboutStartupDiskChange = [this] { mStartupDisk.askAboutStartupDiskChange(); };
  mControls.onConfirmStartupDisk = [this] { mStartupDisk.confirmStartupDisk(); };
  mControls.onSaveListProcess = [this] { return mSystemInformation.saveListProcess(); };
  mControls.onShowAllDisksInformation = [this] { mSystemInformation.showAllDisksInformation(); };
}

void MainScheduler::setUp() {
  mStore.createMissingDataFiles();
  mStore.reportMissingParts();
  const std::string& resources =
      mStore.installPaths().installPathForCode(InstallPaths::schedulerResources);
  if (const Outcome loaded = mTexts.load(resources, mPlatform.machine.languageNames()); !loaded) {
    mPlatform.systemLog.write(loaded.error().text);
  }
  mStore.settings().applyDateLocaleFromSettings(mStrings);
  mState.mMainAppLaunched = mSiblingWatch.isMainAppLaunched();
  mDispatch.setMainAppReceivesNotifications(mState.mMainAppLaunched);
  mPreferences.loadPrefs();
  mContexts.setContextMode(mPreferences.prefForKey(PreferenceKey::currentContext).integerValue());
  mState.mErrorInExecution = mPreferences.integer(PreferenceKey::errorInExecution, 0);
  readShortcut();
  mTree.rootItem();
  mTree.repairReferencesIfDuplicates();
  mStartupDisk.checkStartupDisk();
  mQueue.restoreActionsQueue();
  mWakeUp.restoreWakeup();
}

void MainScheduler::readShortcut() {
  mTimer.setShortcut(mPreferences.keysForShortcut(), mPreferences.mShortcutOperation);
}

void MainScheduler::applicationDidFinishLaunching() {
  RunLoop& loop = mPlatform.runLoop;
  Clock& clock = mPlatform.clock;
  const bool helperIsPrivileged = isHelperPrivileged();
  mDispatch.observe();
  if (mPreferences.mPrefScheduleDisabled == 0) {
    mControls.enableAfterStartup();
  } else {
    mState.checkAt(clock.now() + 1.0);
    mControls.updateExecutionStatusMenus();
  }
  mPlatform.userInterface.listsChanged();

  if (mState.mMainAppLaunched) {
    mLaunchStep.setWelcomeMessageWasDisplayed();
    mState.holdBackUntil(clock.now() + kHoldWithMainApp);
  } else {
    mState.holdBackUntil(clock.now() + kHoldAtLogin);
    const std::string& mainApp =
        mStore.installPaths().installPathForCode(InstallPaths::mainAppBundle);
    std::error_code ignored;
    const bool mainAppIsInstalled = std::filesystem::exists(
        mStore.installPaths().installPathForCode(InstallPaths::mainAppExecutable), ignored);
    if (!helperIsPrivileged && mainAppIsInstalled)
      static_cast<void>(mPlatform.processes.open(mainApp));
    // A date held against the date of the next free-space check: with any real one the hold is 60
    // s.
    if (mState.mPauseBeforeNextStep.at() > mPreferences.mCheckStartupDiskFreeSpace.at()) {
      mState.holdBackUntil(mState.mPauseBeforeNextStep.at() + kHoldAtLogin);
    }
  }

  mState.mFirstCheckAfterStartup = false;
  const auto quitDate = mPreferences.prefForKey("SchedulerQuitDate").asDate();
  if (quitDate && std::abs(*quitDate - clock.now()) < kRelaunchWindow) {
    mLaunchStep.setWelcomeMessageWasDisplayed();
    mState.holdBackUntil(clock.now() + kHoldAfterRelaunch);
  } else {
    mState.mFirstCheckAfterStartup = true;
  }
  if (mInstanceCheck.anotherInstanceRuns()) {
    leaveToTheOtherInstance();
    return;
  }

  if (mPlatform.agentObject != nullptr) mPlatform.agentObject->appear(mAnswers);
  mStatusItem.createStatusItem();
  loop.performAfter(5.0, [this] { mFloatingIcon.applyMode(); });
  mVolumeWatch.saveVolumesInfosAt(clock.now() + 30.0);
  mVolumeWatch.start();
  mTimer.start();
  loop.performAfter(kStartupDiskCheckDelay, [this] { checkStartupDiskAgain(); });
  mRemoteControl.publishRemoteControl();
  mLog.addSchedulerLog(LogCode::agentStarted);
  mEvaluation.rebuildActionsList();
  mShutdownHelper.update();
  mPlatform.userInterface.menusChanged();
  loop.performAfter(75.0, [this] { mLongDisabledWarning.checkIfExecutionIsDisabled(); });
  loop.performAfter(2.0, [this] { mSiblingStatus.sendSchedulerStatusToMainApp(); });
  mPreferences.savePrefs();
  recordActivity(kActivityStarted);
  executeRequestedActions();
  mEmailReport.start();
  mDebugLog.logMessage("Scheduler did finish launching", true);
  loop.performAfter(kLoginItemsDelay, [this] { mSystemInformation.saveListLoginItems(); });
  if (const Outcome counted =
          mStore.settings().incrementCounterInInMainPrefsForKey("SchedulerCounter");
      !counted) {
    mPlatform.systemLog.write(counted.error().text);
  }
}

bool MainScheduler::isHelperPrivileged() const {
  return mPlatform.machine.isOwnedByRootAndSetUserId(
      mStore.installPaths().installPathForCode(InstallPaths::adminLauncher));
}

void MainScheduler::leaveToTheOtherInstance() {
  mInstanceCheck.leaveToTheOtherInstance();
  // The other instance's preferences and queue are newer than what was read here: nothing is saved.
  mTerminateBySelf = true;
  // The loop may not run yet, and would not hear it.
  mPlatform.runLoop.performAfter(0, [this] { mPlatform.runLoop.quit(0); });
}

void MainScheduler::executeRequestedActions() {
  const std::string path = mStore.folder().dataFolderPathWithFileName(kRequestFile);
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored)) return;
  mPlatform.runLoop.performAfter(5.0, [this, path] { mQueue.executeActionsInFile(path); });
}

void MainScheduler::listsChanged() {
  UserInterface& ui = mPlatform.userInterface;
  ui.listsChanged();
  ui.setExecutionControlsEnabled(!mQueue.empty());
  tellThatAnswersChanged();
}

void MainScheduler::tellThatAnswersChanged() {
  if (mPlatform.agentObject != nullptr) mPlatform.agentObject->changed();
}

/// The helper that waits for a shut-down is not to hold this one up. Without it the system may end
/// programs at any moment: what waits to be written is written first.
void MainScheduler::shutDownMachine() {
  mPreferences.savePrefs();
  mStore.finishSaving();
  mShutdownHelper.end();
  mPlatform.clock.sleep(1.0);
  terminateAndShutDown();
}

/// Everything is saved before the power-off is asked for. When it is refused the machine stays on,
/// and with it a fresh agent.
void MainScheduler::terminateAndShutDown() {
  mPlatform.runLoop.performAfter(0.001, [this] {
    terminateBySelf();
    const Outcome outcome = mPlatform.power.shutDown();
    if (outcome) return;
    mPlatform.systemLog.write(outcome.error().text);
    mStore.texts().addToReportFile(mTexts.text("ShutDownRefused", {outcome.error().text}));
    mPlatform.systemLog.write(
        mPlatform.processes.relaunch(mPlatform.machine.executablePath()).text);
  });
}

/// Whoever has not been asked yet is asked now.
void MainScheduler::checkStartupDiskAgain() {
  const bool wasOpen = mState.mStartedFromNewMachine;
  mStartupDisk.checkStartupDisk();
  if (!wasOpen) mLaunchStep.askAboutStartupDisk();
}

void MainScheduler::showShortcutTargets(int operation) {
  if (operation == 0 || operation == 2) mControls.showWindow(Window::nextActions);
  if (operation == 1 || operation == 2) mControls.showAllVisibleWindows();
}

void MainScheduler::refreshToolTip(const std::string& text) {
  const std::string& help = mTexts.text("IconToolTip");
  mPlatform.userInterface.setToolTip(text.empty() ? help : text + "\n" + help);
}

void MainScheduler::skipTimerCalls(int calls) {
  // The tick body runs on odd counts.
  const std::int64_t before = (mTimer.counter() + 1) / 2;
  mTimer.skip(calls);
  const std::int64_t after = (mTimer.counter() + 1) / 2;
  const bool tickWasLast = mTimer.counter() % 2 != 0;
  mTick.skipTicks(after - 1, static_cast<int>(after - before),
                  mPlatform.clock.now() - (tickWasLast ? 0 : SchedulerTimer::kInterval));
}

void MainScheduler::recordActivity(std::int64_t status) {
  const auto running = mPlatform.processes.running();
  mStore.activity().saveActivity(status, mSiblingWatch.isMainAppAmong(running),
                                 mSiblingWatch.isExecuteAppAmong(running), std::nullopt, running);
}

void MainScheduler::terminateBySelf() {
  if (mTerminateBySelf) return;
  mTerminateBySelf = true;
  applicationShouldTerminate();
  applicationWillTerminate();
  mStore.finishSaving();
  if (mSelfRelaunch) {
    const std::string& executable = mPlatform.machine.executablePath();
    mPlatform.systemLog.write(mPlatform.processes.relaunch(executable).text);
  }
  mPlatform.runLoop.quit(0);
}

void MainScheduler::relaunchScheduler() {
  if (mMail.isSending()) {
    mPlatform.runLoop.performAfter(1.0, [this] { relaunchScheduler(); });
    return;
  }
  mSelfRelaunch = true;
  terminateBySelf();
}

void MainScheduler::goOnWithoutDesktop() {
  if (mTerminateBySelf) return;
  mQueue.saveWithWaitingHead();
  mSelfRelaunch = true;
  terminateBySelf();
}

/// An agent that has come to be without windows gets them where another was started.
void MainScheduler::moveTo(const std::map<std::string, std::string>& desktop) {
  if (mPlatform.userInterface.moveTo(desktop)) relaunchAfterExecution();
}

void MainScheduler::relaunchAfterExecution() {
  if (mSupervisor.isExecuting()) {
    mRunLoop.performAfter(1.0, [this] { relaunchAfterExecution(); });
    return;
  }
  mQueue.saveWithWaitingHead();
  relaunchScheduler();
}

void MainScheduler::applicationShouldTerminate() {
  mVolumesFolderSurvey.stopRemoving();
  recordActivity(kActivityQuits);
  mDebugLog.logMessage("Scheduler quits", true);
}

void MainScheduler::applicationWillTerminate() {
  if (mPlatform.agentObject != nullptr) mPlatform.agentObject->disappear();
  mTimer.stop();
  mRemoteControl.stop();
  if (mMustTerminateWhenAllDone) mShutdownHelper.end();
  mPreferences.setPref("SchedulerQuitDate", ZAN_Value::date(mPlatform.clock.now()));
  if (mPreferences.mShowMiniProgressPosition) {
    mPreferences.setPref(PreferenceKey::announcePositionX,
                         mPreferences.mShowMiniProgressPosition->x);
    mPreferences.setPref(PreferenceKey::announcePositionY,
                         mPreferences.mShowMiniProgressPosition->y);
  }
  mPreferences.savePrefs();
  mPlatform.notifications.stopObserving(std::string(kSchedulerNotification));
  mLog.addSchedulerLog(LogCode::agentTerminates);
  mStartupDisk.logStartupDiskInformation(true);
}

}  // namespace corvana
