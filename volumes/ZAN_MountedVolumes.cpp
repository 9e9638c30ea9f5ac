#include "volumes/ZAN_MountedVolumes.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "volumes/VolumeReference.h"

namespace corvana {

namespace {

/// So old may sizes be in a list that was just read.
constexpr double kFresh = 2.0;

std::string upperCase(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char letter) {
    return static_cast<char>(std::toupper(letter));
  });
  return text;
}

std::string partitionMapName(const std::string& map) {
  return map == "gpt" ? "GUID_partition_scheme" : map == "dos" ? "FDisk_partition_scheme" : map;
}

void setSizes(ZAN_Value& infos, const std::optional<VolumeInformation>& known) {
  if (!known) return;
  infos.setValue("volFreeSize", known->freeSize);
  infos.setValue("volSize", known->totalSize);
  infos.setValue("volDate", known->creationDate);
}

std::size_t componentsOf(const std::string& path) {
  // "/" counts as the first of an absolute path.
  std::size_t count = path.starts_with('/') ? 1 : 0;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path[i] != '/' && (i == 0 || path[i - 1] == '/')) ++count;
  }
  return count;
}

}  // namespace

ZAN_Value ZAN_MountedVolumes::localVolume(const Mount& mount) {
  const auto known = mVolumes.information(mount, kFresh);
  const DiskInformation disk = mVolumes.diskInformation(mount);
  ZAN_Value infos =
      ZAN_Value::dictionary({{"bsdName", mount.bsdName()},
                             {"uuid", known ? known->uuid : std::string()},
                             {"intelBootOk", false},
                             {"mountable", true},
                             {"volName", VolumeReference::nameOf(mount, known)},
                             {"mediaBSDName", disk.disk},
                             {"internal", disk.isInternal},
                             {"writable", mount.writable},
                             {"volumeType", upperCase(mount.fileSystem)},
                             {"volPath", mount.target},
                             {"connection", disk.connection},
                             {"format", mount.fileSystem},
                             {"model", disk.model},
                             {"vendor", disk.vendor},
                             {"volKind", mount.fileSystem},
                             {"diskPartitionMap", partitionMapName(disk.partitionMap)}});
  setSizes(infos, known);
  return infos;
}

ZAN_Value ZAN_MountedVolumes::serverVolume(const Mount& mount) {
  const auto known = mVolumes.information(mount, kFresh);
  ZAN_Value infos = ZAN_Value::dictionary({{"volName", VolumeReference::nameOf(mount, known)},
                                           {"volPath", mount.target},
                                           {"isServer", true},
                                           {"volKind", mount.fileSystem},
                                           {"connection", mount.source}});
  setSizes(infos, known);
  return infos;
}

void ZAN_MountedVolumes::updateListVolumes() {
  mWasRead = true;
  mListOfMountedVolumes.clear();
  const auto mounts = mVolumes.mounts();
  std::set<std::string> taken;
  for (const auto& mount : mounts) {
    if (!mount.isVolume || mount.isServer) continue;
    // One device counts once, wherever else it is seen.
    const std::string device = mount.bsdName();
    if (taken.insert(device.empty() ? mount.target : device).second)
      mListOfMountedVolumes.push_back(localVolume(mount));
  }
  for (const auto& mount : mounts) {
    if (mount.isVolume && mount.isServer) mListOfMountedVolumes.push_back(serverVolume(mount));
  }
}

void ZAN_MountedVolumes::readOnce() {
  if (!mWasRead) updateListVolumes();
}

std::size_t ZAN_MountedVolumes::getAllMountedVolumesCount() {
  readOnce();
  return mListOfMountedVolumes.size();
}

std::vector<ZAN_Value> ZAN_MountedVolumes::getAllMountedVolumes() {
  readOnce();
  return mListOfMountedVolumes;
}

ZAN_Value ZAN_MountedVolumes::getInfosForVolumeAtIndex(std::int64_t index) {
  readOnce();
  if (index < 0 || index >= static_cast<std::int64_t>(mListOfMountedVolumes.size())) return {};
  return mListOfMountedVolumes[static_cast<std::size_t>(index)];
}

ZAN_Value ZAN_MountedVolumes::getInfosForVolumeAtPath(const std::string& path) {
  readOnce();
  const auto mount = VolumeReference(mVolumes).ofPath(path);
  for (const ZAN_Value& infos : mListOfMountedVolumes) {
    const std::string place = infos.string("volPath");
    if (mount && mount->target == place) return infos;
    if (componentsOf(place) >= 3 && ZAN_FilesUtils::isAtOrBelow(path, place)) return infos;
  }
  return {};
}

}  // namespace corvana
