#include "ZANCocoaFramework/ZAN_FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

constexpr double kPause = 0.02;

ZAN_Descriptor openLockFile(const std::string& path) {
  ZAN_Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  // A program that runs with more rights may have made it.
  if (!file && errno == EACCES) {
    file = ZAN_Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  }
  return file;
}

}  // namespace

Result<ZAN_FileLock> ZAN_FileLock::acquire(const std::string& path, double seconds,
                                           const std::function<void(double)>& pause) {
  ZAN_Descriptor file = openLockFile(path);
  if (!file && errno == ENOENT) {
    const Outcome folder =
        ZAN_FilesUtils::createFolder(std::string(ZAN_FilesUtils::parentPath(path)), 0700);
    if (!folder) return folder.error();
    file = openLockFile(path);
  }
  const auto failed = [&](ErrorKind kind) {
    return Error{kind, path + ": " + std::generic_category().message(errno)};
  };
  if (!file) return failed(ErrorKind::unwritable);
  for (double waited = 0;;) {
    if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
      // A file that only its maker may open would keep the user's own programs out.
      struct stat status;
      if (::fstat(file.get(), &status) == 0 && (status.st_mode & 0777) != 0666) {
        (void)::fchmod(file.get(), 0666);
      }
      return ZAN_FileLock(std::move(file));
    }
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK) return failed(ErrorKind::unwritable);
    if (waited >= seconds) return Error{ErrorKind::unavailable, path + ": held by another program"};
    const double next = std::min(kPause, seconds - waited);
    pause(next);
    waited += next;
  }
}

}  // namespace corvana
