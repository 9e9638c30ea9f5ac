#pragma once

#include <cstdint>
#include <optional>

namespace corvana {

class ActionQueue;
struct Records;

/// The strip that names the action about to run and then shows how far it is: when it is there.
/// Thread: main.
class Announce {
 public:
  Announce(Records& records, ActionQueue& queue) : m(records), mQueue(queue) {}

  bool isOpen() const { return mRef.has_value(); }
  /// Whether it names another action than the head of the queue, which has left meanwhile.
  bool isOutOfDate() const;
  /// Opens it for the head of the queue; nothing when the queue is empty or the action is gone.
  void showAnnounceForQueueHead();
  void closeAnnounceWindow();

 private:
  Records& m;
  ActionQueue& mQueue;
  std::optional<std::int64_t> mRef;  ///< of the action it names, while it is open
};

}  // namespace corvana
