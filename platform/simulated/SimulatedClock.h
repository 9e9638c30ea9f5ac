#pragma once

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

  /// Wall-clock time jumps, both ways, as by a user, a time server or a machine that slept.
  void setNow(ReferenceTime now) { mTime.setNow(now); }

 private:
  VirtualTime& mTime;
};

}  // namespace corvana
