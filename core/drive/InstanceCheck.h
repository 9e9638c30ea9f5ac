#pragma once

namespace corvana {

struct Records;

/// There is to be one agent for a user. Thread: main.
class InstanceCheck {
 public:
  explicit InstanceCheck(Records& records) : m(records) {}

  /// Whether another agent was there first: of two that start at the same moment one has to stay.
  bool anotherInstanceRuns() const;
  /// Asks the other to show itself, on this one's desktop if it has none, says so, and blocks for
  /// 15 s, so that the user can read it.
  void leaveToTheOtherInstance();

 private:
  Records& m;
};

}  // namespace corvana
