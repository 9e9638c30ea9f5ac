#include "ZANCocoaFramework/ZAN_FolderMirror.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <system_error>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

constexpr std::size_t kPiece = 64 * 1024;
constexpr std::string_view kTemporary = ".corvana9-tmp";

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

Outcome ZAN_FolderMirror::mayMirror(const std::string& source, const std::string& destination) {
  const std::string from = realPath(source);
  const std::string to = realPath(destination);
  const std::string around = realPath(std::string(ZAN_FilesUtils::parentPath(destination)));
  if (ZAN_FilesUtils::isAtOrBelow(from, to) || ZAN_FilesUtils::isAtOrBelow(to, from) ||
      ZAN_FilesUtils::isAtOrBelow(around, from)) {
    return Error{ErrorKind::refused, destination + ": it lies inside its own source or around it"};
  }
  // What a link points to is somebody else's folder, in which nothing may be removed.
  struct stat status;
  if (::lstat(destination.c_str(), &status) == 0 && !S_ISDIR(status.st_mode))
    return Error{ErrorKind::refused, destination + ": not a folder"};
  return {};
}

Outcome ZAN_FolderMirror::mirror(const std::string& source, const std::string& destination) const {
  if (const Outcome may = mayMirror(source, destination); !may) return may;
  const auto target = item(destination);
  if (!target) return target.error();
  if (!target->isFolder()) return failed(ErrorKind::absent, destination, ENOENT);
  mRoot = destination;
  mRefused.clear();
  if (const Outcome copied = copyFolder(source, destination); !copied) return copied;
  if (const Outcome removed = removeExtras(source, destination); !removed) return removed;
  if (!mRefused.empty()) return Error{ErrorKind::damaged, mRefused};
  return {};
}

bool ZAN_FolderMirror::isSpared(const std::string& path) const {
  return ZAN_FilesUtils::parentPath(path) == mRoot &&
         std::ranges::find(mOptions.spared, ZAN_FilesUtils::lastPathComponent(path)) !=
             mOptions.spared.end();
}

Outcome ZAN_FolderMirror::copyFolder(const std::string& source,
                                     const std::string& destination) const {
  if (mOptions.closed) (void)::chmod(destination.c_str(), S_IRWXU);
  if (const int code = step(Step::list, source)) return failed(ErrorKind::unreadable, source, code);
  const auto names = ZAN_FilesUtils::listFolder(source);
  if (!names) return names.error();
  for (const std::string& name : *names) {
    const Outcome done = mirrorItem(source + "/" + name, destination + "/" + name);
    if (!done) return done;
  }
  return {};
}

Outcome ZAN_FolderMirror::removeExtras(const std::string& source,
                                       const std::string& destination) const {
  if (const int code = step(Step::list, destination))
    return failed(ErrorKind::unreadable, destination, code);
  const auto names = ZAN_FilesUtils::listFolder(destination);
  if (!names) return names.error();
  const auto here = item(destination);
  if (!here) return here.error();
  for (const std::string& name : *names) {
    const std::string path = destination + "/" + name;
    if (isSpared(path)) continue;
    const auto from = item(source + "/" + name);
    if (!from) return from.error();
    if (!from->exists) {
      if (const Outcome removed = putAway(path, here->device); !removed) return removed;
    } else if (from->isFolder()) {
      if (const Outcome done = removeExtras(source + "/" + name, path); !done) return done;
    }
  }
  return {};
}

Outcome ZAN_FolderMirror::mirrorItem(const std::string& source,
                                     const std::string& destination) const {
  const auto from = item(source);
  if (!from) return from.error();
  if (!from->exists || isSpared(destination)) return {};
  const auto to = item(destination);
  if (!to) return to.error();
  bool copy = !to->exists;
  if (to->exists && to->type != from->type) {
    if (const Outcome removed = putAway(destination, to->device); !removed) return removed;
    copy = true;
  } else if (to->exists && from->isFile()) {
    copy = !to->hasDateOf(*from);
    if (!copy && mOptions.closed && (to->mode & (S_IRWXG | S_IRWXO)) != 0)
      (void)::chmod(destination.c_str(), to->mode & S_IRWXU);
  }
  if (from->isFile() && copy) return copyFile(source, destination);
  if (!from->isFolder()) return {};
  if (copy) {
    int code = step(Step::createFolder, destination);
    if (code == 0 && ::mkdir(destination.c_str(), 0700) != 0) code = errno;
    if (code != 0) return failed(ErrorKind::unwritable, destination, code);
    if (!mOptions.closed) (void)::chmod(destination.c_str(), from->mode | S_IRWXU);
  }
  return copyFolder(source, destination);
}

