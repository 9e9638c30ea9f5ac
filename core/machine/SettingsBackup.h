#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_FolderMirror.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

struct Records;

/// Copies the data folder to the folders that the user has chosen for that, each at most every two
/// hours, on a thread of its own. The setting "CopySettingsDestinations" of the main application
/// lists them: dictionaries with "path" and, of the last good copy, "date".
///
/// A copy is the folder "Corvana 9 (Settings) Copy" with a short log of its own in it. One that
/// failed keeps its previous date; the reason goes to the system log, once until it changes. A
/// folder that does not answer keeps the thread waiting and everything else going. Thread: main.
class SettingsBackup {
 public:
  explicit SettingsBackup(Records& records) : m(records) {}
  SettingsBackup(const SettingsBackup&) = delete;
  SettingsBackup& operator=(const SettingsBackup&) = delete;

  /// Starts the copies that are due; nothing while some run.
  void backupSettings();
  bool isRunning() const { return mSettingsRunningBackup; }

  /// Makes the destination folder like the source. Thread: any; it blocks.
  static Outcome saveSettings(const std::string& source, const std::string& destination,
                              const ZAN_FolderMirror::StepHook& hook = {});

  /// For tests: stands before each step of a mirror, on the thread of the copies.
  ZAN_FolderMirror::StepHook onMirrorStep;

 private:
  bool hasDestinations() const;
  struct Job;
  struct Result;
  static std::vector<Result> backupSettingsThread(const Job& job);
  static Result backup(const Job& job, const std::string& path);
  void take(const std::vector<Result>& results);

  Records& m;
  bool mSettingsRunningBackup = false;
  std::map<std::string, std::string> mReasons;  ///< of the failures that were said, by path
  /// Gone with this object: what a thread hands back later finds nobody.
  std::shared_ptr<SettingsBackup*> mSelf = std::make_shared<SettingsBackup*>(this);
};

}  // namespace corvana
