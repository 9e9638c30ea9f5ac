#pragma once

#include <functional>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

/// The only source of time. Thread: any.
class Clock {
 public:
  virtual ~Clock() = default;
  /// Wall-clock time. It may jump, both ways.
  virtual ReferenceTime now() const = 0;
  /// Seconds that only grow, from an arbitrary start; for durations.
  virtual double monotonic() const = 0;
  /// Blocks the calling thread. On the main thread nothing else runs meanwhile.
  virtual void sleep(double seconds) = 0;
  /// From now on `jumped` is called from the loop after wall-clock time has jumped: somebody set
  /// it, or the machine slept. A second call-back replaces the first; an empty one ends it. Thread:
  /// main.
  virtual void observe(std::function<void()> jumped) = 0;
};

}  // namespace corvana
