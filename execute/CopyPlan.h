#pragma once

#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
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

/// What one action copies from where to where, checked before anything is written.
///
/// Each source becomes a folder (or file) of its own name in the destination. Copying (type 2) adds
/// and replaces; synchronising (type 3) also removes from such a folder what its source no longer
/// has, and nothing else of the destination. Other volumes mounted below a source are not entered.
class CopyPlan {
 public:
  static constexpr int kCopy = 2;
  static constexpr int kSynchronise = 3;

  struct Source {
    std::string path;
    std::string name;  ///< of its copy in the destination
  };

  /// Errors: `refused` for a record that is not ours to execute or would do harm (source and copy
  /// are the same place, two sources of one name, an empty source that would empty its copy),
  /// `absent` when a volume or a source is not there, `unwritable` for a destination that cannot be
  /// written.
  static Result<CopyPlan> fromSettings(const ZAN_Value& settings, const VolumeGuard& guard);

  const std::vector<Source>& sources() const { return mSources; }
  const std::string& destination() const { return mDestination; }

  /// The destination folder itself may be created, the folder that holds it never is.
  Outcome createDestination() const;
  /// rsync with its arguments. Items to be skipped are named as rsync does, from the parent of
  /// their source on.
  std::vector<std::string> arguments(const std::string& rsync,
                                     const std::vector<std::string>& skippedItems) const;
  /// Full path of an item that rsync names.
  std::string sourcePathOf(const std::string& item) const;

 private:
  Outcome addSource(const FolderDescription& item, const VolumeGuard& guard);
  Outcome checkOverlaps();

  std::vector<Source> mSources;
  std::string mDestination;
  std::string mFileSystem;  ///< of the destination
  bool mDeletes = false;
  std::vector<std::string> mExcluded;
};

}  // namespace corvana
