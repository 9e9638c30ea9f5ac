#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "platform/Volumes.h"

namespace corvana {

class RunLoop;
class ZAN_MountVolume;

/// The mounted volumes with their details, local ones first, then those of servers, each in the
/// order of mounting. Thread: main.
///
/// A local volume: "bsdName", "uuid" (empty when none), "intelBootOk", "mountable", "volName",
/// "mediaBSDName", "internal", "writable", "volumeType", "volPath", "connection", "format",
/// "model", "vendor", "volKind", "volFreeSize", "volSize" (bytes), "volDate" (creation, seconds
/// since 2001, 0: unknown), "diskPartitionMap". Of a server: "volName", "volPath", "isServer",
/// "volFreeSize", "volSize", "volDate", "volKind", "connection". A volume that does not answer has
/// no sizes.
class ZAN_MountedVolumes {
 public:
  explicit ZAN_MountedVolumes(Volumes& volumes) : mVolumes(volumes) {}

  /// Reads the list anew, with sizes not older than a few seconds. Before the first time the list
  /// is read when it is asked for.
  void updateListVolumes();

  std::size_t getAllMountedVolumesCount();
  std::vector<ZAN_Value> getAllMountedVolumes();
  /// Null for an index that is negative or too large.
  ZAN_Value getInfosForVolumeAtIndex(std::int64_t index);
  /// The volume that a path lies on; null when none does.
  ZAN_Value getInfosForVolumeAtPath(const std::string& path);

 private:
  void readOnce();
  ZAN_Value localVolume(const Mount& mount);
  ZAN_Value serverVolume(const Mount& mount);

  Volumes& mVolumes;
  bool mWasRead = false;
  std::vector<ZAN_Value> mListOfMountedVolumes;
};

/// Every partition with a name that the system knows, mounted or not, as records "bsdName",
/// "volName" and, only when mounted, "mountPoint". Read in the background. Thread: main.
class ZAN_ConnectedVolumes {
 public:
  /// Reads nothing yet.
  ZAN_ConnectedVolumes(RunLoop& runLoop, const ZAN_MountVolume& tools);

  /// Reads the list in the background; until it is done the list is not available. While one
  /// reading runs, another request is dropped. When the tool is missing or fails, the old list
  /// stays.
  void updateListVolumes();
  bool isListVolumesAvailable() const { return mState->isAvailable; }
  bool isUpdatingList() const { return mState->isUpdating; }

  std::vector<ZAN_Value> getAllVolumes() const { return mState->list; }
  std::vector<ZAN_Value> getMountedVolumes() const;
  std::vector<ZAN_Value> getUnmountedVolumes() const;

  /// The first one of that name that is known is mounted, in the background; unknown: nothing
  /// happens.
  void mountVolume(const std::string& name, std::function<void()> done = {});
  void mountVolumeWithBsd(const std::string& bsdName, std::function<void()> done = {});

  /// BSD names of all disks and partitions, nothing when the tool fails. Blocks. Thread: any.
  static std::optional<std::vector<std::string>> getAllBSDName(const ZAN_MountVolume& tools);
  /// Those that are partitions with a name. Blocks. Thread: any.
  static std::vector<std::string> getAllPartitionsBSDName(const ZAN_MountVolume& tools);

 private:
  struct State {
    bool isUpdating = false;
    bool isAvailable = false;
    std::vector<ZAN_Value> list;
  };
  RunLoop& mRunLoop;
  const ZAN_MountVolume& mTools;
  std::shared_ptr<State> mState;
};

}  // namespace corvana
