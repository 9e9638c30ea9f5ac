#pragma once

#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "actions/FolderDescription.h"
#include "platform/linux/HeldFolder.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

/// Finds the folders of an action on the volumes that it describes, and takes hold of them.
class VolumeGuard {
 public:
  using Place = VolumeIdentity::Place;

  VolumeGuard(Volumes& volumes, bool tolerant) : mVolumes(&volumes), mTolerant(tolerant) {}

  /// Where the folder is now, as VolumeIdentity::locate says.
  Result<Place> locate(const FolderDescription& item) const;
  /// Opens a folder that was located. It must lie on that very mount: `absent` when a link or a
  /// mount that came meanwhile leads off it.
  static Result<HeldFolder> hold(const std::string& path, const Place& place);
  /// Whether what is mounted there can be looked at; asks in a child, as long as a disk may need to
  /// wake up. What lies on the system's own disks always can.
  bool answers(const Mount& mount) const;

 private:
  Volumes* mVolumes;
  bool mTolerant;
};

/// A folder or file that an action copies, taken hold of: what is copied is what was checked,
/// whatever its path comes to mean.
struct HeldSource {
  std::string path;
  FolderDescription described;
  std::string name;  ///< of its copy
  bool isFolder = true;
  HeldFolder held;                        ///< the folder, or the one that holds the file
  std::vector<std::string> excluded;      ///< relative names that are left as they are
  std::vector<std::string> mountsWithin;  ///< relative names; what is in them is left as it is

  /// `absent` when its volume or it itself is not there, `unwritable` when it cannot be read,
  /// `unavailable` when something that is mounted below it does not answer, `refused` for what is
  /// neither a folder nor a file.
  static Result<HeldSource> hold(const FolderDescription& item, const VolumeGuard& guard);
  /// Which source has lost its volume.
  Outcome checkMounted(const std::vector<Mount>& mounts) const;
  /// Whether its volume still answers and it is the one that it was.
  Outcome checkAlive() const;
};

}  // namespace corvana
