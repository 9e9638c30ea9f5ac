#include "platform/linux/SystemClock.h"

#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <fstream>
#include <limits>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/linux/Spawn.h"

namespace corvana {

namespace {

double secondsOf(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

}  // namespace

ReferenceTime SystemClock::now() const {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  // The seconds first: the whole would lose digits that the difference has room for.
  return (static_cast<double>(time.tv_sec) - kReferenceEpochInUnixTime) +
         static_cast<double>(time.tv_nsec) / 1e9;
}

double SystemClock::monotonic() const { return secondsOf(CLOCK_MONOTONIC); }

void SystemClock::sleep(double seconds) {
  if (!(seconds > 0)) return;
  constexpr double kLongest = 1e9;
  const double end = monotonic() + std::min(seconds, kLongest);
  timespec until{};
  until.tv_sec = static_cast<time_t>(end);
  until.tv_nsec = static_cast<long>((end - std::floor(end)) * 1e9);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

/// A timer at the end of time costs nothing, and the system cancels it when wall-clock time jumps
/// against monotonic time.
void SystemClock::observe(std::function<void()> jumped) {
  if (mLoop == nullptr) return;
  mJumped = std::move(jumped);
  if (!mJumped) {
    mLoop->unwatch(std::exchange(mWatching, 0));
    mTimer.close();
    return;
  }
  if (mTimer) return;
  mTimer = ZAN_Descriptor(timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK));
  if (!mTimer) return;
  arm();
  mWatching = mLoop->watch(mTimer.get(), DescriptorWatch::Event::readable, [this] { timerRang(); });
}

void SystemClock::arm() const {
  itimerspec never{};
  never.it_value.tv_sec = std::numeric_limits<time_t>::max();
  timerfd_settime(mTimer.get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &never, nullptr);
}

void SystemClock::timerRang() {
  std::uint64_t times = 0;
  const bool cancelled = ::read(mTimer.get(), &times, sizeof times) < 0 && errno == ECANCELED;
  arm();
  if (!cancelled) return;
  const auto jumped = mJumped;
  jumped();
}

namespace {

constexpr double kHelperSeconds = 5;

std::string unixTime(std::int64_t time) {
  return std::to_string(time + static_cast<std::int64_t>(kReferenceEpochInUnixTime));
}

}  // namespace

bool WakeAlarm::canWake() const {
  const auto clocks = ZAN_FilesUtils::listFolder(mPlaces.clocks);
  if (!clocks) return false;
  for (const std::string& clock : *clocks) {
    std::ifstream file(mPlaces.clocks + "/" + clock + "/device/power/wakeup");
    std::string state;
    if (file >> state && state == "enabled") return true;
  }
  return false;
}

Outcome WakeAlarm::set(std::int64_t time) const {
  if (!canWake()) {
    return Error{ErrorKind::unavailable,
                 mPlaces.clocks +
                     ": this machine has no clock that could wake it; leave it switched "
                     "on when actions are due"};
  }
  if (const Outcome made = ZAN_FilesUtils::createFolder(mPlaces.folder, 0700); !made) return made;
  const auto ended =
      runToolBlocking({mPlaces.helper, "set", unixTime(time), mPlaces.folder}, kHelperSeconds);
  if (!ended) return ended.error();
  return {};
}

void WakeAlarm::cancel(std::int64_t time) const {
  // Without the helper there is no alarm either.
  static_cast<void>(
      runToolBlocking({mPlaces.helper, "cancel", unixTime(time), mPlaces.folder}, kHelperSeconds));
}

}  // namespace corvana
