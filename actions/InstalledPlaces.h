#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace corvana {

class Machine;
class SystemLog;

/// The product's folder in the user's home and the names in it. Folders are created when their path
/// is asked for. Thread: main; `path…` functions without creation from any.
class DataFolder {
 public:
  static constexpr std::string_view kActions = "Programmed Actions.cva9data";
  static constexpr std::string_view kChanges = "Programmed Actions Changes.cva9data";
  static constexpr std::string_view kHistory = "Programmed History Data.cva9data";
  static constexpr std::string_view kFiles = "Programmed Files Data.cva9data";
  static constexpr std::string_view kErrors = "Programmed Errors Data.cva9data";
  static constexpr std::string_view kExecutions = "Programmed Executions Data.cva9data";
  static constexpr std::string_view kLog = "Corvana 9 Log.cva9data";
  static constexpr std::string_view kInterrupted = "Interrupted Actions.cva9data";
  static constexpr std::string_view kCommonFilters = "Common Filters.cva9data";
  static constexpr std::string_view kHistoryData = "History Data.cva9data";
  static constexpr std::string_view kSettings = "Corvana 9 Settings.cva9data";
  static constexpr std::string_view kSchedulerSettings = "Corvana 9 Scheduler Settings.cva9data";
  /// The occasions of the agent's queue, the head included, and what became of their begin.
  static constexpr std::string_view kOccasions = "Corvana 9 Scheduler Occasions.cva9data";
  static constexpr std::string_view kPaired = "Corvana 9 Scheduler Paired.cva9data";
  /// Locked by the one agent of this folder.
  static constexpr std::string_view kInstanceLock = ".Corvana 9 Scheduler.lock";
  static constexpr std::string_view kActivity = "Corvana 9 Activity.cva9data";
  /// The last evaluation of the actions, and what was missed since.
  static constexpr std::string_view kLastLook = "Corvana 9 Scheduler Look.cva9data";
  static constexpr std::string_view kVolumesInfo = "Corvana 9 Volumes Info.cva9data";
  /// Of other programs: records of free space to be taken in.
  static constexpr std::string_view kMoreVolumesInfo = "Corvana 9 Volumes Info+.cva9data";
  static constexpr std::string_view kVolumesMounted = "Corvana 9 Volumes Mounted.cva9data";
  static constexpr std::string_view kTypesForExtensions = "Corvana 9 TypesForExtensions.cva9data";
  static constexpr std::string_view kCurrentPath = "Execute Action (current path).txt";
  static constexpr std::string_view kFirstErrorPath = "Execute Action (first error path).txt";
  static constexpr std::string_view kLastErrorPath = "Execute Action (last error path).txt";
  static constexpr std::string_view kShortLog = "Corvana Log.txt";
  static constexpr std::string_view kCheckPackages = "Corvana 9 - Check Package Contents.txt";

  explicit DataFolder(std::string homeFolder);

  const std::string& homeFolder() const { return mHome; }
  /// "Library/Application Support/Corvana 9" of the home folder, created with mode 0700 when
  /// missing; with a name, that file's path in it.
  std::string dataFolderPathWithFileName(std::optional<std::string_view> name = {}) const;
  /// The same path without creating anything.
  std::string pathOf(std::string_view name) const;
  /// The hidden sibling on the same file system for everything transient: temporary files, locks.
  std::string hiddenFolderPath() const;
  /// "Library/Logs" of the home folder.
  std::string userLogsFolderPath() const;

  std::string aliasFolderPath() const { return subFolder("Alias"); }
  std::string historyFolderPath() const { return subFolder("History"); }
  std::string pathForSurveyContentsFolder() const { return subFolder("Survey Contents"); }
  std::string activityLogFolderPath() const { return subFolder("ActivityLog"); }
  std::string logFilesFolderPath() const { return subFolder("LogFiles"); }
  std::string loginItemsFolderPath() const { return subFolder("LoginItems"); }
  std::string reportsFolderPath() const { return subFolder("Reports"); }
  std::string actionsBackupFolderPath() const { return subFolder("Programmed Actions (Backup)"); }
  std::string copyOnlyOnceFolderPath() const { return subFolder("CopyOnlyOnce Data"); }
  /// "Alias"/name when that exists, else "Alias"/name + " alias" when that exists, else nothing.
  std::optional<std::string> aliasPathForName(std::string_view name) const;

 private:
  std::string subFolder(std::string_view name) const;

  std::string mHome;
  std::string mFolder;
};

/// Where the parts of the product are installed, found once from the running program's own place.
/// Thread: any, once built.
class InstallPaths {
 public:
  enum Code {
    mainAppBundle = 0,
    mainAppExecutable,
    mainAppResources,
    schedulerBundle,
    schedulerExecutable,
    schedulerResources,
    executeBundle,
    executeExecutable,
    executeResources,
    launcherBundle,
    shutDownBundle,
    adminLauncher,
    dataFile,
    dataFileName,
    webAddress,
    versionAddress,
    updateAddress,
  };

  explicit InstallPaths(const Machine& machine);

  /// Empty for a code that is not in the table.
  const std::string& installPathForCode(int code) const;
  /// A system tool that comes along, by its name.
  std::string toolPath(std::string_view name) const;
  /// One line "Missing: <path>" for each part that is not there; empty when all are. What belongs
  /// to the main application counts only where that is installed.
  std::string missingParts() const;
  /// Writes the missing parts to "Corvana Install Error.txt" (main application) or "Corvana Install
  /// Error2.txt" on the desktop; nothing when all are there.
  void reportMissingParts(const std::string& desktopFolder, SystemLog& log) const;

 private:
  std::array<std::string, 17> mPaths;
  bool mIsMainApp = false;
};

}  // namespace corvana
