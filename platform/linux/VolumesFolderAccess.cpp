#include "platform/linux/VolumesFolderAccess.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/linux/HeldFolder.h"
#include "platform/linux/MountTable.h"

namespace corvana {

namespace {

/// Themselves.
constexpr std::array<std::string_view, 7> kSystemFolders = {"/",    "/home", "/root",   "/run",
                                                            "/srv", "/tmp",  "/var/tmp"};
/// With everything below them.
constexpr std::array<std::string_view, 14> kSystemTrees = {
    "/bin",    "/boot", "/dev",  "/etc",  "/lib", "/lib32", "/lib64",
    "/libx32", "/opt",  "/proc", "/sbin", "/sys", "/usr",   "/var"};
/// What a home holds besides, by the names of the desktop and of this program.
constexpr std::array<std::string_view, 10> kUserFolders = {
    "Desktop",  "Documents", "Downloads", "Library", "Music",
    "Pictures", "Public",    "Templates", "Videos",  "snap"};

/// Of what was moved aside under one name.
constexpr int kMostNames = 9999;

Error refused(const std::string& path, std::string_view why) {
  return {ErrorKind::refused, path + ": " + std::string(why)};
}

Error failed(const std::string& path, int code) {
  return {ErrorKind::unwritable, path + ": " + std::strerror(code)};
}

/// What cannot be known counts as mounted.
bool anyAtOrBelow(MountsNow& now, const std::string& path) {
  const auto& mounts = now.mounts();
  return mounts.empty() || std::ranges::any_of(mounts, [&](const Mount& mount) {
           return ZAN_FilesUtils::isAtOrBelow(mount.target, path);
         });
}

std::string realPath(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                         &std::free);
  return real ? real.get() : std::string();
}

/// The homes of everybody this machine itself knows: asking a directory service could take long.
std::vector<std::string> homesByPasswords() {
  std::vector<std::string> homes;
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/etc/passwd", "re"), &std::fclose);
  if (!file) return homes;
  std::array<char, 4096> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  while (::fgetpwent_r(file.get(), &entry, buffer.data(), buffer.size(), &found) == 0)
    homes.emplace_back(found->pw_dir);
  return homes;
}

bool isOfSystem(const std::string& folder) {
  if (std::ranges::find(kSystemFolders, folder) != kSystemFolders.end()) return true;
  if (folder.starts_with("/run/")) return !ZAN_FilesUtils::isAtOrBelow(folder, "/run/media");
  if (folder.starts_with("/var/tmp/") || folder.starts_with("/dev/shm/")) return false;
  return std::ranges::any_of(kSystemTrees, [&](std::string_view tree) {
    return ZAN_FilesUtils::isAtOrBelow(folder, tree);
  });
}

/// Whether a folder of the home holds the user's own things: settings, or one of those that the
/// desktop has made.
bool isUsersOwn(const std::string& folder, const std::string& home) {
  if (home == "/" || !ZAN_FilesUtils::isBelow(folder, home)) return false;
  const std::string below = "/" + std::string(*ZAN_FilesUtils::relativePath(folder, home));
  if (below.find("/.") != std::string::npos) return true;
  const std::string first = below.substr(1, below.find('/', 1) - 1);
  if (std::ranges::find(kUserFolders, first) != kUserFolders.end()) return true;
  // "XDG_MUSIC_DIR="$HOME/Musik""
  std::ifstream names(home + "/.config/user-dirs.dirs");
  for (std::string line; std::getline(names, line);) {
    if (line.starts_with("XDG_") && line.ends_with("=\"$HOME/" + first + "\"")) return true;
  }
  return false;
}

/// Opens a folder by its full path, but not what is mounted on it.
ZAN_Descriptor openUnmounted(const std::string& path) {
  const auto slash = path.rfind('/');
  const std::string above = path.substr(0, slash == 0 ? 1 : slash);
  const ZAN_Descriptor parent(::open(above.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  return parent ? openFolderBelow(parent.get(), path.substr(slash + 1)) : ZAN_Descriptor();
}

/// One deletion.
class Removal {
 public:
  Removal(dev_t device, const VolumesFolderAccess::GoesOn& goesOn)
      : mDevice(device), mGoesOn(goesOn) {}

  Outcome remove(int parent, const std::string& name, const std::string& path) {
    if (mGoesOn && !mGoesOn(mGone)) return refused(path, "nothing more is to be deleted");
    if (anyAtOrBelow(mMounts, path)) return refused(path, "something is mounted there");
    if (::unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT) {
      ++mGone;
      return {};
    }
    if (errno != EISDIR && errno != EPERM) return failed(path, errno);
    const ZAN_Descriptor folder = openFolderBelow(parent, name);
    if (!folder) {
      return errno == EXDEV ? refused(path, "something is mounted there") : failed(path, errno);
    }
    struct stat state {};
    if (::fstat(folder.get(), &state) != 0) return failed(path, errno);
    if (state.st_dev != mDevice) return refused(path, "it lies on another device");
    const auto names = namesInFolder(folder.get());
    if (!names) return failed(path, errno);
    for (const auto& entry : *names) {
      if (Outcome done = remove(folder.get(), entry, path + "/" + entry); !done) return done;
    }
    if (anyAtOrBelow(mMounts, path)) return refused(path, "something is mounted there");
    if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT)
      return failed(path, errno);
    ++mGone;
    return {};
  }

 private:
  dev_t mDevice;
  const VolumesFolderAccess::GoesOn& mGoesOn;
  MountsNow mMounts;
  std::uint64_t mGone = 0;
};

/// One count.
class Measuring {
 public:
  Measuring(dev_t device, const VolumesFolderAccess::GoesOn& goesOn)
      : mDevice(device), mGoesOn(goesOn) {}

  Outcome add(int parent, const std::string& name, const std::string& path) {
    if (mGoesOn && !mGoesOn(mContents.files)) return refused(path, "nothing more is counted");
    struct stat state {};
    if (::fstatat(parent, name.c_str(), &state, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0)
      return errno == ENOENT ? Outcome() : Outcome(failed(path, errno));
    if (state.st_dev != mDevice) return {};
    if (!S_ISDIR(state.st_mode)) {
      ++mContents.files;
      mContents.bytes += static_cast<std::uint64_t>(state.st_size);
      return {};
    }
    const ZAN_Descriptor folder = openFolderBelow(parent, name);
    if (!folder) return errno == EXDEV ? Outcome() : Outcome(failed(path, errno));
    const auto names = namesInFolder(folder.get());
    if (!names) return failed(path, errno);
    for (const auto& entry : *names) {
      if (Outcome done = add(folder.get(), entry, path + "/" + entry); !done) return done;
    }
    return {};
  }
  const Volumes::Contents& contents() const { return mContents; }

 private:
  dev_t mDevice;
  const VolumesFolderAccess::GoesOn& mGoesOn;
  Volumes::Contents mContents;
};

}  // namespace

VolumesFolderAccess::VolumesFolderAccess(std::string folder, std::string home)
    : mFolder(std::move(folder)), mHome(std::move(home)) {}

Outcome VolumesFolderAccess::check() const {
  const std::string folder = realPath(mFolder);
  if (folder.empty()) return Error{ErrorKind::absent, mFolder + ": " + std::strerror(errno)};
  // The mount table knows it by its real path only.
  if (folder != mFolder) return refused(mFolder, "a link leads to the folder of volumes");
  if (isOfSystem(folder)) return refused(mFolder, "a folder of the system is no folder of volumes");
  // Those of others by their names only: they may lie on another machine.
  std::vector<std::string> homes = homesByPasswords();
  const std::string own = realPath(mHome);
  homes.push_back(own);
  for (const std::string& home : homes) {
    if (!home.empty() && home != "/" && ZAN_FilesUtils::isAtOrBelow(home, folder))
      return refused(mFolder, "a home is no folder of volumes");
  }
  if (isUsersOwn(folder, own))
    return refused(mFolder, "a folder of the user's own is none of volumes");
  const auto mounts = MountTable::read({});
  if (mounts.empty()) return refused(mFolder, "what is mounted cannot be read");
  for (const auto& mount : mounts) {
    if (mount.target == folder)
      return refused(mFolder, "something is mounted there, so it is no folder of volumes");
  }
  return {};
}

std::vector<std::string> VolumesFolderAccess::names() const {
  if (!check()) return {};
  const ZAN_Descriptor folder = openUnmounted(mFolder);
  if (!folder) return {};
  auto found = namesInFolder(folder.get()).value_or(std::vector<std::string>());
  std::ranges::sort(found);
  return found;
}

Result<ZAN_Descriptor> VolumesFolderAccess::open(const std::string& name) const {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
    return refused(mFolder + "/" + name, "no name of an entry");
  if (Outcome fit = check(); !fit) return fit.error();
  // What is mounted on the folder since it was checked has entries of its own.
  ZAN_Descriptor folder = openUnmounted(mFolder);
  if (!folder) return failed(mFolder, errno);
  return folder;
}

Outcome VolumesFolderAccess::remove(const std::string& name, const GoesOn& goesOn) const {
  const auto folder = open(name);
  if (!folder) return folder.error();
  struct stat state {};
  if (::fstat(folder->get(), &state) != 0) return failed(mFolder, errno);
  return Removal(state.st_dev, goesOn).remove(folder->get(), name, mFolder + "/" + name);
}

Result<std::string> VolumesFolderAccess::moveAside(const std::string& name) const {
  const std::string path = mFolder + "/" + name;
  const auto folder = open(name);
  if (!folder) return folder.error();
  MountsNow mounts;
  if (anyAtOrBelow(mounts, path)) return refused(path, "something is mounted there");
  // The kernel itself says whether it is empty, at the moment when that counts.
  if (::unlinkat(folder->get(), name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT)
    return std::string();
  if (errno != ENOTEMPTY && errno != EEXIST && errno != ENOTDIR) return failed(path, errno);
  const std::string place = mFolder + "/" + Volumes::kMovedAside;
  if (::mkdirat(folder->get(), Volumes::kMovedAside, 0700) != 0 && errno != EEXIST)
    return failed(place, errno);
  const ZAN_Descriptor aside = openFolderBelow(folder->get(), Volumes::kMovedAside);
  if (!aside) return failed(place, errno);
  for (int number = 1; number <= kMostNames; ++number) {
    const std::string free = number == 1 ? name : name + " " + std::to_string(number);
    if (::renameat2(folder->get(), name.c_str(), aside.get(), free.c_str(), RENAME_NOREPLACE) == 0)
      return place + "/" + free;
    if (errno == ENOENT) return std::string();
    if (errno != EEXIST) return failed(path, errno);
  }
  return failed(place, EEXIST);
}

Result<Volumes::Contents> VolumesFolderAccess::measure(const std::string& name,
                                                       const GoesOn& goesOn) const {
  const auto folder = open(name);
  if (!folder) return folder.error();
  struct stat state {};
  if (::fstat(folder->get(), &state) != 0) return failed(mFolder, errno);
  Measuring measuring(state.st_dev, goesOn);
  if (Outcome done = measuring.add(folder->get(), name, mFolder + "/" + name); !done)
    return done.error();
  return measuring.contents();
}

}  // namespace corvana
