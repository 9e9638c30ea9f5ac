#pragma once

#include "actions/ActionsTools.h"

namespace corvana {

class ProgrammedAction;

/// How a list of actions is ordered. Values outside the names order as `manual`.
enum class SortMode : int {
  type = 0,
  title = 1,
  lastSchedule = 2,
  nextSchedule = 3,
  executions = 4,
  context = 5,
  creationDate = 6,
  reference = 7,
  titleOnly = 8,
  manual = 9,
};

/// A way to order and the moment for which next dates are computed.
struct ActionSort {
  SortMode mode;
  const ActionsTools& tools;
};

/// -1, 0 or 1 as `a` comes before `b`, beside it or after it. What is equal under the mode is
/// ordered by title, without regard to case, a missing title first. By type, executions and context
/// a group comes before actions; by dates it stands where its first displayed action would.
int existingActionsSort(const ProgrammedAction& a, const ProgrammedAction& b,
                        const ActionSort& sort);

/// By "Title" without regard to case, a missing one first; between two nodes and between two
/// records.
int sortProgrammedActionsByNameFunction(const ProgrammedAction& a, const ProgrammedAction& b);
int sortActionsByNameFunction(const ZAN_Value& a, const ZAN_Value& b);
/// By the date of the last execution of two records, the earlier first, one without a date last.
int sortActionsByExecutionDateFunction(const ZAN_Value& a, const ZAN_Value& b);

}  // namespace corvana
