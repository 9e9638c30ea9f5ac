#include "platform/linux/MountTable.h"

#include <sys/sysmacros.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <system_error>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

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

}  // namespace corvana
