#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "platform/Volumes.h"

namespace corvana {

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

}  // namespace corvana
