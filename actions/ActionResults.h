#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Time.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class ActionStore;

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
