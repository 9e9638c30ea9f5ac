#pragma once

namespace corvana {

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

}  // namespace corvana
