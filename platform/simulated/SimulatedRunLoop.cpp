#include "platform/simulated/SimulatedRunLoop.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace corvana {

namespace {

constexpr std::int64_t kStart = 1'000'000'000'000;  // monotonic time begins at 1000 s
constexpr int kMaximumResumes = 1'000'000;

// The wider type keeps a date of the caller exact on its way to nanoseconds and back.
double toSeconds(std::int64_t nanoseconds) {
  return static_cast<double>(static_cast<long double>(nanoseconds) / 1e9L);
}

}  // namespace

VirtualTime::VirtualTime(ReferenceTime now)
    : mNanoseconds(kStart),
      mWallOffset(toNanoseconds(now) - kStart),
      mMainThread(std::this_thread::get_id()) {}

VirtualTime::~VirtualTime() { finishThreads(); }

ReferenceTime VirtualTime::now() const { return toSeconds(mNanoseconds + mWallOffset); }

double VirtualTime::monotonic() const { return toSeconds(mNanoseconds); }

void VirtualTime::setNow(ReferenceTime now) { mWallOffset = toNanoseconds(now) - mNanoseconds; }

std::int64_t VirtualTime::toNanoseconds(double seconds) {
  constexpr long double kLimit = 4e18L;
  const long double exact = static_cast<long double>(seconds) * 1e9L;
  if (std::isnan(seconds)) return 0;
  return std::llround(std::clamp(exact, -kLimit, kLimit));
}

VirtualTime::EventId VirtualTime::add(Kind kind, std::int64_t date, std::function<void()> body) {
  const std::lock_guard lock(mEventsMutex);
  const EventId id = ++mLastEvent;
  const std::int64_t when = std::max(date, mNanoseconds.load());
  (kind == Kind::loop ? mLoopEvents : mWorldEvents).emplace(Key(when, id), std::move(body));
  mDates.emplace(id, when);
  return id;
}

void VirtualTime::cancel(EventId event) {
  const std::lock_guard lock(mEventsMutex);
  const auto found = mDates.find(event);
  if (found == mDates.end()) return;
  const Key key(found->second, event);
  mLoopEvents.erase(key);
  mWorldEvents.erase(key);
  mDates.erase(found);
}

std::size_t VirtualTime::waiting() const {
  const std::lock_guard lock(mEventsMutex);
  return mDates.size();
}

const VirtualTime::Events::value_type* VirtualTime::earliest(bool worldOnly, EventId except) const {
  const Events::value_type* best = nullptr;
  const auto consider = [&](const Events& events) {
    auto first = events.begin();
    if (first != events.end() && first->first.second == except) ++first;
    if (first != events.end() && (best == nullptr || first->first < best->first)) best = &*first;
  };
  consider(mWorldEvents);
  if (!worldOnly) consider(mLoopEvents);
  return best;
}

std::optional<std::int64_t> VirtualTime::nextDate(EventId except) const {
  const std::lock_guard lock(mEventsMutex);
  const auto* next = earliest(false, except);
  return next == nullptr ? std::nullopt : std::optional(next->first.first);
}

VirtualTime::EventId VirtualTime::nextEvent() const {
  const std::lock_guard lock(mEventsMutex);
  const auto* next = earliest(false, 0);
  return next == nullptr ? 0 : next->first.second;
}

bool VirtualTime::performNext(std::int64_t limit, bool worldOnly) {
  std::function<void()> body;
  {
    const std::lock_guard lock(mEventsMutex);
    const auto* next = earliest(worldOnly, 0);
    // What is overdue takes place now, even when the limit is in the past.
    if (next == nullptr || next->first.first > std::max(limit, mNanoseconds.load())) return false;
    const Key key = next->first;
    Events& events = mWorldEvents.contains(key) ? mWorldEvents : mLoopEvents;
    body = std::move(events.extract(key).mapped());
    mDates.erase(key.second);
    mNanoseconds = std::max(mNanoseconds.load(), key.first);
  }
  body();
  return true;
}

