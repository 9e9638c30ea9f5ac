#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "execute/ExecuteMessages.h"
#include "execute/ExecuteRecords.h"
#include "execute/engine/Engine.h"
#include "platform/Machine.h"

namespace corvana {

/// What the agent tells the execute program on its command line, in this order; decimal integers
/// but for the seventh, which is empty, and the tenth, a path. Words that are missing read as 0, so
/// a call by hand needs only the reference.
struct ExecuteArguments {
  std::int64_t reference = 0;
  bool showProgress = false;
  bool showMountMessage = false;
  bool launchedByScheduler = false;  ///< the agent always passes 1
  int retry = 0;                     ///< 1: the run before this one crashed
  int surveyMode = 0;
  bool estimateSize = false;  ///< only count what there is to copy
  bool setFrontProcess = false;
  std::string request;  ///< a file that says what else is wanted, "" for what the others say

  /// `words` without the program's own name. Refused: no reference, one below 1 unless there is a
  /// request, a word that is no number.
  static Result<ExecuteArguments> parse(std::span<const std::string_view> words);
};

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
    const Machine& machine;
    /// Programs of engines that lie elsewhere than in /usr/bin, by their names.
    std::map<std::string, std::string, std::less<>> programs = {};

    EngineHost host(FolderWatch& watch, std::function<void(const ExecuteProgress&)> tell) const;
  };

  explicit ExecuteRun(Surroundings surroundings) : mSurroundings(std::move(surroundings)) {}

  /// Says on the standard output and error what was done, for the agent's debug log. An action that
  /// cannot be executed, ends with errors or is stopped is recorded as that and is no crash.
  void perform(const ExecuteArguments& arguments);
  /// What it would do, without doing any of it: {"reference", "title", "possible"; "reason" where
  /// there is one; "copy", "replace", "change" and "delete" as {"files", "bytes", "items"}, the
  /// items {"path", "bytes"} up to `most` of each; "missing", in words; "exclusions", the patterns
  /// that leave that out; "losses"; "toConfirm"}.
  ZAN_Value plan(std::int64_t reference, std::size_t most);
  /// Records the end of an execution that has done nothing for so many seconds and was given up,
  /// in its place: which of its volumes do not answer. `stop`: why it was to end anyway.
  void recordSilence(const ExecuteArguments& arguments, double seconds, StopReason stop);
  /// Records an end without an execution, in the place of one that has begun and cannot record its
  /// own.
  void recordEnd(const ExecuteArguments& arguments, const ExecuteEnd& end);

 private:
  void execute(Engine& engine, FolderWatch& watch, const ZAN_Value& settings,
               ExecuteRecords& records);
  std::function<void(const ExecuteProgress&)> newsFor(ExecuteRecords& records) const;
  std::string silentVolumes(const ZAN_Value& settings) const;
  Error missing(std::int64_t reference) const;
  void estimate(const std::vector<std::string>& sources, ExecuteRecords& records);
  Result<std::unique_ptr<Engine>> engineFor(const ZAN_Value& settings, FolderWatch& watch,
                                            std::function<void(const ExecuteProgress&)> tell) const;

  Surroundings mSurroundings;
};

}  // namespace corvana
