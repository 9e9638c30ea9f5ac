#pragma once

#include <string_view>

#include "platform/Volumes.h"

namespace corvana {

/// Reads the kernel's mount table. Thread: any.
class MountTable {
 public:
  /// What decides whether a mount counts as a volume.
  struct Places {
    std::string volumesFolder;
    std::string home;
  };

  MountTable() = delete;

  /// The table as /proc/self/mountinfo gives it, oldest mount first; lines that are none are left
  /// out. Volumes are "/", what is mounted below the volumes folder, other file systems on block
  /// devices and those of other machines; not what belongs to booting, nor images of programs.
  static std::vector<Mount> parse(std::string_view text, const Places& places);
  /// The same of this process now, with devices by their kernel names.
  static std::vector<Mount> read(const Places& places);
};

}  // namespace corvana
