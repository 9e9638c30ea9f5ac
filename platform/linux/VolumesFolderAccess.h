#pragma once

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "platform/Volumes.h"

namespace corvana {

/// The volumes folder as a folder, and the one place that changes something in it. Thread: any.
///
/// Nothing is deleted unless it lies on the file system of the folder itself and is reached without
/// crossing a mount point or following a link; each step goes from an open folder to one of its
/// entries, so that what is mounted over a name meanwhile is not seen, and the mount table is
/// looked at again before each entry.
class VolumesFolderAccess {
 public:
  VolumesFolderAccess(std::string folder, std::string home);

  /// Sorted by their bytes; empty when the folder is none to be taken for it or cannot be read.
  std::vector<std::string> names() const;
  /// Asked before each entry, with how many have gone; false: no more is deleted.
  using GoesOn = std::function<bool(std::uint64_t gone)>;
  /// Ends at the first entry that cannot or must not be deleted, and names it. What is not there is
  /// done.
  Outcome remove(const std::string& name, const GoesOn& goesOn = {}) const;
  /// As `Volumes::moveAsideInVolumesFolder`.
  Result<std::string> moveAside(const std::string& name) const;
  /// As `Volumes::measureInVolumesFolder`.
  Result<Volumes::Contents> measure(const std::string& name, const GoesOn& goesOn = {}) const;
  /// Why the folder must not be taken for the volumes folder: it, or one above it, is the system's
  /// or the user's own, it holds a home, is a link or a mount point.
  Outcome check() const;

 private:
  /// The folder itself, for work on its entry of that name.
  Result<ZAN_Descriptor> open(const std::string& name) const;

  std::string mFolder;
  std::string mHome;
};

}  // namespace corvana
