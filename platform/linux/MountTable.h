#pragma once

#include <sys/types.h>

#include "platform/Machine.h"
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

/// What the system knows of a block device without mounting it. Thread: any.
class DeviceFacts {
 public:
  struct Identity {
    std::string uuid;
    std::string label;
    std::string fileSystem;
  };

  DeviceFacts() = delete;

  /// From udev, else from the device itself where it may be read, which may take as long as the
  /// device does. What is not known is empty.
  static Identity identity(const std::string& device);
  /// From sysfs and udev.
  static DiskInformation diskInformation(const std::string& device);
};

/// Finds out about the volume that the system runs from. Thread: any.
class StartupVolumeFacts {
 public:
  /// Where the system tells it; all below the real root but in tests.
  struct Places {
    std::string mountTable = "/proc/self/mountinfo";
    std::string devices = "/sys/dev/block";
    std::string labels = "/dev/disk/by-label";
    std::string root = "/";
  };

  explicit StartupVolumeFacts(Places places) : mPlaces(std::move(places)) {}

  /// Nothing when what is mounted as the root is no block device, or says nothing of itself.
  std::optional<StartupVolume> read() const;

 private:
  Places mPlaces;
};

}  // namespace corvana
