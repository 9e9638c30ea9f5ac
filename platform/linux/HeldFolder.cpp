#include "platform/linux/HeldFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/linux/MountTable.h"

namespace corvana {

namespace {

constexpr int kReading = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
constexpr int kHolding = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

constexpr std::uint64_t kOnTheSameMount =
    RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_BENEATH;

/// By which mount an open folder was reached; kernels before 5.8 tell it here only.
std::optional<std::uint64_t> mountOf(int descriptor) {
  const std::string path = "/proc/self/fdinfo/" + std::to_string(descriptor);
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "re"), &std::fclose);
  if (!file) return std::nullopt;
  std::array<char, 256> line{};
  while (std::fgets(line.data(), line.size(), file.get())) {
    std::string_view text(line.data());
    if (!text.starts_with("mnt_id:")) continue;
    text.remove_prefix(std::min(text.find_first_of("0123456789"), text.size()));
    std::uint64_t id = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), id).ec == std::errc()) return id;
  }
  return std::nullopt;
}

ZAN_Descriptor openBelow(int parent, const std::string& name, int flags) {
  open_how how{};
  how.flags = static_cast<std::uint64_t>(flags);
  how.resolve = kOnTheSameMount;
  const long opened = ::syscall(SYS_openat2, parent, name.c_str(), &how, sizeof how);
  if (opened >= 0 || errno != ENOSYS) return ZAN_Descriptor(static_cast<int>(opened));
  ZAN_Descriptor descriptor(::openat(parent, name.c_str(), flags));
  if (!descriptor) return descriptor;
  const auto mount = mountOf(descriptor.get());
  if (!mount || mount != mountOf(parent)) {
    descriptor.close();
    errno = EXDEV;
  }
  return descriptor;
}

Error openingFailed(const std::string& path) {
  switch (errno) {
    case ENOENT:
      return {ErrorKind::absent, path + ": " + std::strerror(ENOENT)};
    case ELOOP:
      return {ErrorKind::refused, path + ": a link"};
    case EXDEV:
      return {ErrorKind::refused, path + ": another volume is mounted there"};
    case ENOTDIR:
      return {ErrorKind::refused, path + ": not a folder"};
    default:
      return {ErrorKind::unreadable, path + ": " + std::strerror(errno)};
  }
}

}  // namespace

ZAN_Descriptor openFolderBelow(int parent, const std::string& name) {
  return openBelow(parent, name, kReading);
}

ZAN_Descriptor openPathBelow(int folder, const std::string& relative, int flags) {
  const std::string path = relative.empty() ? "." : relative;
  open_how how{};
  how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC | O_NOFOLLOW);
  how.resolve = kOnTheSameMount;
  return ZAN_Descriptor(
      static_cast<int>(::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how)));
}

std::optional<std::vector<std::string>> namesInFolder(int folder) {
  ZAN_Descriptor own(::openat(folder, ".", kReading));
  if (!own) return std::nullopt;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(own.get()), &::closedir);
  if (!stream) return std::nullopt;
  own.release();
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

MountsNow::MountsNow() : mTable(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC)) {}

const std::vector<Mount>& MountsNow::mounts() {
  pollfd changed{mTable.get(), POLLPRI, 0};
  const bool isOld = ::poll(&changed, 1, 0) != 0;
  if (!mWasRead || isOld || !mTable) mMounts = MountTable::read({});
  mWasRead = true;
  return mMounts;
}

const std::vector<Mount>& MountsNow::mountsReadAgain() {
  mounts();
  mMounts = MountTable::read({});
  return mMounts;
}

Result<HeldFolder> HeldFolder::held(ZAN_Descriptor descriptor, std::string path) {
  if (!descriptor) return openingFailed(path);
  HeldFolder folder(std::move(descriptor), std::move(path));
  const auto id = mountOf(folder.descriptor());
  for (auto& mount : MountTable::read({})) {
    if (id && mount.id == *id) {
      folder.mMount = std::move(mount);
      return folder;
    }
  }
  return Error{ErrorKind::absent, folder.mPath + ": its volume is not mounted any more"};
}

Result<HeldFolder> HeldFolder::open(const std::string& path) {
  return held(ZAN_Descriptor(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)), path);
}

Result<HeldFolder> HeldFolder::below(const std::string& name) const {
  ZAN_Descriptor descriptor = openBelow(mDescriptor.get(), name, kHolding);
  std::string path = ZAN_FilesUtils::joinedPath(mPath, name);
  // Without following, a link reads as no folder.
  struct stat state {};
  if (!descriptor && errno == ENOTDIR &&
      ::fstatat(mDescriptor.get(), name.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0) {
    errno = S_ISLNK(state.st_mode) ? ELOOP : ENOTDIR;
  }
  if (!descriptor) return openingFailed(path);
  HeldFolder folder(std::move(descriptor), std::move(path));
  folder.mMount = mMount;
  return folder;
}

Result<HeldFolder> HeldFolder::makeBelow(const std::string& name, unsigned mode) const {
  const std::string path = ZAN_FilesUtils::joinedPath(mPath, name);
  if (::mkdirat(mDescriptor.get(), name.c_str(), mode) != 0 && errno != EEXIST)
    return Error{ErrorKind::unwritable, path + ": " + std::strerror(errno)};
  return below(name);
}

Result<HeldFolder> HeldFolder::again() const {
  HeldFolder folder(ZAN_Descriptor(::fcntl(mDescriptor.get(), F_DUPFD_CLOEXEC, 3)), mPath);
  if (!folder.mDescriptor) return openingFailed(mPath);
  folder.mMount = mMount;
  return folder;
}

std::optional<std::string> HeldFolder::realPath() const {
  std::error_code failed;
  std::string path = std::filesystem::read_symlink(heldPath(), failed).string();
  struct stat state {};
  // Of a folder that was removed the system says so behind its name.
  if (failed || !path.starts_with('/') || ::fstat(mDescriptor.get(), &state) != 0 ||
      state.st_nlink == 0)
    return std::nullopt;
  return path;
}

std::optional<std::string> HeldFolder::pathOnDevice() const {
  const auto path = realPath();
  if (!path) return std::nullopt;
  const auto rest = ZAN_FilesUtils::relativePath(*path, mMount.target);
  if (!rest) return std::nullopt;
  return ZAN_FilesUtils::joinedPath(mMount.root, *rest);
}

bool HeldFolder::isMounted(const std::vector<Mount>& mounts) const {
  return std::ranges::any_of(mounts,
                             [&](const Mount& mount) { return mount.key() == mMount.key(); });
}

Outcome HeldFolder::answers() const {
  const ZAN_Descriptor folder(::openat(mDescriptor.get(), ".", kReading));
  struct stat state {};
  if (folder && ::fstat(folder.get(), &state) == 0) return {};
  // Not to be allowed to look is an answer, too.
  if (errno == EACCES) return {};
  return Error{ErrorKind::absent, mPath + ": " + std::strerror(errno)};
}

bool HeldFolder::isInPlace() const {
  struct stat now {};
  struct stat own {};
  return ::stat(mPath.c_str(), &now) == 0 && ::fstat(mDescriptor.get(), &own) == 0 &&
         now.st_dev == own.st_dev && now.st_ino == own.st_ino;
}

bool HeldFolder::isSameFolder(const HeldFolder& other) const {
  struct stat one {};
  struct stat two {};
  return ::fstat(mDescriptor.get(), &one) == 0 && ::fstat(other.mDescriptor.get(), &two) == 0 &&
         one.st_dev == two.st_dev && one.st_ino == two.st_ino;
}

}  // namespace corvana