/// What has an earlier version of today already goes.
Outcome ZAN_FolderMirror::putAway(const std::string& path, std::uint64_t device) const {
  if (mOptions.earlier.empty()) return remove(path, device);
  const std::string kept = mOptions.earlier + path.substr(mRoot.size());
  struct stat status;
  if (::lstat(kept.c_str(), &status) == 0) return remove(path, device);
  if (const int code = step(Step::remove, path)) return failed(ErrorKind::unwritable, path, code);
  const Outcome folder =
      ZAN_FilesUtils::createFolder(std::string(ZAN_FilesUtils::parentPath(kept)), 0700);
  if (!folder) return folder;
  if (::rename(path.c_str(), kept.c_str()) == 0 || errno == ENOENT) return {};
  return remove(path, device);
}

Outcome ZAN_FolderMirror::removeFolder(const std::string& path) const {
  const auto it = item(path);
  return it ? remove(path, it->device) : Outcome(it.error());
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
  std::optional<std::string> contents;
  if (mOptions.contents) {
    auto wanted = mOptions.contents(source, destination);
    if (!wanted) {
      if (mRefused.empty()) mRefused = wanted.error().text;
      return {};
    }
    contents = std::move(*wanted);
  }
  const ZAN_Descriptor from(::open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status;
  if (!from || ::fstat(from.get(), &status) != 0) {
    return failed(ErrorKind::unreadable, source, errno);
  }
  if (const int code = step(Step::copy, destination)) {
    return failed(ErrorKind::unwritable, destination, code);
  }
  const std::string temporary = destination + std::string(kTemporary);
  ::unlink(temporary.c_str());
  ZAN_Descriptor to(
      ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!to) return failed(ErrorKind::unwritable, destination, errno);
  const auto write = [&](std::string_view bytes) {
    while (!bytes.empty()) {
      if (const int hooked = step(Step::write, destination)) return hooked;
      const ssize_t more = ::write(to.get(), bytes.data(), std::min(bytes.size(), kPiece));
      if (more < 0 && errno == EINTR) continue;
      if (more <= 0) return more < 0 ? errno : EIO;
      bytes.remove_prefix(static_cast<std::size_t>(more));
    }
    return 0;
  };
  const int code = [&] {
    std::vector<char> piece(contents ? 0 : kPiece);
    if (contents) {
      if (const int failed = write(*contents)) return failed;
    }
    while (!contents) {
      const ssize_t count = ::read(from.get(), piece.data(), piece.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return errno;
      if (count == 0) break;
      if (const int failed = write({piece.data(), static_cast<std::size_t>(count)})) return failed;
    }
    // Where attributes cannot be set the contents still count.
    const mode_t rights = mOptions.closed ? status.st_mode & S_IRWXU : status.st_mode & 07777;
    (void)::fchmod(to.get(), rights);
    if (const auto info = ZAN_FilesUtils::finderInfo(source)) {
      (void)ZAN_FilesUtils::setFinderInfo(temporary, *info);
    }
    // A file that bears the date of its source counts as copied.
    if (::fdatasync(to.get()) != 0 && errno != EINVAL) return errno;
    const struct timespec dates[2] = {status.st_atim, status.st_mtim};
    (void)::futimens(to.get(), dates);
    if (to.close() != 0) return errno;
    if (!mOptions.earlier.empty()) {
      const auto old = item(destination);
      if (old && old->exists && !putAway(destination, old->device)) return EIO;
    }
    return ::rename(temporary.c_str(), destination.c_str()) == 0 ? 0 : errno;
  }();
  if (code == 0) return {};
  ::unlink(temporary.c_str());
  return failed(ErrorKind::unwritable, destination, code);
}

}  // namespace corvana
