#pragma once

#include "platform/Clock.h"

namespace corvana {

/// The machine's clock. Monotonic time stands still while the machine sleeps.
class SystemClock final : public Clock {
 public:
  ReferenceTime now() const override;
  double monotonic() const override;
  void sleep(double seconds) override;
};

}  // namespace corvana
