#pragma once

#include <cstdint>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// A folder and the volume that it lies on, as records describe the sources and the destination of
/// an action; lists of volumes describe the volume alone. A look into the stored dictionary: what
/// it holds besides stays. A missing text is empty, a missing number 0.
class FolderDescription {
 public:
  /// Describes nothing.
  FolderDescription() = default;
  /// Anything but a dictionary describes nothing.
  explicit FolderDescription(ZAN_Value stored);

  /// What a record stores; null when nothing is described.
  const ZAN_Value& toValue() const { return mStored; }

  bool isNull() const { return mStored.isNull(); }
  /// Something is described, but not what: so a damaged one reads.
  bool isDamaged() const { return !isNull() && mStored.empty(); }

  std::string_view path() const;           ///< where the folder was when it was described
  std::string_view pathLocalized() const;  ///< the same as the user sees it
  std::string_view volumeName() const;
  std::uint64_t volumeSize() const;  ///< bytes
  std::uint64_t volumeDate() const;  ///< its creation, seconds since 2001
  std::string_view uuid() const;     ///< of the volume
  // In keys of this system's own, for volumes that the others cannot tell from each other.
  std::string_view fileSystem() const;  ///< "btrfs", "fuse.gocryptfs"
  std::string_view source() const;      ///< what is mounted: "/dev/sdb1", "host:/export"
  std::string_view root() const;        ///< which folder of the file system: a subvolume

  /// Equal name, size and date of the volume.
  bool isSameVolume(const FolderDescription& other) const;
  /// Size or date of the volume is another one; what one of the two does not know is no difference.
  bool hasOtherFigures(const FolderDescription& other) const;

  FolderDescription& setPath(std::string_view path);
  FolderDescription& setPathLocalized(std::string_view path);
  FolderDescription& setVolumeName(std::string_view name);
  /// A number, which keeps its type letter.
  FolderDescription& setVolumeSize(ZAN_Value bytes);
  FolderDescription& setVolumeDate(ZAN_Value date);
  FolderDescription& setUuid(std::string_view uuid);
  FolderDescription& setMounted(std::string_view fileSystem, std::string_view source,
                                std::string_view root);

 private:
  FolderDescription& set(std::string_view key, ZAN_Value value);

  ZAN_Value mStored;
};

}  // namespace corvana
