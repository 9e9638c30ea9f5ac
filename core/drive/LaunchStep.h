#pragma once

#include <functional>
#include <string>

namespace corvana {

class ActionQueue;
class ActionTree;
class Announce;
class Clock;
class DebugLog;
class ExecuteSupervisor;
class Messages;
class Preferences;
class TriggerEvaluation;
class UserInterface;
class VolumeWatch;
class ZAN_StringTable;
struct SchedulerState;

/// The step of the tick that starts the head of the queue when its date has come and looks after
/// the execution that runs. Thread: main.
class LaunchStep {
 public:
  /// What it leans on; everything outlives it.
  struct Surroundings {
    Clock& clock;
    UserInterface& userInterface;
    SchedulerState& state;
    Preferences& preferences;
    Messages& messages;
    DebugLog& debugLog;
    ActionTree& tree;
    ActionQueue& queue;
    TriggerEvaluation& evaluation;
    ExecuteSupervisor& supervisor;
    VolumeWatch& volumes;
    Announce& announce;
    const ZAN_StringTable& texts;
  };

  explicit LaunchStep(const Surroundings& surroundings);

  /// Everything asked for is done and the machine is to be shut down.
  std::function<void()> onShutDownWanted;
  /// All that waited when the user said "disable when all is done" is done.
  std::function<void()> onAllDone;
  /// Whether the next action has to wait for something that is being done outside.
  std::function<bool()> isHeldBack;
  /// The folder of volumes has strays in it: they are looked at before anything is launched. True
  /// when the launch has to wait.
  std::function<bool()> onStrayFolders;
  /// The start-up disk is another one: the user is to be asked.
  std::function<void()> onStartupDiskQuestion;

  /// Waits while a message waits to be shown and until the hold-back is over.
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
  /// Whether the step does nothing until something else happens.
  bool isAtRest() const;

 private:
  bool isAllDone() const;
  bool updateExecuteNowRequests();
  void showWelcomeMessage();
  void launchHead();
  void setStatusInformation(std::string text);

  Surroundings m;
  bool mWelcomeMessageWasDisplayed = false;
  bool mStartupDiskWasAsked = false;
  bool mMustShutDownAfterCurrentAction = false;
  std::string mRunningTitle;
  std::string mStatusInformation;
};

}  // namespace corvana
