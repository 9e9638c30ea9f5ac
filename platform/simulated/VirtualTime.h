#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"

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

}  // namespace corvana
