#pragma once

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// Whether the volumes that an action names are there. Thread: main.
class VolumeIdentity {
 public:
  virtual ~VolumeIdentity() = default;

  /// Whether the volume of an item (a source or the destination of an action: "VolumeFolderPath",
  /// "VolumeFolderVolumeSize", "VolumeFolderVolumeDate", "uuid") is mounted. Tolerant: any volume
  /// at the right place will do; else its size must be that of the item or, failing that, its UUID.
  /// An item without a volume counts as mounted when its path begins with "/Volumes/" and exists.
  /// Null or no dictionary: no.
  virtual bool checkIfVolumeMounted(const ZAN_Value& item, bool tolerant);

  /// Whether every source of the action with these settings and then its destination is mounted.
  /// Without a list of sources yes, whatever the destination; without a destination the sources
  /// decide.
  bool checkIfAllVolumesMounted(const ZAN_Value& settings);
};

}  // namespace corvana
