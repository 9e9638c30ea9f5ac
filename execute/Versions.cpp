#include "execute/Versions.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

constexpr std::size_t kBuffer = 1 << 16;
constexpr std::string_view kGoing = ".deleting";
constexpr int kMostRunsASecond = 100;

/// Sorts like the dates that they tell.
std::string nameOfRun(ReferenceTime time) {
  const auto seconds = static_cast<std::time_t>(time + kReferenceEpochInUnixTime);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H%M%SZ", &parts);
  return text.data();
}

bool isNameOfRun(std::string_view name) {
  constexpr std::string_view kForm = "dddd-dd-ddTddddddZ";
  if (name.size() < kForm.size()) return false;
  return std::ranges::equal(kForm, name.substr(0, kForm.size()), [](char form, char letter) {
    return form == 'd' ? letter >= '0' && letter <= '9' : form == letter;
  });
}

/// Without crossing a mount or following a link; what cannot be removed stays.
bool removeTree(int parent, const std::string& name) {
  if (::unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT) return true;
  if (errno != EISDIR && errno != EPERM) return false;
  {
    const ZAN_Descriptor folder = openFolderBelow(parent, name);
    if (!folder) return false;
    const auto names = namesInFolder(folder.get());
    if (!names) return false;
    bool isEmpty = true;
    for (const auto& entry : *names) isEmpty = removeTree(folder.get(), entry) && isEmpty;
    if (!isEmpty) return false;
  }
  return ::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT;
}

}  // namespace

NameList::NameList() : mFile(::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600)) {
  if (mFile) return;
  if (std::FILE* const file = std::tmpfile()) {
    mFile = ZAN_Descriptor(::fcntl(::fileno(file), F_DUPFD_CLOEXEC, 3));
    std::fclose(file);
  }
}

void NameList::add(const std::string& name) {
  ++mCount;
  if (!name.ends_with('/')) ++mFiles;
  mBuffer.append(name).push_back('\0');
  if (mBuffer.size() >= kBuffer) flush();
}

