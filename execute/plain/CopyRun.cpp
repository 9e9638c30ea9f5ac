#include "execute/plain/CopyRun.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

/// rsync's exit code for a full disk, or another failure of reading and writing.
constexpr int kFull = 11;

}  // namespace

ExecuteEnd CopyRun::perform() {
  mBegun = m.clock.now();
  if (isInOrder() && openCopies() && lookAtAll() && makeRoom() &&
      std::ranges::all_of(mCopies, [this](Copy& copy) { return transfer(copy); }) && mMayDelete &&
      isAlive()) {
    std::ranges::all_of(mCopies, [this](Copy& copy) { return deleteFrom(copy); });
  }
  // After a failure, too: what was written before it may be lost with it.
  if (mHasWritten && (mEnd.isExecuted() || mEnd.code == ExecuteCode::unexpectedError)) isOnDisk();
  if (mVersions && mEnd.isExecuted()) finishVersion();
  mVersions.reset();
  finish();
  return mEnd;
}

/// What was written is in the memory of the system; only the disk itself can say that it took it.
bool CopyRun::isOnDisk() {
  RsyncOutput output;
  RsyncProcess::Task task{.arguments = {m.sync, "--file-system", mDestination->heldPath()},
                          .descriptors = {mDestination->descriptor()}};
  const auto end = run(std::move(task), output, [] {});
  if (end && !end->isGivenUp && !end->signalled && end->status == 0) return isInOrder();
  if (!isInOrder()) return false;
  mEnd.isDoubted = true;
  if (!mEnd.isExecuted()) return false;
  std::string cause = "the file system does not answer";
  if (!end) {
    cause = end.error().text;
  } else if (!output.errors().empty()) {
    const std::string& text = output.errors().front().text;
    cause = text.substr(text.rfind(": ") == std::string::npos ? 0 : text.rfind(": ") + 2);
  }
  return fail(ExecuteCode::unexpectedError,
              mPlan.destination() + ": the disk did not confirm what was written: " + cause +
                  "; the next run compares the contents of all files");
}

std::uint64_t CopyRun::freeSpace() const {
  struct statvfs space {};
  if (::fstatvfs(mDestination->descriptor(), &space) != 0) return 0;
  return static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
}

/// For what is still to be copied.
std::uint64_t CopyRun::roomWanted() const {
  const std::uint64_t done = mHoles + mRoomTaken;
  return mBytesToCopy - std::min(done, mBytesToCopy);
}

/// Older versions go before a copy does not find room.
bool CopyRun::makeRoom() {
  const bool hasWork = std::ranges::any_of(mCopies, [this](const Copy& copy) {
    return copy.hasWork || (mMayDelete && copy.deletions.count() > 0);
  });
  for (Copy& copy : mCopies) {
    for (const auto& left : copy.left) {
      const auto item = RsyncOutput::itemOfHalf(left);
      if (item && copy.largeItems.contains(*item)) HalfFiles::take(copy.folder, left, *item);
    }
  }
  if (!beginVersion(hasWork)) return false;
  if (hasWork) mVersions->makeRoom(roomWanted());
  return isInOrder();
}

VersionHeader CopyRun::version(ReferenceTime date) const {
  VersionHeader header{.machine = mOwner.mark.machine,
                       .home = mOwner.mark.home,
                       .reference = mOwner.mark.reference,
                       .title = mOwner.mark.title,
                       .date = date};
  for (const Copy& copy : mCopies) {
    header.files += copy.filesListed;
    header.bytes += copy.bytesListed;
    header.copies.push_back({copy.source.name, copy.source.path, copy.source.isFolder});
  }
  return header;
}

