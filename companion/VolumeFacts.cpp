#include "companion/VolumeFacts.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <charconv>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {
namespace {

struct Mount {
  unsigned major = 0;
  unsigned minor = 0;
  std::string root, target, fileSystem, source;
};

// The mount table writes blanks, tabs, line feeds and backslashes of a path as "\ooo".
std::string unescaped(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      unsigned code = 0;
      const auto [end, error] = std::from_chars(&text[i + 1], &text[i + 4], code, 8);
      if (error == std::errc() && end == &text[i] + 4) {
        result.push_back(static_cast<char>(code));
        i += 3;
        continue;
      }
    }
    result.push_back(text[i]);
  }
  return result;
}

// "36 35 98:0 /root /target options [optional]... - ext3 /dev/root options"
std::vector<Mount> mountTable() {
  std::vector<Mount> mounts;
  std::ifstream table("/proc/self/mountinfo");
  for (std::string line; std::getline(table, line);) {
    std::istringstream words(line);
    std::string word, root, target, options;
    Mount mount;
    char colon = 0;
    if (!(words >> word >> word >> mount.major >> colon >> mount.minor >> root >> target >>
          options))
      continue;
    while (words >> word && word != "-") {
    }
    words >> mount.fileSystem >> mount.source;
    mount.root = unescaped(root);
    mount.target = unescaped(target);
    mount.source = unescaped(mount.source);
    mounts.push_back(std::move(mount));
  }
  return mounts;
}

/// The name of the link in a folder of /dev/disk that leads to the device.
std::string linkTo(const char* folder, unsigned major, unsigned minor) {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(folder), ::closedir);
  if (!directory) return {};
  while (const dirent* entry = ::readdir(directory.get())) {
    struct stat status {};
    if (::fstatat(::dirfd(directory.get()), entry->d_name, &status, 0) == 0 &&
        S_ISBLK(status.st_mode) && status.st_rdev == makedev(major, minor)) {
      // udev writes what a file name cannot hold as "\x20".
      std::string name;
      for (std::string_view rest = entry->d_name; !rest.empty();) {
        unsigned code = 0;
        if (rest.size() >= 4 && rest.starts_with("\\x") &&
            std::from_chars(rest.data() + 2, rest.data() + 4, code, 16).ptr == rest.data() + 4) {
          name.push_back(static_cast<char>(code));
          rest.remove_prefix(4);
        } else {
          name.push_back(rest.front());
          rest.remove_prefix(1);
        }
      }
      return name;
    }
  }
  return {};
}

std::optional<VolumeFacts> factsOf(const Mount& mount) {
  VolumeFacts facts;
  facts.mountPoint = mount.target;
  facts.fileSystem = mount.fileSystem;
  facts.device = mount.source.starts_with('/') ? mount.source : std::string();
  struct statvfs space {};
  struct stat status {};
  if (::statvfs(mount.target.c_str(), &space) != 0 || ::stat(mount.target.c_str(), &status) != 0)
    return std::nullopt;
  facts.deviceNumber = status.st_dev;
  facts.totalSize = static_cast<std::uint64_t>(space.f_blocks) * space.f_frsize;
  struct statx times {};
  if (::statx(AT_FDCWD, mount.target.c_str(), 0, STATX_BTIME, &times) == 0 &&
      (times.stx_mask & STATX_BTIME) != 0 &&
      static_cast<double>(times.stx_btime.tv_sec) > kReferenceEpochInUnixTime) {
    facts.creationDate = static_cast<std::uint64_t>(times.stx_btime.tv_sec) -
                         static_cast<std::uint64_t>(kReferenceEpochInUnixTime);
  }
  facts.uuid = linkTo("/dev/disk/by-uuid", mount.major, mount.minor);
  facts.name = linkTo("/dev/disk/by-label", mount.major, mount.minor);
  if (facts.name.empty()) facts.name = ZAN_FilesUtils::lastPathComponent(mount.target);
  return facts;
}

bool holds(const std::string& folder, const std::string& path) {
  return folder == "/" || path == folder ||
         (path.starts_with(folder) && path[folder.size()] == '/');
}

}  // namespace

std::optional<VolumeFacts> VolumeFacts::ofPath(const std::string& path) {
  std::string existing = path;
  while (!existing.empty() && !ZAN_FilesUtils::exists(existing)) {
    existing = ZAN_FilesUtils::parentPath(existing);
  }
  if (existing.empty()) return std::nullopt;
  const std::unique_ptr<char, void (*)(void*)> real(::realpath(existing.c_str(), nullptr),
                                                    std::free);
  struct stat status {};
  if (!real || ::stat(real.get(), &status) != 0) return std::nullopt;
  // The deepest mount that holds the path; of several on one place the last one is seen.
  const Mount* found = nullptr;
  const auto mounts = mountTable();
  for (const auto& mount : mounts) {
    if (holds(mount.target, real.get()) && (!found || mount.target.size() >= found->target.size()))
      found = &mount;
  }
  if (!found) return std::nullopt;
  auto facts = factsOf(*found);
  if (facts) facts->deviceNumber = status.st_dev;
  return facts;
}

std::optional<VolumeFacts> VolumeFacts::withUuid(std::string_view uuid) {
  if (uuid.empty()) return std::nullopt;
  for (const auto& mount : mountTable()) {
    if (mount.source.starts_with('/') && mount.root == "/" &&
        linkTo("/dev/disk/by-uuid", mount.major, mount.minor) == uuid) {
      return factsOf(mount);
    }
  }
  return std::nullopt;
}

std::string VolumeFacts::volumesFolder(const std::string& loginName) {
  if (const char* folder = std::getenv("CORVANA9_VOLUMES"); folder && *folder) return folder;
  const std::string first = "/run/media/" + loginName;
  return ZAN_FilesUtils::isFolder(first) ? first : "/media/" + loginName;
}

}  // namespace corvana
