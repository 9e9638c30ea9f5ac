#include "companion/execute/VolumeGuard.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

namespace corvana {
namespace {

/// The first component of `path` below `folder`, and what follows it with its "/"; empty when not
/// below it.
std::pair<std::string, std::string> splitBelow(const std::string& folder, const std::string& path) {
  if (!path.starts_with(folder) || path.size() <= folder.size() + 1 || path[folder.size()] != '/')
    return {};
  const auto end = std::min(path.find('/', folder.size() + 1), path.size());
  return {path.substr(0, end), path.substr(end)};
}

bool equalUuids(std::string_view one, std::string_view other) {
  return std::equal(
      one.begin(), one.end(), other.begin(), other.end(),
      [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

std::string volumeText(const ZAN_Value& item) {
  const std::string name = item.string("VolumeFolderName");
  const std::string uuid = item.string("uuid");
  std::string text = name.empty() ? "its volume" : "the volume \"" + name + "\"";
  if (!uuid.empty()) text += " (" + uuid + ")";
  return text;
}

}  // namespace

VolumeGuard::VolumeGuard(std::string volumesFolder, bool tolerant)
    : VolumeGuard(std::move(volumesFolder), tolerant, Lookup{}) {}

VolumeGuard::VolumeGuard(std::string volumesFolder, bool tolerant, Lookup lookup)
    : mVolumesFolder(std::move(volumesFolder)), mTolerant(tolerant), mLookup(std::move(lookup)) {}

Result<VolumeGuard::Place> VolumeGuard::locate(const ZAN_Value& item) const {
  std::string path = item.string("VolumeFolderPath");
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  if (!path.starts_with('/')) return Error{ErrorKind::refused, path + ": not an absolute path"};

  const auto [place, rest] = splitBelow(mVolumesFolder, path);
  auto volume = mLookup.ofPath(path);
  const auto system = mLookup.ofPath("/");
  if (!volume || !system) return Error{ErrorKind::absent, path + ": no volume holds it"};

  if (!place.empty()) {
    // An unmounted volume leaves an empty folder, or none, on the system disk.
    const auto around = mLookup.ofPath(mVolumesFolder);
    const bool mounted = volume->deviceNumber != system->deviceNumber &&
                         (!around || volume->deviceNumber != around->deviceNumber);
    if (!mounted || !identify(item, path, *volume)) {
      if (auto elsewhere = mLookup.withUuid(item.string("uuid"))) {
        return Place{elsewhere->mountPoint + rest, *std::move(elsewhere)};
      }
    }
    if (!mounted)
      return Error{ErrorKind::absent, path + ": " + volumeText(item) + " is not mounted"};
  }
  if (const Outcome same = identify(item, path, *volume); !same) {
    if (!mTolerant || (place.empty() && volume->deviceNumber == system->deviceNumber))
      return same.error();
  }
  return Place{std::move(path), *std::move(volume)};
}

Outcome VolumeGuard::identify(const ZAN_Value& item, const std::string& path,
                              const VolumeFacts& volume) const {
  const std::string uuid = item.string("uuid");
  const std::uint64_t size = item["VolumeFolderVolumeSize"].unsignedValue();
  const bool byUuid = !uuid.empty() && !volume.uuid.empty();
  const bool same = byUuid ? equalUuids(uuid, volume.uuid) : size == 0 || size == volume.totalSize;
  if (same) return {};
  return Error{ErrorKind::absent, path + ": " + volumeText(item) + " is not there, \"" +
                                      volume.name + "\" is in its place"};
}

}  // namespace corvana
