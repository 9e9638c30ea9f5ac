#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "actions/ActionsTools.h"
#include "actions/Forecast.h"
#include "actions/Schedule.h"

namespace corvana {

/// The runs that lie ahead of many actions, in order, as if each ran at its date: the series of an
/// action goes on from each found date. Thread: any, one at a time.
class ComingRuns {
 public:
  ComingRuns(const ZAN_DateUtils& calendar, ReferenceTime now, const Circumstances& circumstances,
             ActionsTools::Log log = {});

  struct Run {
    ReferenceTime date = 0;  ///< before now for the first run of an action that is overdue
    std::size_t action = 0;  ///< which one, counted from 0 as they were added
    bool shutDown = false;
    Hold hold = Hold::none;  ///< what would keep it from running, were it now
  };

  void add(Schedule schedule, ActionContext context);
  /// The next one of all actions; of equal dates the action that was added first. Null when no
  /// action has any more.
  std::optional<Run> next();

 private:
  struct Action {
    Forecast forecast;
    ReferenceTime now = 0;
    Hold hold = Hold::none;
  };

  void plan(std::size_t action);

  ZAN_DateUtils mCalendar;
  ReferenceTime mNow;
  Circumstances mCircumstances;
  ActionsTools::Log mLog;
  std::vector<Action> mActions;
  std::vector<Run> mPlanned;  ///< a heap, the earliest run on top
};

}  // namespace corvana
