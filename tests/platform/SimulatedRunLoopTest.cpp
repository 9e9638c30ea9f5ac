#include "platform/simulated/SimulatedRunLoop.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "platform/simulated/SimulatedPlatform.h"

namespace corvana {
namespace {

using testing::ElementsAre;

struct SimulatedRunLoopTest : testing::Test {
  SimulatedPlatform machine;
  SimulatedRunLoop& loop = machine.runLoop;
  SimulatedClock& clock = machine.clock;
  std::vector<std::string> seen;

  std::function<void()> note(const std::string& text) {
    return [this, text] { seen.push_back(text); };
  }
};

TEST_F(SimulatedRunLoopTest, PerformsByDateThenByOrderOfAsking) {
  loop.performAfter(2, note("late"));
  loop.performAfter(1, note("first"));
  loop.performAfter(1, note("second"));
  loop.performAfter(0, [&] {
    seen.push_back("now");
    loop.performOnMain(note("after what waits"));
  });
  loop.performOnMain(note("waiting"));
  const auto cancelled = loop.performAfter(1, note("cancelled"));
  loop.cancel(cancelled);
  loop.cancel(0);

  loop.runFor(0);
  EXPECT_THAT(seen, ElementsAre("now", "waiting", "after what waits"));
  seen.clear();
  EXPECT_TRUE(loop.runUntilIdle());
  EXPECT_THAT(seen, ElementsAre("first", "second", "late"));
  EXPECT_EQ(clock.now(), SimulatedPlatform::kFirstDate + 2);
}

TEST_F(SimulatedRunLoopTest, ABlockedRepeatingTimerFiresOnceAndKeepsItsGrid) {
  std::vector<double> dates;
  const double start = clock.monotonic();
  loop.repeat(0.25, [&] {
    dates.push_back(clock.monotonic() - start);
    if (dates.size() == 2) clock.sleep(0.875);
  });
  loop.runFor(2);
  EXPECT_THAT(dates, ElementsAre(0.25, 0.5, 1.375, 1.5, 1.75, 2.0));
}

TEST_F(SimulatedRunLoopTest, ARepeatingTimerMayCancelItself) {
  int fired = 0;
  RunLoop::TimerId id = 0;
  id = loop.repeat(1, [&] {
    if (++fired == 3) loop.cancel(id);
  });
  loop.runFor(10);
  EXPECT_EQ(fired, 3);
  EXPECT_TRUE(loop.runUntilIdle());
}

TEST_F(SimulatedRunLoopTest, AWallClockJumpMovesNoTimer) {
  int fired = 0;
  loop.repeat(1, [&] { ++fired; });
  clock.setNow(clock.now() - 3600);
  loop.runFor(5);
  EXPECT_EQ(fired, 5);
  EXPECT_EQ(clock.now(), SimulatedPlatform::kFirstDate - 3600 + 5);

  // A date is reached sooner when somebody sets the clock forward on the way.
  loop.performAfter(10, [&] { clock.setNow(clock.now() + 3600); });
  loop.runUntil(SimulatedPlatform::kFirstDate + 3600);
  EXPECT_EQ(clock.now(), SimulatedPlatform::kFirstDate + 3600);
  EXPECT_LT(fired, 3700);
}

TEST_F(SimulatedRunLoopTest, AJumpIsToldFromTheLoopToTheLastWhoAsked) {
  clock.observe(note("first"));
  clock.observe(note("second"));
  clock.setNow(clock.now() + 10);
  EXPECT_TRUE(seen.empty());
  clock.sleep(1);
  EXPECT_TRUE(seen.empty()) << "the main thread sleeps, and the loop with it";
  loop.runFor(0);
  EXPECT_THAT(seen, ElementsAre("second"));
  clock.setNow(clock.now() - 10);
  clock.observe({});
  loop.runFor(1);
  EXPECT_THAT(seen, ElementsAre("second"));
}

TEST_F(SimulatedRunLoopTest, ADateSetIsTheDateRead) {
  for (const double date : {725889600.1, -1e9 / 3, 0.7, 1234567890.123456}) {
    clock.setNow(date);
    EXPECT_EQ(clock.now(), date);
  }
}

TEST_F(SimulatedRunLoopTest, QuittingEndsTheRunAfterTheCurrentEvent) {
  loop.performAfter(1, [&] {
    loop.quit(7);
    seen.push_back("still performed");
  });
  loop.performAfter(2, note("not performed"));
  EXPECT_EQ(loop.run(), 7);
  EXPECT_THAT(seen, ElementsAre("still performed"));
  EXPECT_EQ(loop.quitCode(), 7);
}

TEST_F(SimulatedRunLoopTest, ThreadsAndChildrenGoOnWhileTheMainThreadSleepsButTheLoopDoesNot) {
  loop.performAfter(0.5, note("loop"));
  loop.detachThread("worker", [&] {
    seen.push_back("thread begins");
    clock.sleep(1);
    seen.push_back("thread ends");
    loop.performOnMain(note("handed back"));
  });
  EXPECT_TRUE(seen.empty());
  clock.sleep(2);
  EXPECT_THAT(seen, ElementsAre("thread begins", "thread ends"));
  seen.clear();
  loop.runFor(0);
  EXPECT_THAT(seen, ElementsAre("loop", "handed back"));
}

std::string interleaving() {
  SimulatedPlatform machine;
  std::string seen;
  for (const char name : {'a', 'b', 'c'}) {
    machine.runLoop.detachThread({}, [&, name] {
      for (int i = 0; i < 20; ++i) {
        // Unguarded on purpose: the baton alone keeps the threads apart.
        seen += name;
        machine.clock.sleep(name == 'b' ? 0.02 : 0.03);
      }
    });
  }
  machine.runLoop.runUntilIdle();
  return seen;
}

TEST_F(SimulatedRunLoopTest, ThreadsInterleaveTheSameWayEachTime) {
  const std::string first = interleaving();
  EXPECT_EQ(first.size(), 60U);
  EXPECT_EQ(first.substr(0, 8), "abcbacba");
  for (int i = 0; i < 5; ++i) EXPECT_EQ(interleaving(), first);
}

TEST_F(SimulatedRunLoopTest, ThreadsAreBroughtToTheirEndWithTheMachine) {
  bool ended = false;
  {
    SimulatedPlatform other;
    other.runLoop.detachThread({}, [&] {
      for (int i = 0; i < 10; ++i) other.clock.sleep(60);
      ended = true;
    });
    other.runLoop.runFor(90);
    EXPECT_FALSE(ended);
  }
  EXPECT_TRUE(ended);
}

}  // namespace
}  // namespace corvana