/// Notes what the run is going to change, and makes the folders that take it in.
bool CopyRun::beginVersion(bool hasWork) {
  auto versions = Versions::open(*mDestination, version(mOwner.lastRun));
  if (!versions) {
    Error error = versions.error();
    if (error.kind == ErrorKind::unreadable || error.kind == ErrorKind::unwritable)
      error.text += hindrance(*mDestination, std::string(Versions::kName));
    return failWith(error);
  }
  mVersions = *std::move(versions);
  if (mKept.none) {
    // They would lead back to what was not: from now on nobody tells what changes.
    if (mVersions->forget()) return true;
    return fail(ExecuteCode::unexpectedError,
                mPlan.destination() + ": its older versions cannot be removed");
  }
  if (!hasWork && !mVersions->wasCut()) return true;
  const Outcome begun = mVersions->begin(mBegun, std::ranges::all_of(mCopies, &Copy::isEmpty));
  if (!begun) return failWith(begun.error());
  mHasBegun = true;
  for (Copy& copy : mCopies) {
    const std::string prefix = copy.source.isFolder ? copy.source.name : std::string();
    const auto note = [&](const std::string& name) {
      mVersions->journal().willChange(copy.folder, prefix, name);
      return true;
    };
    if (!copy.changes.forEach(note) || (mMayDelete && !copy.deletions.forEach(note))) {
      return fail(ExecuteCode::unexpectedError,
                  copy.folder.path() + ": no room for the list of what is to change");
    }
    // Where nothing was, nothing is replaced.
    if (copy.isEmpty) continue;
    // A file's older versions lie where those of folders do.
    auto aside = mVersions->folderOf(copy.source.isFolder ? copy.source.name : ".");
    if (!aside) return failWith(aside.error());
    copy.aside = *std::move(aside);
  }
  const Outcome noted = mVersions->journal().willChangeNoMore();
  return noted || failWith(noted.error());
}

void CopyRun::finishVersion() {
  if (!mHasBegun) return;
  for (Copy& copy : mCopies) copy.aside.reset();
  if (const Outcome done = mVersions->finish(version(mBegun)); !done)
    addError(mPlan.destination(), done.error().text);
}

bool CopyRun::lacksSpace() {
  const std::uint64_t wanted = roomWanted();
  const std::uint64_t free = freeSpace();
  std::string reason = mPlan.destination() + ": " + std::strerror(ENOSPC);
  if (wanted > free)
    reason += ": " + ZAN_StringUtils().getShortSizeBytes(wanted - free) + " more are needed";
  return fail(ExecuteCode::unexpectedError, std::move(reason));
}

bool CopyRun::transfer(Copy& copy) {
  if (!copy.hasWork) return true;
  mHasWritten = true;
  for (const auto& [item, holes] : copy.largeItems) {
    if (HalfFiles::has(copy.folder, item) && !transfer(copy, item)) return false;
  }
  return transfer(copy, std::nullopt);
}

