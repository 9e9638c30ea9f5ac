#pragma once

#include <cstdint>

namespace corvana {

class ActionQueue;
struct Records;

/// Whether actions are executed by themselves. Thread: main.
class AutomaticExecution {
 public:
  explicit AutomaticExecution(Records& records) : m(records) {}

  /// Switches it on or off as the user wants it: said, remembered and told to the siblings. Also
  /// takes back a wish to switch it off when all is done.
  void setActive(bool active);
  /// It goes off when the queue is empty and nothing runs.
  void disableWhenAllDone();
  /// Switches it on without a word, as at the end of the start-up.
  void enableQuietly();

 private:
  void changed();

  Records& m;
};

/// Where the machine is: 0 nowhere in particular, 1 office, 2 home, 3 nomad. Actions bound to
/// another context do not run. Thread: main.
class Contexts {
 public:
  Contexts(Records& records, ActionQueue& queue) : m(records), mQueue(queue) {}

  /// Sets the context, clamped to 0..3, and remembers it. A change is reported; in a context,
  /// queued actions of other contexts are removed but for the first two.
  void setContextMode(std::int64_t value);
  /// The menu's command: the tag of the chosen item.
  void setContext(std::int64_t tag);

 private:
  Records& m;
  ActionQueue& mQueue;
};

}  // namespace corvana
