#include "platform/linux/VolumesFolderAccess.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <poll.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
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

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

Error refused(const std::string& path, std::string_view why) {
  return {ErrorKind::refused, path + ": " + std::string(why)};
}

Error failed(const std::string& path, int code) {
  return {ErrorKind::unwritable, path + ": " + std::strerror(code)};
}

/// What is mounted where, read again whenever the kernel says that it has changed.
class MountsNow {
 public:
  MountsNow() : mTable(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC)) {}

  /// What cannot be known counts as mounted.
  bool anyAtOrBelow(const std::string& path) {
    if (!mTable) return true;
    refresh();
    return mTargets.empty() || std::ranges::any_of(mTargets, [&](const std::string& target) {
             return ZAN_FilesUtils::isAtOrBelow(target, path);
           });
  }

 private:
  void refresh() {
    pollfd changed{mTable.get(), POLLPRI, 0};
    const bool isOld = ::poll(&changed, 1, 0) != 0;
    if (mWasRead && !isOld) return;
    mWasRead = true;
    mTargets.clear();
    for (auto& mount : MountTable::read({})) mTargets.push_back(std::move(mount.target));
  }

  ZAN_Descriptor mTable;
  bool mWasRead = false;
  std::vector<std::string> mTargets;
};

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

/// By which mount an open folder was reached, for kernels that cannot refuse to cross one.
std::optional<std::string> mountOf(int descriptor) {
  const std::string path = "/proc/self/fdinfo/" + std::to_string(descriptor);
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "re"), &std::fclose);
  if (!file) return std::nullopt;
  std::array<char, 256> line{};
  while (std::fgets(line.data(), line.size(), file.get())) {
    const std::string_view text(line.data());
    if (text.starts_with("mnt_id:")) return std::string(text.substr(7));
  }
  return std::nullopt;
}

/// Opens a folder in a folder, on the same mount and no link; invalid with errno otherwise.
ZAN_Descriptor openBelow(int parent, const std::string& name) {
  open_how how{};
  how.flags = kFolderFlags;
  how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_BENEATH;
  const long opened = ::syscall(SYS_openat2, parent, name.c_str(), &how, sizeof how);
  if (opened >= 0 || errno != ENOSYS) return ZAN_Descriptor(static_cast<int>(opened));
  ZAN_Descriptor descriptor(::openat(parent, name.c_str(), kFolderFlags));
  if (!descriptor) return descriptor;
  const auto mount = mountOf(descriptor.get());
  if (!mount || mount != mountOf(parent)) {
    descriptor.close();
    errno = EXDEV;
  }
  return descriptor;
}

/// Opens a folder by its full path, but not what is mounted on it.
ZAN_Descriptor openUnmounted(const std::string& path) {
  const auto slash = path.rfind('/');
  const std::string above = path.substr(0, slash == 0 ? 1 : slash);
  const ZAN_Descriptor parent(::open(above.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  return parent ? openBelow(parent.get(), path.substr(slash + 1)) : ZAN_Descriptor();
}

struct OpenFolder {
  explicit OpenFolder(ZAN_Descriptor descriptor)
      : stream(::fdopendir(descriptor.get()), &::closedir) {
    if (stream) descriptor.release();
  }
  /// Its entries but "." and ".."; nothing with errno when it cannot be read.
  std::optional<std::vector<std::string>> names() const {
    std::vector<std::string> found;
    for (;;) {
      errno = 0;
      const dirent* const entry = ::readdir(stream.get());
      if (!entry) break;
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") found.emplace_back(name);
    }
    if (errno != 0) return std::nullopt;
    return found;
  }
  std::unique_ptr<DIR, int (*)(DIR*)> stream;
};

/// One deletion.
class Removal {
 public:
  Removal(dev_t device, const VolumesFolderAccess::GoesOn& goesOn)
      : mDevice(device), mGoesOn(goesOn) {}

  Outcome remove(int parent, const std::string& name, const std::string& path) {
    if (mGoesOn && !mGoesOn(mGone)) return refused(path, "nothing more is to be deleted");
    if (mMounts.anyAtOrBelow(path)) return refused(path, "something is mounted there");
    if (::unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT) {
      ++mGone;
      return {};
    }
    if (errno != EISDIR && errno != EPERM) return failed(path, errno);
    ZAN_Descriptor descriptor = openBelow(parent, name);
    if (!descriptor) {
      return errno == EXDEV ? refused(path, "something is mounted there") : failed(path, errno);
    }
    struct stat state {};
    if (::fstat(descriptor.get(), &state) != 0) return failed(path, errno);
    if (state.st_dev != mDevice) return refused(path, "it lies on another device");
    const int open = descriptor.get();
    const OpenFolder folder(std::move(descriptor));
    if (!folder.stream) return failed(path, errno);
    const auto names = folder.names();
    if (!names) return failed(path, errno);
    for (const auto& entry : *names) {
      if (Outcome done = remove(open, entry, path + "/" + entry); !done) return done;
    }
    if (mMounts.anyAtOrBelow(path)) return refused(path, "something is mounted there");
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
  const OpenFolder folder(openUnmounted(mFolder));
  if (!folder.stream) return {};
  auto found = folder.names().value_or(std::vector<std::string>());
  std::ranges::sort(found);
  return found;
}

Outcome VolumesFolderAccess::remove(const std::string& name, const GoesOn& goesOn) const {
  const std::string path = mFolder + "/" + name;
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
    return refused(path, "no name of an entry");
  if (Outcome fit = check(); !fit) return fit;
  // What is mounted on the folder since it was checked has entries of its own.
  const ZAN_Descriptor folder = openUnmounted(mFolder);
  struct stat state {};
  if (!folder || ::fstat(folder.get(), &state) != 0) return failed(mFolder, errno);
  return Removal(state.st_dev, goesOn).remove(folder.get(), name, path);
}

}  // namespace corvana
