#include "platform/qt/QtRunLoop.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/timerfd.h>
#include <sys/timex.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/real/RealLoop.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

struct QtRunLoopTest : testing::Test {
  RealLoop real;
  QtRunLoop& loop = real.loop;
  std::vector<std::string> seen;

  std::function<void()> note(const std::string& text) {
    return [this, text] { seen.push_back(text); };
  }
};

TEST_F(QtRunLoopTest, PerformsByDateThenByOrderOfAskingAndNeverEarly) {
  const double start = real.clock.monotonic();
  double fired = 0;
  loop.performAfter(0.06, [&] {
    fired = real.clock.monotonic() - start;
    seen.push_back("late");
  });
  loop.performAfter(0.03, note("first"));
  loop.cancel(loop.performAfter(0.03, note("cancelled")));
  loop.performAfter(0.03, note("second"));
  loop.performAfter(-5, note("overdue"));
  EXPECT_TRUE(real.runUntil([&] { return fired > 0; }));
  EXPECT_THAT(seen, ElementsAre("overdue", "first", "second", "late"));
  EXPECT_GE(fired, 0.06);
}

TEST_F(QtRunLoopTest, ADelayBeyondTheRangeOfMillisecondsDoesNotFireNow) {
  loop.performAfter(40.0 * 86400, note("in 40 days"));
  loop.performAfter(1e12, note("never"));
  loop.performAfter(0.05, note("soon"));
  EXPECT_TRUE(real.runUntil([&] { return !seen.empty(); }));
  EXPECT_THAT(seen, ElementsAre("soon"));
}

TEST_F(QtRunLoopTest, MissedOccasionsOfARepeatingTimerAreNotMadeUp) {
  std::vector<double> dates;
  const double start = real.clock.monotonic();
  loop.repeat(0.05, [&] {
    dates.push_back(real.clock.monotonic() - start);
    if (dates.size() == 2) real.clock.sleep(0.6);
  });
  EXPECT_TRUE(real.runUntil([&] { return dates.size() == 10; }));
  // Twelve occasions were missed: at most one comes late, then the rhythm goes on.
  EXPECT_GE(dates.at(9) - dates.at(3), 6 * 0.05 * 0.8);
}

TEST_F(QtRunLoopTest, RepeatingTimersKeepTheirRhythmAndMayCancelThemselves) {
  int fast = 0;
  int few = 0;
  RunLoop::TimerId self = 0;
  loop.repeat(0.02, [&] { ++fast; });
  self = loop.repeat(0.01, [&] {
    if (++few == 3) loop.cancel(self);
  });
  const double start = real.clock.monotonic();
  EXPECT_TRUE(real.runUntil([&] { return fast == 30; }));
  EXPECT_GE(real.clock.monotonic() - start, 30 * 0.02 * 0.9);
  EXPECT_EQ(few, 3);
}

TEST_F(QtRunLoopTest, ThreadsHandBackInOrderAndAreJoined) {
  std::atomic<int> running = 0;
  const auto main = std::this_thread::get_id();
  bool onMain = true;
  for (int i = 0; i < 8; ++i) {
    loop.detachThread("worker with a long name", [&, i] {
      ++running;
      for (int k = 0; k < 100; ++k) {
        loop.performOnMain([&, i, k] {
          onMain = onMain && std::this_thread::get_id() == main;
          if (i == 0) seen.push_back(std::to_string(k));
        });
      }
      --running;
    });
  }
  EXPECT_TRUE(real.runUntil([&] { return seen.size() == 100; }));
  EXPECT_TRUE(onMain);
  for (int k = 0; k < 100; ++k) EXPECT_EQ(seen.at(static_cast<std::size_t>(k)), std::to_string(k));

  std::atomic<bool> ended = false;
  {
    QtRunLoop other;
    other.detachThread("slow", [&] {
      real.clock.sleep(0.1);
      ended = true;
    });
  }
  EXPECT_TRUE(ended);
}

