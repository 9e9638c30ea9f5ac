#include "platform/simulated/SimulatedVolumes.h"

#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_PropertyList.h"
#include "platform/simulated/SimulatedProcesses.h"

namespace corvana {

SimulatedVolumes::SimulatedVolumes(SimulatedRunLoop& runLoop, std::string volumesFolder)
    : folder(std::move(volumesFolder)), mRunLoop(runLoop) {
  mountAt("/", {.name = "System",
                .size = 500'000'000'000,
                .free = 200'000'000'000,
                .uuid = "0000-system",
                .bsdName = "sda1"});
}

SimulatedVolumes::~SimulatedVolumes() {
  std::error_code ignored;
  for (const auto& made : mMade) std::filesystem::remove_all(made, ignored);
}

std::optional<VolumeInformation> SimulatedVolumes::information(const Mount& mount, double) {
  ++asked;
  if (mHanging.contains(mount.target)) return std::nullopt;
  for (const auto& [disk, target] : mKnown) {
    if (target != mount.target) continue;
    return VolumeInformation{disk.size, disk.free, disk.creationDate,
                             disk.uuid, disk.name, disk.readOnly};
  }
  return std::nullopt;
}

DiskInformation SimulatedVolumes::diskInformation(const Mount& mount) {
  const std::string name = mount.bsdName();
  if (name.empty()) return {};
  const bool internal = name.starts_with("sda");
  return {name.substr(0, 3), internal, internal ? "sata" : "usb", "gpt", "Model", "Vendor"};
}

bool SimulatedVolumes::exists(const std::string& path) {
  const Mount* found = nullptr;
  for (const auto& mount : mMounts) {
    if (ZAN_FilesUtils::isAtOrBelow(path, mount.target) &&
        (!found || mount.target.size() >= found->target.size()))
      found = &mount;
  }
  if (found && mHanging.contains(found->target)) return false;
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

std::vector<std::string> SimulatedVolumes::volumesFolderContents() const {
  std::vector<std::string> names;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored))
    names.push_back(entry.path().filename());
  std::ranges::sort(names);
  return names;
}

bool SimulatedVolumes::isInUse(const std::string& name) const {
  return sticky.contains(name) || std::ranges::any_of(mMounts, [&](const Mount& mount) {
           return ZAN_FilesUtils::isAtOrBelow(mount.target, folder + "/" + name);
         });
}

Outcome SimulatedVolumes::removeFromVolumesFolder(const std::string& name, const GoesOn& goesOn) {
  const std::string path = folder + "/" + name;
  if (isInUse(name)) return Error{ErrorKind::refused, path + ": in use"};
  std::error_code failure;
  std::uint64_t gone = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(path, failure)) {
    if (entry.is_directory()) continue;
    if (!goesOn(gone)) return Error{ErrorKind::refused, path + ": no more"};
    if (beforeRemoving) beforeRemoving();
    ++gone;
  }
  std::filesystem::remove_all(path, failure);
  if (failure) return Error{ErrorKind::unwritable, path + ": " + failure.message()};
  return {};
}

Result<std::string> SimulatedVolumes::moveAsideInVolumesFolder(const std::string& name) {
  const std::filesystem::path path = folder + "/" + name;
  if (isInUse(name)) return Error{ErrorKind::refused, path.string() + ": in use"};
  std::error_code failure;
  if (std::filesystem::is_empty(path, failure)) {
    std::filesystem::remove(path, failure);
    return std::string();
  }
  const std::filesystem::path place = std::filesystem::path(folder) / kMovedAside;
  std::filesystem::create_directory(place, failure);
  std::filesystem::rename(path, place / name, failure);
  if (failure) return Error{ErrorKind::unwritable, path.string() + ": " + failure.message()};
  return (place / name).string();
}

Result<Volumes::Contents> SimulatedVolumes::measureInVolumesFolder(const std::string& name,
                                                                   const GoesOn& goesOn) const {
  Contents contents;
  std::error_code failure;
  for (const auto& entry :
       std::filesystem::recursive_directory_iterator(folder + "/" + name, failure)) {
    if (entry.is_directory()) continue;
    if (!goesOn(contents.files)) break;
    ++contents.files;
    contents.bytes += entry.file_size();
  }
  return contents;
}

std::string SimulatedVolumes::mount(const Disk& disk) {
  std::string target = folder + "/" + disk.name;
  std::error_code ignored;
  for (int number = 1; std::filesystem::exists(target, ignored); ++number)
    target = folder + "/" + disk.name + std::to_string(number);
  return mountAt(target, disk);
}

