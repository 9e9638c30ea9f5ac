#include "ZANCocoaFramework/ZAN_FolderMirror.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <system_error>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

constexpr std::size_t kPiece = 64 * 1024;

Outcome failed(ErrorKind kind, const std::string& path, int code) {
  return Error{kind, path + ": " + std::generic_category().message(code)};
}

std::string realPath(const std::string& path) {
  const std::unique_ptr<char, decltype(&::free)> real(::realpath(path.c_str(), nullptr), ::free);
  return real ? std::string(real.get()) : path;
}

}  // namespace

struct ZAN_FolderMirror::Item {
  bool exists = false;
  mode_t type = 0;
  mode_t mode = 0;
  dev_t device = 0;
  struct timespec modified = {};

  bool isFolder() const { return S_ISDIR(type); }
  bool isFile() const { return S_ISREG(type); }
  bool hasDateOf(const Item& other) const {
    return modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec;
  }
};

int ZAN_FolderMirror::step(Step step, const std::string& path) const {
  return mHook ? mHook(step, path) : 0;
}

Result<ZAN_FolderMirror::Item> ZAN_FolderMirror::item(const std::string& path) const {
  int code = step(Step::readAttributes, path);
  struct stat status;
  if (code == 0 && ::lstat(path.c_str(), &status) != 0) code = errno;
  if (code == ENOENT) return Item{};
  if (code != 0) return failed(ErrorKind::unreadable, path, code).error();
  return Item{true, status.st_mode & S_IFMT, status.st_mode & 07777, status.st_dev, status.st_mtim};
}

Outcome ZAN_FolderMirror::mirror(const std::string& source, const std::string& destination) const {
  const std::string from = realPath(source);
  const std::string to = realPath(destination);
  if (ZAN_FilesUtils::isAtOrBelow(from, to) || ZAN_FilesUtils::isAtOrBelow(to, from)) {
    return Error{ErrorKind::refused, destination + ": it lies inside its own source or around it"};
  }
  // What a link points to is somebody else's folder, in which nothing may be removed.
  const auto target = item(destination);
  if (!target) return target.error();
  if (!target->isFolder()) return Error{ErrorKind::refused, destination + ": not a folder"};
  return mirrorFolder(source, destination);
}

Outcome ZAN_FolderMirror::mirrorFolder(const std::string& source,
                                       const std::string& destination) const {
  std::array<std::vector<std::string>, 2> names;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string& folder = i == 0 ? source : destination;
    if (const int code = step(Step::list, folder)) {
      return failed(ErrorKind::unreadable, folder, code);
    }
    auto list = ZAN_FilesUtils::listFolder(folder);
    if (!list) return list.error();
    names[i] = std::move(*list);
  }
  const auto here = item(destination);
  if (!here) return here.error();
  for (const std::string& name : names[1]) {
    if (std::binary_search(names[0].begin(), names[0].end(), name)) continue;
    if (const Outcome removed = remove(destination + "/" + name, here->device); !removed) {
      return removed;
    }
  }
  for (const std::string& name : names[0]) {
    const Outcome done = mirrorItem(source + "/" + name, destination + "/" + name);
    if (!done) return done;
  }
  return {};
}

Outcome ZAN_FolderMirror::mirrorItem(const std::string& source,
                                     const std::string& destination) const {
  const auto from = item(source);
  if (!from) return from.error();
  if (!from->exists) return failed(ErrorKind::absent, source, ENOENT);
  const auto to = item(destination);
  if (!to) return to.error();
  bool copy = !to->exists;
  if (to->exists && to->type != from->type) {
    if (const Outcome removed = remove(destination, to->device); !removed) return removed;
    copy = true;
  } else if (to->exists && from->isFile()) {
    copy = !to->hasDateOf(*from);
  }
  if (from->isFile() && copy) return copyFile(source, destination);
  if (!from->isFolder()) return {};
  if (copy) {
    int code = step(Step::createFolder, destination);
    if (code == 0 && ::mkdir(destination.c_str(), 0700) != 0) code = errno;
    if (code != 0) return failed(ErrorKind::unwritable, destination, code);
    (void)::chmod(destination.c_str(), from->mode | S_IRWXU);
  }
  return mirrorFolder(source, destination);
}

Outcome ZAN_FolderMirror::remove(const std::string& path, std::uint64_t device) const {
  const auto it = item(path);
  if (!it) return it.error();
  if (!it->exists) return {};
  if (it->device != device) return failed(ErrorKind::refused, path, EXDEV);
  if (it->isFolder()) {
    const auto names = ZAN_FilesUtils::listFolder(path);
    if (!names) return names.error();
    for (const std::string& name : *names) {
      if (const Outcome removed = remove(path + "/" + name, device); !removed) return removed;
    }
  }
  int code = step(Step::remove, path);
  if (code == 0 && (it->isFolder() ? ::rmdir(path.c_str()) : ::unlink(path.c_str())) != 0) {
    code = errno;
  }
  return code == 0 || code == ENOENT ? Outcome() : failed(ErrorKind::unwritable, path, code);
}

Outcome ZAN_FolderMirror::copyFile(const std::string& source,
                                   const std::string& destination) const {
  const ZAN_Descriptor from(::open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status;
  if (!from || ::fstat(from.get(), &status) != 0) {
    return failed(ErrorKind::unreadable, source, errno);
  }
  if (const Outcome removed = ZAN_FilesUtils::removeFile(destination); !removed) return removed;
  if (const int code = step(Step::copy, destination)) {
    return failed(ErrorKind::unwritable, destination, code);
  }
  ZAN_Descriptor to(
      ::open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!to) return failed(ErrorKind::unwritable, destination, errno);
  const int code = [&] {
    std::vector<char> piece(kPiece);
    for (;;) {
      if (const int hooked = step(Step::write, destination)) return hooked;
      const ssize_t count = ::read(from.get(), piece.data(), piece.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return errno;
      if (count == 0) break;
      for (ssize_t written = 0; written < count;) {
        const ssize_t more =
            ::write(to.get(), piece.data() + written, static_cast<std::size_t>(count - written));
        if (more < 0 && errno == EINTR) continue;
        if (more <= 0) return more < 0 ? errno : EIO;
        written += more;
      }
    }
    // Where attributes cannot be set the contents still count.
    (void)::fchmod(to.get(), status.st_mode & 07777);
    if (const auto info = ZAN_FilesUtils::finderInfo(source)) {
      (void)ZAN_FilesUtils::setFinderInfo(destination, *info);
    }
    // A file that bears the date of its source counts as copied.
    if (::fdatasync(to.get()) != 0 && errno != EINVAL) return errno;
    const struct timespec dates[2] = {status.st_atim, status.st_mtim};
    (void)::futimens(to.get(), dates);
    return to.close() == 0 ? 0 : errno;
  }();
  if (code == 0) return {};
  ::unlink(destination.c_str());
  return failed(ErrorKind::unwritable, destination, code);
}

}  // namespace corvana
