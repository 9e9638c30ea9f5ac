#include "execute/ExecuteControl.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace corvana {

ExecuteControl::ExecuteControl() : mWake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

ExecuteControl::~ExecuteControl() {
  if (mWake >= 0) ::close(mWake);
}

void ExecuteControl::stop(StopReason reason) {
  StopReason none = StopReason::none;
  mStop.compare_exchange_strong(none, reason);
  wake();
}

void ExecuteControl::setPaused(bool paused) {
  mPaused = paused;
  wake();
}

void ExecuteControl::skipItem() {
  mSkip = true;
  wake();
}

void ExecuteControl::wake() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(mWake, &one, sizeof one);
}

void ExecuteControl::clearWake() {
  std::uint64_t count = 0;
  [[maybe_unused]] const auto taken = ::read(mWake, &count, sizeof count);
}

}  // namespace corvana
