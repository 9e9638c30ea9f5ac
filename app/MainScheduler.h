#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionLog.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ExecutionCounters.h"
#include "actions/History.h"
#include "core/drive/Controls.h"
#include "core/drive/InstanceCheck.h"
#include "core/drive/LaunchStep.h"
#include "core/drive/NotificationDispatch.h"
#include "core/drive/SchedulerTick.h"
#include "core/drive/SchedulerTimer.h"
#include "core/drive/SiblingStatus.h"
#include "core/drive/StateAnswers.h"
#include "core/machine/AliasMounter.h"
#include "core/machine/FreeSpaceSurvey.h"
#include "core/machine/LongDisabledWarning.h"
#include "core/machine/RecoveryCopy.h"
#include "core/machine/SettingsBackup.h"
#include "core/machine/ShutdownHelper.h"
#include "core/machine/StartupDisk.h"
#include "core/machine/SystemInformation.h"
#include "core/machine/VolumeMounter.h"
#include "core/machine/VolumeWatch.h"
#include "core/machine/VolumesFolderSurvey.h"
#include "core/machine/WakeUp.h"
#include "core/record/DebugLog.h"
#include "core/record/ExceptionGuard.h"
#include "core/record/Messages.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerLog.h"
#include "core/record/SchedulerState.h"
#include "core/record/SiblingChannel.h"
#include "core/record/SiblingWatch.h"
#include "core/record/SurveyExecution.h"
#include "core/work/ActionQueue.h"
#include "core/work/Contexts.h"
#include "core/work/ExecuteSupervisor.h"
#include "core/work/TriggerEvaluation.h"
#include "core/work/WorkSurroundings.h"
#include "mail/report/EmailReport.h"
#include "mail/smtp/MailSender.h"
#include "platform/Platform.h"
#include "remote/RemoteControl.h"
#include "ui/Announce.h"
#include "ui/FloatingIcon.h"
#include "ui/StatusItem.h"
#include "ui/UserInterfaceSources.h"
#include "volumes/FreeSpaceHistory.h"
#include "volumes/MountedVolumesHistory.h"
#include "volumes/VolumeIdentity.h"
#include "volumes/ZAN_ConnectedVolumes.h"
#include "volumes/ZAN_MountVolume.h"
#include "volumes/ZAN_MountedVolumes.h"

namespace corvana {

/// The agent: owns every duty, wires them together, starts them in order and ends them. Thread:
/// main.
class MainScheduler {
 public:
  /// Reads preferences and texts and restores the queue; nothing runs yet.
  explicit MainScheduler(Platform platform);
  ~MainScheduler();
  MainScheduler(const MainScheduler&) = delete;
  MainScheduler& operator=(const MainScheduler&) = delete;

  /// The start-up sequence, at whose end the timer runs. When another agent of this user runs, it
  /// says so, blocks for 15 s and ends the agent without saving anything.
  void applicationDidFinishLaunching();

  /// Ends the agent: records it, saves the preferences and quits the loop.
  void terminateBySelf();
  /// The same, and the process goes on as a fresh run of the agent.
  void relaunchScheduler();
  /// The desktop has gone. Everything is saved, the queue with a head that does not run yet, and
  /// this process replaced by one without windows. Returns only when it cannot be replaced.
  void goOnWithoutDesktop();
  /// The system is about to sleep, or has just woken.
  void machineWillSleep() { mTick.machineWillSleep(); }

  SchedulerCommands& commands() { return mControls; }
  /// What menus and windows are made from; of use while the agent lives.
  UserInterfaceSources userInterfaceSources();

  /// For a simulated timer: how many coming calls of it would change nothing if nothing else
  /// happens, and the leaving out of that many, the clock standing at the last of them.
  int emptyTimerCalls() const { return 2 * mTick.emptyTicks(); }
  void skipTimerCalls(int calls);

  // What the agent shows to the bus, and to tests.
  const ActionQueue& queue() const { return mQueue; }
  const TriggerEvaluation& evaluation() const { return mEvaluation; }
  const SchedulerState& state() const { return mState; }
  const ExecuteSupervisor& supervisor() const { return mSupervisor; }
  Preferences& preferences() { return mPreferences; }
  ActionTree& tree() { return mTree; }
  ActionStore& store() { return mStore; }
  Messages& messages() { return mMessages; }

 private:
  void wire();
  void wireWork();
  void wireVolumes();
  void wireDrive();
  void wireWindows();
  void setUp();
  void readShortcut();
  bool isHelperPrivileged() const;
  void leaveToTheOtherInstance();
  void executeRequestedActions();
  void listsChanged();
  void tellThatAnswersChanged();
  void wireMachine();
  void shutDownMachine();
  void terminateAndShutDown();
  void checkStartupDiskAgain();
  void showShortcutTargets(int operation);
  void refreshToolTip(const std::string& text);
  void moveTo(const std::map<std::string, std::string>& desktop);
  void relaunchAfterExecution();
  void applicationShouldTerminate();
  void applicationWillTerminate();
  void recordActivity(std::int64_t status);
  WorkSurroundings workSurroundings();

  ExceptionGuard mGuard;
  GuardedRunLoop mRunLoop;
  Platform mPlatform;
  ReferenceTime mStartOfScheduler;
  ActionStore mStore;
  ZAN_StringTable mTexts;
  ZAN_StringUtils mStrings;
  SchedulerState mState;
  Preferences mPreferences;
  SurveyExecution mSurvey;
  SiblingWatch mSiblingWatch;
  SiblingChannel mChannel;
  ExecutionCounters mCounters;
  ActionLog mActionLog;
  History mHistory;
  SchedulerLog mLog;
  DebugLog mDebugLog;
  Messages mMessages;
  ActionTree mTree;
  VolumeIdentity mVolumeIdentity;
  ZAN_MountVolume mMountVolume;
  ZAN_MountedVolumes mMountedVolumes;
  ZAN_ConnectedVolumes mConnectedVolumes;
  VolumeWatch mVolumeWatch;
  AliasMounter mAliasMounter;
  VolumeMounter mVolumeMounter;
  RecoveryCopy mRecoveryCopy;
  StartupDisk mStartupDisk;
  SystemInformation mSystemInformation;
  FreeSpaceHistory mFreeSpaceHistory;
  MountedVolumesHistory mMountedVolumesHistory;
  FreeSpaceSurvey mFreeSpaceSurvey;
  VolumesFolderSurvey mVolumesFolderSurvey;
  MailSender mMail;
  ActionQueue mQueue;
  TriggerEvaluation mEvaluation;
  ExecuteSupervisor mSupervisor;
  Contexts mContexts;
  EmailReport mEmailReport;
  SettingsBackup mSettingsBackup;
  LongDisabledWarning mLongDisabledWarning;
  WakeUp mWakeUp;
  ShutdownHelper mShutdownHelper;
  InstanceCheck mInstanceCheck;
  StatusItem mStatusItem;
  FloatingIcon mFloatingIcon;
  Announce mAnnounce;
  SiblingStatus mSiblingStatus;
  LaunchStep mLaunchStep;
  Controls mControls;
  RemoteControl mRemoteControl;
  SchedulerTick mTick;
  SchedulerTimer mTimer;
  NotificationDispatch mDispatch;
  StateAnswers mAnswers;

  std::string mSurveyLine;
  bool mMustTerminateWhenAllDone = false;
  bool mTerminateBySelf = false;
  bool mShutsDown = false;
  bool mSelfRelaunch = false;
};

}  // namespace corvana
