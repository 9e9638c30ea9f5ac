#include "companion/FolderDescription.h"

#include <filesystem>
#include <system_error>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "companion/VolumeFacts.h"

namespace corvana {

namespace {

bool isBelow(const std::string& path, const std::string& folder) {
  return path.starts_with(folder) && path.size() > folder.size() && path[folder.size()] == '/';
}

}  // namespace

std::string FolderDescription::absolutePath(const std::string& path) {
  std::error_code ignored;
  std::string absolute = std::filesystem::absolute(path, ignored).lexically_normal().string();
  while (absolute.size() > 1 && absolute.ends_with('/')) absolute.pop_back();
  return absolute;
}

Result<ZAN_Value> FolderDescription::ofPath(const std::string& path, Role role, bool force,
                                            const std::string& volumesFolder) {
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

  auto volume = VolumeFacts::ofPath(absolute);
  const bool wantsVolume = isBelow(absolute, volumesFolder);
  if (volume && wantsVolume && !isBelow(volume->mountPoint, volumesFolder)) {
    if (!force) {
      return Error{ErrorKind::absent,
                   absolute + ": no volume is mounted there (--force takes it anyway)"};
    }
    volume.reset();
  }
  ZAN_Value description = ZAN_Value::dictionary(
      {{"VolumeFolderPath", absolute},
       {"VolumeFolderPathLocalized", absolute},
       {"VolumeFolderName", volume ? volume->name : std::string()},
       {"VolumeFolderVolumeSize", volume ? volume->totalSize : std::uint64_t{0}},
       {"VolumeFolderVolumeDate", volume ? volume->creationDate : std::uint64_t{0}}});
  if (volume && !volume->uuid.empty()) description.setValue("uuid", volume->uuid);
  return description;
}

}  // namespace corvana
