#pragma once

#include <utility>

#include "platform/Clock.h"
#include "platform/simulated/VirtualTime.h"

namespace corvana {

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

}  // namespace corvana
