#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "platform/Volumes.h"
#include "tools/DiskList.h"

namespace corvana {

/// The system tool for disks, in the words that the agent speaks.
///
///     list [-plist]                     all disks and partitions
///     info [-plist] NAME|PATH           one of them
///     mount NAME                        below the volumes folder
///     unmount [force] NAME|PATH         `force`: even while files are open
///     eject PATH                        as the user lets a volume go
///
/// Root mounts and unmounts by itself; other users have it done by UDisks2, and shares by what
/// mounted them. It ends with 0 when done, 1 when it could not, with the reason, and 2 for wrong
/// words.
class DiskTool {
 public:
  DiskTool(std::ostream& out, std::ostream& err);

  int run(const std::vector<std::string>& words);

  /// Mounts a device unless it is mounted; its place.
  Result<std::string> mount(const Disk& disk) const;
  /// Unmounts what is at a place. `force`: even while files are open there.
  Outcome unmount(const std::string& target, bool force) const;
  const std::string& volumesFolder() const { return mVolumesFolder; }

 private:
  int list(bool asPropertyList) const;
  int info(const std::string& nameOrPath, bool asPropertyList) const;
  int mountNamed(const std::string& name) const;
  int unmountNamed(const std::string& nameOrPath, bool force) const;
  int failed(const Error& error) const;
  std::vector<Mount> mounts() const;
  Result<std::string> makePlace(const Disk& disk) const;

  std::ostream& mOut;
  std::ostream& mErr;
  std::string mHome;
  std::string mVolumesFolder;
  bool mIsRoot;
};

}  // namespace corvana
