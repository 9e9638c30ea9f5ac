#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/FolderDescription.h"
#include "platform/Volumes.h"

namespace corvana {

/// Which mounted volume a path means. Asks no mount for more than what the mount table says, except
/// where said. Thread: main.
class VolumeReference {
 public:
  explicit VolumeReference(Volumes& volumes) : mVolumes(volumes) {}

  /// Of a path below the volumes folder the mount at its first component there, and nothing when
  /// there is none: never the disk that the volumes folder lies on. Of any other path the deepest
  /// mount that holds it; of one in the folder where the desktop shows its shares the share, or
  /// nothing. Links are followed as far as that asks no foreign mount; a path that is
  /// not absolute has none.
  std::optional<Mount> ofPath(const std::string& path) const;

  /// A mounted volume that fits a folder description although its path leads to none: the one with
  /// its UUID, else the one of its name and size; with the path that the folder has on it.
  struct Place {
    Mount mount;
    std::string path;
  };
  std::optional<Place> getFolderPathForMountedVolume(const FolderDescription& item) const;
  /// The mounted volume with that UUID, nothing for an empty one.
  std::optional<Mount> withUuid(std::string_view uuid) const;

  /// The path as the user sees it: a volume below the volumes folder has its own name there, even
  /// when it had to be mounted under another, unless a volume of that name is mounted beside it.
  std::string localizedPath(const std::string& mountedPath) const;

  bool isBelowVolumesFolder(std::string_view path) const;
  /// The place of its volume below the volumes folder, and what follows with its "/"; empty when
  /// not below it.
  std::pair<std::string, std::string> splitBelowVolumesFolder(std::string_view path) const;

  /// What the volume is called: the name that the system or its label gives it, else the last
  /// component of its place; "/" for the start-up disk without a name.
  static std::string nameOf(const Mount& mount, const std::optional<VolumeInformation>& known);

 private:
  Volumes& mVolumes;
};

/// Whether the volumes that an action names are there. A mount that does not answer is not there.
/// Thread: main.
class VolumeIdentity {
 public:
  explicit VolumeIdentity(Volumes& volumes) : mVolumes(volumes), mReference(volumes) {}
  virtual ~VolumeIdentity() = default;

  /// Whether the volume of an item (a source or the destination of an action) is mounted: the one
  /// that its path leads to, else one that fits the description. Tolerant: any volume there will
  /// do; else its size must be that of the item or, failing that, its UUID; the date takes no part.
  /// Where the item says what was mounted, subvolumes of one disk are told apart by it, and volumes
  /// without a UUID by it alone. A volume below the volumes folder may be mounted elsewhere there.
  /// An item without a volume counts as mounted when its path lies below the volumes folder and
  /// exists. Null: no.
  virtual bool checkIfVolumeMounted(const FolderDescription& item, bool tolerant);

  /// Whether every source of the action with these settings and then its destination, or one that
  /// takes turns with it, is mounted.
  /// Without a list of sources yes, whatever the destination; an empty list leaves it to the
  /// destination, and without a destination the sources decide. A damaged source is not mounted.
  bool checkIfAllVolumesMounted(const ZAN_Value& settings);

  /// In a record: descriptions of folders on other disks that take turns with the destination.
  static constexpr std::string_view kRotation = "CopyRotation";
  /// The destination of the action and those that take turns with it: the first that is there is
  /// meant. Empty without a destination.
  static std::vector<FolderDescription> destinationsOf(const ZAN_Value& settings);

  /// Whether an item lies on what is mounted there, by what tells the volume and not by its path:
  /// it may have got another name. Of volumes without anything that tells them, no.
  bool isOn(const FolderDescription& item, const Mount& mount);
  /// Whether what is mounted there is certainly another volume than the item's.
  bool isAnother(const FolderDescription& item, const Mount& mount);

  /// Where an item's folder is now, for whoever is about to write there: its volume may be mounted
  /// elsewhere than when it was described. Stricter than the test above: known UUIDs decide, else
  /// the sizes; tolerant, any volume in the right place will do. Whatever the item says, a path
  /// below the volumes folder never counts while it lies on the start-up disk, nor does the
  /// start-up disk stand in for another volume. `absent` when the volume is not mounted or another
  /// one is in its place; `unavailable` when it does not answer; `refused` when the item describes
  /// no absolute path.
  struct Place {
    std::string path;
    Mount mount;
    VolumeInformation information;
  };
  Result<Place> locate(const FolderDescription& item, bool tolerant);

  const VolumeReference& reference() const { return mReference; }

 private:
  Volumes& mVolumes;
  VolumeReference mReference;
};

}  // namespace corvana
