#pragma once

#include "ZANCocoaFramework/ZAN_Value.h"
#include "core/record/Deadline.h"

namespace corvana {

class ActionQueue;
class ExecuteSupervisor;
struct QueueRecord;
struct Records;

/// What the end of an earlier agent has cut off. An occasion is carried out once, or it is said
/// that it was not: what waited and is not taken up is told, and an execution whose end nobody saw
/// is settled by its traces once no execute program runs any more. Without the trace of an end it
/// was interrupted, which is told as a crash is, and is run once more. Thread: main.
class Interruptions {
 public:
  Interruptions(Records& records, ActionQueue& queue, ExecuteSupervisor& supervisor);

  /// Once at the start, after the queue was restored and when this agent is the only one.
  void takeUp();
  /// When `settle` is to look again; kNever when everything is settled.
  ReferenceTime nextLook() const;
  /// Settles what can be settled; before a launch too, which would else be refused as one that
  /// goes on.
  void settle();

 private:
  void markOccasions();
  void tellDropped();
  void removeOldRequests();
  ZAN_Value traceOf(const QueueRecord& record) const;
  bool hasEnded(const QueueRecord& record, const ZAN_Value& trace) const;
  void tellInterrupted(const QueueRecord& record, const ZAN_Value& trace, bool repeated);

  Records& m;
  ActionQueue& mQueue;
  ExecuteSupervisor& mSupervisor;
  Deadline mNextLook;
};

}  // namespace corvana
