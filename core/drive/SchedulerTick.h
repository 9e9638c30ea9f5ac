#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "core/record/Deadline.h"
#include "platform/Input.h"

namespace corvana {

class ActionQueue;
class ActionStore;
class DebugLog;
class ExecuteSupervisor;
class FloatingIcon;
class FreeSpaceSurvey;
class LaunchStep;
class Messages;
class SettingsBackup;
class SiblingStatus;
class SiblingWatch;
class StartupDisk;
class StatusItem;
class TriggerEvaluation;
class VolumeMounter;
class VolumeWatch;
class WakeUp;
class VolumesFolderSurvey;
struct Platform;
struct SchedulerState;

/// What the agent does over time, twice a second: a table of duties, each at its multiple of the
/// tick or at its date. Nothing is launched for a while after the machine slept or the timer
/// stalled. Thread: main.
class SchedulerTick {
 public:
  static constexpr double kInterval = 0.5;  ///< seconds between two ticks

  /// What it leans on; everything outlives it.
  struct Surroundings {
    Platform& platform;
    SchedulerState& state;
    ActionStore& store;
    DebugLog& debugLog;
    Messages& messages;
    SiblingWatch& siblingWatch;
    ActionQueue& queue;
    TriggerEvaluation& evaluation;
    ExecuteSupervisor& supervisor;
    VolumeWatch& volumes;
    VolumeMounter& mounter;
    StatusItem& statusItem;
    FloatingIcon& floatingIcon;
    LaunchStep& launchStep;
    SiblingStatus& siblings;
    SettingsBackup& settingsBackup;
    StartupDisk& startupDisk;
    WakeUp& wakeUp;
    FreeSpaceSurvey& freeSpace;
    VolumesFolderSurvey& folderSurvey;
  };

  explicit SchedulerTick(const Surroundings& surroundings);

  /// Refreshes the tool tip of the floating icon; before each complete evaluation.
  std::function<void()> onToolTip;
  /// The main screen has another size or place.
  std::function<void()> onScreenChanged;
  /// The agent is to restart itself a moment later, if it then still rests.
  std::function<void()> onRelaunchWanted;
  /// Whether the agent ends when everything is done, and what it does then.
  std::function<bool()> mustTerminateWhenAllDone;
  std::function<void()> onAllDone;
  /// Whether the user opened the window of the queue; otherwise it goes when the queue is empty.
  std::function<bool()> queueWindowOpenedByUser;
  /// Whether something runs that a restart would cut off.
  std::function<bool()> isBusyElsewhere;

  /// Whether nothing waits or runs that the end of this process would cut off or lose.
  bool rests() const;

  /// One tick; `n` counts them from 0. An exception ends this tick only and is logged.
  void schedulerTick(std::int64_t n);

  /// The machine is about to sleep, or has just woken: the next 50 ticks do nothing.
  void machineWillSleep() { mWakeAfterSleepCounter = 50; }
  int wakeAfterSleepCounter() const { return mWakeAfterSleepCounter; }

  /// How many coming ticks would change nothing, if nothing else happens meanwhile.
  int emptyTicks() const;
  /// Leaves `count` such ticks out, the last of them being `last`, which would have come at `at`.
  void skipTicks(std::int64_t last, int count, ReferenceTime at);

 private:
  struct Row {
    int every;                           ///< every that many ticks
    bool (SchedulerTick::*due)() const;  ///< and only then; null: always
    void (SchedulerTick::*duty)(std::int64_t n);
  };
  static const Row kRows[];

  void noticeClock();
  bool sleepGate();

  bool messageIsOver() const;
  bool checkIsDue() const;
  bool noticeWaits() const;
  bool savingIsDue() const;
  bool startupDiskIsLogged() const;
  bool wakeUpIsOn() const;
  bool surveyIsVisible() const;
  bool settingsMayBeCopied() const;
  bool freeSpaceIsDue() const;
  bool cleaningIsDue() const;
  bool strayFoldersAreShown() const;
  bool folderSurveyIsDue() const;
  bool messageCanFollow() const;
  bool mountedForActionsIsOver() const;
  bool mountListIsReady() const;

  void saveActivity(std::int64_t n);
  void followUser(std::int64_t n);
  void closeMessage(std::int64_t n);
  void checkTriggers(std::int64_t n);
  void postNotice(std::int64_t n);
  void saveVolumes(std::int64_t n);
  void logStartupDisk(std::int64_t n);
  void setWakeup(std::int64_t n);
  void refreshSurvey(std::int64_t n);
  void copySettings(std::int64_t n);
  void checkFreeSpace(std::int64_t n);
  void cleanVolumes(std::int64_t n);
  void watchMainApp(std::int64_t n);
  void checkVolumesFolder(std::int64_t n);
  void surveyVolumesFolder(std::int64_t n);
  void showNextMessage(std::int64_t n);
  void launch(std::int64_t n);
  void lookAhead(std::int64_t n);
  void drawStatusIcon(std::int64_t n);
  void unmountVolumes(std::int64_t n);
  void restWhenIdle(std::int64_t n);
  void buildMountList(std::int64_t n);

  bool inputRests() const;
  int secondsToNextAction() const;
  bool userIsBusyHere() const;
  void keepWindowsAndIcon();

  Surroundings m;
  ReferenceTime mNow = 0;  ///< of the tick
  std::int64_t mLastTick = -1;
  ReferenceTime mLastTimerExecution;
  int mWakeAfterSleepCounter = 0;
  Deadline mSchedulerLaunchTime;  ///< next restart when idle
  Point mLastMouseLocation;
  Rect mLastScreen;
  bool mMainAppWasThere = false;  ///< when last looked; it is told when it comes
  std::optional<int> mCountDown;  ///< seconds, while the next action is near
};

}  // namespace corvana
