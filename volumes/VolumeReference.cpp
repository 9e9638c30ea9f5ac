#include "volumes/VolumeReference.h"

#include <algorithm>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

/// Where the desktop shows shares as folders: each of them is a volume, what holds them is none.
constexpr std::string_view kHolderOfShares = "fuse.gvfsd-fuse";

const Mount* mountedAt(const std::vector<Mount>& mounts, std::string_view target) {
  const auto found = std::find_if(mounts.rbegin(), mounts.rend(),
                                  [&](const Mount& mount) { return mount.target == target; });
  return found == mounts.rend() ? nullptr : &*found;
}

}  // namespace

bool VolumeReference::isBelowVolumesFolder(std::string_view path) const {
  return !splitBelowVolumesFolder(path).first.empty();
}

std::pair<std::string, std::string> VolumeReference::splitBelowVolumesFolder(
    std::string_view path) const {
  const std::string folder = mVolumes.volumesFolder();
  if (path.size() <= folder.size() + 1 || !path.starts_with(folder) || path[folder.size()] != '/' ||
      path[folder.size() + 1] == '/')
    return {};
  const auto end = std::min(path.find('/', folder.size() + 1), path.size());
  return {std::string(path.substr(0, end)), std::string(path.substr(end))};
}

std::optional<Mount> VolumeReference::ofPath(const std::string& path) const {
  if (!path.starts_with('/')) return std::nullopt;
  const auto mounts = mVolumes.mounts();
  std::string real = path;
  auto [place, rest] = splitBelowVolumesFolder(real);
  if (place.empty()) {
    real = withLinksFollowed(mounts, path);
    place = splitBelowVolumesFolder(real).first;
  }
  const Mount* found = place.empty() ? mountAt(mounts, real) : mountedAt(mounts, place);
  if (!found || found->fileSystem == kHolderOfShares) return std::nullopt;
  return *found;
}

std::optional<Mount> VolumeReference::withUuid(std::string_view uuid) const {
  if (uuid.empty()) return std::nullopt;
  for (const auto& mount : mVolumes.mounts()) {
    if (!mount.isVolume) continue;
    const auto known = mVolumes.information(mount);
    if (known && known->uuid == uuid) return mount;
  }
  return std::nullopt;
}

std::optional<VolumeReference::Place> VolumeReference::getFolderPathForMountedVolume(
    const FolderDescription& item) const {
  const std::string rest = splitBelowVolumesFolder(item.path()).second;
  const auto placed = [&](const Mount& mount) {
    return Place{mount, mount.target == "/" && !rest.empty() ? rest : mount.target + rest};
  };
  if (const auto same = withUuid(item.uuid())) return placed(*same);
  const std::string_view name = item.volumeName();
  const std::uint64_t size = item.volumeSize();
  if (name.empty() || size == 0) return std::nullopt;
  for (const auto& mount : mVolumes.mounts()) {
    if (!mount.isVolume || mount.target == "/") continue;
    const auto known = mVolumes.information(mount);
    if (known && known->totalSize == size && nameOf(mount, known) == name) return placed(mount);
  }
  return std::nullopt;
}

std::string VolumeReference::localizedPath(const std::string& mountedPath) const {
  const auto [place, rest] = splitBelowVolumesFolder(mountedPath);
  if (place.empty()) return mountedPath;
  const auto mounts = mVolumes.mounts();
  const Mount* mount = mountedAt(mounts, place);
  if (!mount) return mountedPath;
  const std::string name = nameOf(*mount, mVolumes.information(*mount));
  if (name.find('/') != std::string::npos) return mountedPath;
  const std::string named = mVolumes.volumesFolder() + '/' + name;
  return named != place && mountedAt(mounts, named) ? mountedPath : named + rest;
}

std::string VolumeReference::nameOf(const Mount& mount,
                                    const std::optional<VolumeInformation>& known) {
  if (!mount.name.empty()) return mount.name;
  if (known && !known->label.empty()) return known->label;
  return std::string(ZAN_FilesUtils::lastPathComponent(mount.target));
}

}  // namespace corvana
