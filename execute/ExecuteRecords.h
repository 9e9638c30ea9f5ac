#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "execute/ExecuteMessages.h"

namespace corvana {

class ActionStore;
class ActionTree;
class History;
class ProgrammedAction;

/// What an execution leaves behind: current path, log, history, results and the action's own dates.
class ExecuteRecords {
 public:
  struct Files {
    ActionStore& store;
    ActionTree& tree;
    History& history;
  };

  /// `agentRuns`: whether an agent is there to take a log entry, asked when there is one.
  ExecuteRecords(Files files, ExecuteMessages& messages, std::function<bool()> agentRuns,
                 std::int64_t reference, std::string title);

  /// The history shows the execution from its start; one that crashes stays without an end.
  /// `task`: what it is (TaskRequest), if no copying.
  void began(std::string_view task = {});
  /// Goes on in the place of an execution of the same action that began and could not record its
  /// end.
  void takeUp();
  /// Kept on disk for whoever looks after a crash, at most once a second.
  void workingOn(const std::string& path);
  /// History, results, log, the action's counter and date, and what is to be confirmed. Also for an
  /// execution that was refused before it began.
  void ended(const ExecuteEnd& end);
  /// A count of what there is to copy, instead of an execution.
  void estimated(std::uint64_t files, std::uint64_t bytes);
  /// An execution that was no copying: history and log call it `task`. The action's dates stay.
  void taskEnded(std::string_view task, const ExecuteEnd& end);
  /// The log alone: for a count that came to nothing.
  void logged(const ExecuteEnd& end);

 private:
  void addToLog(const ExecuteEnd& end, std::string_view task = {});
  std::string reasonOf(const ExecuteEnd& end) const;
  void noteSuccess(ProgrammedAction& action, bool isSuccess);
  void noteReach(ProgrammedAction& action, bool isUnreachable);
  /// Whether they are others than those kept so far.
  static bool keepIfOther(ProgrammedAction& action, std::string_view key,
                          const std::vector<std::string>& texts);
  void saveResults(const ExecuteEnd& end);
  ZAN_Value historyEntry() const;
  void forgetCurrentPath();

  Files mFiles;
  ExecuteMessages& mMessages;
  std::function<bool()> mAgentRuns;
  bool mLacksOthers = false;  ///< what could not be copied is not what the run before has named
  std::string mNewLosses;     ///< what the copies cannot have and nobody was told yet; empty: none
  std::int64_t mReference;
  std::string mTitle;
  ReferenceTime mStart = 0;
  double mNextCrashPath = 0;
};

}  // namespace corvana
