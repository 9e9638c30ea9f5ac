#pragma once

#include "core/work/WorkSurroundings.h"

namespace corvana {

class History;
class TriggerEvaluation;

/// Reminds a user who has automatic execution off, or has not yet answered the question about the
/// start-up disk, that actions were due and none was executed for days. Thread: main.
class LongDisabledWarning {
 public:
  LongDisabledWarning(const WorkSurroundings& surroundings, History& history,
                      const TriggerEvaluation& evaluation);

  /// A moment after the start, when the dates of all actions are known.
  void checkIfExecutionIsDisabled();

 private:
  WorkSurroundings m;
  History& mHistory;
  const TriggerEvaluation& mEvaluation;
};

}  // namespace corvana
