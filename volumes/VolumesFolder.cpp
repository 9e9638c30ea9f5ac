#include "volumes/VolumesFolder.h"

#include <set>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/Volumes.h"
#include "volumes/VolumeReference.h"

namespace corvana {

std::string VolumesFolder::nameOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

std::string VolumesFolder::namesOf(const std::vector<std::string>& paths) {
  std::string text;
  for (const auto& path : paths) text += (text.empty() ? "" : ", ") + nameOf(path);
  return text;
}

std::optional<std::vector<std::string>> VolumesFolder::getFaultyFoldersInVolumes() const {
  std::vector<std::string> contents = mVolumes.volumesFolderContents();
  if (contents.empty()) return std::nullopt;
  const std::string folder = mVolumes.volumesFolder();
  std::set<std::string> mounted;
  for (const auto& mount : mVolumes.mounts()) {
    if (mount.target == "/") {
      mounted.insert(VolumeReference::nameOf(mount, mVolumes.information(mount)));
    } else if (const auto place = ZAN_FilesUtils::relativePath(mount.target, folder)) {
      mounted.emplace(place->substr(0, place->find('/')));
    }
  }
  std::vector<std::string> faulty;
  for (const auto& name : contents) {
    if (name == "Preboot" || name.starts_with("com.apple.TimeMachine.") || name.starts_with(".") ||
        mounted.contains(name))
      continue;
    faulty.push_back(folder + "/" + name);
  }
  if (faulty.empty()) return std::nullopt;
  return faulty;
}

}  // namespace corvana
