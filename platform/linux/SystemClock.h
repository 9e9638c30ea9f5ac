#pragma once

#include "ZANCocoaFramework/ZAN_Descriptor.h"
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

}  // namespace corvana
