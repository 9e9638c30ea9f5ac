#include "execute/VolumeGuard.h"

#include <sys/stat.h>

#include <string>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

Result<VolumeGuard::Place> VolumeGuard::locate(const FolderDescription& item) const {
  VolumeIdentity identity(*mVolumes);
  auto place = identity.locate(item, mTolerant);
  if (!place || !identity.reference().isBelowVolumesFolder(place->path)) return place;
  struct stat volume {};
  struct stat folder {};
  std::string nearest = place->path;
  while (::stat(nearest.c_str(), &folder) != 0) {
    if (nearest.size() <= place->mount.target.size()) break;
    nearest = ZAN_FilesUtils::parentPath(nearest);
  }
  // What cannot be looked at is for the copying to complain of.
  if (::stat(place->mount.target.c_str(), &volume) == 0 && folder.st_ino != 0 &&
      folder.st_dev != volume.st_dev)
    return Error{ErrorKind::absent, nearest + ": it does not lie on the volume described"};
  return place;
}

}  // namespace corvana
