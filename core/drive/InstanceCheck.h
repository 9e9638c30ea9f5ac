#pragma once

#include "ZANCocoaFramework/ZAN_FileWriter.h"

namespace corvana {

struct Records;

/// There is to be one agent for a data folder: the one that holds the lock in it. Thread: main.
class InstanceCheck {
 public:
  explicit InstanceCheck(Records& records) : m(records) {}

  /// Takes the lock, or the one that this process held before it restarted itself.
  void claim();
  /// Whether another agent was there first. Where the file system has no locks the list of running
  /// programs decides: of two that start at the same moment one has to stay. Programs of before
  /// hold no lock, and are found there too.
  bool anotherInstanceRuns() const;
  /// Asks the other to show itself, on this one's desktop if it has none, says so, and blocks for
  /// 15 s, so that the user can read it.
  void leaveToTheOtherInstance();

 private:
  enum class Claim { held, taken, noLocks };
  Records& m;
  Claim mClaim = Claim::noLocks;
  ZAN_FileLock mLock;
};

}  // namespace corvana
