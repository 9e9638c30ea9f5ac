#include "volumes/VolumeReference.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

constexpr int kMostLinks = 40;
/// Where the desktop shows shares as folders: each of them is a volume, what holds them is none.
constexpr std::string_view kHolderOfShares = "fuse.gvfsd-fuse";

const Mount* deepestThatHolds(const std::vector<Mount>& mounts, std::string_view path) {
  const Mount* found = nullptr;
  for (const auto& mount : mounts) {
    if (ZAN_FilesUtils::isAtOrBelow(path, mount.target) &&
        (!found || mount.target.size() >= found->target.size()))
      found = &mount;
  }
  return found;
}

const Mount* mountedAt(const std::vector<Mount>& mounts, std::string_view target) {
  const auto found = std::find_if(mounts.rbegin(), mounts.rend(),
                                  [&](const Mount& mount) { return mount.target == target; });
  return found == mounts.rend() ? nullptr : &*found;
}

/// The path with its links followed as long as they lie on what is not foreign.
std::string resolved(const std::vector<Mount>& mounts, const std::string& path) {
  std::string done;
  std::string rest = path;
  for (int links = 0; !rest.empty() && links <= kMostLinks;) {
    const auto start = rest.find_first_not_of('/');
    if (start == std::string::npos) break;
    const auto end = std::min(rest.find('/', start), rest.size());
    const std::string component = rest.substr(start, end - start);
    std::string after = rest.substr(end);
    if (component == ".." || component == ".") {
      if (component == "..") done = std::string(ZAN_FilesUtils::parentPath(done));
      if (done == "/") done.clear();
      rest = std::move(after);
      continue;
    }
    const std::string place = done + '/' + component;
    const Mount* mount = deepestThatHolds(mounts, place);
    if (mount && mount->isForeign) return place + after;
    std::error_code none;
    // The place of a mount is a folder, and looking at it asks what is mounted there.
    const auto link = mountedAt(mounts, place) ? std::filesystem::path()
                                               : std::filesystem::read_symlink(place, none);
    if (link.empty()) {
      done = place;
      rest = std::move(after);
    } else {
      ++links;
      if (link.is_absolute()) done.clear();
      rest = link.string() + after;
      if (!rest.starts_with('/')) rest.insert(rest.begin(), '/');
    }
  }
  return done.empty() ? "/" : done;
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
    real = resolved(mounts, path);
    place = splitBelowVolumesFolder(real).first;
  }
  const Mount* found = place.empty() ? deepestThatHolds(mounts, real) : mountedAt(mounts, place);
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
