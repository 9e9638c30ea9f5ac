#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace corvana {

class VolumeWatch;
class ZAN_ConnectedVolumes;
class ZAN_MountVolume;
struct Records;

/// Has the volume of an alias file mounted. Thread: main; nothing here waits.
class AliasMounter {
 public:
  /// `toolsFolder`: where the helper tools lie.
  AliasMounter(Records& records, std::string toolsFolder);

  /// Tells the user that it tries, and runs the helper "mountvolume"; one that has not ended after
  /// 10 s is ended and the user told. Without the helper the alias is resolved as if opened.
  void mountVolumeFromAlias(const std::string& aliasPath);
  /// Tries both ways one after the other and writes what came of them to the desktop, as "Corvana
  /// Log (Alias %@).txt".
  void checkMountVolume(const std::string& aliasPath);

 private:
  struct Attempt;
  class Examination;

  void watch(const std::shared_ptr<Attempt>& attempt);

  Records& m;
  std::string mToolsFolder;
};

/// What the user can have mounted: an alias file, usually of a share of a server, or a partition.
struct MountCandidate {
  std::string volName;
  std::string volPath;  ///< of the alias file; empty for a partition
  std::string bsdName;  ///< of the partition; empty for an alias
  bool isAlias = false;
  bool operator==(const MountCandidate&) const = default;
};

/// Mounts what the user chooses, and unmounts what was mounted for actions when the queue has
/// become empty. Nothing is launched while something is being unmounted. Thread: main.
class VolumeMounter {
 public:
  /// The means of mounting, and of unmounting.
  struct Means {
    const ZAN_MountVolume& tools;
    ZAN_ConnectedVolumes& connected;
    AliasMounter& aliases;
  };

  VolumeMounter(Records& records, VolumeWatch& watch, const Means& means);

  // The list of what can be mounted
  /// Has the partitions read again; the tick builds the list when they are there.
  void updateListOfVolumesToMount();
  /// For the tick: partitions were asked for and are there now.
  bool isListReady() const;
  /// Clears that state and builds the list.
  void takeUpdatedList();
  /// Aliases first, then the partitions that are not mounted, as they are known now.
  void buildVolumesToMountList();
  const std::vector<MountCandidate>& volumesToMountList() const { return mVolumesToMountList; }
  /// Also "Boot OS X", "EFI" and "Recovery HD" are offered.
  bool mountsSystemPartitions() const { return mMountVolumesSystemPartition; }
  void setMountsSystemPartitions(bool also);

  // Mounting
  /// By the menu; one that is not in the list is ignored. With the Option key down an alias is
  /// examined instead and a report written.
  void selectVolumeToMountInMenu(std::size_t index);
  /// By the window; the list is read again when the last one has been mounted.
  void mountSelectedVolumes(const std::vector<std::size_t>& rows);

  // Unmounting
  /// Mounted for an action; remembered only when the user wants such volumes unmounted.
  void rememberVolumeMountedByScheduler(const std::string& path);
  bool hasVolumesToUnmount() const { return !mMountedVolumesList.empty(); }
  /// The queue has become empty. Information about them is saved first.
  void unmountVolumesMountedByScheduler();
  /// Lets the volume go, by force when it does not go otherwise, and looks for 5 s whether it has
  /// gone. Several are unmounted one after another.
  void unmountVolume(std::string path);
  bool isUnmounting() const { return !mUnmounting.empty(); }

 private:
  void mountAlias(const MountCandidate& candidate);
  void updateListAfterMounting();
  void beginUnmount();
  void waitUntilGone(int looksLeft);
  void endUnmount();

  Records& m;
  VolumeWatch& mWatch;
  Means mMeans;
  std::string mAliasFolder;  ///< made when it is looked at
  std::vector<MountCandidate> mVolumesToMountList;
  std::vector<std::string> mMountedVolumesList;
  std::deque<std::string> mUnmounting;
  bool mUnmountsForQueue = false;
  int mUnmountMessage = 0;  ///< the message of the unmount that runs or ran last
  bool mUpdatingMountedVolumes = false;
  bool mMountVolumesSystemPartition = false;
  std::shared_ptr<int> mAlive =
      std::make_shared<int>();  ///< threads see by it whether this is gone
};

}  // namespace corvana
