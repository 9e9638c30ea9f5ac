#pragma once

#include <string>
#include <vector>

#include "execute/engine/Engine.h"
#include "execute/engine/HeldSource.h"

namespace corvana {

/// Leads from the user's paths to the names of a version and back.
class VersionPlaces {
 public:
  /// `settings`: of the action, null without one.
  VersionPlaces(const KeptVersion& version, const ZAN_Value& settings, Volumes& volumes)
      : mVersion(version), mSettings(settings), mVolumes(volumes) {}

  /// The name in the version that a path means; `folder`: where a relative one begins. `refused`
  /// when it lies in nothing that was copied.
  Result<std::string> nameOf(std::string path, const std::string& folder) const;
  /// The path that a name of the version had then; empty for one that nothing copied has.
  std::string sourceOf(const std::string& name) const;
  /// Where it came from, on the volume that the action describes.
  Result<VersionTarget> origin(const std::string& name) const;
  /// In a folder, which is made when only it itself is not there.
  static Result<VersionTarget> in(const std::string& folder, const std::string& name);
  /// Where all that was copied lies now, as far as it is there.
  std::vector<VersionTarget> originsThatAreThere() const;

 private:
  const KeptVersion& mVersion;
  const ZAN_Value& mSettings;
  Volumes& mVolumes;
};

}  // namespace corvana
