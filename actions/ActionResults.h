#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/InstalledPlaces.h"

namespace corvana {

class ActionStore;

/// Results of executions: one file each in the "History" folder, and the latest files and errors of
/// all actions together, newest first. Thread: main.
class ActionResults {
 public:
  /// How many executions, and how many items of them all together, each of the latest lists covers;
  /// the newest execution is always there whole.
  static constexpr std::size_t kMaximum = 500;
  static constexpr std::size_t kMaximumItems = 50'000;

  explicit ActionResults(ActionStore& store) : mStore(store) {}

  /// Writes the results file of one execution and merges it into the latest lists. `header` carries
  /// "Ref", "Title" and "Date"; the lists are arrays, null ones are left empty.
  Outcome saveActionResults(const ZAN_Value& header, const ZAN_Value& files,
                            const ZAN_Value& largeFiles, const ZAN_Value& errors,
                            const ZAN_Value& excluded);
  /// Path of the results file of that execution; nothing when there is none.
  std::optional<std::string> getActionResultsPathForRef(std::int64_t reference,
                                                        ReferenceTime date) const;
  /// The dictionary of a results file, null when it cannot be read.
  ZAN_Value readActionResults(const std::string& path) const;
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
  /// One of the two latest lists: a header, then the entries, newest first.
  struct Latest {
    std::string_view file;
    std::string_view key;  ///< of the results that it takes in
    ZAN_Value list = ZAN_Value::array();
    std::optional<ZAN_FileIdentity> identity = {};
  };

  void refresh(Latest& latest);
  void save(Latest& latest);
  std::size_t count(Latest& latest);
  ZAN_Value entryAtIndex(Latest& latest, std::int64_t index);
  void clear(Latest& latest, std::optional<std::int64_t> reference);
  /// Whether something was added.
  static bool merge(Latest& latest, const ZAN_Value& results);
  /// The results of one execution, or where they can be read; and when the file was written, for
  /// files that are looked through in that order.
  struct Written {
    ZAN_Value results;
    std::string path;
    std::optional<ReferenceTime> date;
  };
  std::vector<Written> notYetMerged();
  /// How far the results were taken in; nothing when a clock that was wrong has left no useful
  /// date.
  std::optional<ReferenceTime> mergedUntil() const;
  void mergeAndSave(const std::vector<Written>& all);
  std::string pathFor(std::int64_t reference, ReferenceTime date) const;

  ActionStore& mStore;
  Latest mFiles{DataFolder::kFiles, "Files"};
  Latest mErrors{DataFolder::kErrors, "Errors"};
};

}  // namespace corvana
