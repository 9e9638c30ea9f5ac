#pragma once

#include <optional>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "core/record/Deadline.h"

namespace corvana {

class ActionQueue;
class ProgrammedAction;
class ZAN_Value;
struct Records;

/// Tells that an action has had no success for long, whatever the cause: for
/// three of its periods, at least two days and at most fourteen, but never
/// sooner than two days after a whole period; for one that waits for an event
/// fourteen days. Only of automatic actions that ask for it
/// (ActionKey::ageAlarm), once a day at most, and it ends with a success. Thread:
/// main.
class AgeAlarm {
 public:
  AgeAlarm(Records& records, const ActionQueue& queue);

  /// How long, in seconds, an action may have had no success; nothing for one that runs by hand.
  static std::optional<double> limitOf(const ProgrammedAction& action,
                                       const ZAN_DateUtils& calendar, ReferenceTime now);
  /// When an action that asks for it had its last success, or was made, if that
  /// is too long ago; nothing otherwise.
  static std::optional<ReferenceTime> overdueSince(const ProgrammedAction& action,
                                                   const ZAN_DateUtils& calendar,
                                                   ReferenceTime now);

  // For the tick.
  ReferenceTime nextLook() const { return mNextLook.at(); }
  void look(const ZAN_DateUtils& calendar);

 private:
  Records& m;
  const ActionQueue& mQueue;
  Deadline mNextLook;
};

}  // namespace corvana