void NameList::flush() {
  for (std::size_t done = 0; done < mBuffer.size();) {
    const auto count = ::write(mFile.get(), mBuffer.data() + done, mBuffer.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      mIsWhole = false;
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  mBuffer.clear();
}

bool NameList::forEach(const std::function<bool(const std::string&)>& each) {
  flush();
  if (!mIsWhole || (mCount > 0 && ::lseek(mFile.get(), 0, SEEK_SET) != 0)) return false;
  std::string rest;
  std::string piece(kBuffer, '\0');
  for (;;) {
    const auto count = ::read(mFile.get(), piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    rest.append(piece, 0, static_cast<std::size_t>(count));
    std::size_t start = 0;
    for (std::size_t end; (end = rest.find('\0', start)) != std::string::npos; start = end + 1) {
      if (!each(rest.substr(start, end - start))) return true;
    }
    rest.erase(0, start);
  }
  return true;
}

Result<Versions> Versions::begin(const HeldFolder& destination, ReferenceTime now) {
  auto held = destination.again();
  if (!held) return held.error();
  auto all = destination.makeBelow(std::string(kName), 0700);
  if (!all) return all.error();
  const std::string first = nameOfRun(now);
  for (int number = 1; number <= kMostRunsASecond; ++number) {
    const std::string name = number == 1 ? first : first + "-" + std::to_string(number);
    if (::mkdirat(all->descriptor(), name.c_str(), 0700) == 0) {
      auto run = all->below(name);
      if (!run) return run.error();
      return Versions(*std::move(held), *std::move(all), *std::move(run), name);
    }
    if (errno != EEXIST) break;
  }
  return Error{ErrorKind::unwritable,
               ZAN_FilesUtils::joinedPath(all->path(), first) + ": " + std::strerror(errno)};
}

void Versions::end() {
  // Of a folder with something in it the system refuses both.
  const auto names = namesInFolder(mRun.descriptor());
  for (const auto& name : names.value_or(std::vector<std::string>()))
    ::unlinkat(mRun.descriptor(), name.c_str(), AT_REMOVEDIR);
  ::unlinkat(mAll.descriptor(), mName.c_str(), AT_REMOVEDIR);
  ::unlinkat(mDestination.descriptor(), std::string(kName).c_str(), AT_REMOVEDIR);
}

/// Oldest first.
std::vector<std::string> Versions::others() const {
  auto names = namesInFolder(mAll.descriptor()).value_or(std::vector<std::string>());
  std::erase_if(names, [&](const auto& name) { return !isNameOfRun(name) || name == mName; });
  std::ranges::sort(names);
  return names;
}

bool Versions::remove(const std::string& run) {
  // Half of a folder is not to be taken for a whole one.
  std::string going = run;
  if (!run.ends_with(kGoing)) {
    going += kGoing;
    if (::renameat(mAll.descriptor(), run.c_str(), mAll.descriptor(), going.c_str()) != 0)
      return false;
  }
  return removeTree(mAll.descriptor(), going);
}

void Versions::thin(ReferenceTime now) {
  const std::string oldest = nameOfRun(now - kKept);
  for (const auto& run : others()) {
    if (run < oldest || run.ends_with(kGoing)) remove(run);
  }
}

bool Versions::removeOldest() {
  for (const auto& run : others()) {
    if (remove(run)) return true;
  }
  return false;
}

namespace {

/// "a/b/c/" is "c" in "a/b".
std::pair<std::string, std::string> split(std::string_view name) {
  if (name.ends_with('/')) name.remove_suffix(1);
  const auto slash = name.rfind('/');
  if (slash == std::string_view::npos) return {std::string(), std::string(name)};
  return {std::string(name.substr(0, slash)), std::string(name.substr(slash + 1))};
}

/// Never over what is there already.
bool renamed(int from, int to, const std::string& item) {
  if (::renameat2(from, item.c_str(), to, item.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL) return false;
  struct stat state {};
  if (::fstatat(to, item.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0) {
    errno = EEXIST;
    return false;
  }
  return ::renameat(from, item.c_str(), to, item.c_str()) == 0;
}

}  // namespace

const Deletion::Parent& Deletion::parentOf(Parent& last, const HeldFolder& root,
                                           const std::string& name) {
  if (last.isKnown && last.name == name) return last;
  last.folder = openPathBelow(root.descriptor(), name, O_PATH | O_DIRECTORY);
  last.failure = last.folder ? 0 : errno;
  last.name = name;
  last.isKnown = true;
  return last;
}

bool Deletion::isGone(const std::string& name) {
  const auto [above, item] = split(name);
  const Parent& parent = parentOf(mSourceParent, mSource, above);
  // Without the folder above it, or with something else in its place, it is not there either.
  if (!parent.folder)
    return parent.failure == ENOENT || parent.failure == ENOTDIR || parent.failure == ELOOP;
  struct stat state {};
  return ::fstatat(parent.folder.get(), item.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0 &&
         errno == ENOENT;
}

bool Deletion::makeParentsAside(const std::string& parent) {
  for (std::size_t end = 0; end != std::string::npos;) {
    end = parent.find('/', end + 1);
    const auto [above, item] = split(parent.substr(0, end));
    const ZAN_Descriptor folder = openPathBelow(mAside.descriptor(), above, O_PATH | O_DIRECTORY);
    if (!folder || (::mkdirat(folder.get(), item.c_str(), 0700) != 0 && errno != EEXIST))
      return false;
  }
  mAsideParent.isKnown = false;
  return true;
}

Outcome Deletion::moveAside(const std::string& name) {
  const auto [above, item] = split(name);
  const auto failed = [&](int code) {
    return Error{ErrorKind::unwritable,
                 ZAN_FilesUtils::joinedPath(mCopy.path(), name) + ": " + std::strerror(code)};
  };
  const Parent& from = parentOf(mCopyParent, mCopy, above);
  if (!from.folder) {
    if (from.failure == ENOENT || from.failure == ENOTDIR || from.failure == ELOOP) return {};
    return failed(from.failure);
  }
  const Parent* to = &parentOf(mAsideParent, mAside, above);
  if (!to->folder) {
    if (!makeParentsAside(above)) return failed(errno);
    to = &parentOf(mAsideParent, mAside, above);
    if (!to->folder) return failed(to->failure);
  }
  if (name.ends_with('/')) {
    if (::unlinkat(from.folder.get(), item.c_str(), AT_REMOVEDIR) == 0) {
      ::mkdirat(to->folder.get(), item.c_str(), 0700);
      return {};
    }
    // What keeps it from going is said where that is dealt with.
    if (errno == ENOTEMPTY || errno == EEXIST || errno == ENOENT || errno == ENOTDIR) return {};
    return failed(errno);
  }
  if (renamed(from.folder.get(), to->folder.get(), item)) {
    ++mFiles;
    return {};
  }
  return errno == ENOENT ? Outcome() : failed(errno);
}

}  // namespace corvana
