#pragma once

#include <functional>
#include <optional>
#include <string>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "companion/VolumeFacts.h"

namespace corvana {

/// Makes sure, before anything is written, that a folder of an action really lies on the volume
/// that the action describes, and not in an empty mount point on the system disk.
class VolumeGuard {
 public:
  /// How volumes are looked up; the real answers come from VolumeFacts.
  struct Lookup {
    std::function<std::optional<VolumeFacts>(const std::string& path)> ofPath = VolumeFacts::ofPath;
    std::function<std::optional<VolumeFacts>(const std::string& uuid)> withUuid =
        [](const std::string& uuid) { return VolumeFacts::withUuid(uuid); };
  };
  struct Place {
    std::string path;  ///< of the folder now: its volume may be mounted elsewhere than when it was
                       ///< described
    VolumeFacts volume;
  };

  VolumeGuard(std::string volumesFolder, bool tolerant);
  VolumeGuard(std::string volumesFolder, bool tolerant, Lookup lookup);

  /// `item`: "VolumeFolderPath", "VolumeFolderVolumeSize", "uuid". `absent` when the volume is not
  /// mounted or another one is in its place; `refused` when the item describes no absolute path.
  ///
  /// Known UUIDs decide, else the sizes; tolerant, any volume in the right place will do. Whatever
  /// the item says, a path below the volumes folder never counts while it lies on the system disk,
  /// nor does the system disk stand in for another volume.
  Result<Place> locate(const ZAN_Value& item) const;

 private:
  Outcome identify(const ZAN_Value& item, const std::string& path, const VolumeFacts& volume) const;

  std::string mVolumesFolder;
  bool mTolerant;
  Lookup mLookup;
};

}  // namespace corvana
