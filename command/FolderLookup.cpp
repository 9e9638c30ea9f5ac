#include "command/FolderLookup.h"

#include <filesystem>
#include <system_error>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "volumes/VolumeReference.h"

namespace corvana {

std::string FolderLookup::absolutePath(const std::string& path) {
  std::error_code ignored;
  std::string absolute = std::filesystem::absolute(path, ignored).lexically_normal().string();
  while (absolute.size() > 1 && absolute.ends_with('/')) absolute.pop_back();
  return absolute;
}

Result<FolderDescription> FolderLookup::describe(const std::string& path, Role role, bool force,
                                                 Volumes& volumes) {
  const std::string absolute = absolutePath(path);
  if (path.empty() || absolute == "/") {
    return Error{ErrorKind::refused, "\"" + path + "\": neither a source nor a destination"};
  }
  const bool exists = ZAN_FilesUtils::exists(absolute);
  const bool isUsable =
      role == Role::source ? exists
      : exists             ? ZAN_FilesUtils::isFolder(absolute)
               : ZAN_FilesUtils::isFolder(std::string(ZAN_FilesUtils::parentPath(absolute)));
  if (!isUsable && !force) {
    return Error{ErrorKind::absent,
                 absolute + (exists                 ? ": not a folder"
                             : role == Role::source ? ": not there (--force takes it anyway)"
                                                    : ": neither it nor the folder above it is "
                                                      "there (--force takes it anyway)")};
  }

  const VolumeReference reference(volumes);
  const auto mount = reference.ofPath(absolute);
  if (!mount && !force) {
    return Error{ErrorKind::absent,
                 absolute + ": no volume is mounted there (--force takes it anyway)"};
  }
  const auto known = mount ? volumes.information(*mount) : std::nullopt;
  FolderDescription description;
  description.setPath(absolute)
      .setPathLocalized(reference.localizedPath(absolute))
      .setVolumeName(mount ? VolumeReference::nameOf(*mount, known) : std::string())
      .setVolumeSize(known ? known->totalSize : std::uint64_t{0})
      .setVolumeDate(known ? known->creationDate : std::uint64_t{0});
  if (known && !known->uuid.empty()) description.setUuid(known->uuid);
  return description;
}

}  // namespace corvana