std::string SimulatedVolumes::mountAt(const std::string& target, const Disk& disk) {
  std::error_code ignored;
  if (std::filesystem::create_directories(target, ignored)) mMade.insert(target);
  Disk known = disk;
  if (known.bsdName.empty() && !known.isServer)
    known.bsdName = std::string("sd") + mNextLetter++ + "1";
  std::erase_if(mKnown, [&](const Known& other) {
    return other.target.empty() && other.disk.bsdName == known.bsdName;
  });
  const Mount mount{
      .id = ++mLastId,
      .device = ++mLastDevice,
      .target = target,
      .source = known.isServer ? "smb://server/" + disk.name : "/dev/" + known.bsdName,
      .fileSystem = known.fileSystem,
      .name = {},
      .writable = !known.readOnly,
      .isVolume = true,
      .isServer = known.isServer,
      .isForeign = target != "/"};
  mKnown.push_back({known, target});
  mMounts.push_back(mount);
  if (mObserver.mounted) {
    mRunLoop.performOnMain([this, mount] {
      if (mObserver.mounted) mObserver.mounted(mount);
    });
  }
  return target;
}

bool SimulatedVolumes::unmount(const std::string& target, bool strayFolder) {
  const auto found = std::ranges::find(mMounts, target, &Mount::target);
  if (found == mMounts.end()) return false;
  const Mount mount = *found;
  mMounts.erase(found);
  mHanging.erase(target);
  for (auto& known : mKnown) {
    if (known.target == target) known.target.clear();
  }
  std::error_code ignored;
  if (mMade.contains(target)) {
    std::filesystem::remove_all(target, ignored);
    if (strayFolder) {
      std::filesystem::create_directory(target, ignored);
    } else {
      mMade.erase(target);
    }
  }
  mRunLoop.performOnMain([this, mount] {
    if (mObserver.unmounted) mObserver.unmounted(mount);
  });
  return true;
}

void SimulatedVolumes::plugIn(const Disk& disk) {
  Disk known = disk;
  if (known.bsdName.empty()) known.bsdName = std::string("sd") + mNextLetter++ + "1";
  mKnown.push_back({known, {}});
}

void SimulatedVolumes::setFree(const std::string& target, std::uint64_t free) {
  for (auto& known : mKnown) {
    if (known.target == target) known.disk.free = free;
  }
}

void SimulatedVolumes::installTool(SimulatedProcesses& processes, const std::string& diskutil) {
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(diskutil).parent_path(), ignored);
  std::ofstream(diskutil).flush();
  processes.tool(diskutil, [this](const std::vector<std::string>& arguments) {
    bool done = false;
    std::string output = toolAnswer({arguments.begin() + 1, arguments.end()}, done);
    if (done) return Result<std::string>(std::move(output));
    return Result<std::string>(Error{ErrorKind::unavailable, "diskutil: ended with status 1"});
  });
}

SimulatedVolumes::Known* SimulatedVolumes::find(const std::string& nameOrPath) {
  for (auto& known : mKnown) {
    if (known.disk.bsdName == nameOrPath || (!known.target.empty() && known.target == nameOrPath))
      return &known;
  }
  return nullptr;
}

std::string SimulatedVolumes::toolAnswer(const std::vector<std::string>& words, bool& done) {
  const std::string verb = words.empty() ? "" : words.front();
  done = true;
  if (verb == "list") {
    ZAN_Value names = ZAN_Value::array();
    ZAN_Value disks = ZAN_Value::array();
    for (const auto& [disk, target] : mKnown) {
      if (disk.isServer) continue;
      const std::string whole = disk.bsdName.substr(0, 3);
      names.append(whole);
      names.append(disk.bsdName);
      ZAN_Value partition = ZAN_Value::dictionary({{"DeviceIdentifier", disk.bsdName},
                                                   {"Size", disk.size},
                                                   {"VolumeName", disk.name},
                                                   {"Content", disk.fileSystem}});
      if (!target.empty()) partition.setValue("MountPoint", target);
      disks.append(ZAN_Value::dictionary({{"DeviceIdentifier", whole},
                                          {"Size", disk.size + 1'000'000},
                                          {"Content", "GUID_partition_scheme"},
                                          {"Partitions", ZAN_Value::array({partition})}}));
    }
    return ZAN_PropertyList::xmlPropertyList(
        ZAN_Value::dictionary({{"AllDisks", names}, {"AllDisksAndPartitions", disks}}));
  }
  Known* const known = find(words.back());
  if (verb == "info" && known) {
    ZAN_Value answer = ZAN_Value::dictionary({{"DeviceIdentifier", known->disk.bsdName},
                                              {"VolumeName", known->disk.name},
                                              {"MountPoint", known->target}});
    return ZAN_PropertyList::xmlPropertyList(answer);
  }
  if (verb == "mount" && known && known->target.empty()) {
    const Disk disk = known->disk;
    mount(disk);
    return {};
  }
  const bool forced = words.size() > 2 && words[1] == "force";
  if ((verb == "unmount" || verb == "eject") && known && !known->target.empty() &&
      (forced || !busy.contains(known->target))) {
    const std::string target = known->target;
    unmount(target);
    return {};
  }
  done = false;
  return {};
}

}  // namespace corvana
