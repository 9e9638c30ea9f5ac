#pragma once

#include "core/drive/Controls.h"
#include "core/drive/InstanceCheck.h"
#include "core/drive/LaunchStep.h"
#include "core/drive/NotificationDispatch.h"
#include "core/drive/SchedulerTick.h"
#include "core/drive/SchedulerTimer.h"
#include "core/drive/StateAnswers.h"
#include "core/machine/MachineDuties.h"
#include "mail/report/EmailReport.h"
#include "mail/report/MailAccount.h"
#include "mail/report/OutgoingMail.h"
#include "mail/smtp/MailSender.h"
#include "remote/Pairing.h"
#include "remote/RemoteControl.h"
#include "ui/FloatingIcon.h"
#include "ui/StatusItem.h"
#include "ui/UserInterfaceSources.h"

namespace corvana {

/// The agent: owns the records and every duty, starts them in order and ends them. Thread: main.
class MainScheduler {
 public:
  /// Reads preferences and texts and restores the queue; nothing runs yet.
  explicit MainScheduler(const Platform& platform);
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

  // What the agent shows to tests.
  const ActionQueue& queue() const { return mWork.queue; }
  const TriggerEvaluation& evaluation() const { return mWork.evaluation; }
  const SchedulerState& state() const { return mRecords.state; }
  const ExecuteSupervisor& supervisor() const { return mWork.supervisor; }
  SchedulerTimer& timer() { return mTimer; }
  Preferences& preferences() { return mRecords.preferences; }
  ActionTree& tree() { return mRecords.tree; }
  ActionStore& store() { return mRecords.store; }
  Messages& messages() { return mRecords.messages; }

 private:
  void wire();
  void setUp();
  void follow(ChangeSet changes);
  bool isHelperPrivileged() const;
  void holdBackAfterStart(bool helperIsPrivileged);
  void leaveToTheOtherInstance();
  void executeRequestedActions();
  void endWhenAllIsDone();
  void shutDownMachine();
  void terminateAndShutDown();
  void checkStartupDiskAgain();
  void moveTo(const std::map<std::string, std::string>& desktop);
  void relaunchAfterExecution();
  void applicationShouldTerminate();
  void applicationWillTerminate();
  void recordActivity(std::int64_t status);

  Records mRecords;
  Work mWork;
  MachineDuties mMachine;
  MailSender mMailSender;
  MailAccount mMailAccount;
  OutgoingMail mMail;
  EmailReport mEmailReport;
  NotExecutedNotice mNotExecutedNotice;
  InstanceCheck mInstanceCheck;
  LaunchStep mLaunchStep;
  Controls mControls;
  NotificationDispatch mDispatch;
  StateAnswers mAnswers;
  RemoteControl mRemoteControl;
  PairingOffer mPairingOffer;
  StatusItem mStatusItem;
  FloatingIcon mFloatingIcon;
  SchedulerTick mTick;
  SchedulerTimer mTimer;

  bool mTerminateBySelf = false;
  bool mShutsDown = false;
  bool mSelfRelaunch = false;
};

}  // namespace corvana
