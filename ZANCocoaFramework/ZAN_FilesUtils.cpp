#include "ZANCocoaFramework/ZAN_FilesUtils.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cmath>
#include <memory>
#include <system_error>

#include "ZANCocoaFramework/ZAN_Descriptor.h"

namespace corvana {

namespace {

constexpr std::size_t kLongestName = 255;

Error failure(ErrorKind kind, std::string_view path, int code) {
  if (code == ENOENT || code == ENOTDIR) kind = ErrorKind::absent;
  return Error{kind, std::string(path) + ": " + std::generic_category().message(code)};
}

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

ZAN_FileIdentity identityOf(const struct stat& status) {
  return {.device = status.st_dev,
          .inode = status.st_ino,
          .modified = std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec,
          .size = static_cast<std::uint64_t>(status.st_size)};
}

std::string_view cutOnCodePoint(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80) --limit;
  return text.substr(0, limit);
}

Result<ZAN_Descriptor> openForReading(const std::string& path, struct stat& status) {
  // Without O_NONBLOCK, opening a pipe that somebody put in the file's place would wait for ever.
  ZAN_Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file || ::fstat(file.get(), &status) != 0)
    return failure(ErrorKind::unreadable, path, errno);
  if (!S_ISREG(status.st_mode)) return Error{ErrorKind::unreadable, path + ": not a file"};
  return file;
}

}  // namespace

std::string_view ZAN_FilesUtils::lastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  if (path == "/") return path;
  return path.substr(path.rfind('/') + 1);
}

std::string_view ZAN_FilesUtils::parentPath(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  return slash == 0 ? path.substr(0, 1) : withoutTrailingSlashes(path.substr(0, slash));
}

std::string_view ZAN_FilesUtils::pathExtension(std::string_view path) {
  const std::string_view name = lastPathComponent(path);
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos || dot == 0 ? std::string_view{} : name.substr(dot + 1);
}

std::string_view ZAN_FilesUtils::pathWithoutExtension(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::string_view name = lastPathComponent(path);
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos || dot == 0
             ? path
             : path.substr(0, path.size() - (name.size() - dot));
}

std::string_view ZAN_FilesUtils::nameWithoutExtension(std::string_view path) {
  return pathWithoutExtension(lastPathComponent(path));
}

std::optional<std::string_view> ZAN_FilesUtils::relativePath(std::string_view path,
                                                             std::string_view folder) {
  path = withoutTrailingSlashes(path);
  folder = withoutTrailingSlashes(folder);
  if (folder.empty() || !path.starts_with(folder)) return std::nullopt;
  path.remove_prefix(folder.size());
  if (!path.empty() && folder != "/" && path.front() != '/') return std::nullopt;
  path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
  return path;
}

bool ZAN_FilesUtils::isAtOrBelow(std::string_view path, std::string_view folder) {
  return relativePath(path, folder).has_value();
}

bool ZAN_FilesUtils::isBelow(std::string_view path, std::string_view folder) {
  return !relativePath(path, folder).value_or("").empty();
}

std::string ZAN_FilesUtils::joinedPath(std::string_view folder, std::string_view name) {
  if (folder.empty()) return std::string(name);
  if (name.empty()) return std::string(folder);
  std::string path(withoutTrailingSlashes(folder));
  if (path.back() != '/') path += '/';
  while (!name.empty() && name.front() == '/') name.remove_prefix(1);
  return path.append(name);
}

std::string ZAN_FilesUtils::safeFileName(std::string_view name, std::string_view suffix) {
  std::string safe;
  for (const char c : name) {
    if (c != '\0') safe += c == '/' ? ':' : c;
  }
  if (suffix.empty() && (safe == "." || safe == "..")) safe.assign(safe.size(), '_');
  const std::size_t room = kLongestName - std::min(kLongestName, suffix.size());
  return std::string(cutOnCodePoint(safe, room)).append(suffix);
}

bool ZAN_FilesUtils::exists(const std::string& path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0;
}

