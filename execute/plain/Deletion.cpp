#include "execute/plain/Deletion.h"

#include <fcntl.h>
#include <linux/stat.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "execute/engine/Words.h"

namespace corvana {

namespace {

constexpr std::array kOfTheDisk{EIO, EROFS, ENODEV, ENXIO, ESTALE, ENOTCONN, ETIMEDOUT};

std::string userName(uid_t user) {
  constexpr std::size_t kRoom = 4096;
  std::array<char, kRoom> room{};
  passwd entry{};
  passwd* found = nullptr;
  ::getpwuid_r(user, &entry, room.data(), room.size(), &found);
  return found ? "the user \"" + std::string(found->pw_name) + "\""
               : "the user with the number " + std::to_string(user);
}

/// Leaves a folder the time that it was given by what was copied.
class KeptTime {
 public:
  explicit KeptTime(int folder) : mPath("/proc/self/fd/" + std::to_string(folder)) {
    mIsKnown = ::stat(mPath.c_str(), &mState) == 0;
  }
  KeptTime(const KeptTime&) = delete;
  KeptTime& operator=(const KeptTime&) = delete;
  ~KeptTime() {
    const std::array times{mState.st_atim, mState.st_mtim};
    if (mIsKnown) ::utimensat(AT_FDCWD, mPath.c_str(), times.data(), 0);
  }

 private:
  std::string mPath;
  struct stat mState {};
  bool mIsKnown = false;
};

}  // namespace

std::string hindrance(const HeldFolder& folder, const std::string& name) {
  // What it is, and then the folder in which it has its name.
  for (const std::string& item : {name, splitName(name).first}) {
    const ZAN_Descriptor held = openPathBelow(folder.descriptor(), item, O_PATH);
    struct statx state {};
    if (!held || ::statx(held.get(), "", AT_EMPTY_PATH, STATX_UID, &state) != 0) continue;
    const std::string path = ZAN_FilesUtils::joinedPath(folder.path(), item);
    const bool isFixed = (state.stx_attributes & STATX_ATTR_IMMUTABLE) != 0;
    if (isFixed || (state.stx_attributes & STATX_ATTR_APPEND) != 0)
      return "; it is protected from changes, which ends with: sudo chattr " +
             std::string(isFixed ? "-i " : "-a ") + shellWord(path);
    const uid_t self = ::geteuid();
    if (self != 0 && state.stx_uid != self)
      return "; " + path + " belongs to " + userName(state.stx_uid) +
             ": have it given to you (chown), or choose a folder of your own as the destination";
  }
  return {};
}

std::optional<bool> Deletion::isGone(const std::string& name) {
  const auto [above, entry] = splitName(name);
  const int parent = mSourceFolders.open(above);
  // Without the folder above it, or with something else in its place, it is not there either.
  struct stat state {};
  if (parent >= 0 && ::fstatat(parent, entry.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0)
    return false;
  return isNothingThere(errno) ? std::optional(true) : std::nullopt;
}

Outcome Deletion::moveAside(const std::string& name) {
  const auto [above, entry] = splitName(name);
  const auto failed = [&] {
    const int code = errno;
    mIsDiskFailing = std::ranges::find(kOfTheDisk, code) != kOfTheDisk.end();
    return Error{ErrorKind::unwritable,
                 ZAN_FilesUtils::joinedPath(mCopy.path(), name) + ": " + std::strerror(code)};
  };
  const int from = mCopyFolders.open(above);
  if (from < 0) return isNothingThere(errno) ? Outcome() : failed();
  const KeptTime kept(from);
  if (name.ends_with('/')) {
    if (::unlinkat(from, entry.c_str(), AT_REMOVEDIR) == 0) return {};
    // What keeps it from going is said where that is dealt with.
    if (errno == ENOTEMPTY || errno == EEXIST || errno == ENOENT || errno == ENOTDIR) return {};
    return failed();
  }
  if (!mKeeps) {
    if (::unlinkat(from, entry.c_str(), 0) != 0) return errno == ENOENT ? Outcome() : failed();
    ++mFiles;
    return {};
  }
  const int to = mAsideFolders.make(above);
  if (to < 0) return failed();
  if (renameBeside(from, to, entry)) {
    ++mFiles;
    return {};
  }
  return errno == ENOENT ? Outcome() : failed();
}

}  // namespace corvana
