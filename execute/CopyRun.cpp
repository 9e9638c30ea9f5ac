#include "execute/CopyRun.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr std::size_t kKeptErrors = 200;
/// What a file costs besides its bytes, for a progress that moves with small ones, too.
constexpr double kBytesAFile = 4096;
constexpr double kNearlyDone = 99;
const std::vector<std::string> kMarkAlone{std::string(CopyMark::kName)};

// rsync's exit codes.
constexpr int kFull = 11;  ///< or another failure of reading and writing
constexpr int kPartial = 23;
constexpr int kVanished = 24;
constexpr int kTimeOut = 30;
constexpr int kConnectionTimeOut = 35;

bool isThrough(const RsyncProcess::End& end) {
  return !end.signalled && !end.isGivenUp &&
         (end.status == 0 || end.status == kPartial || end.status == kVanished);
}

std::string number(std::uint64_t count) { return std::to_string(count); }

}  // namespace

bool DeletionLimit::isPassed(std::uint64_t deletions, std::uint64_t filesOfCopy) const {
  return deletions > kFiles &&
         static_cast<double>(deletions) > share * static_cast<double>(filesOfCopy);
}

std::uint64_t CopyRun::Copy::filesOfCopy() const {
  return filesListed - std::min(newFiles, filesListed) + deletions.countOfFiles();
}

bool CopyRun::Copy::isUnread(const std::string& name) const {
  if (!unread) return true;
  for (std::size_t end = name.size();; end = name.rfind('/', end - 1)) {
    if (end == std::string::npos) break;
    if (unread->contains(name.substr(0, end))) return true;
    if (end == 0) break;
  }
  return unread->contains({});
}

void CopyRun::Copy::addUnread(const std::optional<std::set<std::string>>& names) {
  if (!names || !unread) return unread.reset();
  unread->insert(names->begin(), names->end());
}

std::string CopyRun::Copy::pathOf(const std::string& item) const {
  if (!source.isFolder || item == "./") return source.path;
  return ZAN_FilesUtils::joinedPath(source.path, item);
}

bool CopyRun::fail(ExecuteCode code, std::string reason) {
  mEnd.code = code;
  mEnd.reason = std::move(reason);
  return false;
}

bool CopyRun::failWith(const Error& error) {
  switch (error.kind) {
    case ErrorKind::absent:
      return fail(ExecuteCode::volumeGone, error.text);
    case ErrorKind::unwritable:
    case ErrorKind::unreadable:
      return fail(ExecuteCode::volumeNotAvailable, error.text);
    default:
      return fail(ExecuteCode::unexpectedError, error.text);
  }
}

/// Whether nobody wants the run to end, and no volume has gone.
bool CopyRun::isInOrder() {
  if (const Outcome there = mPlan.checkMounted(mMounts.mountsReadAgain()); !there)
    return failWith(there.error());
  switch (m.control.stopReason()) {
    case StopReason::none:
      return true;
    case StopReason::user:
      return fail(ExecuteCode::abortedByUser, {});
    case StopReason::volumeGone:
      return fail(ExecuteCode::volumeGone, mGone);
    case StopReason::sessionEnd:
      return fail(ExecuteCode::unexpectedError, std::string(kSessionEnded));
  }
  return true;
}

bool CopyRun::isAlive() {
  if (!isInOrder()) return false;
  const Outcome alive = mPlan.checkAlive();
  if (alive) return true;
  return alive.error().kind == ErrorKind::refused
             ? fail(ExecuteCode::completedWithErrors, alive.error().text + "; nothing was deleted")
             : failWith(alive.error());
}

void CopyRun::addError(const std::string& path, std::string text) {
  ++mEnd.errors;
  if (mEnd.errorTexts.size() < kKeptErrors) mEnd.errorTexts.push_back(std::move(text));
  if (!mEnd.firstErrorPath) mEnd.firstErrorPath = path;
  mEnd.lastErrorPath = path;
}

void CopyRun::takeErrors(const RsyncOutput& output) {
  mEnd.errors += output.errorCount();
  for (const auto& text : output.errors()) {
    if (mEnd.errorTexts.size() < kKeptErrors) mEnd.errorTexts.push_back(text);
  }
  if (!mEnd.firstErrorPath) mEnd.firstErrorPath = output.firstErrorPath();
  if (output.lastErrorPath()) mEnd.lastErrorPath = output.lastErrorPath();
}

