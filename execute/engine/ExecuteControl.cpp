#include "execute/engine/ExecuteControl.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace corvana {

ExecuteControl::ExecuteControl(RunSigns* signs)
    : mSigns(signs), mWake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void ExecuteControl::stop(StopReason reason) {
  StopReason none = StopReason::none;
  mStop.compare_exchange_strong(none, reason);
  if (mSigns) mSigns->stop = mStop.load();
  wake();
}

std::optional<ExecuteEnd> ExecuteControl::endOfStop(const std::string& gone) const {
  switch (mStop.load()) {
    case StopReason::none:
      return std::nullopt;
    case StopReason::user:
      return ExecuteEnd{.code = ExecuteCode::abortedByUser, .reason = {}};
    case StopReason::volumeGone:
      return ExecuteEnd{.code = ExecuteCode::volumeGone, .reason = gone};
    case StopReason::sessionEnd:
      break;
  }
  return ExecuteEnd{.code = ExecuteCode::unexpectedError, .reason = std::string(kSessionEnded)};
}

void ExecuteControl::setPaused(bool paused) {
  mPaused = paused;
  if (mSigns) mSigns->paused = paused;
  wake();
}

void ExecuteControl::skipItem() {
  mSkip = true;
  wake();
}

void ExecuteControl::wake() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(mWake.get(), &one, sizeof one);
}

bool ExecuteControl::waitWhilePaused() {
  while (mPaused && mStop == StopReason::none) {
    pollfd wake{mWake.get(), POLLIN, 0};
    ::poll(&wake, 1, -1);
    clearWake();
  }
  return mStop == StopReason::none;
}

bool ExecuteControl::waitFor(double seconds) {
  pollfd wake{mWake.get(), POLLIN, 0};
  if (mStop == StopReason::none && ::poll(&wake, 1, static_cast<int>(seconds * 1000)) > 0)
    clearWake();
  return mStop == StopReason::none;
}

void ExecuteControl::clearWake() {
  std::uint64_t count = 0;
  [[maybe_unused]] const auto taken = ::read(mWake.get(), &count, sizeof count);
}

}  // namespace corvana
