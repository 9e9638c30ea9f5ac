#pragma once

namespace corvana {

/// Tells the first of a row of events from those that follow it, so that a flood is said once: a
/// row ends when nothing has happened for so many seconds. Thread: main.
class BurstGate {
 public:
  explicit BurstGate(double quietSeconds) : mQuietSeconds(quietSeconds), mNext(0) {}

  /// Whether the event of that monotonic time is the first of a row.
  bool begins(double now) {
    const bool first = now >= mNext;
    mNext = now + mQuietSeconds;
    return first;
  }

 private:
  double mQuietSeconds;
  double mNext;
};

}  // namespace corvana
