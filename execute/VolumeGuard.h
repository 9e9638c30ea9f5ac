#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
#include "actions/FolderDescription.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

/// Makes sure, before anything is written, that a folder of an action really lies on the volume
/// that the action describes, and not in an empty mount point on the system disk.
class VolumeGuard {
 public:
  using Place = VolumeIdentity::Place;

  VolumeGuard(Volumes& volumes, bool tolerant) : mVolumes(&volumes), mTolerant(tolerant) {}

  /// Where the folder is now, as VolumeIdentity::locate says; and looking at the folder itself, or
  /// at the nearest above it that is there, it must lie on that volume: a link on a volume may lead
  /// off it.
  Result<Place> locate(const FolderDescription& item) const;

 private:
  Volumes* mVolumes;
  bool mTolerant;
};

}  // namespace corvana
