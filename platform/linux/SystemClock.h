#pragma once

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "platform/Clock.h"
#include "platform/linux/DescriptorWatch.h"

namespace corvana {

/// The machine's clock. Monotonic time stands still while the machine sleeps.
class SystemClock final : public Clock {
 public:
  /// Only a clock that has a loop can be observed.
  explicit SystemClock(DescriptorWatch* loop = nullptr) : mLoop(loop) {}
  SystemClock(const SystemClock&) = delete;
  SystemClock& operator=(const SystemClock&) = delete;
  ~SystemClock() override { observe({}); }

  ReferenceTime now() const override;
  double monotonic() const override;
  void sleep(double seconds) override;
  void observe(std::function<void()> jumped) override;

 private:
  void arm() const;
  void timerRang();

  DescriptorWatch* mLoop;
  std::function<void()> mJumped;
  ZAN_Descriptor mTimer;
  DescriptorWatch::WatchId mWatching = 0;
};

/// One alarm that wakes the machine, held by a helper program which has the right to do so and
/// outlives this one. Thread: any.
class WakeAlarm {
 public:
  struct Places {
    std::string helper;                     ///< the program
    std::string folder;                     ///< where it notes which alarm it holds
    std::string clocks = "/sys/class/rtc";  ///< the hardware clocks that the system knows
  };

  explicit WakeAlarm(Places places) : mPlaces(std::move(places)) {}

  /// Whether this machine has a clock that could wake it.
  bool canWake() const;
  /// In place of any other alarm; `time` in whole seconds since the reference date. Fails when no
  /// clock of this machine can wake it, and when the helper may not set alarms.
  Outcome set(std::int64_t time) const;
  /// Ignored when the alarm is another one or none is set.
  void cancel(std::int64_t time) const;

 private:
  Places mPlaces;
};

}  // namespace corvana
