#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "actions/ActionContext.h"

namespace corvana {

class ActionsTools;
class Processes;
class ProgrammedAction;
class VolumeIdentity;

/// Which applications run, and which ended between the last two looks, by their names: the last
/// component of their path without its extension. Thread: main.
class ApplicationLists {
 public:
  /// Compares the running applications with those of the last call.
  void update(Processes& processes);
  /// Whether the application of this path ran at the last comparison.
  bool isOpened(std::string_view path) const;
  /// Whether it ended between the last two comparisons.
  bool didQuit(std::string_view path) const;

 private:
  std::unordered_set<std::string> mOpened;
  std::unordered_set<std::string> mQuitted;
};

/// What an evaluation knows beside the action; what is left out is not asked for.
struct StartSituation {
  ActionContext context = ActionContext::none;
  bool scheduleDisabled = false;
  /// No complete evaluation has happened yet since a cold start.
  bool firstAfterStartup = false;
  /// The volume that was just mounted, and the same as the user sees it; nothing else starts an
  /// action then. Goes with `volumes`.
  std::string_view mountedDevice = {};
  std::string_view localizedDevice = {};
  VolumeIdentity* volumes = nullptr;
  /// Null: events start nothing.
  const ApplicationLists* applications = nullptr;
  ReferenceTime startOfIdleTime = 0;  ///< goes with `applications`
  /// Looks at everything, also where something in the way has decided already.
  bool goesOn = false;
};

/// Whether an action may start, and what starts it. The evaluation obeys it and the explanations
/// put it into words, so that both say the same.
struct StartVerdict {
  /// The hours of today within which an action may start; both bounds count.
  struct Hours {
    ReferenceTime from = 0;
    ReferenceTime to = 0;
    bool contain(ReferenceTime date) const { return from <= date && date <= to; }
    bool neverCome() const { return to < from; }  ///< a window over midnight never matches
  };

  bool automatic = false;
  bool inContext = false;
  bool inHours = false;
  std::optional<Hours> hours = {};  ///< nothing: any
  /// The event that the action waits for has come: a volume mounted, an application ended, nobody
  /// there for long enough.
  bool startedByEvent = false;
  /// So many seconds later the event may have come.
  std::optional<double> lookAgainIn = {};
  /// Then the verdict may be another one although no date says so: the allowed hours begin, or a
  /// series that begins anew with each day does.
  std::optional<ReferenceTime> changesAt = {};
  /// By its schedule, due when it has come; nothing for an occasion at shutdown, nor where an event
  /// or something in the way has decided.
  std::optional<ReferenceTime> date = {};

  bool nothingInTheWay() const { return automatic && inContext && inHours; }

  /// Asks `volumes` for an action that waits for the mounted volume and names it, only.
  static StartVerdict of(const ProgrammedAction& action, const ActionsTools& tools,
                         const StartSituation& situation);
};

}  // namespace corvana
