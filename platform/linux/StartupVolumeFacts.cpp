#include "platform/linux/StartupVolumeFacts.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <charconv>
#include <fstream>
#include <memory>
#include <sstream>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

namespace {

constexpr std::uint64_t kSector = 512;

/// The device of what is mounted last at "/": "36 35 98:0 / / options - ext4 /dev/root options".
/// Some file systems carry a number of their own; then the device is that of the source.
std::optional<dev_t> deviceOfRoot(const std::string& mountTable, const std::string& devices) {
  std::optional<dev_t> device;
  std::ifstream table(mountTable);
  for (std::string line; std::getline(table, line);) {
    std::istringstream words(line);
    std::string word, root, target, fileSystem, source;
    unsigned major = 0;
    unsigned minor = 0;
    char colon = 0;
    if (!(words >> word >> word >> major >> colon >> minor >> root >> target) || target != "/")
      continue;
    while (words >> word && word != "-") {
    }
    words >> fileSystem >> source;
    device.reset();
    struct stat status {};
    const std::string numbers = std::to_string(major) + ":" + std::to_string(minor);
    if (stat((devices + "/" + numbers).c_str(), &status) == 0) {
      device = makedev(major, minor);
    } else if (source.starts_with("/dev/") && stat(source.c_str(), &status) == 0 &&
               S_ISBLK(status.st_mode)) {
      device = status.st_rdev;
    }
  }
  return device;
}

std::uint64_t sizeOf(dev_t device, const std::string& devices) {
  std::ifstream file(devices + "/" + std::to_string(major(device)) + ":" +
                     std::to_string(minor(device)) + "/size");
  std::uint64_t sectors = 0;
  return file >> sectors ? sectors * kSector : 0;
}

/// udev writes what a file name cannot hold as "\x20".
std::string unescaped(std::string_view name) {
  std::string text;
  while (!name.empty()) {
    unsigned code = 0;
    if (name.size() >= 4 && name.starts_with("\\x") &&
        std::from_chars(name.data() + 2, name.data() + 4, code, 16).ptr == name.data() + 4) {
      text.push_back(static_cast<char>(code));
      name.remove_prefix(4);
    } else {
      text.push_back(name.front());
      name.remove_prefix(1);
    }
  }
  return text;
}

std::string labelOf(dev_t device, const std::string& labels) {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(labels.c_str()), closedir);
  if (!folder) return {};
  while (const dirent* entry = readdir(folder.get())) {
    struct stat status {};
    if (fstatat(dirfd(folder.get()), entry->d_name, &status, 0) == 0 && S_ISBLK(status.st_mode) &&
        status.st_rdev == device)
      return unescaped(entry->d_name);
  }
  return {};
}

}  // namespace

std::optional<StartupVolume> StartupVolumeFacts::read() const {
  const auto device = deviceOfRoot(mPlaces.mountTable, mPlaces.devices);
  struct statvfs space {};
  if (!device || statvfs(mPlaces.root.c_str(), &space) != 0) return std::nullopt;
  StartupVolume volume;
  volume.size = sizeOf(*device, mPlaces.devices);
  volume.volumeSize = std::uint64_t{space.f_blocks} * space.f_frsize;
  volume.name = labelOf(*device, mPlaces.labels);
  if (volume.name.empty()) volume.name = "/";
  struct statx times {};
  if (statx(AT_FDCWD, mPlaces.root.c_str(), 0, STATX_BTIME, &times) == 0 &&
      (times.stx_mask & STATX_BTIME) != 0 &&
      static_cast<double>(times.stx_btime.tv_sec) > kReferenceEpochInUnixTime) {
    volume.creationDate = static_cast<std::uint64_t>(times.stx_btime.tv_sec) -
                          static_cast<std::uint64_t>(kReferenceEpochInUnixTime);
  }
  return volume;
}

}  // namespace corvana