std::vector<RsyncOutput::Place> CopyRun::placesOf(const Copy& copy) const {
  std::vector<RsyncOutput::Place> places{
      {copy.source.held.heldPath(), copy.source.held.path(), true},
      {copy.folder.heldPath(), copy.folder.path()}};
  if (copy.aside) places.push_back({copy.aside->heldPath(), copy.aside->path()});
  return places;
}

Result<RsyncProcess::End> CopyRun::start(CopyPlan::Pass pass, Copy& copy, RsyncOutput& output) {
  const CopyPlan::Task what{.source = copy.source,
                            .copy = copy.folder,
                            .aside = copy.aside ? &*copy.aside : nullptr,
                            .skippedItems = copy.skipped,
                            .options = mOptions,
                            .mayRemoveFolders = mMayDelete};
  RsyncProcess::Task task{.arguments = mPlan.arguments(m.rsync, pass, what),
                          .descriptors = {copy.source.held.descriptor(), copy.folder.descriptor()},
                          .watched = mMounts.descriptor(),
                          .onWatched = [this] {
                            const auto there = mPlan.checkMounted(mMounts.mountsReadAgain());
                            if (there) return;
                            mGone = there.error().text;
                            m.control.stop(StopReason::volumeGone);
                          }};
  if (copy.aside) task.descriptors.push_back(copy.aside->descriptor());
  return RsyncProcess::run(task, m.control, output, [&] {
    if (pass == CopyPlan::Pass::copy) tell(copy, output);
  });
}

ExecuteEnd CopyRun::perform() {
  mBegun = m.clock.now();
  const bool isCopied = isInOrder() && openCopies() &&
                        std::ranges::all_of(mCopies, [this](Copy& copy) { return lookAt(copy); });
  if (isCopied) tellWhatIsLeftOut();
  if (isCopied) checkDeletions();
  if (isCopied && makeRoom() &&
      std::ranges::all_of(mCopies, [this](Copy& copy) { return transfer(copy); }) && mMayDelete &&
      isAlive()) {
    std::ranges::all_of(mCopies, [this](Copy& copy) { return deleteFrom(copy); });
  }
  if (mVersions && mEnd.isExecuted()) finishVersion();
  if (mEnd.code == ExecuteCode::completed && (mEnd.errors > 0 || !mEnd.reason.empty()))
    mEnd.code = ExecuteCode::completedWithErrors;
  if (mEnd.code == ExecuteCode::completedWithErrors)
    mEnd.errors = std::max<std::uint64_t>(mEnd.errors, 1);
  mProgress.errors = mEnd.errors;
  if (mEnd.isExecuted()) mProgress.value = 100;
  mEnd.progress = mProgress;
  return mEnd;
}

bool CopyRun::openCopies() {
  auto destination = mPlan.openDestination();
  if (!destination) return failWith(destination.error());
  mDestination = *std::move(destination);
  if (!checkIdentity()) return false;
  for (const auto& source : mPlan.sources()) {
    const std::string path = ZAN_FilesUtils::joinedPath(mPlan.destination(), source.name);
    struct stat state {};
    const bool isThere = ::fstatat(mDestination->descriptor(), source.name.c_str(), &state,
                                   AT_SYMLINK_NOFOLLOW) == 0;
    if (!source.isFolder) {
      if (isThere && S_ISDIR(state.st_mode)) {
        return fail(ExecuteCode::unexpectedError,
                    source.path +
                        ": it is a file now, and its copy is a folder, which stays as it "
                        "is; remove or rename " +
                        path);
      }
      auto again = mDestination->again();
      if (!again) return failWith(again.error());
      mCopies.push_back({.source = source, .folder = *std::move(again), .isEmpty = !isThere});
      continue;
    }
    if (isThere && !S_ISDIR(state.st_mode)) {
      return fail(ExecuteCode::unexpectedError,
                  source.path +
                      ": it is a folder now, and its copy is none and stays as it is; "
                      "remove or rename " +
                      path);
    }
    auto folder = mDestination->makeBelow(source.name);
    if (!folder) return failWith(folder.error());
    const auto names = namesInFolder(folder->descriptor());
    if (!checkOwner(source, *folder)) return false;
    mCopies.push_back({.source = source,
                       .folder = *std::move(folder),
                       .isEmpty = names && (names->empty() || *names == kMarkAlone)});
  }
  mOptions = mPlan.factsOf(*mDestination).options();
  return true;
}

