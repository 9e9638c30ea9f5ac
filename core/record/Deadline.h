#pragma once

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

class DeadlineList;

/// An instant that something waits for. It stands in the list of all of them from its construction
/// to its end, so that it moves along when the clock of the machine is set back. Thread: main.
class Deadline {
 public:
  explicit Deadline(DeadlineList& list, ReferenceTime at = 0);
  ~Deadline();
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  ReferenceTime at() const { return mAt; }
  void set(ReferenceTime at);
  void atTheLatest(ReferenceTime at) { set(std::min(mAt, at)); }
  void notBefore(ReferenceTime at) { set(std::max(mAt, at)); }
  void clear() { set(0); }
  bool isSet() const { return mAt != 0; }
  /// now >= the deadline
  bool isReached(ReferenceTime now) const { return now >= mAt; }
  /// now > the deadline
  bool isPassed(ReferenceTime now) const { return now > mAt; }
  /// The first instant at which it is passed.
  ReferenceTime passing() const {
    return std::nextafter(mAt, std::numeric_limits<double>::infinity());
  }

 private:
  DeadlineList& mList;
  ReferenceTime mAt;
};

/// Every deadline of the agent. It must outlive them. Thread: main.
class DeadlineList {
 public:
  DeadlineList() = default;
  DeadlineList(const DeadlineList&) = delete;
  DeadlineList& operator=(const DeadlineList&) = delete;

  /// The clock was found `jump` seconds off (negative: set back) and it is `now`: every deadline
  /// later than now moves by the jump; those that are due stay due. Then everybody who asked by
  /// `whenMoved` is called.
  void moveDeadlines(double jump, ReferenceTime now);
  /// One of them is another instant than before.
  std::function<void()> onSet;

  /// For owners of instants that are not a Deadline: dates in queue records, dates saved in a file.
  void whenMoved(std::function<void(double jump, ReferenceTime now)> body);

 private:
  friend class Deadline;
  std::vector<Deadline*> mDeadlines;
  std::vector<std::function<void(double, ReferenceTime)>> mWhenMoved;
};

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
