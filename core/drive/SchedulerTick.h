#pragma once

#include <string_view>

#include "core/record/Deadline.h"
#include "platform/Input.h"

namespace corvana {

class Controls;
class LaunchStep;
struct MachineDuties;
struct Records;
struct Work;

/// A duty of the tick.
struct TickRow {
  std::string_view name;
  int every;  ///< its turn comes at every so many ticks
  /// From when on it has something to do, as things are now; kAtOnce, kNever.
  std::function<ReferenceTime()> due;
  std::function<void(std::int64_t n)> duty;
  /// At its turn it is performed, due or not, when the tick comes for another one.
  bool always = false;
};

/// What the agent does over time, on a grid of half seconds: a table of duties, each at its
/// multiple of the tick or at its date. A tick at which no row is due need not come. Nothing is
/// launched for a while after the machine slept or the timer stalled. Thread: main.
class SchedulerTick {
 public:
  static constexpr double kInterval = 0.5;  ///< seconds between two ticks

  SchedulerTick(Records& records, Work& work, MachineDuties& machine, LaunchStep& launchStep,
                const Controls& controls);
  ~SchedulerTick();
  SchedulerTick(const SchedulerTick&) = delete;
  SchedulerTick& operator=(const SchedulerTick&) = delete;

  /// A row of a higher room, in the place behind the one of that name.
  void insertAfter(std::string_view name, TickRow row);

  // Hooks
  /// The agent is to restart itself a moment later, if it then still rests.
  std::function<void()> onRelaunchWanted;
  /// Everything is done, and the agent and the machine are to end.
  std::function<void()> onAllDone;

  /// Whether nothing waits or runs that the end of this process would cut off or lose.
  bool rests() const;

  /// One tick; `n` counts them from 0, those that did not come too. It was to come at `wanted`,
  /// monotonic seconds. An exception ends this tick only and is logged.
  void schedulerTick(std::int64_t n, double wanted);
  /// The first tick from `n` on that has to come, the tick `n` being `until` seconds away; nothing
  /// when none has.
  std::optional<std::int64_t> nextTick(std::int64_t n, double until) const;

  /// The machine is about to sleep, or has just woken: the next 50 ticks do nothing.
  void machineWillSleep();
  /// Somebody has set the clock: the next tick has to come.
  void clockWasSet();
  int wakeAfterSleepCounter() const { return mWakeAfterSleepCounter; }
  /// Seconds to the next action, while it is near.
  std::optional<int> countDown() const { return mCountDown; }

 private:
  void noticeClock(double wanted);
  bool sleepGate();
  std::vector<TickRow> ownRows();

  void saveActivity();
  void followUser();
  void watchMainApp();
  void lookAhead();
  void restWhenIdle();
  ReferenceTime userIsWatchedFrom() const;
  ReferenceTime nextLookAhead() const;
  ReferenceTime nextRest() const;
  int secondsToNextAction() const;
  bool queueWindowIsLeftOver() const;
  bool userIsBusyHere() const;

  Records& m;
  Work& mWork;
  MachineDuties& mMachine;
  LaunchStep& mLaunchStep;
  const Controls& mControls;
  std::vector<TickRow> mRows;  ///< in this order
  ReferenceTime mNow = 0;      ///< of the tick
  ReferenceTime mLastTimerExecution;
  double mLastMonotonic;
  bool mClockWasSet = false;
  int mWakeAfterSleepCounter = 0;
  Deadline mSchedulerLaunchTime;  ///< next restart when idle
  Deadline mNextActivity;         ///< the next minute to be noted
  Point mLastMouseLocation;
  Rect mLastScreen;
  bool mSiblingsMoved = true;     ///< a sibling program has started or ended since the last look
  bool mMainAppWasThere = false;  ///< when last looked; it is told when it comes
  std::optional<int> mCountDown;
};

}  // namespace corvana
