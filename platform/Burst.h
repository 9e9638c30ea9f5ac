#pragma once

#include <optional>
#include <utility>

#include "platform/Clock.h"

namespace corvana {

/// Requests that come faster than each of them could be stored: they are carried out in slices of
/// time, between which others have their turn, and stored together once no more come. Requests are
/// a queue with `front` and `pop_front`. Thread: main.
class Burst {
 public:
  explicit Burst(const Clock& clock) : mClock(clock) {}

  /// Hands `requests` to `take`, the first at least and then for as long as a slice lasts. Returns
  /// how many it took.
  template <typename Requests, typename Take>
  static int takeSlice(const Clock& clock, Requests& requests, const Take& take) {
    const double end = clock.monotonic() + kSlice;
    int taken = 0;
    for (; !requests.empty() && (taken == 0 || clock.monotonic() < end); ++taken) {
      auto request = std::move(requests.front());
      requests.pop_front();
      take(std::move(request));
    }
    return taken;
  }

  /// Takes a slice, and returns whether more follow: the storing waits for those then, and the next
  /// slice is due after `pause`.
  template <typename Requests, typename Take>
  bool goOn(Requests& requests, const Take& take) {
    if (!mStoreBy) mStoreBy = mClock.monotonic() + kLongestUnstored;
    const int taken = takeSlice(mClock, requests, take);
    const bool moreFollow = !requests.empty() || taken >= kFewest;
    if (!moreFollow || mClock.monotonic() >= *mStoreBy) mStoreBy.reset();
    return isOpen();
  }

  /// Whether something was taken that is not stored yet.
  bool isOpen() const { return mStoreBy.has_value(); }
  /// Everything is stored now, whatever follows.
  void end() { mStoreBy.reset(); }
  /// Seconds until the next slice.
  template <typename Requests>
  static double pause(const Requests& requests) {
    return requests.empty() ? kPause : 0;
  }

 private:
  static constexpr double kSlice = 0.02;           ///< seconds
  static constexpr double kLongestUnstored = 0.5;  ///< seconds, of the first of a burst
  static constexpr int kFewest = 16;               ///< in a slice, for more to be expected
  static constexpr double kPause = 0.01;           ///< seconds for which more are waited for

  const Clock& mClock;
  std::optional<double> mStoreBy;  ///< by the clock that only grows
};

}  // namespace corvana
