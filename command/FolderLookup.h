#pragma once

#include <string>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "actions/FolderDescription.h"

namespace corvana {

class Volumes;

/// Finds out what a record has to say of a source or a destination: the path, and the volume that
/// must hold it when the action runs.
class FolderLookup {
 public:
  enum class Role { source, destination };

  FolderLookup() = delete;

  /// Describes `path` (made absolute, without "." and ".."). Refused when a source, or the folder
  /// above a destination, is not there, and when the place below the volumes folder has no volume
  /// mounted on it; `force` describes it all the same, without the volume where that is not known.
  static Result<FolderDescription> describe(const std::string& path, Role role, bool force,
                                            Volumes& volumes);
  /// The path as a description holds it.
  static std::string absolutePath(const std::string& path);
};

}  // namespace corvana