TEST_F(QtRunLoopTest, WhatThrowsEndsNothingButItself) {
  std::vector<std::string> told;
  loop.onException = [&](const std::exception& thrown) { told.emplace_back(thrown.what()); };
  const auto throwing = [](const char* name) { return [name] { throw std::runtime_error(name); }; };
  int repeated = 0;
  const auto timer = loop.repeat(0.001, [&] {
    if (++repeated == 2) throw std::bad_alloc();
  });
  loop.performOnMain(throwing("posted"));
  loop.performOnMain(note("posted"));
  loop.performAfter(0, throwing("delayed"));
  loop.performAfter(0, note("delayed"));
  loop.detachThread("worker", throwing("thread"));
  auto worker = loop.worker("worker");
  worker->perform(throwing("worker"));
  worker->perform([&] { loop.performOnMain(note("worker")); });
  EXPECT_TRUE(real.runUntil([&] { return seen.size() == 3 && told.size() == 5 && repeated > 2; }));
  EXPECT_THAT(told, UnorderedElementsAre("posted", "delayed", "thread", "worker",
                                         std::string(std::bad_alloc().what())));
  loop.cancel(timer);
  bool done = false;
  worker->perform([&] { done = true; });
  worker.reset();
  EXPECT_TRUE(done) << "what was handed over is done at the end";
}

TEST_F(QtRunLoopTest, QuittingEndsTheRunBeforeAnythingElse) {
  loop.performOnMain([&] {
    loop.quit(9);
    seen.push_back("quits");
  });
  loop.performOnMain(note("too late"));
  loop.performAfter(0, note("too late"));
  EXPECT_EQ(loop.run(), 9);
  EXPECT_THAT(seen, ElementsAre("quits"));

  loop.quit(4);
  EXPECT_EQ(loop.run(), 4) << "quitting before the run counts";
}

TEST_F(QtRunLoopTest, DescriptorsCallBackUntilNobodyWatches) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
  DescriptorWatch::WatchId id = 0;
  id = loop.watch(ends[0], DescriptorWatch::Event::readable, [&] {
    char letter = 0;
    if (read(ends[0], &letter, 1) == 1) seen.emplace_back(1, letter);
    if (letter == 'b') loop.unwatch(id);
  });
  ASSERT_EQ(write(ends[1], "abc", 3), 3);
  bool later = false;
  loop.performAfter(0.1, [&] { later = true; });
  EXPECT_TRUE(real.runUntil([&] { return later; }));
  EXPECT_THAT(seen, ElementsAre("a", "b"));
  close(ends[0]);
  close(ends[1]);
}

/// Hands the clock's descriptor to the test.
struct BareWatch final : DescriptorWatch {
  WatchId watch(int watched, Event, std::function<void()> call) override {
    descriptor = watched;
    body = std::move(call);
    return 1;
  }
  void unwatch(WatchId id) override {
    if (id != 0) descriptor = -1;
  }
  bool isReady() const {
    pollfd poll{descriptor, POLLIN, 0};
    return ::poll(&poll, 1, 0) == 1;
  }

  int descriptor = -1;
  std::function<void()> body;
};

TEST(SystemClock, TellsOfAJumpAndOfNothingElse) {
  BareWatch watch;
  SystemClock clock(&watch);
  int jumps = 0;
  clock.observe([&] { ++jumps; });
  ASSERT_GE(watch.descriptor, 0);
  EXPECT_FALSE(watch.isReady());
  watch.body();
  // The date itself is no jump, and does not keep the loop busy.
  const itimerspec past{{}, {1, 0}};
  ASSERT_EQ(timerfd_settime(watch.descriptor, TFD_TIMER_ABSTIME, &past, nullptr), 0);
  EXPECT_TRUE(watch.isReady());
  watch.body();
  EXPECT_FALSE(watch.isReady());
  EXPECT_EQ(jumps, 0);

  timex oneNanosecond{};
  oneNanosecond.modes = ADJ_SETOFFSET | ADJ_NANO;
  oneNanosecond.time.tv_usec = 1;
  if (clock_adjtime(CLOCK_REALTIME, &oneNanosecond) < 0) GTEST_SKIP() << "may not set the clock";
  EXPECT_TRUE(watch.isReady());
  watch.body();
  EXPECT_EQ(jumps, 1);
  EXPECT_FALSE(watch.isReady());
  clock.observe({});
  EXPECT_EQ(watch.descriptor, -1);
}

}  // namespace
}  // namespace corvana
