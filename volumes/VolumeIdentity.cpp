#include "volumes/VolumeIdentity.h"

#include <algorithm>
#include <cctype>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/ActionsTools.h"

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

namespace {

bool equalUuids(std::string_view one, std::string_view other) {
  return std::ranges::equal(one, other, [](unsigned char a, unsigned char b) {
    return std::tolower(a) == std::tolower(b);
  });
}

std::string described(const FolderDescription& item) {
  const std::string name(item.volumeName());
  const std::string uuid(item.uuid());
  std::string text = name.empty() ? "its volume" : "the volume \"" + name + "\"";
  if (!uuid.empty()) text += " (" + uuid + ")";
  return text;
}

/// Whether what is mounted tells the volume where there is no UUID: a device may get another name,
/// and says by its size at least what it is.
bool isToldBySource(const FolderDescription& item) {
  return item.uuid().empty() && !item.fileSystem().empty() && !item.source().starts_with("/dev/");
}

/// What UUID and size leave open: subvolumes of one disk share both, and a folder that is encrypted
/// or joined from others has the size of the disk below it, and no UUID.
/// The start-up disk is what the system has made it, whichever of its snapshots that is.
bool fits(const FolderDescription& item, const Mount& mount, const std::optional<Mount>& system) {
  constexpr std::string_view kSubvolumes = "btrfs";
  if (item.fileSystem() == kSubvolumes && mount.fileSystem == kSubvolumes)
    return item.root() == mount.root || (system && system->device == mount.device);
  return !isToldBySource(item) ||
         (item.fileSystem() == mount.fileSystem && item.source() == mount.source);
}

/// For whoever writes: known UUIDs decide, else what is mounted, else the sizes.
bool isDescribed(const FolderDescription& item, const Mount& mount, const VolumeInformation& known,
                 const std::optional<Mount>& system) {
  if (!fits(item, mount, system)) return false;
  if (isToldBySource(item)) return true;
  if (!item.uuid().empty() && !known.uuid.empty()) return equalUuids(item.uuid(), known.uuid);
  const std::uint64_t size = item.volumeSize();
  return size == 0 || size == known.totalSize;
}

}  // namespace

bool VolumeIdentity::checkIfVolumeMounted(const FolderDescription& item, bool tolerant) {
  if (item.isNull()) return false;
  const std::string path(item.path());
  auto mount = mReference.ofPath(path);
  if (!mount) {
    if (auto fitting = mReference.getFolderPathForMountedVolume(item))
      mount = std::move(fitting->mount);
  }
  if (!mount) return mReference.isBelowVolumesFolder(path) && mVolumes.exists(path);
  const auto known = mVolumes.information(*mount);
  if (!known) return false;
  if (tolerant) return true;
  if (fits(item, *mount, mReference.ofPath("/")) &&
      (isToldBySource(item) || known->totalSize == item.volumeSize() ||
       (!item.uuid().empty() && item.uuid() == known->uuid)))
    return true;
  // Under a new name the disk has another folder, and its old one is the start-up disk's, or gone.
  if (item.uuid().empty() || !mReference.isBelowVolumesFolder(path)) return false;
  return std::ranges::any_of(mVolumes.mounts(), [&](const Mount& elsewhere) {
    return elsewhere.isVolume && isOn(item, elsewhere);
  });
}

bool VolumeIdentity::isOn(const FolderDescription& item, const Mount& mount) {
  const auto system = mReference.ofPath("/");
  if (!fits(item, mount, system)) return false;
  if (isToldBySource(item)) return true;
  if (item.uuid().empty()) return false;
  const auto known = mVolumes.information(mount);
  return known && equalUuids(item.uuid(), known->uuid);
}

bool VolumeIdentity::isAnother(const FolderDescription& item, const Mount& mount) {
  const auto known = mVolumes.information(mount);
  return known && !item.uuid().empty() && !known->uuid.empty() &&
         !equalUuids(item.uuid(), known->uuid);
}

std::vector<FolderDescription> VolumeIdentity::destinationsOf(const ZAN_Value& settings) {
  std::vector<FolderDescription> all;
  if (auto first = ActionsTools::getDestinationForAction(settings); !first.isNull())
    all.push_back(std::move(first));
  for (const ZAN_Value& other : settings[kRotation].elements()) all.emplace_back(other);
  return all;
}

bool VolumeIdentity::checkIfAllVolumesMounted(const ZAN_Value& settings) {
  if (!ActionsTools::hasSourceList(settings)) return true;
  const auto sources = ActionsTools::getSourcesForAction(settings);
  const bool tolerant = ActionsTools::toleratesOtherVolumes(settings);
  const auto isMounted = [&](const FolderDescription& item) {
    return checkIfVolumeMounted(item, tolerant);
  };
  if (!std::ranges::all_of(sources, isMounted)) return false;
  const auto destinations = destinationsOf(settings);
  return destinations.empty() || std::ranges::any_of(destinations, isMounted);
}

Result<VolumeIdentity::Place> VolumeIdentity::locate(const FolderDescription& item, bool tolerant) {
  std::string path(item.path());
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  if (!path.starts_with('/')) return Error{ErrorKind::refused, path + ": not an absolute path"};

  const auto system = mReference.ofPath("/");
  auto mount = mReference.ofPath(path);
  const auto [place, rest] = mReference.splitBelowVolumesFolder(path);
  const bool isOnSystem = !mount || !system || mount->device == system->device;
  std::optional<VolumeInformation> known;
  if (mount) known = mVolumes.information(*mount);
  if (!place.empty() && (isOnSystem || !known || !isDescribed(item, *mount, *known, system))) {
    // An unmounted volume leaves an empty folder, or none, on the start-up disk.
    auto mounts = mVolumes.mounts();
    for (Mount& elsewhere : mounts) {
      if (!elsewhere.isVolume || item.uuid().empty() || !fits(item, elsewhere, system)) continue;
      const auto facts = mVolumes.information(elsewhere);
      if (!facts || facts->uuid != item.uuid()) continue;
      std::string there = elsewhere.target + rest;
      return Place{std::move(there), std::move(elsewhere), *facts};
    }
    if (isOnSystem)
      return Error{ErrorKind::absent, path + ": " + described(item) + " is not mounted"};
  }
  if (!mount) return Error{ErrorKind::absent, path + ": no volume holds it"};
  if (!known)
    return Error{ErrorKind::unavailable, path + ": " + described(item) + " does not answer"};
  if (!isDescribed(item, *mount, *known, system) && (!tolerant || isOnSystem)) {
    return Error{ErrorKind::absent, path + ": " + described(item) + " is not there, \"" +
                                        VolumeReference::nameOf(*mount, known) +
                                        "\" is in its place"};
  }
  return Place{std::move(path), *std::move(mount), *known};
}

}  // namespace corvana
