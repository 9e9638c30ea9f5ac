#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/ActionsTools.h"

namespace corvana {

class ProgrammedAction;
class VolumeIdentity;

/// Says, in plain words, why an action does not run now or will not at its next date, and what
/// would make it run. Asks and changes nothing. Thread: main.
class WhyNot {
 public:
  enum class Cause {
    running,
    queued,
    notAutomatic,
    waitsForEvent,
    noDate,
    notDue,
    outOfHours,
    otherContext,
    disabled,
    disabledSoon,
    otherMachine,
    paused,
    volumeMissing,
    incomplete
  };
  struct Reason {
    Cause cause;
    std::string text;
    std::string remedy;  ///< what would make it run; empty when nothing needs doing
  };

  /// What is known of the agent, from itself or from its files.
  struct Situation {
    bool scheduleDisabled = false;
    bool disabledWhenDone = false;
    bool startedFromNewMachine = false;
    bool paused = false;
    bool headRuns = false;  ///< the first of the queue is being executed
    bool idleTimeIsSeen = true;
    int context = 0;                  ///< 0 none, 1 office, 2 home, 3 nomad
    std::vector<std::int64_t> queue;  ///< references, head first
  };

  /// `titleOf` names an action by its reference. Everything outlives this object.
  WhyNot(const ActionsTools& tools, ActionsTools::Texts texts, VolumeIdentity& volumes,
         std::function<std::string(std::int64_t)> titleOf);

  /// In the order in which they would be met; what holds now and at the next date comes before what
  /// passes by itself. Empty: it is due and nothing is in its way.
  std::vector<Reason> reasons(const ProgrammedAction& action, const Situation& situation) const;
  /// The next date by the schedule alone; nothing when an event starts the action, or none does.
  std::optional<ReferenceTime> nextDate(const ProgrammedAction& action) const;

 private:
  using Reasons = std::vector<Reason>;
  void addQueue(Reasons& reasons, std::int64_t reference, const Situation& situation) const;
  void addAgent(Reasons& reasons, const Situation& situation) const;
  void addVolumes(Reasons& reasons, const ZAN_Value& settings) const;
  void addTrigger(Reasons& reasons, const ProgrammedAction& action,
                  const Situation& situation) const;
  void addHours(Reasons& reasons, const ProgrammedAction& action) const;

  const ActionsTools& mTools;
  ActionsTools::Texts mTexts;
  VolumeIdentity& mVolumes;
  std::function<std::string(std::int64_t)> mTitleOf;
};

}  // namespace corvana
