#include "app/MainScheduler.h"

#include <cmath>
#include <filesystem>
#include <utility>

namespace corvana {

namespace {

constexpr double kHoldWithMainApp = 1.0;
constexpr double kHoldAtLogin = 30.0;
constexpr double kHoldAfterRelaunch = 2.0;
/// A quit no longer ago than this was a relaunch.
constexpr double kRelaunchWindow = 10.0;
constexpr double kStartupDiskCheckDelay = 300.0;
constexpr double kLoginItemsDelay = 25.0;
constexpr double kLongDisabledDelay = 75.0;
constexpr std::int64_t kActivityQuits = 1;
constexpr std::int64_t kActivityStarted = 2;
constexpr std::string_view kRequestFile = "Corvana 9 Execute Actions.cva9data";

}  // namespace

MainScheduler::MainScheduler(const Platform& platform)
    : mRecords(platform),
      mWork(mRecords),
      mMachine(mRecords, mWork),
      mMailSender(mRecords.platform.clock, mRecords.platform.runLoop, mRecords.platform.machine,
                  mRecords.platform.processes, mRecords.platform.systemLog,
                  mRecords.platform.network),
      mMailAccount(mRecords, mMailSender),
      mMail(mRecords, mMailSender),
      mEmailReport(mRecords, mMail),
      mNotExecutedNotice(mRecords, mWork.evaluation, mMail),
      mInstanceCheck(mRecords),
      mLaunchStep(mRecords, mWork, mMachine),
      mControls(mRecords, mWork, mMachine, mLaunchStep),
      mDispatch(mRecords, mWork, mMachine, mLaunchStep, mControls),
      mAnswers(mRecords, mWork, mLaunchStep, mControls),
      mRemoteControl(mRecords, mControls,
                     [this] { return MachineGlance::of(mRecords, mWork, mAnswers); }),
      mPairingOffer(mRecords),
      mStatusItem(mRecords, mWork),
      mFloatingIcon(mRecords, mWork.announce, mStatusItem),
      mTick(mRecords, mWork, mMachine, mLaunchStep, mControls),
      mTimer(mRecords, mTick, mControls) {
  wire();
  setUp();
}

MainScheduler::~MainScheduler() {
  if (mRecords.platform.agentObject != nullptr) mRecords.platform.agentObject->disappear();
  mRecords.platform.power.observe({});
}

UserInterfaceSources MainScheduler::userInterfaceSources() {
  UserInterfaceSources sources(mRecords, mWork, mMachine, mLaunchStep, mControls, mStatusItem);
  sources.setMailSetting = [this](const std::string& key, const ZAN_Value& value) {
    mMailAccount.set(key, value);
  };
  sources.sendTestMail = [this] { mMailAccount.test(); };
  sources.testMailResult = [this] { return mMailAccount.testResult(); };
  sources.offerPairing = [this] { mPairingOffer.begin(); };
  sources.pairingState = [this] { return mPairingOffer.text(); };
  sources.pairedMachines = [this] { return mPairingOffer.machines(); };
  sources.renamePaired = [this](const std::string& sender, const std::string& name) {
    mPairingOffer.rename(sender, name);
  };
  return sources;
}

/// What a lower room causes in a higher one; everything else is a call, or heard of as a change.
void MainScheduler::wire() {
  mMachine.folderSurvey.onPauseWanted = [this] { mControls.pauseExecution(); };
  mMachine.folderSurvey.onContinueWanted = [this] { mControls.strayFoldersWereSeen(); };
  mLaunchStep.onShutDownWanted = [this] { terminateAndShutDown(); };
  mControls.onQuitWanted = [this] { terminateBySelf(); };
  mControls.onRelaunchWanted = [this] { relaunchScheduler(); };
  mControls.onDailyReportWanted = [this] { mEmailReport.sendDailyReportNow(); };
  mRecords.storage.onBroughtBack = [this](std::string_view) {
    mRecords.preferences.loadPrefs();
    mRecords.changes.note(Change::preferences);
    mRecords.state.checkAt(mRecords.platform.clock.now());
  };
  mDispatch.onDesktopOffered = [this](const auto& desktop) { moveTo(desktop); };
  mTick.onRelaunchWanted = [this] {
    mRecords.platform.runLoop.performAfter(1.0, [this] {
      if (mTick.rests()) mControls.relaunchScheduler();
    });
  };
  mTick.onAllDone = [this] { endWhenAllIsDone(); };

  // Rows of the rooms above, each in its place.
  mTick.insertAfter("user", {"floating icon", 1, [this] { return mFloatingIcon.nextTurn(); },
                             [this](auto) { mFloatingIcon.turn(); }, true});
  mTick.insertAfter(
      "triggers",
      {"notice", 1, [this] { return mNotExecutedNotice.isWaiting() ? kAtOnce : kNever; },
       [this](auto) { mNotExecutedNotice.postNext(); }});
  mTick.insertAfter("look-ahead",
                    {"status icon", 1, [this] { return mStatusItem.nextTurn(); },
                     [this](std::int64_t n) { mStatusItem.turn(n, mTick.countDown()); }, true});

  mRecords.changes.listen([this](ChangeSet changes) { follow(changes); });
  mRecords.platform.power.observe({[this] { machineWillSleep(); }, [this] { machineWillSleep(); },
                                   // Others go on working on this machine, so does the agent.
                                   [this] {
                                     mRecords.state.mMustTerminateWhenAllDone = false;
                                     mMachine.shutdownHelper.update();
                                   }});
}

/// Windows, the bus and other machines hear of what has changed.
void MainScheduler::follow(ChangeSet changes) {
  if (changes.empty()) return;
  mRecords.platform.userInterface.changed(changes);
  if (mRecords.platform.agentObject != nullptr &&
      changes.hasAnyOf({Change::queue, Change::nextActions, Change::execution, Change::history,
                        Change::preferences}))
    mRecords.platform.agentObject->changed();
}

void MainScheduler::setUp() {
  Records& m = mRecords;
  m.store.createMissingDataFiles();
  m.store.reportMissingParts();
  const std::string& resources =
      m.store.installPaths().installPathForCode(InstallPaths::schedulerResources);
  if (const Outcome loaded = m.texts.load(resources, m.platform.machine.languageNames()); !loaded)
    m.platform.systemLog.write(loaded.error().text);
  m.store.settings().applyDateLocaleFromSettings(m.strings);
  m.state.mMainAppLaunched = m.siblingWatch.isMainAppLaunched();
  mDispatch.setMainAppReceivesNotifications(m.state.mMainAppLaunched);
  m.preferences.loadPrefs();
  mWork.contexts.setContextMode(
      m.preferences.prefForKey(PreferenceKey::currentContext).integerValue());
  m.log.restoreErrorState();
  m.tree.rootItem();
  m.tree.repairReferencesIfDuplicates();
  mMachine.startupDisk.checkStartupDisk();
  mInstanceCheck.claim();
  mWork.queue.restoreActionsQueue();
  mMachine.wakeUp.restoreWakeup();
}

void MainScheduler::applicationDidFinishLaunching() {
  Records& m = mRecords;
  RunLoop& loop = m.platform.runLoop;
  Clock& clock = m.platform.clock;
  const bool helperIsPrivileged = isHelperPrivileged();
  mDispatch.observe();
  if (m.preferences.mPrefScheduleDisabled == 0) {
    mWork.automatic.enableQuietly();
  } else {
    m.state.checkAt(clock.now() + 1.0);
    m.executionStatusChanged();
  }
  holdBackAfterStart(helperIsPrivileged);
  if (mInstanceCheck.anotherInstanceRuns()) {
    leaveToTheOtherInstance();
    return;
  }

  mWork.interruptions.takeUp();
  if (m.platform.agentObject != nullptr) m.platform.agentObject->appear(mAnswers);
  mStatusItem.createStatusItem();
  loop.performAfter(5.0, [this] { mFloatingIcon.applyMode(); });
  mMachine.volumeWatch.saveVolumesInfosAt(clock.now() + 30.0);
  mMachine.volumeWatch.start();
  mTimer.start();
  loop.performAfter(kStartupDiskCheckDelay, [this] { checkStartupDiskAgain(); });
  mRemoteControl.start();
  m.log.takeUpUntold();
  m.log.addSchedulerLog(LogCode::agentStarted);
  mWork.evaluation.rebuildActionsList();
  mMachine.shutdownHelper.update();
  loop.performAfter(kLongDisabledDelay,
                    [this] { mMachine.longDisabledWarning.checkIfExecutionIsDisabled(); });
  loop.performAfter(2.0, [this] { mRecords.executionStatusChanged(); });
  m.preferences.savePrefs();
  recordActivity(kActivityStarted);
  executeRequestedActions();
  mMail.start();
  mEmailReport.start();
  m.debugLog.logMessage("Scheduler did finish launching", true);
  loop.performAfter(kLoginItemsDelay, [this] { mMachine.systemInformation.saveListLoginItems(); });
  if (const Outcome counted =
          m.store.settings().incrementCounterInInMainPrefsForKey("SchedulerCounter");
      !counted)
    m.platform.systemLog.write(counted.error().text);
}

/// How long nothing is launched, and whether this is a cold start.
void MainScheduler::holdBackAfterStart(bool helperIsPrivileged) {
  Records& m = mRecords;
  const ReferenceTime now = m.platform.clock.now();
  if (m.state.mMainAppLaunched) {
    mLaunchStep.setWelcomeMessageWasDisplayed();
    m.state.holdBackUntil(now + kHoldWithMainApp, SchedulerState::HeldBack::afterStart);
  } else {
    m.state.holdBackUntil(now + kHoldAtLogin, SchedulerState::HeldBack::afterStart);
    const InstallPaths& paths = m.store.installPaths();
    std::error_code ignored;
    const auto isThere = [&](InstallPaths::Code part) {
      return std::filesystem::exists(paths.installPathForCode(part), ignored);
    };
    // A helper that has lost its rights is mended there; one that is not there is not wanted.
    if (!helperIsPrivileged && isThere(InstallPaths::adminLauncher) &&
        isThere(InstallPaths::mainAppExecutable)) {
      static_cast<void>(
          m.platform.processes.open(paths.installPathForCode(InstallPaths::mainAppBundle)));
    }
    // A date held against the date of the next free-space check: with any real one the hold is 60
    // s.
    if (m.state.mPauseBeforeNextStep.at() > m.preferences.mCheckStartupDiskFreeSpace.at())
      m.state.holdBackUntil(m.state.mPauseBeforeNextStep.at() + kHoldAtLogin,
                            SchedulerState::HeldBack::afterStart);
  }

  const auto quitDate = m.preferences.prefForKey("SchedulerQuitDate").asDate();
  const bool isRelaunch = quitDate && std::abs(*quitDate - now) < kRelaunchWindow;
  m.state.mFirstCheckAfterStartup = !isRelaunch;
  if (!isRelaunch) return;
  mLaunchStep.setWelcomeMessageWasDisplayed();
  m.state.holdBackUntil(now + kHoldAfterRelaunch, SchedulerState::HeldBack::afterStart);
}

bool MainScheduler::isHelperPrivileged() const {
  return mRecords.platform.machine.isOwnedByRootAndSetUserId(
      mRecords.store.installPaths().installPathForCode(InstallPaths::adminLauncher));
}

void MainScheduler::leaveToTheOtherInstance() {
  mInstanceCheck.leaveToTheOtherInstance();
  // The other instance's preferences and queue are newer than what was read here: nothing is saved.
  mTerminateBySelf = true;
  // The loop may not run yet, and would not hear it.
  RunLoop& loop = mRecords.platform.runLoop;
  loop.performAfter(0, [&loop] { loop.quit(0); });
}

void MainScheduler::executeRequestedActions() {
  const std::string path = mRecords.store.folder().dataFolderPathWithFileName(kRequestFile);
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored)) return;
  mRecords.platform.runLoop.performAfter(5.0,
                                         [this, path] { mWork.queue.executeActionsInFile(path); });
}

