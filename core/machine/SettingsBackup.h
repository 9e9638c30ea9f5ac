#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_FolderMirror.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class VolumeIdentity;
class ZAN_MountVolume;
struct Records;

/// Copies the data folder to the folders that the user has chosen for that, each at most every two
/// hours, on a thread of its own. The setting "CopySettingsDestinations" of the main application
/// lists them: dictionaries with "path" and, of the last good copy, "date".
///
/// A copy is the folder "Corvana 9 (Settings) Copy", closed to others (0700), with a short log of
/// its own in it. Where the file system keeps no rights it has no stored passwords and no keys of
/// paired machines, which the log says. What a copy replaces or removes stays for the days of seven
/// copies in "_Earlier Versions", and no damaged data file takes the place of a sound one. The
/// volume of a first copy is noted with the folder; another one in its place, or an empty folder
/// where a disk is missing, gets none.
///
/// A copy that failed keeps its previous date; the reason goes to the system log, once until it
/// changes. A folder that does not answer is given up after ten minutes; everything
/// else goes on meanwhile.
/// Thread: main.
class SettingsBackup {
 public:
  SettingsBackup(Records& records, VolumeIdentity& volumes) : m(records), mVolumes(volumes) {}
  SettingsBackup(const SettingsBackup&) = delete;
  SettingsBackup& operator=(const SettingsBackup&) = delete;

  /// Starts the copies that are due; nothing while some run.
  void backupSettings();
  bool isRunning() const { return mSettingsRunningBackup; }

  /// Makes the destination folder like the source, on the way as described above; `day` names the
  /// folder for what it replaces. Thread: any; it blocks.
  static Outcome saveSettings(const std::string& source, const std::string& destination,
                              const std::string& day, const ZAN_FolderMirror::StepHook& hook = {});

  /// For tests: stands before each step of a mirror, in the process that copies.
  ZAN_FolderMirror::StepHook onMirrorStep;

 private:
  bool hasDestinations() const;
  struct Destination;
  struct Job;
  struct Result;
  static std::vector<Result> backupSettingsThread(const Job& job);
  static Result backup(const Job& job, const Destination& to);
  /// In a process that can be lost.
  static Result copyTo(const Job& job, const Destination& to);
  void take(const std::vector<Result>& results);

  Records& m;
  VolumeIdentity& mVolumes;
  bool mSettingsRunningBackup = false;
  std::map<std::string, std::string> mReasons;  ///< of the failures that were said, by path
  /// Gone with this object: what a thread hands back later finds nobody.
  std::shared_ptr<SettingsBackup*> mSelf = std::make_shared<SettingsBackup*>(this);
};

/// Copies a recovery partition for the main application. Thread: main; the copy itself runs in the
/// background.
class RecoveryCopy {
 public:
  RecoveryCopy(Records& records, const ZAN_MountVolume& tools) : m(records), mTools(tools) {}

  /// From "sourceDeviceIdentifier" to "DeviceIdentifier" (BSD names). The main application hears
  /// "SendCopyRecoveryHDCompleted" with both and, when the new partition was given its type,
  /// "commandResult".
  void copyRecoveryPartition(const ZAN_Value& userInfo);

 private:
  Records& m;
  const ZAN_MountVolume& mTools;
};

}  // namespace corvana