/// A volume that cannot be told from the folder below it is known by the copies on it.
bool CopyRun::checkIdentity() {
  if (mPlan.hasIdentity() || !mOwner.hasRun || mOwner.takesOver) return true;
  for (const auto& source : mPlan.sources()) {
    struct stat state {};
    if (::fstatat(mDestination->descriptor(), source.name.c_str(), &state, AT_SYMLINK_NOFOLLOW) ==
        0)
      return true;
  }
  return fail(ExecuteCode::volumeNotFound,
              mPlan.destination() +
                  ": the copies that were made there are not there, so that "
                  "another volume, or none, is mounted. If it is the right one: corvana9 edit " +
                  std::to_string(mOwner.mark.reference) + " --adopt");
}

/// Whether the copy is this action's to fill; a new one becomes it.
bool CopyRun::checkOwner(const CopyPlan::Source& source, const HeldFolder& copy) {
  const auto found = CopyMark::read(copy);
  if (!found) return failWith(found.error());
  CopyMark own = mOwner.mark;
  own.source = source.described.path();
  own.volume = source.described.uuid();
  const std::string remedy =
      "Choose another destination, or let the action take it over: "
      "corvana9 edit " +
      std::to_string(own.reference) + " --adopt";
  if (*found && (*found)->isOfSameSource(own)) return true;
  if (*found && !mOwner.takesOver) {
    return fail(ExecuteCode::unexpectedError, copy.path() + ": it is the copy of " +
                                                  (*found)->toText() + "; nothing was changed. " +
                                                  remedy);
  }
  const bool isKnown = mOwner.takesOver || (mOwner.hasRun && mOwner.isAlone);
  if (!*found && !isKnown) {
    const auto names = namesInFolder(copy.descriptor());
    if (!names) return failWith({ErrorKind::unreadable, copy.path() + ": " + std::strerror(errno)});
    if (!names->empty()) {
      // A copy that deletes nothing adds to what is there, and leaves it unmarked.
      if (!mPlan.deletes()) return true;
      return fail(ExecuteCode::unexpectedError,
                  copy.path() +
                      ": there are files in it which this action has not copied; "
                      "nothing was changed. " +
                      remedy);
    }
  }
  const Outcome marked = own.write(copy);
  return marked || failWith(marked.error());
}

/// Ends the run when rsync did not get through; errors are left to the caller.
bool CopyRun::endsWith(const RsyncProcess::End& end, const RsyncOutput& output, const Copy& copy) {
  if (!isInOrder()) return true;
  if (isThrough(end)) return false;
  takeErrors(output);
  // A disk that was pulled out fails in many ways; what counts is that it is gone.
  if (const Outcome alive = mPlan.checkAlive(); !alive) {
    fail(ExecuteCode::volumeGone, alive.error().text);
  } else if (!end.signalled && (end.status == kTimeOut || end.status == kConnectionTimeOut)) {
    fail(ExecuteCode::timeOut, {});
  } else if (end.isGivenUp) {
    fail(ExecuteCode::timeOut, copy.source.path + ": the file system does not answer");
  } else {
    fail(ExecuteCode::unexpectedError,
         end.signalled ? "rsync: ended by signal " + std::to_string(end.status)
         : output.errors().empty()
             ? "rsync: ended with " + std::to_string(end.status)
             : output.errors().front() + " (rsync ended with " + std::to_string(end.status) + ")");
  }
  return true;
}

bool CopyRun::lookAt(Copy& copy) {
  for (;;) {
    if (!isInOrder()) return false;
    std::uint64_t bytes = 0;
    std::uint64_t files = 0;
    copy.deletions = NameList();
    copy.changes = NameList();
    copy.newFiles = 0;
    copy.hasWork = false;
    RsyncOutput output(placesOf(copy), [&](const RsyncOutput::Item& item) {
      if (item.isDeletion()) return copy.deletions.add(item.name);
      copy.hasWork = true;
      copy.changes.add(item.name);
      if (item.isNew() && !item.isFolder()) ++copy.newFiles;
      if (!item.isTransfer()) return;
      ++files;
      bytes += item.size;
    });
    const auto end = start(CopyPlan::Pass::look, copy, output);
    if (!end) return fail(ExecuteCode::unexpectedError, end.error().text);
    if (end->skipWanted && isInOrder()) continue;
    if (endsWith(*end, output, copy)) return false;
    copy.filesListed = output.filesListed();
    copy.bytesListed = output.bytesListed();
    copy.addUnread(output.unread());
    mBytesToCopy += bytes;
    mFilesToCopy += files;
    if (copy.hasWork) return true;
    // What is the same already is not looked at again, so this is where its errors are told.
    takeErrors(output);
    if (end->status == kPartial) mEnd.errors = std::max<std::uint64_t>(mEnd.errors, 1);
    return true;
  }
}

