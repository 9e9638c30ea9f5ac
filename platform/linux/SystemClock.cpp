#include "platform/linux/SystemClock.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

namespace corvana {

namespace {

double read(clockid_t clock) {
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

double SystemClock::monotonic() const { return read(CLOCK_MONOTONIC); }

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

}  // namespace corvana
