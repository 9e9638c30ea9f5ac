#pragma once

#include <optional>
#include <string>

#include "platform/Machine.h"

namespace corvana {

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