void MainScheduler::endWhenAllIsDone() {
  // A mail under way is sent first.
  if (mMailSender.isSending() || std::exchange(mShutsDown, true)) return;
  mWork.queue.saveActionsQueue();
  mRecords.platform.runLoop.performAfter(0.05, [this] { shutDownMachine(); });
}

/// The helper that waits for a shut-down is not to hold this one up. Without it the system may end
/// programs at any moment: what waits to be written is written first.
void MainScheduler::shutDownMachine() {
  mRecords.preferences.savePrefs();
  mRecords.store.finishSaving();
  mMachine.shutdownHelper.end();
  mRecords.platform.clock.sleep(1.0);
  terminateAndShutDown();
}

/// Everything is saved before the power-off is asked for. When it is refused the machine stays on,
/// and with it a fresh agent.
void MainScheduler::terminateAndShutDown() {
  mRecords.platform.runLoop.performAfter(0.001, [this] {
    terminateBySelf();
    const Platform& platform = mRecords.platform;
    const Outcome outcome = platform.power.shutDown();
    if (outcome) return;
    platform.systemLog.write(outcome.error().text);
    mRecords.store.texts().addToReportFile(
        mRecords.texts.text("ShutDownRefused", {outcome.error().text}));
    platform.systemLog.write(platform.processes.relaunch(platform.machine.executablePath()).text);
  });
}

