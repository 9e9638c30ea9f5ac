#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "actions/ActionsTools.h"
#include "actions/Schedule.h"

namespace corvana {

/// The runs that lie ahead of many actions, in order, as if each ran at its date: a found date
/// becomes the last schedule date and the now of the next search. Thread: any, one at a time.
class ComingRuns {
 public:
  ComingRuns(const ZAN_DateUtils& calendar, ReferenceTime now, ActionsTools::Log log = {});

  struct Run {
    ReferenceTime date = 0;  ///< before now for the first run of an action that is overdue
    std::size_t action = 0;  ///< which one, counted from 0 as they were added
    bool shutDown = false;
  };

  void add(Schedule schedule);
  /// The next one of all actions; of equal dates the action that was added first. Null when no
  /// action has any more.
  std::optional<Run> next();

 private:
  struct Action {
    Schedule schedule;
    ReferenceTime now = 0;
  };

  void plan(std::size_t action);

  ZAN_DateUtils mCalendar;
  ReferenceTime mNow;
  ActionsTools::Log mLog;
  std::vector<Action> mActions;
  std::vector<Run> mPlanned;  ///< a heap, the earliest run on top
};

}  // namespace corvana
