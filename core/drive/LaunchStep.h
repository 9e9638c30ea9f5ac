#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

struct MachineDuties;
struct Records;
struct Work;

/// Why the head of the queue does not start now, as everybody tells it who is asked: `why`,
/// `status`, the status line, the windows and the answer to a launch.
struct LaunchHold {
  enum class Cause {
    none,  ///< the queue is empty, its head runs, or it starts at the next step
    switchedOff,
    paused,
    strayFolders,    ///< what is in the folder of volumes has to go first, or is looked at
    unmounting,      ///< a volume is let go
    treeUnreadable,  ///< the file with the actions cannot be read
    programMissing,  ///< the execute program is not there or does not start
    otherExecution,  ///< one that was started elsewhere runs
    message,         ///< a message is up, or waits to be
    wakingUp,        ///< the machine has just woken
    afterStart,      ///< the agent has just started
    afterCrash,      ///< an execution ended unexpectedly a moment ago
    date,            ///< its date has not come
  };
  Cause cause = Cause::none;
  ReferenceTime until = kNever;  ///< when that passes by itself; kNever when nobody knows

  static std::string_view nameOf(Cause cause);
};

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

  LaunchHold hold() const;
  /// The same in words; empty when nothing holds it.
  std::string holdText() const;

  /// What holds the scheduler up, or what it does, in a line; empty when there is nothing to say.
  std::string statusInformation() const;
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