void VirtualTime::advanceTo(std::int64_t date) {
  mNanoseconds = std::max(mNanoseconds.load(), date);
}

void VirtualTime::dropLoopEvents() {
  Events dropped;
  const std::lock_guard lock(mEventsMutex);
  for (const auto& event : mLoopEvents) mDates.erase(event.first.second);
  dropped.swap(mLoopEvents);
}

void VirtualTime::sleep(double seconds) {
  const std::int64_t end = mNanoseconds + std::max<std::int64_t>(toNanoseconds(seconds), 0);
  if (std::this_thread::get_id() == mMainThread) {
    while (performNext(end, true)) {
    }
    advanceTo(end);
    return;
  }
  Thread* thread = current();
  if (thread == nullptr) throw std::logic_error("a thread that the run loop does not know sleeps");
  add(Kind::world, end, [this, thread] { resume(*thread); });
  std::unique_lock lock(mBatonMutex);
  giveBatonBack(lock, *thread);
}

void VirtualTime::startThread(std::function<void()> body) {
  auto made = std::make_unique<Thread>();
  Thread* thread = made.get();
  {
    const std::lock_guard lock(mBatonMutex);
    mThreads.push_back(std::move(made));
    thread->thread = std::thread([this, thread, body = std::move(body)]() mutable {
      {
        std::unique_lock wait(mBatonMutex);
        mBatonPassed.wait(wait, [&] { return mHolder == thread; });
      }
      body();
      body = nullptr;
      const std::lock_guard end(mBatonMutex);
      thread->ended = true;
      mHolder = nullptr;
      mBatonPassed.notify_all();
    });
  }
  add(Kind::world, mNanoseconds, [this, thread] { resume(*thread); });
}

void VirtualTime::resume(Thread& thread) {
  bool ended = false;
  {
    std::unique_lock lock(mBatonMutex);
    mHolder = &thread;
    mBatonPassed.notify_all();
    mBatonPassed.wait(lock, [&] { return mHolder == nullptr; });
    ended = thread.ended;
  }
  if (!ended) return;
  thread.thread.join();
  const std::lock_guard lock(mBatonMutex);
  std::erase_if(mThreads, [&](const auto& one) { return one.get() == &thread; });
}

void VirtualTime::giveBatonBack(std::unique_lock<std::mutex>& lock, Thread& thread) {
  mHolder = nullptr;
  mBatonPassed.notify_all();
  mBatonPassed.wait(lock, [&] { return mHolder == &thread; });
}

VirtualTime::Thread* VirtualTime::current() {
  const std::lock_guard lock(mBatonMutex);
  for (const auto& thread : mThreads) {
    if (thread->thread.get_id() == std::this_thread::get_id()) return thread.get();
  }
  return nullptr;
}

std::size_t VirtualTime::threadsAlive() const {
  const std::lock_guard lock(mBatonMutex);
  return mThreads.size();
}

void VirtualTime::finishThreads() {
  for (int resumes = 0; threadsAlive() > 0; ++resumes) {
    if (resumes == kMaximumResumes) {
      std::fputs("a detached thread does not end by itself\n", stderr);
      std::abort();
    }
    performNext(std::numeric_limits<std::int64_t>::max(), true);
  }
}

RunLoop::TimerId SimulatedRunLoop::performAfter(double delay, std::function<void()> body) {
  const TimerId id = ++mLastTimer;
  Timer& timer = mTimers[id];
  timer.body = std::move(body);
  timer.date = mTime.nanoseconds() + std::max<std::int64_t>(VirtualTime::toNanoseconds(delay), 0);
  arm(id, timer);
  return id;
}

RunLoop::TimerId SimulatedRunLoop::repeat(double interval, std::function<void()> body) {
  const TimerId id = ++mLastTimer;
  Timer& timer = mTimers[id];
  timer.body = std::move(body);
  timer.start = mTime.nanoseconds();
  timer.interval = std::max<std::int64_t>(VirtualTime::toNanoseconds(interval), 1);
  timer.date = timer.start + timer.interval;
  arm(id, timer);
  return id;
}

