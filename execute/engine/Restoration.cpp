#include "execute/engine/Restoration.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "execute/engine/FileContents.h"

namespace corvana {

namespace {

const std::string kTemporary = ".corvana9-restoring";
using Kind = VersionItem::Kind;

std::array<timespec, 2> timesOf(const VersionItem& item) {
  const timespec time{static_cast<time_t>(item.seconds), static_cast<long>(item.nanoseconds)};
  return {time, time};
}

bool hasSameContents(int one, int two, const GoesOnWithin& goesOn) {
  const auto found = readTogether(one, two, goesOn);
  return found && found->first;
}

bool hasSameAttributes(const VersionItem& one, const VersionItem& two) {
  return one.kind == two.kind && one.mode == two.mode && one.user == two.user &&
         one.group == two.group && one.seconds == two.seconds &&
         one.nanoseconds == two.nanoseconds && one.size == two.size && one.target == two.target &&
         one.attributes == two.attributes;
}

/// A file system may keep less of the attributes than the version has: then what is there is as
/// good as what could be made.
bool isWhatIsThere(const VersionItem& there, int parent, const std::string& name,
                   const GoesOnWithin& goesOn) {
  if (there.kind != Kind::file) return false;
  const auto made = VersionItem::read(parent, kTemporary, there.name, true);
  const ZAN_Descriptor one = openPathBelow(parent, kTemporary, O_RDONLY | O_NONBLOCK);
  const ZAN_Descriptor two = openPathBelow(parent, name, O_RDONLY | O_NONBLOCK);
  return made && hasSameAttributes(there, *made) && one && two &&
         hasSameContents(one.get(), two.get(), goesOn);
}

std::string whyItFailed(int code) {
  // With ENOENT some refuse a name, too.
  if (code == ENOENT) return "its file system has no such names, or the folder has gone";
  const bool isOfName = code == EINVAL || code == EILSEQ || code == ENAMETOOLONG;
  return isOfName ? "its file system has no such names" : std::strerror(code);
}

}  // namespace

void Restoration::fail(const std::string& target, const std::string& why) {
  ++mCounts.failures;
  if (mHooks.failed) mHooks.failed(ZAN_FilesUtils::joinedPath(mTarget.path(), target) + ": " + why);
}

Result<Restoration::Counts> Restoration::count(const Wish& wish) const {
  Counts counts;
  counts.failures = wish.name.empty() ? 0 : 1;
  const Outcome read = mView.forEach(wish.name, [&](const VersionTree::Entry& entry) {
    counts.failures = 0;
    if (entry.item.kind == Kind::folder) return true;
    ++counts.files;
    counts.bytes += entry.item.size;
    return true;
  });
  if (!read) return read.error();
  return counts;
}

Outcome Restoration::perform(const Wish& wish) {
  bool goesOn = true;
  const Outcome read = mView.forEach(
      wish.name,
      [&](const VersionTree::Entry& entry) {
        const std::string rest = entry.item.name.substr(wish.name.size());
        const bool isInIt = wish.target == "." && !rest.empty();
        const std::string target = wish.target.empty() ? entry.item.name
                                   : isInIt            ? rest.substr(1)
                                                       : wish.target + rest;
        goesOn = !mHooks.goesOn ||
                 mHooks.goesOn(ZAN_FilesUtils::joinedPath(mTarget.path(), target), mCounts);
        if (goesOn) restore(entry, target);
        return goesOn && !mIsStopped;
      },
      [&](const std::string& name) { fail(name, std::strerror(errno)); });
  finishFolders({});
  return read;
}

/// Folders get their attributes when all is in them.
void Restoration::finishFolders(const std::string& target) {
  const auto isOpen = [&](const std::string& folder) {
    return !target.empty() && (folder == "." || isBelow(target, folder));
  };
  while (!mOpen.empty() && !isOpen(mOpen.back().target)) {
    const OpenFolder folder = std::move(mOpen.back());
    mOpen.pop_back();
    if (mOptions.onlyLooks) continue;
    const auto [above, name] = splitName(folder.target);
    const int parent = mFolders.open(above);
    if (parent >= 0) setAttributes(folder.item, parent, name, folder.target);
  }
}

/// Whether nothing stands in the way any more.
bool Restoration::clear(int parent, const std::string& name, const std::string& target,
                        bool isFolder) {
  // A folder may hold anything.
  if (mOptions.overwrites && !isFolder) return true;
  const auto isKept = [&](const std::string& as) {
    ++mCounts.kept;
    const std::string above = splitName(target).first;
    if (mHooks.done)
      mHooks.done(ZAN_FilesUtils::joinedPath(mTarget.path(), ZAN_FilesUtils::joinedPath(above, as)),
                  true);
    mFolders.forget();
    return true;
  };
  if (mOptions.onlyLooks) return isKept(name);
  for (int number = 1; number < 1000; ++number) {
    const std::string kept =
        name + mOptions.suffix + (number > 1 ? "-" + std::to_string(number) : "");
    if (::renameat2(parent, name.c_str(), parent, kept.c_str(), RENAME_NOREPLACE) == 0)
      return isKept(kept);
    struct stat state {};
    if (errno == EINVAL && ::fstatat(parent, kept.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0 &&
        ::renameat(parent, name.c_str(), parent, kept.c_str()) == 0)
      return isKept(kept);
    if (errno != EEXIST && errno != EINVAL && errno != 0) break;
  }
  fail(target, std::string("what stands in the way cannot be renamed: ") + std::strerror(errno));
  return false;
}

void Restoration::restore(const VersionTree::Entry& entry, const std::string& target) {
  finishFolders(target);
  const auto [above, name] = splitName(target);
  const VersionItem& item = entry.item;
  int parent = mOptions.onlyLooks ? mFolders.open(above) : mFolders.make(above);
  if (parent < 0) {
    if (mOptions.onlyLooks) {
      if (item.kind != Kind::folder) ++mCounts.files, mCounts.bytes += item.size;
      if (mHooks.done) mHooks.done(ZAN_FilesUtils::joinedPath(mTarget.path(), target), false);
    } else {
      fail(target,
           errno == ENOTDIR || errno == ELOOP
               ? "a file or a link stands where the folder was that it lay in; restore that "
                 "folder, or rename what stands there"
               : std::strerror(errno));
    }
    return;
  }
  const auto there = VersionItem::read(parent, name, target, true);
  if (!there) return fail(target, whyItFailed(errno));
  if (item.kind == Kind::folder) {
    mOpen.push_back({item, target});
    if (there->kind == Kind::folder) return;
    if (there->kind != Kind::none && !clear(parent, name, target, false)) return;
    if (mHooks.done) mHooks.done(ZAN_FilesUtils::joinedPath(mTarget.path(), target), false);
    if (mOptions.onlyLooks) return;
    parent = mFolders.open(above);
    // With --overwrite a file makes way for a folder.
    if (there->kind != Kind::none && mOptions.overwrites) ::unlinkat(parent, name.c_str(), 0);
    if (::mkdirat(parent, name.c_str(), 0700) != 0 && errno != EEXIST)
      return fail(target, whyItFailed(errno));
    return mFolders.forget();
  }
  restoreFile(entry, parent, name, target);
}

void Restoration::restoreFile(const VersionTree::Entry& entry, int parent, const std::string& name,
                              const std::string& target) {
  const VersionItem& item = entry.item;
  const auto goesOn = [&](std::uint64_t bytes) {
    Counts counts = mCounts;
    counts.bytes += bytes;
    mIsStopped =
        mHooks.goesOn && !mHooks.goesOn(ZAN_FilesUtils::joinedPath(mTarget.path(), target), counts);
    return !mIsStopped;
  };
  const auto goesOnComparing = [&](std::uint64_t /*bytes*/) { return goesOn(0); };
  const auto there = VersionItem::read(parent, name, item.name, true);
  ZAN_Descriptor source;
  if (item.kind == Kind::file) {
    source = openPathBelow(entry.holder->descriptor(), item.name, O_RDONLY | O_NONBLOCK);
    struct stat state {};
    if (!source || ::fstat(source.get(), &state) != 0) return fail(target, std::strerror(errno));
    if (!S_ISREG(state.st_mode) || static_cast<std::uint64_t>(state.st_size) != item.size)
      return fail(target, "the version's contents are not what they were; " + entry.holder->path() +
                              " was changed by somebody else");
    const auto key = std::pair(static_cast<std::uint64_t>(state.st_dev),
                               static_cast<std::uint64_t>(state.st_ino));
    if (state.st_nlink > 1 && !mOptions.onlyLooks) {
      const auto [linked, isNew] = mLinked.emplace(key, target);
      if (!isNew) {
        const auto [above, first] = splitName(linked->second);
        const ZAN_Descriptor folder =
            openPathBelow(mTarget.descriptor(), above, O_PATH | O_DIRECTORY);
        struct stat one {};
        struct stat two {};
        const bool isThere =
            folder && ::fstatat(folder.get(), first.c_str(), &one, AT_SYMLINK_NOFOLLOW) == 0;
        if (isThere && ::fstatat(parent, name.c_str(), &two, AT_SYMLINK_NOFOLLOW) == 0 &&
            one.st_ino == two.st_ino && one.st_dev == two.st_dev) {
          ++mCounts.same;
          return;
        }
        ::unlinkat(parent, kTemporary.c_str(), 0);
        if (isThere && ::linkat(folder.get(), first.c_str(), parent, kTemporary.c_str(), 0) == 0) {
          if (there && there->kind != Kind::none &&
              !clear(parent, name, target, there->kind == Kind::folder)) {
            ::unlinkat(parent, kTemporary.c_str(), 0);
            return;
          }
          parent = mFolders.open(splitName(target).first);
          if (::renameat(parent, kTemporary.c_str(), parent, name.c_str()) != 0)
            return fail(target, std::strerror(errno));
          ++mCounts.files;
          if (mHooks.done) mHooks.done(ZAN_FilesUtils::joinedPath(mTarget.path(), target), false);
          return;
        }
      }
    }
  }
  if (there && hasSameAttributes(*there, item)) {
    const ZAN_Descriptor now = item.kind == Kind::file
                                   ? openPathBelow(parent, name, O_RDONLY | O_NONBLOCK)
                                   : ZAN_Descriptor();
    if (item.kind == Kind::link || item.kind == Kind::other ||
        (now && hasSameContents(source.get(), now.get(), goesOnComparing))) {
      ++mCounts.same;
      return;
    }
    if (mIsStopped) return;
  }
  const bool isInTheWay = there && there->kind != Kind::none;
  if (mOptions.onlyLooks) {
    if (isInTheWay) clear(parent, name, target, there->kind == Kind::folder);
    ++mCounts.files;
    mCounts.bytes += item.size;
    if (mHooks.done) mHooks.done(ZAN_FilesUtils::joinedPath(mTarget.path(), target), false);
    return;
  }
  ::unlinkat(parent, kTemporary.c_str(), 0);
  if (item.kind == Kind::file && mOptions.moves) {
    const auto [above, entryName] = splitName(item.name);
    const ZAN_Descriptor holder =
        openPathBelow(entry.holder->descriptor(), above, O_PATH | O_DIRECTORY);
    if (!holder || ::renameat(holder.get(), entryName.c_str(), parent, kTemporary.c_str()) != 0)
      return fail(target, std::strerror(errno));
  } else if (item.kind == Kind::file) {
    const ZAN_Descriptor file(::openat(parent, kTemporary.c_str(),
                                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file || !copyContents(source.get(), file.get(), static_cast<off_t>(item.size), goesOn)) {
      const std::string why = std::strerror(errno);
      ::unlinkat(parent, kTemporary.c_str(), 0);
      if (!mIsStopped) fail(target, why);
      return;
    }
  } else if (item.kind == Kind::link) {
    if (::symlinkat(item.target.c_str(), parent, kTemporary.c_str()) != 0)
      return fail(target, errno == ENOSYS || errno == EPERM || errno == EOPNOTSUPP
                              ? "its file system has no links"
                              : std::strerror(errno));
  } else {
    errno = 0;
    makeNode(entry, parent, kTemporary);
    if (errno != 0) return fail(target, std::strerror(errno));
  }
  setAttributes(item, parent, kTemporary, target);
  const bool isSame = there && isWhatIsThere(*there, parent, name, goesOnComparing);
  if (isSame || mIsStopped) {
    ::unlinkat(parent, kTemporary.c_str(), 0);
    if (isSame) ++mCounts.same;
    return;
  }
  if (isInTheWay && !clear(parent, name, target, there->kind == Kind::folder)) {
    ::unlinkat(parent, kTemporary.c_str(), 0);
    return;
  }
  parent = mFolders.open(splitName(target).first);
  if (parent < 0 || ::renameat(parent, kTemporary.c_str(), parent, name.c_str()) != 0) {
    const std::string why = whyItFailed(errno);
    if (parent >= 0) ::unlinkat(parent, kTemporary.c_str(), 0);
    return fail(target, why);
  }
  ++mCounts.files;
  mCounts.bytes += item.size;
  if (mHooks.done) mHooks.done(ZAN_FilesUtils::joinedPath(mTarget.path(), target), false);
}

/// A pipe, socket or device like the one that was kept.
void Restoration::makeNode(const VersionTree::Entry& entry, int parent,
                           const std::string& temporary) {
  const auto [above, name] = splitName(entry.item.name);
  const ZAN_Descriptor folder =
      openPathBelow(entry.holder->descriptor(), above, O_PATH | O_DIRECTORY);
  struct stat state {};
  if (!folder || ::fstatat(folder.get(), name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0) return;
  if (::mknodat(parent, temporary.c_str(), (state.st_mode & S_IFMT) | 0600, state.st_rdev) == 0)
    errno = 0;
}

void Restoration::setAttributes(const VersionItem& item, int parent, const std::string& name,
                                const std::string& target) {
  // Only the owner of all may give files away; others restore what is theirs.
  const bool isRoot = ::geteuid() == 0;
  bool isSet = ::fchownat(parent, name.c_str(), item.user, item.group, AT_SYMLINK_NOFOLLOW) == 0 ||
               !isRoot || errno == EPERM;
  if (item.kind != Kind::link) {
    isSet = ::fchmodat(parent, name.c_str(), item.mode, 0) == 0 && isSet;
    const std::string path = "/proc/self/fd/" + std::to_string(parent) + "/" + name;
    const auto now = VersionItem::read(parent, name, target, true);
    for (const auto& [attribute, value] :
         now ? now->attributes : std::vector<std::pair<std::string, std::string>>()) {
      const auto wanted = [&attribute = attribute](const auto& other) {
        return other.first == attribute;
      };
      if (std::ranges::none_of(item.attributes, wanted))
        ::lremovexattr(path.c_str(), attribute.c_str());
    }
    for (const auto& [attribute, value] : item.attributes) {
      if (!isRoot && (attribute.starts_with("security.") || attribute.starts_with("trusted.")))
        continue;
      isSet =
          ::lsetxattr(path.c_str(), attribute.c_str(), value.data(), value.size(), 0) == 0 && isSet;
    }
  }
  const auto times = timesOf(item);
  isSet = ::utimensat(parent, name.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) == 0 && isSet;
  if (isSet || mSaidAttributes) return;
  mSaidAttributes = true;
  fail(target, std::string("its attributes cannot be kept there, nor those of others perhaps: ") +
                   std::strerror(errno));
}

}  // namespace corvana