/// What the look has found, where that is little of a large source: to go through all of it again
/// would cost more than to copy. Nothing where the look may not have told all, where something is
/// not any more what it told of, and where there are other names to what is copied, which have to
/// be seen together.
std::optional<NameList> CopyRun::itemsToCopy(Copy& copy) {
  constexpr std::uint64_t kFew = 4;  // of so many one
  if (!copy.source.isFolder || !copy.isLookWhole || copy.changes.count() > copy.filesListed / kFew)
    return std::nullopt;
  NameList items;
  ParentFolders sources(copy.source.held.descriptor());
  ParentFolders copies(copy.folder.descriptor());
  bool isSure = true;
  const auto isAlone = [](const struct stat& state) {
    return S_ISDIR(state.st_mode) || state.st_nlink == 1;
  };
  const bool isRead = copy.changes.forEach([&](const std::string& name) {
    const auto [above, entry] = splitName(name);
    struct stat state {};
    const int from = sources.open(above);
    isSure = from >= 0 && ::fstatat(from, entry.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0 &&
             S_ISDIR(state.st_mode) == name.ends_with('/') && isAlone(state);
    if (!isSure) return false;
    const int to = copies.open(above);
    isSure = to >= 0 && ::fstatat(to, entry.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0
                 ? isAlone(state)
                 : isNothingThere(errno);
    // A folder's name without its "/" stands for the folder alone. The source itself is above all
    // of them, and by itself stands for what lies right in it, too.
    if (entry != ".") {
      items.add("./" + ZAN_FilesUtils::joinedPath(above, entry));
    } else if (copy.changes.count() == 1) {
      items.add(entry);
    }
    return isSure;
  });
  if (!isRead || !isSure || items.descriptor() < 0) return std::nullopt;
  return items;
}

/// The whole source or what is to be copied of it, or the one item of which there is a half.
bool CopyRun::transfer(Copy& copy, const std::optional<std::string>& onlyItem) {
  // After something has come between, with all of it.
  auto items = onlyItem ? std::nullopt : itemsToCopy(copy);
  const std::uint64_t replacedBefore = mEnd.filesReplaced;
  const std::uint64_t replacedBytesBefore = mEnd.bytesReplaced;
  for (;;) {
    if (!isInOrder()) return false;
    const std::uint64_t filesBefore = mProgress.filesCopied;
    const std::uint64_t bytesBefore = mProgress.sizeCopied;
    std::uint64_t replaced = 0;
    std::uint64_t replacedBytes = 0;
    std::uint64_t roomOfItem = 0;  // that is being copied
    RsyncOutput output(placesOf(copy), [&](const RsyncOutput::Item& item) {
      if (item.isTransfer()) {
        const auto large = copy.largeItems.find(item.name);
        const std::uint64_t unused = large == copy.largeItems.end() ? 0 : large->second;
        mRoomTaken += std::exchange(roomOfItem, item.size - std::min(unused, item.size));
      }
      if (item.isNew())
        mVersions->journal().hasAdded(copy.source.isFolder ? copy.source.name : std::string(),
                                      item.name);
      if (!item.isTransfer() || item.isNew()) return;
      ++replaced;
      replacedBytes += item.size;
    });
    const auto end = start(CopyPlan::Pass::copy, copy, output,
                           {.onlyItem = onlyItem, .items = items ? items->descriptor() : -1});
    items.reset();
    tell(copy, output);
    mProgress.filesCopied = filesBefore + output.filesCopied();
    mProgress.sizeCopied = bytesBefore + output.bytesCopied();
    copy.addUnread(output.unread());
    mEnd.filesReplaced = replacedBefore + replaced;
    mEnd.bytesReplaced = replacedBytesBefore + replacedBytes;
    if (!end) return fail(ExecuteCode::unexpectedError, end.error().text);
    if (end->skipWanted && isInOrder()) {
      // What is done stays done, so going on costs one more look at the tree.
      if (!output.currentItem().empty()) {
        copy.skipped.push_back(output.currentItem());
        mEnd.skipped.push_back(copy.pathOf(output.currentItem()));
      }
      if (onlyItem) return true;
      continue;
    }
    if (!end->signalled && end->status == kFull && (output.isFull() || output.tooLarge()) &&
        isInOrder()) {
      if (output.isFull() && mVersions->makeRoom(std::max(roomWanted(), freeSpace() + 1))) continue;
      takeErrors(output, copy);
      if (output.isFull()) return lacksSpace();
      copy.skipped.push_back(*output.tooLarge());
      if (onlyItem) return true;
      continue;
    }
    if (endsWith(*end, output, copy)) return false;
    mRoomTaken += roomOfItem;
    // What is wrong with one item is said by the pass over all of them.
    if (onlyItem) return true;
    takeErrors(output, copy);
    if (end->status == kRsyncPartial) mEnd.errors = std::max<std::uint64_t>(mEnd.errors, 1);
    return true;
  }
}

bool CopyRun::deleteFrom(Copy& copy) {
  if (copy.deletions.count() == 0) return true;
  mHasWritten = true;
  Deletion deletion(copy.source.held, copy.folder, copy.aside ? &*copy.aside : nullptr);
  CaseTwins twins(copy.source.held);
  bool goesOn = true;
  const bool isWhole = copy.deletions.forEach([&](const std::string& name) {
    if (!m.control.waitWhilePaused() || !mPlan.checkMounted(mMounts.mounts()))
      return goesOn = false;
    const auto isToGo = copy.isToGo(name, deletion, twins);
    if (const int cause = errno; !isToGo) {
      const std::string path = copy.pathOf(name);
      addError(path, path + ": whether it is still there cannot be told: " + std::strerror(cause) +
                         "; its copy stays until the next run");
    }
    if (!isToGo.value_or(false)) return true;
    const std::uint64_t size = sizeIn(copy.folder, name);
    const std::uint64_t movedBefore = deletion.filesMoved();
    if (const Outcome moved = deletion.moveAside(name); !moved) {
      if (deletion.isDiskFailing()) {
        fail(ExecuteCode::unexpectedError, moved.error().text + "; nothing more was deleted");
        return goesOn = false;
      }
      addError(ZAN_FilesUtils::joinedPath(copy.folder.path(), name),
               moved.error().text + hindrance(copy.folder, name));
    }
    if (deletion.filesMoved() > movedBefore) mEnd.bytesDeleted += size;
    return true;
  });
  mEnd.filesDeleted += deletion.filesMoved();
  if (!isWhole)
    addError(copy.folder.path(), copy.folder.path() + ": no room for the list of what is gone");
  return isInOrder() && goesOn;
}

}  // namespace corvana