void SimulatedRunLoop::arm(TimerId id, Timer& timer) {
  timer.event = mTime.add(VirtualTime::Kind::loop, timer.date, [this, id] { fire(id); });
}

void SimulatedRunLoop::fire(TimerId id) {
  const auto found = mTimers.find(id);
  if (found == mTimers.end()) return;
  Timer& timer = found->second;
  if (timer.interval == 0) {
    const auto body = std::move(timer.body);
    mTimers.erase(found);
    body();
    return;
  }
  // The body may cancel its own timer.
  const auto body = timer.body;
  const std::int64_t passed = (mTime.nanoseconds() - timer.start) / timer.interval;
  timer.date = timer.start + (passed + 1) * timer.interval;
  arm(id, timer);
  body();
}

void SimulatedRunLoop::cancel(TimerId timer) {
  const auto found = mTimers.find(timer);
  if (found == mTimers.end()) return;
  mTime.cancel(found->second.event);
  mTimers.erase(found);
}

void SimulatedRunLoop::performOnMain(std::function<void()> body) {
  mTime.add(VirtualTime::Kind::loop, mTime.nanoseconds(), std::move(body));
}

void SimulatedRunLoop::detachThread(const std::string&, std::function<void()> body) {
  mTime.startThread(std::move(body));
}

int SimulatedRunLoop::run() {
  begin();
  while (!isOver() && mTime.waiting() > 0) step(std::numeric_limits<std::int64_t>::max());
  return mQuitCode.value_or(-1);
}

void SimulatedRunLoop::quit(int code) { mQuitCode = code; }

void SimulatedRunLoop::runFor(double seconds) {
  begin();
  const std::int64_t end = mTime.nanoseconds() + VirtualTime::toNanoseconds(seconds);
  while (!isOver() && step(end)) {
  }
  if (!isOver()) mTime.advanceTo(end);
}

void SimulatedRunLoop::runUntil(ReferenceTime date) {
  begin();
  const auto end = [&] {
    const auto wall = VirtualTime::toNanoseconds(date) - VirtualTime::toNanoseconds(mTime.now());
    return mTime.nanoseconds() + wall;
  };
  while (!isOver() && mTime.now() <= date && step(end())) {
  }
  if (!isOver()) mTime.advanceTo(end());
}

bool SimulatedRunLoop::runUntil(const std::function<bool()>& condition, double seconds) {
  begin();
  const std::int64_t end = mTime.nanoseconds() + VirtualTime::toNanoseconds(seconds);
  while (!condition()) {
    if (isOver()) return false;
    if (step(end)) continue;
    mTime.advanceTo(end);
    return condition();
  }
  return true;
}

bool SimulatedRunLoop::runUntilIdle(double seconds) {
  begin();
  const std::int64_t end = mTime.nanoseconds() + VirtualTime::toNanoseconds(seconds);
  const auto idle = [&] {
    const auto repeating = std::count_if(mTimers.begin(), mTimers.end(), [](const auto& timer) {
      return timer.second.interval > 0;
    });
    return mTime.waiting() == static_cast<std::size_t>(repeating);
  };
  while (!isOver() && !idle()) {
    if (!step(end)) return false;
  }
  return idle();
}

void SimulatedRunLoop::begin() {
  if (mDepth > 0) return;
  mQuitCode.reset();
  mReplaced = false;
}

bool SimulatedRunLoop::step(std::int64_t limit) {
  ++mDepth;
  bool performed = false;
  try {
    performed = mTime.performNext(limit, false);
    --mDepth;
  } catch (const Replaced&) {
    --mDepth;
    mReplaced = true;
    mTimers.clear();
    mTime.finishThreads();
    mTime.dropLoopEvents();
  } catch (...) {
    --mDepth;
    throw;
  }
  return performed;
}

void SimulatedRunLoop::endByReplacement() {
  if (mDepth > 0) throw Replaced{};
}

}  // namespace corvana
