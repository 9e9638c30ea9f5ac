#pragma once

#include <set>

#include "platform/Volumes.h"
#include "platform/simulated/SimulatedRunLoop.h"

namespace corvana {

class SimulatedProcesses;

/// Disks that the test plugs in and pulls out. At first only "/" is mounted, 500 GB named "System".
/// Mounting makes a real, empty folder, so that files can be put on a volume; it goes, with
/// everything in it, when the volume does. Changes are told through the loop once somebody
/// observes.
class SimulatedVolumes final : public Volumes {
 public:
  struct Disk {
    std::string name = "Disk";  ///< its label, and where it is mounted below the volumes folder
    std::uint64_t size = 1'000'000'000'000;
    std::uint64_t free = 400'000'000'000;
    std::string uuid = {};
    std::uint64_t creationDate = 700'000'000;
    std::string fileSystem = "ext4";
    std::string bsdName = {};  ///< empty: the next free "sdb1", "sdc1", …
    bool isServer = false;     ///< then the source is "smb://server/" and its name
    bool readOnly = false;
  };

  SimulatedVolumes(SimulatedRunLoop& runLoop, std::string volumesFolder);
  ~SimulatedVolumes() override;

  std::string volumesFolder() const override { return folder; }
  std::vector<Mount> mounts() const override { return mMounts; }
  std::optional<VolumeInformation> information(const Mount& mount,
                                               double maxAge = kAnyAge) override;
  DiskInformation diskInformation(const Mount& mount) override;
  bool exists(const std::string& path) override;
  bool isReachable(const std::string& host) override { return reachable.contains(host); }
  std::vector<std::string> volumesFolderContents() const override;
  Outcome removeFromVolumesFolder(const std::string& name, const GoesOn& goesOn) override;
  Result<std::string> moveAsideInVolumesFolder(const std::string& name) override;
  Result<Contents> measureInVolumesFolder(const std::string& name,
                                          const GoesOn& goesOn) const override;
  void observe(Observer observer) override { mObserver = std::move(observer); }

  /// Mounts a disk, at a place with a number behind its name when the plain one is taken; returns
  /// that place.
  std::string mount(const Disk& disk);
  /// Mounts at any place, which need not be below the volumes folder.
  std::string mountAt(const std::string& target, const Disk& disk);
  /// The disk is gone; `strayFolder`: its empty folder stays behind. False when nothing is mounted
  /// there.
  bool unmount(const std::string& target, bool strayFolder = false);
  /// A disk that is plugged in and not mounted; known to the system tool only.
  void plugIn(const Disk& disk);
  void setFree(const std::string& target, std::uint64_t free);
  /// From now on the mount answers nothing.
  void hang(const std::string& target) { mHanging.insert(target); }
  void answerAgain(const std::string& target) { mHanging.erase(target); }

  /// Makes `diskutil` (a full path) a tool that knows these disks: list, info, mount, unmount,
  /// eject.
  void installTool(SimulatedProcesses& processes, const std::string& diskutil);
  /// Volumes that refuse to be unmounted unless forced.
  std::set<std::string> busy;

  std::set<std::string> reachable;  ///< names of servers
  /// Called before each thing in the volumes folder is deleted, which may take its time there.
  std::function<void()> beforeRemoving;
  /// Names in the volumes folder that refuse to be deleted.
  std::set<std::string> sticky;

  std::string folder;  ///< the volumes folder
  int asked = 0;       ///< how often a mount itself was asked

 private:
  struct Known {
    Disk disk;
    std::string target;  ///< empty: not mounted
  };

  bool isInUse(const std::string& name) const;
  std::string toolAnswer(const std::vector<std::string>& words, bool& done);
  Known* find(const std::string& nameOrPath);

  SimulatedRunLoop& mRunLoop;
  Observer mObserver;
  std::vector<Mount> mMounts;
  std::vector<Known> mKnown;
  std::set<std::string> mHanging;
  std::set<std::string> mMade;
  std::uint64_t mLastId = 20;
  std::uint64_t mLastDevice = 100;
  char mNextLetter = 'b';
};

}  // namespace corvana
