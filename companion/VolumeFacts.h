#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace corvana {

/// The volume that holds a path, as the system mounts it now.
struct VolumeFacts {
  std::string mountPoint;
  std::string fileSystem;  ///< such as "ext4"
  std::string device;      ///< what was mounted, such as "/dev/sdb1"; empty when unknown
  std::uint64_t deviceNumber = 0;
  std::uint64_t totalSize = 0;     ///< bytes
  std::uint64_t creationDate = 0;  ///< seconds since 2001; 0: unknown
  std::string uuid;                ///< empty: none, or not to be found out without rights
  std::string name;  ///< label, else the mount point's last component; "/" for the root

  /// Nothing when the path, or for a path that is not there its nearest folder that is, cannot be
  /// asked.
  static std::optional<VolumeFacts> ofPath(const std::string& path);
  /// The mounted volume with that UUID; nothing when none has it.
  static std::optional<VolumeFacts> withUuid(std::string_view uuid);
  /// The folder below which removable volumes are mounted: $CORVANA9_VOLUMES if set, else that of
  /// the user below /run/media or /media, the first that is there; the latter when neither is.
  static std::string volumesFolder(const std::string& loginName);
};

}  // namespace corvana
