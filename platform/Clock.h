#pragma once

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
};

}  // namespace corvana
