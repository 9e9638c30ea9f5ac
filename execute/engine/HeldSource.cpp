#include "execute/engine/HeldSource.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/linux/MountTable.h"

namespace corvana {

Result<VolumeGuard::Place> VolumeGuard::locate(const FolderDescription& item) const {
  return VolumeIdentity(*mVolumes).locate(item, mTolerant);
}

Result<HeldFolder> VolumeGuard::hold(const std::string& path, const Place& place) {
  auto held = HeldFolder::open(path);
  if (!held) return held;
  // A share that the desktop shows has no mount of its own.
  if (place.mount.id != 0 && held->mount().id != place.mount.id)
    return Error{ErrorKind::absent, path + ": it does not lie on the volume described"};
  return held;
}

bool VolumeGuard::answers(const Mount& mount) const {
  // To ask an automounter would have it mount something.
  return !mount.isForeign || mount.fileSystem == "autofs" || mVolumes->information(mount);
}

Result<HeldSource> HeldSource::hold(const FolderDescription& item, const VolumeGuard& guard) {
  auto place = guard.locate(item);
  if (!place) return place.error();
  const std::string& path = place->path;
  if (path == "/") return Error{ErrorKind::refused, "/: its copy would have no name of its own"};
  struct stat state {};
  if (::stat(path.c_str(), &state) != 0 || ::access(path.c_str(), R_OK) != 0)
    return Error{errno == ENOENT ? ErrorKind::absent : ErrorKind::unwritable,
                 path + ": " + std::strerror(errno)};
  const bool isFolder = S_ISDIR(state.st_mode);
  if (!isFolder && !S_ISREG(state.st_mode))
    return Error{ErrorKind::refused, path + ": neither a folder nor a file"};
  auto held =
      VolumeGuard::hold(isFolder ? path : std::string(ZAN_FilesUtils::parentPath(path)), *place);
  if (!held) return held.error();
  std::vector<std::string> within;
  if (const auto real = held->realPath(); real && isFolder) {
    for (const Mount& mount : MountTable::read({})) {
      const auto rest = ZAN_FilesUtils::relativePath(mount.target, *real);
      if (!rest || rest->empty() || std::ranges::find(within, *rest) != within.end()) continue;
      // Whoever lists the folder around it would wait for it without an end.
      if (!guard.answers(mount))
        return Error{ErrorKind::unavailable,
                     mount.target + ": what is mounted there, below the source " + path +
                         ", does not answer; unmount it, or mount it elsewhere"};
      within.emplace_back(*rest);
    }
  }
  std::string name(ZAN_FilesUtils::lastPathComponent(path));
  return HeldSource{path, item, std::move(name), isFolder, *std::move(held), {}, std::move(within)};
}

Outcome HeldSource::checkMounted(const std::vector<Mount>& mounts) const {
  if (held.isMounted(mounts)) return {};
  return Error{ErrorKind::absent, path + ": its volume is not mounted any more"};
}

Outcome HeldSource::checkAlive() const {
  if (Outcome there = held.answers(); !there) return there;
  if (held.isInPlace()) return {};
  return Error{ErrorKind::refused, path + ": another folder has taken its place"};
}

}  // namespace corvana
