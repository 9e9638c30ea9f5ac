#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/RunLoop.h"
#include "platform/simulated/VirtualTime.h"

namespace corvana {

/// The main loop in virtual time. Each `run…` ends early when the program quits or replaces itself.
class SimulatedRunLoop final : public RunLoop {
 public:
  explicit SimulatedRunLoop(VirtualTime& time) : mTime(time) {}

  TimerId performAfter(double delay, std::function<void()> body) override;
  TimerId repeat(double interval, std::function<void()> body) override;
  void cancel(TimerId timer) override;
  void performOnMain(std::function<void()> body) override;
  /// The thread begins when the loop next runs or the main thread sleeps; its sleeps give the baton
  /// away.
  void detachThread(const std::string& name, std::function<void()> body) override;
  /// Returns the code given to `quit`, or -1 when nothing is left that could happen.
  int run() override;
  void quit(int code) override;

  /// Performs what falls due in the next seconds of monotonic time, the last instant included.
  void runFor(double seconds);
  /// Performs what falls due until wall-clock time has reached the date, jumps on the way included.
  void runUntil(ReferenceTime date);
  /// Performs until the condition holds; false when it still does not after `seconds`.
  bool runUntil(const std::function<bool()>& condition, double seconds);
  /// Performs until only repeating timers wait, `seconds` at most; whether that was reached.
  bool runUntilIdle(double seconds = 3600);

  /// The code that the program gave to `quit` during the latest `run…`, nothing when it did not
  /// quit.
  std::optional<int> quitCode() const { return mQuitCode; }

  /// Ends what is being performed by unwinding to the loop, which then returns with all timers
  /// gone: the running program has been replaced. Only inside `run…`; returns at once elsewhere.
  void endByReplacement();

 private:
  struct Timer {
    std::int64_t start = 0;
    std::int64_t interval = 0;  ///< 0: once
    std::int64_t date = 0;
    VirtualTime::EventId event = 0;
    std::function<void()> body;
  };
  struct Replaced {};

  void begin();
  bool step(std::int64_t limit);
  void arm(TimerId id, Timer& timer);
  void fire(TimerId id);
  bool isOver() const { return mQuitCode.has_value() || mReplaced; }

  VirtualTime& mTime;
  TimerId mLastTimer = 0;
  std::map<TimerId, Timer> mTimers;
  std::optional<int> mQuitCode;
  bool mReplaced = false;
  int mDepth = 0;
};

}  // namespace corvana
