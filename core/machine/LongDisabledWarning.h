#pragma once

namespace corvana {

class TriggerEvaluation;
struct Records;

/// Reminds a user who has automatic execution off, or has not yet answered the question about the
/// start-up disk, that actions were due and none was executed for days. Thread: main.
class LongDisabledWarning {
 public:
  LongDisabledWarning(Records& records, const TriggerEvaluation& evaluation)
      : m(records), mEvaluation(evaluation) {}

  /// A moment after the start, when the dates of all actions are known.
  void checkIfExecutionIsDisabled();

 private:
  Records& m;
  const TriggerEvaluation& mEvaluation;
};

}  // namespace corvana
