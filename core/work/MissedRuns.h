#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "core/work/StartVerdict.h"

namespace corvana {

class ProgrammedAction;
struct Records;

/// What fell due while nobody looked, since the agent was off or the machine
/// asleep, and is made up: the last run of each action that asks for it
/// (ActionKey::makesUpMissed), once, at the next chance that its hours give. Not
/// made up is what fell into a time at whose begin or end the user had
/// execution off or paused, or the action belonged to another context; nor what
/// runs anyway.
///
/// It remembers the last complete evaluation, over the end of the agent too.
/// Without that, as after an upgrade, nothing is missed. Thread: main.
class MissedRuns {
 public:
  explicit MissedRuns(Records& records) : m(records) {}

  /// Execution is off, so that no evaluation takes place.
  void nobodyWantsAny(const ZAN_DateUtils& calendar) {
    begin(calendar);
    end();
  }
  /// A complete evaluation begins.
  void begin(const ZAN_DateUtils& calendar);
  /// For each action of it: the date of a run that is to be made up now.
  std::optional<ReferenceTime> dueNow(const ProgrammedAction& action, const StartVerdict& verdict);
  /// Whether a run of that action is to be made up as soon as its hours begin.
  bool isWaiting(std::int64_t ref) const { return mWaiting.contains(ref); }
  /// It has ended, and when the next one comes is known.
  void end();

 private:
  using Dates = std::map<std::int64_t, ReferenceTime>;
  /// An evaluation, and how things were at it.
  struct Look {
    ReferenceTime at = 0;
    ReferenceTime next = 0;
    bool active = false;
    ActionContext context = ActionContext::none;
  };

  bool wasMissed(const ProgrammedAction& action, const StartVerdict& verdict);
  void read();
  void save();

  Records& m;
  std::optional<ZAN_DateUtils> mCalendar;  ///< of the evaluation under way
  bool mIsRead = false;
  std::optional<Look> mLast;
  Look mThis;
  bool mIsGap = false;  ///< nobody looked from the last one to this one
  Dates mWaiting;       ///< missed, by reference; their hours are to come
  Dates mStillWaiting;  ///< as the evaluation under way finds it
};

}  // namespace corvana
