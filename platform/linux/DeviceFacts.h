#pragma once

#include <sys/types.h>

#include <string>

#include "platform/Volumes.h"

namespace corvana {

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

}  // namespace corvana