void CopyRun::tellWhatIsLeftOut() {
  for (const Copy& copy : mCopies) {
    for (const auto& within : copy.source.mountsWithin) {
      if (mPlan.isExcluded(within)) continue;
      const std::string path = ZAN_FilesUtils::joinedPath(copy.source.path, within);
      addError(path, path +
                         ": another volume is mounted there and is not copied; to leave it out "
                         "for good: corvana9 edit " +
                         std::to_string(mOwner.mark.reference) + " --exclude '" +
                         CopyPlan::literalPattern(within) + "'");
    }
  }
}

/// Whether to delete at all: a run that would take too much out of a copy asks.
void CopyRun::checkDeletions() {
  std::uint64_t deletions = 0;
  const Copy* most = nullptr;
  for (const Copy& copy : mCopies) {
    const std::uint64_t count = copy.deletions.countOfFiles();
    deletions += count;
    if (mLimit.isPassed(count, copy.filesOfCopy()) &&
        (!most || count > most->deletions.countOfFiles()))
      most = &copy;
  }
  mMayDelete = mPlan.deletes();
  if (!most || !mMayDelete || deletions <= mLimit.confirmed) return;
  mMayDelete = false;
  mEnd.toConfirm = deletions;
  mEnd.reason = most->source.path + ": " + number(most->deletions.countOfFiles()) + " of the " +
                number(most->filesOfCopy()) +
                " files of its copy are not there any more; nothing " + "was deleted";
}

std::uint64_t CopyRun::freeSpace() const {
  struct statvfs space {};
  if (::fstatvfs(mDestination->descriptor(), &space) != 0) return 0;
  return static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
}

/// Older versions go before a copy does not find room.
bool CopyRun::makeRoom() {
  const bool hasWork = std::ranges::any_of(mCopies, [this](const Copy& copy) {
    return copy.hasWork || (mMayDelete && copy.deletions.count() > 0);
  });
  if (!beginVersion(hasWork)) return false;
  while (hasWork && freeSpace() < mBytesToCopy && mVersions->removeOldest()) {
    if (!isInOrder()) return false;
  }
  return true;
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
  if (!versions) return failWith(versions.error());
  mVersions = *std::move(versions);
  if (!hasWork && !mVersions->wasCut()) return true;
  const Outcome begun = mVersions->begin(mBegun, std::ranges::all_of(mCopies, &Copy::isEmpty));
  if (!begun) return failWith(begun.error());
  mHasBegun = true;
  for (Copy& copy : mCopies) {
    const std::string prefix = copy.source.isFolder ? copy.source.name : std::string();
    const auto note = [&](const std::string& name) {
      mVersions->willChange(copy.folder, prefix, name);
      return true;
    };
    if (!copy.changes.forEach(note) || (mMayDelete && !copy.deletions.forEach(note))) {
      return fail(ExecuteCode::unexpectedError,
                  copy.folder.path() + ": no room for the list of what is to change");
    }
    // A file's older versions lie where those of folders do.
    auto aside = mVersions->folderOf(copy.source.isFolder ? copy.source.name : ".");
    if (!aside) return failWith(aside.error());
    copy.aside = *std::move(aside);
  }
  const Outcome noted = mVersions->willChangeNoMore();
  return noted || failWith(noted.error());
}

void CopyRun::finishVersion() {
  const auto isDone = [this](const Outcome& done) {
    if (!done) addError(mPlan.destination(), done.error().text);
    return static_cast<bool>(done);
  };
  if (mHasBegun) {
    for (Copy& copy : mCopies) copy.aside.reset();
    if (!isDone(mVersions->finish(version(mBegun)))) return;
  }
  isDone(mVersions->thin(m.clock.now(), mKept));
}

