#pragma once

#include <string>

#include "execute/CopyPlan.h"
#include "execute/ExecuteArguments.h"
#include "execute/ExecuteControl.h"
#include "execute/ExecuteMessages.h"
#include "execute/ExecuteRecords.h"
#include "execute/VolumeGuard.h"

namespace corvana {

/// Executes one action from its checks to its last record. Blocks; everything runs on the calling
/// thread but what `control` is asked for.
class ExecuteRun {
 public:
  struct Surroundings {
    ExecuteRecords::Files files;
    ExecuteMessages& messages;
    ExecuteControl& control;
    std::function<bool()> agentRuns;
    Volumes& volumes;
    std::string rsync = "/usr/bin/rsync";
  };

  explicit ExecuteRun(Surroundings surroundings) : mSurroundings(std::move(surroundings)) {}

  /// Says on the standard output and error what was done, for the agent's debug log. An action that
  /// cannot be executed, ends with errors or is stopped is recorded as that and is no crash.
  void perform(const ExecuteArguments& arguments);

 private:
  void execute(const CopyPlan& plan, const ZAN_Value& settings, ExecuteRecords& records);
  void estimate(const CopyPlan& plan, ExecuteRecords& records);
  ExecuteEnd copy(const CopyPlan& plan, const ZAN_Value& settings, ExecuteRecords& records);
  VolumeGuard guardFor(const ZAN_Value& settings) const;

  Surroundings mSurroundings;
};

}  // namespace corvana
