#include "volumes/ZAN_MountedVolumes.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/RunLoop.h"
#include "volumes/VolumeIdentity.h"
#include "volumes/ZAN_MountVolume.h"

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

namespace {

std::vector<ZAN_Value> filtered(const std::vector<ZAN_Value>& list, bool mounted) {
  std::vector<ZAN_Value> result;
  std::ranges::copy_if(list, std::back_inserter(result), [&](const ZAN_Value& record) {
    return record.string("mountPoint").empty() != mounted;
  });
  return result;
}

std::optional<std::vector<ZAN_Value>> readRecords(const ZAN_MountVolume& tools) {
  const auto names = ZAN_ConnectedVolumes::getAllBSDName(tools);
  if (!names) return std::nullopt;
  std::vector<ZAN_Value> records;
  for (const auto& name : *names) {
    const ZAN_Value infos = tools.getInfosForBSDName(name);
    const std::string volume = infos.string("VolumeName");
    if (volume.empty()) continue;
    ZAN_Value record = ZAN_Value::dictionary({{"bsdName", name}, {"volName", volume}});
    const std::string place = infos.string("MountPoint");
    if (!place.empty()) record.setValue("mountPoint", place);
    records.push_back(std::move(record));
  }
  return records;
}

}  // namespace

ZAN_ConnectedVolumes::ZAN_ConnectedVolumes(RunLoop& runLoop, const ZAN_MountVolume& tools)
    : mRunLoop(runLoop), mTools(tools), mState(std::make_shared<State>()) {}

void ZAN_ConnectedVolumes::updateListVolumes() {
  if (mState->isUpdating) return;
  mState->isUpdating = true;
  mState->isAvailable = false;
  mRunLoop.detachThread("updateListVolumes",
                        [tools = mTools, &loop = mRunLoop, state = std::weak_ptr(mState)] {
                          auto records = readRecords(tools);
                          loop.performOnMain([state, records = std::move(records)]() mutable {
                            const auto kept = state.lock();
                            if (!kept) return;
                            if (records) kept->list = *std::move(records);
                            kept->isAvailable = true;
                            kept->isUpdating = false;
                          });
                        });
}

std::vector<ZAN_Value> ZAN_ConnectedVolumes::getMountedVolumes() const {
  return filtered(mState->list, true);
}

std::vector<ZAN_Value> ZAN_ConnectedVolumes::getUnmountedVolumes() const {
  return filtered(mState->list, false);
}

void ZAN_ConnectedVolumes::mountVolume(const std::string& name, std::function<void()> done) {
  const auto found = std::ranges::find_if(
      mState->list, [&](const ZAN_Value& record) { return record.string("volName") == name; });
  if (found != mState->list.end()) mountVolumeWithBsd(found->string("bsdName"), std::move(done));
}

void ZAN_ConnectedVolumes::mountVolumeWithBsd(const std::string& bsdName,
                                              std::function<void()> done) {
  mRunLoop.detachThread("mountVolume",
                        [tools = mTools, &loop = mRunLoop, bsdName, done = std::move(done)] {
                          tools.mountPartition(bsdName);
                          if (done) loop.performOnMain(done);
                        });
}

std::optional<std::vector<std::string>> ZAN_ConnectedVolumes::getAllBSDName(
    const ZAN_MountVolume& tools) {
  const ZAN_Value list = tools.getAllVolumesDictionary();
  if (!list["AllDisks"].isArray()) return std::nullopt;
  std::vector<std::string> names;
  for (const ZAN_Value& name : list["AllDisks"].elements()) names.push_back(name.string());
  return names;
}

std::vector<std::string> ZAN_ConnectedVolumes::getAllPartitionsBSDName(
    const ZAN_MountVolume& tools) {
  auto names = getAllBSDName(tools).value_or(std::vector<std::string>());
  for (std::size_t i = names.size(); i-- > 0;) {
    const ZAN_Value infos = tools.getInfosForBSDName(names[i]);
    if (infos["WholeDisk"].boolValue() || infos.string("VolumeName").empty())
      names.erase(names.begin() + static_cast<std::ptrdiff_t>(i));
  }
  return names;
}

}  // namespace corvana
