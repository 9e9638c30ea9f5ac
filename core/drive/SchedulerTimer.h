#pragma once

#include "platform/Input.h"
#include "platform/RunLoop.h"

namespace corvana {

class Controls;
class SchedulerTick;
struct Records;

/// The heartbeat: a grid of quarters of a second, at every second of which there may be a tick. It
/// comes only when somebody needs it, and counts as if each call had come. While the user's
/// shortcut or the menu bar is watched it comes every time: it samples the keyboard, fires the
/// shortcut once a press, and answers a click in the middle of the menu bar. Thread: main.
class SchedulerTimer {
 public:
  /// Seconds between two calls.
  static constexpr double kInterval = 0.25;

  SchedulerTimer(Records& records, SchedulerTick& tick, Controls& controls);
  ~SchedulerTimer();

  void start();
  void stop();
  /// Whether calls for which there is no need are left out, as is usual.
  void setSleeps(bool sleeps);

  /// One call of the timer.
  void timerFired();

  std::int64_t counter() const { return mCounter; }
  /// How many calls have really come.
  std::int64_t calls() const { return mCalls; }

 private:
  void readPreferences();
  void arm();
  std::optional<std::int64_t> nextCall() const;
  std::int64_t callsSinceStart() const;
  bool watchesInput() const;
  void noticeRest(const KeyMap& keys);
  void checkMenuBarClick();
  void checkShortcut(const KeyMap& keys);

  Records& m;
  SchedulerTick& mTick;
  Controls& mControls;
  RunLoop::TimerId mTimer = 0;
  std::optional<std::int64_t> mArmedFor;  ///< number of the call
  std::optional<double> mStart;           ///< monotonic; nothing while it does not run
  bool mSleeps = true;
  bool mInputTells = false;  ///< of the first use after a rest
  bool mSeesPointer = false;
  std::optional<Point> mLastPointer;
  int mStillCalls = 0;  ///< how many found keyboard and pointer as the one before
  std::int64_t mCounter = 0;
  std::int64_t mCalls = 0;
  KeyMap mDefinedMacKeyMap{};
  int mShortcutOperation = 0;
  bool mShortcutDone = false;
};

}  // namespace corvana
