#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "actions/DataFiles.h"

namespace corvana {

class LocalDates;
class Machine;

/// The small plain-text files that people read. A text of several lines is set in from its second
/// line on, so that a name with a line end in it makes no entry of its own. Entries are added at
/// the end, what was cut off there gets a line of its own. A file that cannot be read counts as
/// empty; failures to write are logged. Thread: main.
class TextFiles {
 public:
  TextFiles(DataFiles& files, Machine& machine, LocalDates& dates);

  /// Adds date, application name and text to "Corvana Log.txt", in ASCII: other characters become
  /// "?". With 100001 characters or more only what follows the first 75000 is kept before adding.
  void addToLogFile(std::string_view text);
  /// Adds "<short time and date> - <text>" to the list of packages to be checked.
  void addToCheckPackagesFile(std::string_view text);

  /// Puts "<short time and date> <text>" on top of "_Corvana 9 (Last Executions).txt" in an
  /// existing folder; of 28 lines or more the first 25 stay.
  void addLastExecution(std::string_view text, const std::string& rootPath);

  // The path that the execute program is working on.
  void saveCurrentPath(
      std::string_view path);  ///< writes at most once a second, drops what comes between
  /// Also begins anew with the last error path. Nothing: only the latter.
  void saveCurrentPathForFirstError(std::optional<std::string_view> path);
  void saveCurrentPathForLastError(std::string_view path);
  std::optional<std::string> readCurrentPath() const;
  std::optional<std::string> readCurrentPathForFirstError() const;
  std::optional<std::string> readCurrentPathForLastError() const;
  void clearCurrentPath();

  /// Full path of the report file of that local day, of today without a date.
  std::string reportFileNameForDate(std::optional<ReferenceTime> date) const;
  std::string reportEmailFileNameForDate(std::optional<ReferenceTime> date) const;
  /// Replaces the e-mail report of that day.
  void writeReportEmail(std::string_view text, ReferenceTime day);
  /// Adds "<short time and date> (<application>) - <text>" to today's report.
  void addToReportFile(std::string_view text);

 private:
  std::string datedReport(std::string_view pattern, std::optional<ReferenceTime> date) const;
  std::string applicationName() const;
  std::optional<std::string> textOf(std::string_view name) const;
  void writeText(const std::string& path, std::string_view text, bool synchronise);

  DataFiles& mFiles;
  Machine& mMachine;
  LocalDates& mDates;
  ReferenceTime mNextSaveCurrentPath = 0;
};

}  // namespace corvana
