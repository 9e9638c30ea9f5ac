#pragma once

#include <cstdint>
#include <functional>

#include "platform/Input.h"
#include "platform/RunLoop.h"

namespace corvana {

class Clock;
class SurveyExecution;

/// The heartbeat: every quarter of a second it samples the keyboard, fires the user's shortcut once
/// a press, counts down to a rearrangement of the message windows, and on every second call runs
/// the tick. Thread: main.
class SchedulerTimer {
 public:
  /// Seconds between two calls.
  static constexpr double kInterval = 0.25;

  struct Hooks {
    std::function<void(std::int64_t)> tick;  ///< the tick body; the argument is its index
    std::function<void()> userActivity;      ///< a key is down
    std::function<void()> popUpFloatingMenu;
    std::function<void(int)>
        shortcut;  ///< the operation: 0 search the actions, 1 show windows, 2 both
    std::function<void()> rearrangeWindows;
  };

  SchedulerTimer(RunLoop& runLoop, Clock& clock, Input& input, SurveyExecution& survey,
                 Hooks hooks);
  ~SchedulerTimer();

  void start();
  void stop();

  /// One call of the timer.
  void timerFired();

  /// All zero means that the user has no shortcut.
  void setShortcut(const KeyMap& keys, int operation);
  /// Rearranges the message windows after that many calls.
  void rearrangeWindowsAfter(int calls) { mMustReorganizeWindows = calls; }

  std::int64_t counter() const { return mCounter; }
  /// Counts calls that were left out because nothing could have come of them.
  void skip(std::int64_t calls) { mCounter += calls; }
  /// Seconds spent in calls so far.
  double timeSpent() const { return mTimeSpent; }

 private:
  void checkMenuBarClick();
  void checkShortcut(const KeyMap& keys);

  RunLoop& mRunLoop;
  Clock& mClock;
  Input& mInput;
  SurveyExecution& mSurvey;
  Hooks mHooks;
  RunLoop::TimerId mTimer = 0;
  std::int64_t mCounter = 0;
  KeyMap mDefinedMacKeyMap{};
  int mShortcutOperation = 0;
  bool mShortcutDone = false;
  int mMustReorganizeWindows = 0;
  double mTimeSpent = 0;
};

}  // namespace corvana
