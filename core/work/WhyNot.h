#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "actions/ActionContext.h"
#include "actions/ActionsTools.h"

namespace corvana {

class ActionQueue;
class ExecuteSupervisor;
class Input;
class ProgrammedAction;
class VolumeIdentity;
struct SchedulerState;
struct StartVerdict;

/// Says, in the user's language, why an action does not run now or will not at its next date, and
/// what would make it run. Asks and changes nothing. Thread: main.
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
    incomplete,
    targetAway,  ///< its target did not answer, and is tried again later
    /// It runs, but would delete so much that it asks first.
    deletionsToConfirm
  };
  struct Reason {
    Cause cause;
    std::string text;
    /// What would make it run, as a sentence for somebody who sees the windows; empty when nothing
    /// needs doing or the window has a button for it.
    std::string remedy;
    /// The same for a terminal, with the command that does it.
    std::string remedyByCommand;
  };

  /// What is known of the agent, from itself or from its files.
  struct Situation {
    bool scheduleDisabled = false;
    bool disabledWhenDone = false;
    bool startedFromNewMachine = false;
    bool paused = false;
    bool headRuns = false;  ///< the first of the queue is being executed
    /// What holds the first of the queue up, in words; empty: it starts in a moment.
    std::string headHold = {};
    std::string stuck = {};  ///< that what runs is stuck, in words
    bool idleTimeIsSeen = true;
    ActionContext context = ActionContext::none;
    std::vector<std::int64_t> queue;  ///< references, head first
  };
  /// As the agent itself knows it.
  static Situation situationOf(const SchedulerState& state, const ExecuteSupervisor& supervisor,
                               const ActionQueue& queue, Input& input, std::string headHold);

  /// `titleOf` names an action by its reference. Everything outlives this object.
  WhyNot(const ActionsTools& tools, ActionsTools::Texts texts, VolumeIdentity& volumes,
         std::function<std::string(std::int64_t)> titleOf);

  /// In the order in which they would be met; what holds now and at the next date comes before what
  /// passes by itself. Empty: it is due and nothing is in its way.
  std::vector<Reason> reasons(const ProgrammedAction& action, const Situation& situation) const;
  /// The next date by the schedule alone, however far away; nothing when an event starts the
  /// action, or none does.
  std::optional<ReferenceTime> nextDate(const ProgrammedAction& action) const;

 private:
  using Reasons = std::vector<Reason>;
  Reason reason(Cause cause, std::string text, const std::string& remedy = {},
                const std::string& command = {}) const;
  Reason reasonToLaunch(Cause cause, std::string text, std::int64_t reference) const;
  std::string volumeName(const FolderDescription& item) const;
  void addQueue(Reasons& reasons, std::int64_t reference, const Situation& situation) const;
  void addAgent(Reasons& reasons, const Situation& situation) const;
  void addVolumes(Reasons& reasons, const ProgrammedAction& action) const;
  void addTrigger(Reasons& reasons, const ProgrammedAction& action, const StartVerdict& verdict,
                  const Situation& situation) const;
  void addTarget(Reasons& reasons, const ProgrammedAction& action) const;
  void addDeletions(Reasons& reasons, const ProgrammedAction& action) const;
  void addHours(Reasons& reasons, const StartVerdict& verdict) const;
  void addWaiting(Reasons& reasons, const ProgrammedAction& action,
                  const Situation& situation) const;

  const ActionsTools& mTools;
  ActionsTools::Texts mTexts;
  VolumeIdentity& mVolumes;
  std::function<std::string(std::int64_t)> mTitleOf;
};

}  // namespace corvana
