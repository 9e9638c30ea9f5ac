#include "ZANCocoaFramework/ZAN_FileWriter.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <system_error>

namespace corvana {

namespace {

// Whoever edits again and again leaves short gaps; who looks seldom would miss them all.
constexpr double kPause = 0.002;
/// Held by whoever is the next to get the lock.
constexpr std::string_view kInFront = ".next";
constexpr double kLongestInFront = 0.5;

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
  double waited = 0;
  const auto counted = [&](double moment) {
    pause(moment);
    waited += moment;
  };
  ZAN_FileLock place;
  // One that was stopped in front keeps the others out for a moment only.
  if (seconds > 0) {
    auto inFront = take(path + std::string(kInFront), std::min(seconds, kLongestInFront), counted);
    if (inFront) place = *std::move(inFront);
  }
  return take(path, seconds - waited, pause);
}

Result<ZAN_FileLock> ZAN_FileLock::take(const std::string& path, double patience,
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
  for (;;) {
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
    if (patience <= 0) return Error{ErrorKind::unavailable, path + ": held by another program"};
    const double next = std::min(kPause, patience);
    pause(next);
    patience -= next;
  }
}

Result<ZAN_FileLock> ZAN_FileLock::adopt(std::optional<int> descriptor, const std::string& path) {
  ZAN_Descriptor file(descriptor.value_or(-1));
  struct stat own;
  struct stat wanted;
  if (!file || ::fstat(file.get(), &own) != 0 || ::stat(path.c_str(), &wanted) != 0 ||
      own.st_dev != wanted.st_dev || own.st_ino != wanted.st_ino ||
      ::flock(file.get(), LOCK_EX | LOCK_NB) != 0)
    return Error{ErrorKind::absent, path + ": no lock was left"};
  return ZAN_FileLock(std::move(file));
}

namespace {

constexpr std::size_t kPiece = 64 * 1024;
constexpr std::string_view kTemporarySuffix = ".corvana9-tmp";

std::string randomText() {
  std::uint64_t number = 0;
  while (::getrandom(&number, sizeof number, 0) != sizeof number) {
  }
  std::string text;
  for (int shift = 60; shift >= 0; shift -= 4) text += "0123456789abcdef"[(number >> shift) & 0xF];
  return text;
}

std::string folderOf(const std::string& path) {
  const std::string_view folder = ZAN_FilesUtils::parentPath(path);
  return folder.empty() ? "." : std::string(folder);
}

/// The file to be replaced: what a link points to when that exists, else the path itself.
std::string replacedPath(const std::string& path) {
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) return path;
  const std::unique_ptr<char, decltype(&::free)> real(::realpath(path.c_str(), nullptr), ::free);
  return real ? std::string(real.get()) : path;
}

/// Whoever writes a temporary file holds its lock, so one that can be locked has no writer any
/// more.
void removeIfAbandoned(const std::string& path) {
  const ZAN_Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (file && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) ::unlink(path.c_str());
}

/// Some file systems cannot synchronise a folder and need not.
bool synchronisedFolder(const std::string& path) {
  const ZAN_Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return !folder || ::fsync(folder.get()) == 0 || errno == EINVAL || errno == ENOTSUP ||
         errno == EROFS;
}

}  // namespace

ZAN_FileWriter::ZAN_FileWriter(std::string temporaryFolder, StepHook hook)
    : mTemporaryFolder(std::move(temporaryFolder)), mHook(std::move(hook)) {}

int ZAN_FileWriter::step(Step step, const std::string& path) const {
  return mHook ? mHook(step, path) : 0;
}

Outcome ZAN_FileWriter::write(const std::string& path, std::string_view text,
                              const Options& options) const {
  return write(path, std::as_bytes(std::span(text)), options);
}

