#pragma once

#include <optional>
#include <string>
#include <vector>

namespace corvana {

class Volumes;

/// What lies in the volumes folder and belongs to no mounted volume: left behind when a volume went
/// away uncleanly, it takes the place of a volume that is mounted later. Thread: main.
class VolumesFolder {
 public:
  explicit VolumesFolder(Volumes& volumes) : mVolumes(volumes) {}

  /// Full paths, sorted; nothing when there is none.
  std::optional<std::vector<std::string>> getFaultyFoldersInVolumes() const;
  /// Whether there is no stray folder.
  bool checkVolumesFolder() const { return !getFaultyFoldersInVolumes(); }

  static std::string nameOf(const std::string& path);
  /// The names, separated by ", ".
  static std::string namesOf(const std::vector<std::string>& paths);

 private:
  Volumes& mVolumes;
};

}  // namespace corvana
