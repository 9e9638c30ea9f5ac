#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Time.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class ActionStore;

/// The programmed history: one entry a finished execution, the oldest dropped beyond 5000, mirrored
/// as text in "Library/Logs/Corvana 9 Actions.log". An entry is a dictionary with "Date" (start),
/// "EndDate", "Title", "C" (result code) and "ActionErrors" (how many). What other programs added
/// is taken in before each change. Thread: main.
class History {
 public:
  static constexpr std::size_t kMaximum = 5000;

  explicit History(ActionStore& store);

  /// Reads the file again when it has changed.
  void reloadProgrammedHistoryList();
  /// The stored array; its element 0 is a header, the entries follow, oldest first.
  ZAN_Value getProgrammedHistoryList();
  std::size_t historyCount();  ///< of entries
  /// Null for an index that is below 0 or not below the count.
  ZAN_Value historyEntryAtIndex(std::int64_t index);
  /// An entry with the start date of the last one takes its place.
  void addHistoryEntry(const ZAN_Value& entry);
  /// Entries without a date stay.
  void removeHistoryEntriesBefore(ReferenceTime date);
  void saveProgrammedHistoryList();

 private:
  std::string lineForEntry(const ZAN_Value& entry) const;
  void saveProgrammedHistoryListAsLog();

  ActionStore& mStore;
  ZAN_Value mList;
  std::optional<ZAN_FileIdentity> mIdentity;
};

/// How often actions were executed, ended with errors and crashed, kept for each action. Thread:
/// main.
class ExecutionCounters {
 public:
  static constexpr const char* kExecutions = "Nb";
  static constexpr const char* kErrors = "Er";
  static constexpr const char* kCrashes = "Cr";

  explicit ExecutionCounters(ActionStore& store);

  /// Adds one. `reference` 0 stands for an action that is not known.
  void incrementCounter(const std::string& counter, std::int64_t reference);
  std::int64_t counter(const std::string& counter, std::int64_t reference);
  /// Over all actions.
  std::int64_t total(const std::string& counter);

 private:
  ActionStore& mStore;
};

/// Results of executions: one file each in the "History" folder, and the latest files and errors of
/// all actions together, newest first. Thread: main.
class ActionResults {
 public:
  /// How many executions the latest lists cover.
  static constexpr std::size_t kMaximum = 500;

  explicit ActionResults(ActionStore& store);

  /// Writes the results file of one execution and merges it into the latest lists. `header` carries
  /// "Ref", "Title" and "Date"; the lists are arrays, null ones are left empty.
  Outcome saveActionResults(const ZAN_Value& header, const ZAN_Value& files,
                            const ZAN_Value& largeFiles, const ZAN_Value& errors,
                            const ZAN_Value& excluded);
  /// Path of the results file of that execution; nothing when there is none.
  std::optional<std::string> getActionResultsPathForRef(std::int64_t reference,
                                                        ReferenceTime date) const;
  /// The dictionary of a results file, null when it cannot be read.
  ZAN_Value readActionResults(const std::string& path);
  /// Merges the results files that came since the last time, of whichever program.
  void updateActionResults();
  void addActionResultsFromFile(const std::string& path);

  // Latest lists: entries {"Ref", "Title", "Date", "List"}, one an execution that has any.
  void reloadProgrammedFilesAndErrorsList();
  std::size_t latestFilesCount();
  ZAN_Value getLatestFilesAtIndex(std::int64_t index);
  std::size_t latestErrorsCount();
  ZAN_Value getLatestErrorsAtIndex(std::int64_t index);
  /// Those of one action, or all.
  void clearLatestFiles(std::optional<std::int64_t> reference = {});
  void clearLatestErrors(std::optional<std::int64_t> reference = {});
  void saveProgrammedFilesList();
  void saveProgrammedErrorsList();

 private:
  ActionStore& mStore;
  ZAN_Value mFiles;
  ZAN_Value mErrors;
};

}  // namespace corvana