Outcome ZAN_FileWriter::write(const std::string& path, std::span<const std::byte> bytes,
                              const Options& options) const {
  const std::string target = replacedPath(path);
  int code = EXDEV;
  if (!mTemporaryFolder.empty()) {
    const std::string name = randomText().append(kTemporarySuffix);
    code = writeVia(ZAN_FilesUtils::joinedPath(mTemporaryFolder, name), target, bytes, options);
  }
  if (code == EXDEV) {
    const std::string beside = ZAN_FilesUtils::joinedPath(
        folderOf(target),
        ZAN_FilesUtils::safeFileName(
            std::string(".").append(ZAN_FilesUtils::lastPathComponent(target)), kTemporarySuffix));
    removeIfAbandoned(beside);
    code = writeVia(beside, target, bytes, options);
    if (code == EEXIST) code = writeVia(beside + "-" + randomText(), target, bytes, options);
  }
  if (code == 0 && options.synchronise) {
    code = step(Step::synchroniseFolder, path);
    if (code == 0 && !synchronisedFolder(folderOf(target))) code = errno;
  }
  if (code == 0) return {};
  return Error{ErrorKind::unwritable, path + ": " + std::generic_category().message(code)};
}

int ZAN_FileWriter::writeVia(const std::string& temporary, const std::string& path,
                             std::span<const std::byte> bytes, const Options& options) const {
  const std::string folder = folderOf(temporary);
  if (folder == mTemporaryFolder) {
    if (!ZAN_FilesUtils::createFolder(folder, 0700)) return EXDEV;
    struct stat here;
    struct stat there;
    if (::stat(folder.c_str(), &here) != 0 || ::stat(folderOf(path).c_str(), &there) != 0)
      return errno;
    if (here.st_dev != there.st_dev) return EXDEV;
  }
  if (const int code = step(Step::createTemporary, path)) return code;
  ZAN_Descriptor file(
      ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666));
  if (!file)
    return folder == mTemporaryFolder && (errno == EACCES || errno == EROFS) ? EXDEV : errno;
  (void)::flock(file.get(), LOCK_EX | LOCK_NB);

  const int code = [&] {
    std::span<const std::byte> rest = bytes;
    while (!rest.empty()) {
      if (const int failed = step(Step::write, path)) return failed;
      const std::size_t piece = std::min(kPiece, rest.size());
      const ssize_t count = ::write(file.get(), rest.data(), piece);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return count < 0 ? errno : EIO;
      rest = rest.subspan(static_cast<std::size_t>(count));
    }
    if (const int failed = step(Step::setAttributes, path)) return failed;
    // Where attributes cannot be set the contents still count.
    struct stat status;
    if (options.attributes.mode) {
      (void)::fchmod(file.get(), *options.attributes.mode);
    } else if (::stat(path.c_str(), &status) == 0) {
      (void)::fchmod(file.get(), status.st_mode & 07777);
    }
    if (options.attributes.finderInfo) {
      const ZAN_FinderInfoBytes info = bytesOfFinderInfo(*options.attributes.finderInfo);
      (void)::fsetxattr(file.get(), kFinderInfoAttribute, info.data(), info.size(), 0);
    }
    if (options.synchronise) {
      if (const int failed = step(Step::synchronise, path)) return failed;
      if (::fsync(file.get()) != 0) return errno;
    }
    if (const int failed = step(Step::rename, path)) return failed;
    return ::rename(temporary.c_str(), path.c_str()) == 0 ? 0 : errno;
  }();
  if (code != 0) {
    ::unlink(temporary.c_str());
    return code;
  }
  return 0;
}

void ZAN_FileWriter::removeLeftOvers() const {
  if (mTemporaryFolder.empty()) return;
  const auto names = ZAN_FilesUtils::listFolder(mTemporaryFolder);
  if (!names) return;
  for (const std::string& name : *names) {
    if (std::string_view(name).ends_with(kTemporarySuffix)) {
      removeIfAbandoned(ZAN_FilesUtils::joinedPath(mTemporaryFolder, name));
    }
  }
}

}  // namespace corvana