/// Whoever has not been asked yet is asked now.
void MainScheduler::checkStartupDiskAgain() {
  const bool wasOpen = mRecords.state.mStartedFromNewMachine;
  mMachine.startupDisk.checkStartupDisk();
  if (!wasOpen) mLaunchStep.askAboutStartupDisk();
}

void MainScheduler::recordActivity(std::int64_t status) {
  Records& m = mRecords;
  const auto running = m.platform.processes.running();
  m.store.activity().saveActivity(status, m.siblingWatch.isMainAppAmong(running),
                                  m.siblingWatch.isExecuteAppAmong(running), std::nullopt, running);
}

void MainScheduler::terminateBySelf() {
  if (mTerminateBySelf) return;
  mTerminateBySelf = true;
  applicationShouldTerminate();
  applicationWillTerminate();
  mRecords.store.finishSaving();
  if (mSelfRelaunch) {
    const std::string& executable = mRecords.platform.machine.executablePath();
    mRecords.platform.systemLog.write(mRecords.platform.processes.relaunch(executable).text);
  }
  mRecords.platform.runLoop.quit(0);
}

void MainScheduler::relaunchScheduler() {
  if (mMailSender.isSending()) {
    mRecords.platform.runLoop.performAfter(1.0, [this] { relaunchScheduler(); });
    return;
  }
  mSelfRelaunch = true;
  terminateBySelf();
}