bool ZAN_FilesUtils::isFolder(const std::string& path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::optional<ZAN_FileIdentity> ZAN_FilesUtils::identity(const std::string& path) {
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return {};
  return identityOf(status);
}

std::optional<ReferenceTime> ZAN_FilesUtils::modificationDate(const std::string& path) {
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return {};
  return static_cast<double>(status.st_mtim.tv_sec) - kReferenceEpochInUnixTime +
         static_cast<double>(status.st_mtim.tv_nsec) / 1e9;
}

Outcome ZAN_FilesUtils::setModificationDate(const std::string& path, ReferenceTime date) {
  const double unixTime = date + kReferenceEpochInUnixTime;
  const double whole = std::floor(unixTime);
  const struct timespec modified = {static_cast<time_t>(whole),
                                    static_cast<long>((unixTime - whole) * 1e9)};
  const struct timespec dates[2] = {{0, UTIME_OMIT}, modified};
  if (::utimensat(AT_FDCWD, path.c_str(), dates, 0) == 0) return {};
  return failure(ErrorKind::unwritable, path, errno);
}

Result<ZAN_FileContents> ZAN_FilesUtils::readFile(const std::string& path, std::uint64_t limit) {
  struct stat status;
  const auto opened = openForReading(path, status);
  if (!opened) return opened.error();
  const ZAN_Descriptor& file = *opened;
  const Error tooLarge{ErrorKind::limit, path + ": too large"};
  if (static_cast<std::uint64_t>(status.st_size) > limit) return tooLarge;

  ZAN_FileContents contents{.bytes = {}, .identity = identityOf(status)};
  std::string& bytes = contents.bytes;
  // One byte more than the file holds, so that its end is seen without another round.
  bytes.resize(static_cast<std::size_t>(status.st_size) + 1);
  std::size_t length = 0;
  for (;;) {
    if (length == bytes.size()) {
      if (length > limit) return tooLarge;
      bytes.resize(length * 2);
    }
    const ssize_t count = ::read(file.get(), bytes.data() + length, bytes.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return failure(ErrorKind::unreadable, path, errno);
    if (count == 0) break;
    length += static_cast<std::size_t>(count);
  }
  if (length > limit) return tooLarge;
  bytes.resize(length);
  return contents;
}

Result<std::string> ZAN_FilesUtils::readBeginning(const std::string& path, std::size_t most) {
  struct stat status;
  const auto file = openForReading(path, status);
  if (!file) return file.error();
  std::string bytes(std::min(most, static_cast<std::size_t>(status.st_size)), '\0');
  std::size_t length = 0;
  while (length < bytes.size()) {
    const ssize_t count = ::read(file->get(), bytes.data() + length, bytes.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return failure(ErrorKind::unreadable, path, errno);
    if (count == 0) break;
    length += static_cast<std::size_t>(count);
  }
  bytes.resize(length);
  return bytes;
}

Outcome ZAN_FilesUtils::appendToFile(const std::string& path, std::string_view text,
                                     bool synchronise) {
  ZAN_Descriptor file(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
  if (!file) return failure(ErrorKind::unwritable, path, errno);
  while (!text.empty()) {
    const ssize_t count = ::write(file.get(), text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return failure(ErrorKind::unwritable, path, errno);
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  if (synchronise && ::fsync(file.get()) != 0) return failure(ErrorKind::unwritable, path, errno);
  if (file.close() != 0) return failure(ErrorKind::unwritable, path, errno);
  return {};
}

Outcome ZAN_FilesUtils::createFolder(const std::string& path, unsigned mode) {
  // A mode that was asked for holds whatever the umask takes away.
  const auto made = [&] {
    return ::mkdir(path.c_str(), mode) == 0 && (mode == 0777 || ::chmod(path.c_str(), mode) == 0);
  };
  if (made()) return {};
  int code = errno;
  if (code == ENOENT) {
    const std::string parent(parentPath(path));
    if (!parent.empty() && parent != path) {
      // Nobody enters a closed folder, so nobody needs to pass those that are made around it.
      const Outcome above = createFolder(parent, mode);
      if (!above) return above;
      if (made()) return {};
      code = errno;
    }
  }
  if (code == EEXIST && isFolder(path)) return {};
  return Error{ErrorKind::unwritable, path + ": " + std::generic_category().message(code)};
}

Outcome ZAN_FilesUtils::removeFile(const std::string& path) {
  if (::unlink(path.c_str()) == 0 || errno == ENOENT) return {};
  return failure(ErrorKind::unwritable, path, errno);
}

Outcome ZAN_FilesUtils::renameFile(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) == 0) return {};
  return failure(ErrorKind::unwritable, from, errno);
}

Result<std::vector<std::string>> ZAN_FilesUtils::listFolder(const std::string& path) {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path.c_str()), ::closedir);
  if (!folder) return failure(ErrorKind::unreadable, path, errno);
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) return failure(ErrorKind::unreadable, path, errno);
  std::sort(names.begin(), names.end());
  return names;
}

std::optional<ZAN_FinderInfo> ZAN_FilesUtils::finderInfo(const std::string& path) {
  ZAN_FinderInfoBytes bytes{};
  const ssize_t size = ::getxattr(path.c_str(), kFinderInfoAttribute, bytes.data(), bytes.size());
  if (size != static_cast<ssize_t>(bytes.size())) return {};
  return finderInfoOfBytes(bytes);
}

Outcome ZAN_FilesUtils::setFinderInfo(const std::string& path, const ZAN_FinderInfo& info) {
  const ZAN_FinderInfoBytes bytes = bytesOfFinderInfo(info);
  if (::setxattr(path.c_str(), kFinderInfoAttribute, bytes.data(), bytes.size(), 0) == 0) return {};
  return failure(ErrorKind::unwritable, path, errno);
}

}  // namespace corvana
