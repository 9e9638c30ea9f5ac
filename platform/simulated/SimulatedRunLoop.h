#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/Clock.h"
#include "platform/RunLoop.h"

namespace corvana {

/// The time of a simulated machine and what is to happen in it. Nothing here looks at real time:
/// the clock stands still until somebody sleeps or the loop runs on to the next event, so a run is
/// the same each time.
///
/// Events of the loop wait while the main thread sleeps; events of the world (children, other
/// threads) take place all the same. Threads are real ones under a baton: one runs at a time, and
/// only a sleep or its end lets the others go on. So a thread must not wait for another in any way
/// but sleeping.
class VirtualTime {
 public:
  using EventId = std::uint64_t;
  enum class Kind { loop, world };

  explicit VirtualTime(ReferenceTime now);
  VirtualTime(const VirtualTime&) = delete;
  VirtualTime& operator=(const VirtualTime&) = delete;
  /// Lets the threads go on, in virtual time, until each has ended.
  ~VirtualTime();

  ReferenceTime now() const;
  double monotonic() const;
  /// Makes wall-clock time jump, both ways; monotonic time and the dates of events stay.
  void setNow(ReferenceTime now);

  /// Monotonic time in nanoseconds, the unit of all dates here.
  std::int64_t nanoseconds() const { return mNanoseconds; }
  static std::int64_t toNanoseconds(double seconds);

  /// Adds an event; a date in the past means now. Events of one date keep their order. Thread: any.
  EventId add(Kind kind, std::int64_t date, std::function<void()> body);
  void cancel(EventId event);
  /// Whether no event waits; repeating ones are their owner's business.
  std::size_t waiting() const;
  /// The date of the earliest event, leaving out one.
  std::optional<std::int64_t> nextDate(EventId except = 0) const;
  /// The earliest event, 0 without one.
  EventId nextEvent() const;
  /// Moves to the earliest event that is not later than `limit` and performs it; false without one.
  bool performNext(std::int64_t limit, bool worldOnly);
  /// Moves on without performing anything; never backwards.
  void advanceTo(std::int64_t date);
  /// Forgets every event of the loop, as the end of a process does.
  void dropLoopEvents();

  /// Blocks the calling thread: the main thread lets the world pass, another gives the baton away.
  void sleep(double seconds);
  /// A thread that first runs when the main thread next runs its loop or sleeps. Thread: any under
  /// the baton.
  void startThread(std::function<void()> body);
  /// Lets every thread run to its end, moving time on as they sleep.
  void finishThreads();
  std::size_t threadsAlive() const;

 private:
  using Key = std::pair<std::int64_t, EventId>;
  using Events = std::map<Key, std::function<void()>>;
  struct Thread {
    std::thread thread;
    bool ended = false;
  };

  const Events::value_type* earliest(bool worldOnly, EventId except) const;
  void resume(Thread& thread);
  void giveBatonBack(std::unique_lock<std::mutex>& lock, Thread& thread);
  Thread* current();

  std::atomic<std::int64_t> mNanoseconds;
  std::atomic<std::int64_t> mWallOffset;
  const std::thread::id mMainThread;

  mutable std::mutex mEventsMutex;
  EventId mLastEvent = 0;
  Events mLoopEvents;
  Events mWorldEvents;
  std::unordered_map<EventId, std::int64_t> mDates;

  mutable std::mutex mBatonMutex;
  std::condition_variable mBatonPassed;
  Thread* mHolder = nullptr;  ///< null: the main thread
  std::vector<std::unique_ptr<Thread>> mThreads;
};

/// A clock that moves only when somebody sleeps or the simulated loop runs.
class SimulatedClock final : public Clock {
 public:
  explicit SimulatedClock(VirtualTime& time) : mTime(time) {}

  ReferenceTime now() const override { return mTime.now(); }
  double monotonic() const override { return mTime.monotonic(); }
  /// On the main thread time moves on and nothing of the loop runs; another thread gives the baton
  /// away.
  void sleep(double seconds) override { mTime.sleep(seconds); }

  void observe(std::function<void()> jumped) override { mJumped = std::move(jumped); }

  /// Wall-clock time jumps, both ways, as by a user, a time server or a machine that slept. The
  /// observer hears of it when the loop runs.
  void setNow(ReferenceTime now) {
    mTime.setNow(now);
    if (!mJumped) return;
    mTime.add(VirtualTime::Kind::loop, mTime.nanoseconds(), [this] {
      const auto jumped = mJumped;
      if (jumped) jumped();
    });
  }

 private:
  VirtualTime& mTime;
  std::function<void()> mJumped;
};

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
