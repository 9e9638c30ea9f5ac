#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class ActionQueue;
class ExecuteSupervisor;
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

/// What a report of an execution's progress says besides the per cent: "1.2 GB of 3 GB, 35 MB/s,
/// 0:03:12 left", or "12,000 items found" while it is still being found out what there is to do.
/// Empty for a report that says nothing of it.
std::string progressInWords(const ZAN_Value& report, const ZAN_StringTable& texts,
                            const ZAN_StringUtils& strings);
/// The same of the latest report of what is executed; empty while nothing is.
std::string progressInWords(const ExecuteSupervisor& supervisor, const ZAN_StringTable& texts,
                            const ZAN_StringUtils& strings);

}  // namespace corvana