bool CopyRun::lacksSpace() {
  const std::uint64_t done = mProgress.sizeCopied + freeSpace();
  std::string reason = mPlan.destination() + ": " + std::strerror(ENOSPC);
  if (mBytesToCopy > done) {
    reason += ": " + ZAN_StringUtils().getShortSizeBytes(mBytesToCopy - done) + " more are needed";
  }
  return fail(ExecuteCode::unexpectedError, std::move(reason));
}

bool CopyRun::transfer(Copy& copy) {
  if (!copy.hasWork) return true;
  const std::uint64_t replacedBefore = mEnd.filesReplaced;
  for (;;) {
    if (!isInOrder()) return false;
    const std::uint64_t filesBefore = mProgress.filesCopied;
    const std::uint64_t bytesBefore = mProgress.sizeCopied;
    std::uint64_t replaced = 0;
    RsyncOutput output(placesOf(copy), [&](const RsyncOutput::Item& item) {
      if (item.isTransfer() && !item.isNew()) ++replaced;
      if (item.isNew())
        mVersions->hasAdded(copy.source.isFolder ? copy.source.name : std::string(), item.name);
    });
    const auto end = start(CopyPlan::Pass::copy, copy, output);
    tell(copy, output);
    mProgress.filesCopied = filesBefore + output.filesCopied();
    mProgress.sizeCopied = bytesBefore + output.bytesCopied();
    copy.addUnread(output.unread());
    mEnd.filesReplaced = replacedBefore + replaced;
    if (!end) return fail(ExecuteCode::unexpectedError, end.error().text);
    if (end->skipWanted && isInOrder()) {
      // What is done stays done, so going on costs one more look at the tree.
      if (!output.currentItem().empty()) {
        copy.skipped.push_back(output.currentItem());
        mEnd.skipped.push_back(copy.pathOf(output.currentItem()));
      }
      continue;
    }
    if (!end->signalled && end->status == kFull && output.isFull() && isInOrder()) {
      if (mVersions->removeOldest()) continue;
      takeErrors(output);
      return lacksSpace();
    }
    if (endsWith(*end, output, copy)) return false;
    takeErrors(output);
    if (end->status == kPartial) mEnd.errors = std::max<std::uint64_t>(mEnd.errors, 1);
    return true;
  }
}

bool CopyRun::deleteFrom(Copy& copy) {
  if (copy.deletions.count() == 0) return true;
  Deletion deletion(copy.source.held, copy.folder, *copy.aside);
  bool goesOn = true;
  const bool isWhole = copy.deletions.forEach([&](const std::string& name) {
    while (m.control.isPaused() && m.control.stopReason() == StopReason::none) {
      pollfd wake{m.control.wakeDescriptor(), POLLIN, 0};
      ::poll(&wake, 1, -1);
      m.control.clearWake();
    }
    if (m.control.stopReason() != StopReason::none || !mPlan.checkMounted(mMounts.mounts()))
      return goesOn = false;
    if (copy.isUnread(name) || !deletion.isGone(name)) return true;
    if (const Outcome moved = deletion.moveAside(name); !moved)
      addError(ZAN_FilesUtils::joinedPath(copy.folder.path(), name), moved.error().text);
    return true;
  });
  mEnd.filesDeleted += deletion.filesMoved();
  if (!isWhole)
    addError(copy.folder.path(), copy.folder.path() + ": no room for the list of what is gone");
  return goesOn ? isInOrder() : isInOrder() && false;
}

double CopyRun::progress(std::uint64_t bytes, std::uint64_t files) const {
  const double all =
      static_cast<double>(mBytesToCopy) + kBytesAFile * static_cast<double>(mFilesToCopy);
  const double done = static_cast<double>(bytes) + kBytesAFile * static_cast<double>(files);
  return all <= 0 ? 0 : std::min(kNearlyDone, 100 * done / all);
}

void CopyRun::tell(const Copy& copy, const RsyncOutput& output) {
  ExecuteMessages::Progress now = mProgress;
  if (!output.currentItem().empty()) now.currentPath = copy.pathOf(output.currentItem());
  now.filesCopied += output.filesCopied();
  now.sizeCopied += output.bytesCopied();
  now.value = std::max(mProgress.value, progress(now.sizeCopied, now.filesCopied));
  now.errors = mEnd.errors + output.errorCount();
  mProgress.value = now.value;
  mProgress.currentPath = now.currentPath;
  if (m.tell) m.tell(now);
}

}  // namespace corvana
