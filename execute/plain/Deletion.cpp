#include "execute/plain/Deletion.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

bool isNothingThere(int code) { return code == ENOENT || code == ENOTDIR || code == ELOOP; }

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

bool Deletion::isGone(const std::string& name) {
  const auto [above, entry] = splitName(name);
  const int parent = mSourceFolders.open(above);
  // Without the folder above it, or with something else in its place, it is not there either.
  if (parent < 0) return isNothingThere(errno);
  struct stat state {};
  return ::fstatat(parent, entry.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT;
}

Outcome Deletion::moveAside(const std::string& name) {
  const auto [above, entry] = splitName(name);
  const auto failed = [&] {
    const int code = errno;
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
