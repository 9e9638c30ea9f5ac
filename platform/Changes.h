#pragma once

#include <initializer_list>

namespace corvana {

/// What of the agent may have changed, for those who show it or tell others of it. They are told
/// that it has, and read what they need.
enum class Change : unsigned {
  queue,         ///< what waits for execution, and in which order
  nextActions,   ///< the list of next actions
  execution,     ///< enabled, paused, running, in which context; whether a failure waits to be seen
  statusLine,    ///< the line that says what holds the scheduler up
  progress,      ///< how far the running execution is
  history,       ///< what was executed
  tree,          ///< the actions themselves
  volumes,       ///< what is mounted and what can be
  strayFolders,  ///< what is said of them
  messages,      ///< the list of the last notices
  preferences,
  survey  ///< what the execution survey says
};

/// Some of them.
class ChangeSet {
 public:
  ChangeSet() = default;
  ChangeSet(std::initializer_list<Change> changes) {
    for (const Change change : changes) add(change);
  }

  void add(Change change) { mBits |= bit(change); }
  bool has(Change change) const { return (mBits & bit(change)) != 0; }
  bool hasAnyOf(ChangeSet others) const { return (mBits & others.mBits) != 0; }
  bool empty() const { return mBits == 0; }
  ChangeSet without(ChangeSet others) const {
    ChangeSet rest = *this;
    rest.mBits &= ~others.mBits;
    return rest;
  }
  bool operator==(const ChangeSet&) const = default;

 private:
  static unsigned bit(Change change) { return 1U << static_cast<unsigned>(change); }

  unsigned mBits = 0;
};

}  // namespace corvana
