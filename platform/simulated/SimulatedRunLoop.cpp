#include "platform/simulated/SimulatedRunLoop.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace corvana {

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