void MainScheduler::goOnWithoutDesktop() {
  if (mTerminateBySelf) return;
  mSelfRelaunch = true;
  terminateBySelf();
}

/// An agent that has come to be without windows gets them where another was started.
void MainScheduler::moveTo(const std::map<std::string, std::string>& desktop) {
  if (mRecords.platform.userInterface.moveTo(desktop)) relaunchAfterExecution();
}

void MainScheduler::relaunchAfterExecution() {
  if (mWork.supervisor.isExecuting()) {
    mRecords.platform.runLoop.performAfter(1.0, [this] { relaunchAfterExecution(); });
    return;
  }
  relaunchScheduler();
}

void MainScheduler::applicationShouldTerminate() {
  mMachine.folderSurvey.stopRemoving();
  recordActivity(kActivityQuits);
  mRecords.debugLog.logMessage("Scheduler quits", true);
}

void MainScheduler::applicationWillTerminate() {
  Records& m = mRecords;
  if (m.platform.agentObject != nullptr) m.platform.agentObject->disappear();
  mDispatch.takeUpLaunches();
  mTimer.stop();
  mWork.supervisor.agentEnds();
  mPairingOffer.end();
  mRemoteControl.stop();
  if (m.state.mMustTerminateWhenAllDone) mMachine.shutdownHelper.end();
  m.preferences.setPref("SchedulerQuitDate", ZAN_Value::date(m.platform.clock.now()));
  if (m.preferences.mShowMiniProgressPosition) {
    m.preferences.setPref(PreferenceKey::announcePositionX,
                          m.preferences.mShowMiniProgressPosition->x);
    m.preferences.setPref(PreferenceKey::announcePositionY,
                          m.preferences.mShowMiniProgressPosition->y);
  }
  m.preferences.savePrefs();
  m.platform.notifications.stopObserving(std::string(kSchedulerNotification));
  m.log.addSchedulerLog(LogCode::agentTerminates);
  mMachine.startupDisk.logStartupDiskInformation(true);
}

}  // namespace corvana
