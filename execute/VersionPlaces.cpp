#include "execute/VersionPlaces.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/ActionsTools.h"
#include "execute/engine/FolderWalk.h"

namespace corvana {

namespace {

std::string withoutEnd(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

}  // namespace

Result<std::string> VersionPlaces::nameOf(std::string path, const std::string& folder) const {
  if (path.empty()) return Error{ErrorKind::refused, "an empty path names nothing"};
  const bool isAbsolute = path.starts_with('/');
  const auto normal = [](const std::string& given) {
    return withoutEnd(std::filesystem::path(given).lexically_normal().string());
  };
  const std::string full = normal(isAbsolute ? path : ZAN_FilesUtils::joinedPath(folder, path));
  path = normal(path);
  const bool isOfVersion = !isAbsolute && path != "." && path != ".." && !path.starts_with("../");
  std::optional<std::string> name;
  for (const auto& copy : mVersion.copies) {
    if (const auto rest = ZAN_FilesUtils::relativePath(full, copy.source); rest && !name)
      name = ZAN_FilesUtils::joinedPath(copy.name, *rest);
    if (!name && isOfVersion && (path == copy.name || isBelow(path, copy.name))) name = path;
  }
  if (!name && isOfVersion && mVersion.copies.size() == 1 && mVersion.copies[0].isFolder)
    name = ZAN_FilesUtils::joinedPath(mVersion.copies[0].name, path);
  if (!name) return Error{ErrorKind::refused, path + ": it lies in no source of the action"};
  return withoutEnd(*name);
}

std::string VersionPlaces::sourceOf(const std::string& name) const {
  for (const auto& copy : mVersion.copies) {
    if (name == copy.name || isBelow(name, copy.name))
      return copy.source + name.substr(copy.name.size());
  }
  return {};
}

Result<VersionTarget> VersionPlaces::in(const std::string& folder, const std::string& name) {
  auto held = HeldFolder::open(folder);
  if (!held && held.error().kind == ErrorKind::absent) {
    auto above = HeldFolder::open(std::string(ZAN_FilesUtils::parentPath(folder)));
    if (!above) return above.error();
    held = above->makeBelow(std::string(ZAN_FilesUtils::lastPathComponent(folder)));
  }
  if (!held) return held.error();
  return VersionTarget{name, *std::move(held), splitName(name).second};
}

Result<VersionTarget> VersionPlaces::origin(const std::string& name) const {
  const auto copy = std::ranges::find_if(mVersion.copies, [&](const KeptVersion::Copy& other) {
    return name == other.name || isBelow(name, other.name);
  });
  if (copy == mVersion.copies.end() || mSettings.isNull())
    return Error{ErrorKind::refused,
                 name +
                     ": nothing says where it belongs on this machine; give a place by "
                     "--to FOLDER"};
  const std::string rest = name.substr(copy->name.size());
  // The source as the action describes it, so that the right volume is there.
  FolderDescription described = FolderDescription().setPath(copy->source);
  for (const auto& source : ActionsTools::getSourcesForAction(mSettings)) {
    if (ZAN_FilesUtils::lastPathComponent(source.path()) ==
        ZAN_FilesUtils::lastPathComponent(copy->source))
      described = source;
  }
  const VolumeGuard guard(mVolumes, ActionsTools::toleratesOtherVolumes(mSettings));
  const auto place = guard.locate(described);
  if (!place) return place.error();
  if (copy->isFolder) {
    auto held = VolumeGuard::hold(place->path, *place);
    if (held) return VersionTarget{name, *std::move(held), rest.empty() ? "." : rest.substr(1)};
    std::error_code failed;
    const auto status = std::filesystem::symlink_status(place->path, failed);
    // A file in its place is in the way of it as of anything else that is restored.
    if (!std::filesystem::is_regular_file(status) &&
        (held.error().kind != ErrorKind::absent || ZAN_FilesUtils::exists(place->path)))
      return held.error();
  }
  auto above = VolumeGuard::hold(std::string(ZAN_FilesUtils::parentPath(place->path)), *place);
  if (!above) return above.error();
  return VersionTarget{name, *std::move(above),
                       std::string(ZAN_FilesUtils::lastPathComponent(place->path)) + rest};
}

std::vector<VersionTarget> VersionPlaces::originsThatAreThere() const {
  std::vector<VersionTarget> found;
  for (const auto& copy : mVersion.copies) {
    if (auto target = origin(copy.name)) found.push_back(*std::move(target));
  }
  return found;
}

}  // namespace corvana
