#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

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

}  // namespace corvana
