#pragma once

#include <array>
#include <string>
#include <string_view>

namespace corvana {

class Machine;
class SystemLog;

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
