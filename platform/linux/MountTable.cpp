#include "platform/linux/MountTable.h"

#include <blkid/blkid.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <system_error>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/linux/Spawn.h"

namespace corvana {

namespace {

constexpr std::string_view kServerFileSystems[] = {
    "nfs",         "nfs4",        "cifs",      "smb3",      "smbfs",          "afs",
    "ceph",        "ncpfs",       "9p",        "davfs",     "fuse.sshfs",     "fuse.davfs",
    "fuse.davfs2", "fuse.rclone", "fuse.s3fs", "fuse.ceph", "fuse.curlftpfs", "fuse.glusterfs"};
constexpr std::string_view kImageFileSystems[] = {"squashfs", "erofs", "cramfs"};
constexpr std::string_view kSystemPlaces[] = {"/boot",          "/efi", "/snap", "/var/snap",
                                              "/var/lib/snapd", "/dev", "/proc", "/sys"};

/// The table writes blanks, tabs, line feeds and backslashes as "\ooo".
std::string unescaped(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      unsigned code = 0;
      const auto [end, error] = std::from_chars(&text[i + 1], text.data() + i + 4, code, 8);
      if (error == std::errc() && end == text.data() + i + 4) {
        result.push_back(static_cast<char>(code));
        i += 3;
        continue;
      }
    }
    result.push_back(text[i]);
  }
  return result;
}

std::string_view nextWord(std::string_view& line) {
  const auto end = std::min(line.find(' '), line.size());
  const std::string_view word = line.substr(0, end);
  line.remove_prefix(std::min(end + 1, line.size()));
  return word;
}

bool isOneOf(std::string_view text, const auto& list) {
  return std::ranges::find(list, text) != std::end(list);
}

void classify(Mount& mount, const MountTable::Places& places) {
  const bool isFuse = mount.fileSystem.starts_with("fuse");
  // "host:/export" is another machine whatever program mounts it.
  mount.isServer =
      isOneOf(mount.fileSystem, kServerFileSystems) ||
      (mount.fileSystem.starts_with("fuse.") && mount.source.find(":/") != std::string::npos);
  const bool isAutomounter = mount.fileSystem == "autofs";
  const bool isOnDevice = mount.source.starts_with("/dev/") && mount.source != "/dev/fuse" &&
                          !isOneOf(mount.fileSystem, kImageFileSystems) &&
                          mount.fileSystem != "devtmpfs";
  // Of a device that shows a part of itself elsewhere only subvolumes are volumes.
  const bool isWhole = mount.root == "/" || mount.fileSystem == "btrfs";
  const bool isSystem = std::ranges::any_of(kSystemPlaces, [&](std::string_view place) {
    return ZAN_FilesUtils::isAtOrBelow(mount.target, place);
  });
  mount.isVolume = !isAutomounter && (mount.target == "/" ||
                                      ZAN_FilesUtils::isBelow(mount.target, places.volumesFolder) ||
                                      (!isSystem && (mount.isServer || (isOnDevice && isWhole))));
  mount.isForeign = mount.isServer || isFuse || isAutomounter ||
                    (mount.isVolume && mount.target != "/" &&
                     !ZAN_FilesUtils::isAtOrBelow(places.home, mount.target));
}

/// "36 35 98:0 /root /target options [optional]... - ext3 /dev/root options"
bool parseLine(std::string_view line, Mount& mount) {
  const std::string_view id = nextWord(line);
  if (std::from_chars(id.data(), id.data() + id.size(), mount.id).ec != std::errc()) return false;
  nextWord(line);
  const std::string_view device = nextWord(line);
  unsigned major = 0;
  unsigned minor = 0;
  const auto colon = device.find(':');
  if (colon == std::string_view::npos) return false;
  std::from_chars(device.data(), device.data() + colon, major);
  std::from_chars(device.data() + colon + 1, device.data() + device.size(), minor);
  mount.device = makedev(major, minor);
  mount.root = unescaped(nextWord(line));
  mount.target = unescaped(nextWord(line));
  const std::string_view options = nextWord(line);
  mount.writable = options != "ro" && !options.starts_with("ro,");
  while (!line.empty() && nextWord(line) != "-") {
  }
  mount.fileSystem = unescaped(nextWord(line));
  mount.source = unescaped(nextWord(line));
  const std::string_view superOptions = nextWord(line);
  if (superOptions == "ro" || superOptions.starts_with("ro,")) mount.writable = false;
  return mount.target.starts_with('/') && !mount.fileSystem.empty();
}

/// "/dev/dm-0" for "/dev/mapper/backup", "/dev/vda1" for "/dev/root".
std::string kernelName(const Mount& mount) {
  std::error_code failure;
  if (major(mount.device) != 0) {
    const auto link =
        std::filesystem::read_symlink("/sys/dev/block/" + std::to_string(major(mount.device)) +
                                          ":" + std::to_string(minor(mount.device)),
                                      failure);
    if (!failure) return "/dev/" + link.filename().string();
  }
  const auto real = std::filesystem::canonical(mount.source, failure);
  return failure ? mount.source : real.string();
}

}  // namespace

std::vector<Mount> MountTable::parse(std::string_view text, const Places& places) {
  std::vector<Mount> mounts;
  while (!text.empty()) {
    const auto end = std::min(text.find('\n'), text.size());
    Mount mount;
    if (parseLine(text.substr(0, end), mount)) {
      classify(mount, places);
      mounts.push_back(std::move(mount));
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  // What lies under another mount is not seen.
  std::set<std::string_view> covered;
  for (auto mount = mounts.rbegin(); mount != mounts.rend(); ++mount) {
    if (!covered.insert(mount->target).second) mount->isVolume = false;
  }
  return mounts;
}

std::vector<Mount> MountTable::read(const Places& places) {
  std::ifstream file("/proc/self/mountinfo", std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  auto mounts = parse(text, places);
  for (auto& mount : mounts) {
    if (mount.source.starts_with("/dev/")) mount.source = kernelName(mount);
  }
  return mounts;
}

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
std::string unescapedLabel(std::string_view name) {
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
      return unescapedLabel(entry->d_name);
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
