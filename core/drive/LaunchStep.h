#pragma once

#include <functional>
#include <string>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

struct MachineDuties;
struct Records;
struct Work;

/// The step of the tick that starts the head of the queue when its date has come. Thread: main.
class LaunchStep {
 public:
  LaunchStep(Records& records, Work& work, MachineDuties& machine)
      : m(records), mWork(work), mMachine(machine) {}

  /// Everything asked for is done and the machine is to be shut down.
  std::function<void()> onShutDownWanted;

  /// Waits until the hold-back is over; the head also while a message is to be read first.
  void run();

  /// A welcome is not wanted, or was given.
  void setWelcomeMessageWasDisplayed() { mWelcomeMessageWasDisplayed = true; }
  bool welcomeMessageWasDisplayed() const { return mWelcomeMessageWasDisplayed; }
  /// The user is asked about the start-up disk, also when an earlier question was answered.
  void askAboutStartupDisk() { mStartupDiskWasAsked = false; }
  void shutDownAfterCurrentAction() { mMustShutDownAfterCurrentAction = true; }

  /// What holds the scheduler up, or what it does, in a line; empty when there is nothing to say.
  const std::string& statusInformation() const { return mStatusInformation; }
  void clearStatusInformation();
  /// From when on the step has something to do, if nothing else happens.
  ReferenceTime nextWork() const;

 private:
  bool isAllDone() const;
  bool hasWork() const;
  bool isMessageToBeRead() const;
  bool saysWhatIsOver() const;
  ReferenceTime headIsFarUntil() const;
  ReferenceTime nextIdleMinute() const;
  bool updateExecuteNowRequests();
  void showWelcomeMessage();
  void launchHead();
  void setStatusInformation(std::string text);

  Records& m;
  Work& mWork;
  MachineDuties& mMachine;
  bool mWelcomeMessageWasDisplayed = false;
  bool mStartupDiskWasAsked = false;
  bool mMustShutDownAfterCurrentAction = false;
  std::string mRunningTitle;
  std::string mStatusInformation;
};

}  // namespace corvana
