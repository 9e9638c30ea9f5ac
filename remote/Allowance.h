#pragma once

namespace corvana {

/// Lets things happen as long as they do not come too quickly: so many at once, and one more every
/// so many seconds. Thread: main.
class Allowance {
 public:
  Allowance(int atOnce, double seconds) : mMost(atOnce), mSeconds(seconds), mLeft(atOnce) {}

  /// Whether one may happen at that monotonic time, and then counts it.
  bool take(double now) {
    mLeft += (now - mLast) / mSeconds;
    if (mLeft > mMost) mLeft = mMost;
    mLast = now;
    if (mLeft < 1) return false;
    mLeft -= 1;
    return true;
  }

 private:
  double mMost;
  double mSeconds;
  double mLeft;
  double mLast = 0;
};

}  // namespace corvana
