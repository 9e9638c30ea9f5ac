#include "platform/linux/DeviceFacts.h"

#include <blkid/blkid.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string_view>
#include <system_error>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_Time.h"
#include "platform/linux/ExpendableChild.h"

namespace corvana {

namespace {

namespace fs = std::filesystem;

/// "8:1"; empty for what is no block device.
std::string numbersOf(const std::string& device) {
  struct stat status {};
  if (::stat(device.c_str(), &status) != 0 || !S_ISBLK(status.st_mode)) return {};
  return std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev));
}

/// udev writes what it does not trust in a name as "\x20".
std::string decoded(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    unsigned code = 0;
    if (text.size() >= 4 && text.starts_with("\\x") &&
        std::from_chars(text.data() + 2, text.data() + 4, code, 16).ptr == text.data() + 4) {
      result.push_back(static_cast<char>(code));
      text.remove_prefix(4);
    } else {
      result.push_back(text.front());
      text.remove_prefix(1);
    }
  }
  return result;
}

/// A property in udev's record of the device; empty without udev.
class UdevRecord {
 public:
  explicit UdevRecord(const std::string& numbers) {
    std::ifstream file("/run/udev/data/b" + numbers);
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with("E:")) mText += line.substr(2) + '\n';
    }
  }
  std::string property(std::string_view name) const {
    const std::string start = std::string(name) + '=';
    std::size_t at = mText.starts_with(start) ? 0 : mText.find('\n' + start);
    if (at == std::string::npos) return {};
    at = mText.find('=', at) + 1;
    return mText.substr(at, mText.find('\n', at) - at);
  }

 private:
  std::string mText;
};

std::string firstLine(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  const auto end = line.find_last_not_of(" \t");
  line.resize(end == std::string::npos ? 0 : end + 1);
  return line;
}

/// Reads the device.
std::string superblockOf(const std::string& device) {
  const ZAN_Descriptor file(::open(device.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) return {};
  using Probe = std::unique_ptr<std::remove_pointer_t<blkid_probe>, decltype(&blkid_free_probe)>;
  const Probe probe(blkid_new_probe(), blkid_free_probe);
  if (!probe || blkid_probe_set_device(probe.get(), file.get(), 0, 0) != 0) return {};
  blkid_probe_enable_superblocks(probe.get(), 1);
  blkid_probe_set_superblocks_flags(probe.get(),
                                    BLKID_SUBLKS_UUID | BLKID_SUBLKS_LABEL | BLKID_SUBLKS_TYPE);
  if (blkid_do_safeprobe(probe.get()) != 0) return {};
  const auto value = [&](const char* name) -> std::string {
    const char* text = nullptr;
    return blkid_probe_lookup_value(probe.get(), name, &text, nullptr) == 0 && text ? text : "";
  };
  return value("UUID") + '\0' + value("LABEL") + '\0' + value("TYPE");
}

/// A disk that is about to fail may keep its readers for ever.
DeviceFacts::Identity probed(const std::string& device) {
  const auto answer =
      ExpendableChild::ask([&] { return superblockOf(device); }, ExpendableChild::kAsLongAsItTakes);
  if (!answer || answer->empty()) return {};
  std::istringstream words(*answer);
  DeviceFacts::Identity identity;
  std::getline(words, identity.uuid, '\0');
  std::getline(words, identity.label, '\0');
  std::getline(words, identity.fileSystem, '\0');
  return identity;
}

}  // namespace

DeviceFacts::Identity DeviceFacts::identity(const std::string& device) {
  const std::string numbers = numbersOf(device);
  if (numbers.empty()) return {};
  const UdevRecord record(numbers);
  Identity identity{record.property("ID_FS_UUID"), decoded(record.property("ID_FS_LABEL_ENC")),
                    record.property("ID_FS_TYPE")};
  return identity.fileSystem.empty() ? probed(device) : identity;
}

DiskInformation DeviceFacts::diskInformation(const std::string& device) {
  const std::string numbers = numbersOf(device);
  if (numbers.empty()) return {};
  std::error_code failure;
  fs::path place = fs::canonical("/sys/dev/block/" + numbers, failure);
  if (failure) return {};
  if (fs::exists(place / "partition", failure)) place = place.parent_path();
  DiskInformation information;
  information.disk = place.filename().string();
  const std::string& path = place.native();
  const auto isOn = [&](std::string_view part) { return path.find(part) != std::string::npos; };
  information.connection = isOn("/usb")      ? "usb"
                           : isOn("/nvme")   ? "nvme"
                           : isOn("/mmc")    ? "mmc"
                           : isOn("/ata")    ? "sata"
                           : isOn("/virtio") ? "virtio"
                                             : "";
  information.isInternal =
      firstLine(place / "removable") != "1" && !isOn("/usb") && !isOn("/virtual/");
  information.model = firstLine(place / "device/model");
  information.vendor = firstLine(place / "device/vendor");
  information.partitionMap = UdevRecord(firstLine(place / "dev")).property("ID_PART_TABLE_TYPE");
  return information;
}

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
