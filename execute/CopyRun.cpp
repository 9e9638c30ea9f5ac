#include "execute/CopyRun.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
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
/// Of a file as large as that a half is worth to be kept.
constexpr std::uint64_t kLarge = 16'000'000;
constexpr std::size_t kKeptPatterns = 200;
constexpr std::size_t kMostLeft = 1000;

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

/// As a shell takes it for one word.
std::string quoted(const std::string& word) {
  std::string text = "'";
  for (const char letter : word)
    text += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
  return text + "'";
}

std::string number(std::uint64_t count) { return std::to_string(count); }

}  // namespace

bool DeletionLimit::isPassed(std::uint64_t deletions, std::uint64_t filesOfCopy) const {
  return deletions > kFiles &&
         static_cast<double>(deletions) > share * static_cast<double>(filesOfCopy);
}

void Pace::add(double now, double done) {
  mSamples.push_back({now, done});
  while (mSamples.size() > 2 && now - mSamples[1].time >= kSpan) mSamples.pop_front();
  // Many pieces of news are one sample.
  constexpr double kApart = 0.2;
  if (mSamples.size() > 2 && mSamples.back().time - mSamples[mSamples.size() - 3].time < kApart)
    mSamples.erase(mSamples.end() - 2);
}

double Pace::perSecond() const {
  constexpr double kShort = 1;
  if (mSamples.size() < 2) return 0;
  const double span = mSamples.back().time - mSamples.front().time;
  if (span < kShort) return 0;
  return std::max(0.0, mSamples.back().done - mSamples.front().done) / span;
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

std::string CopyRun::Copy::placeOfCopy() const {
  return missing.empty() ? folder.heldPath() : folder.heldPath() + "/" + missing;
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

/// What leaves the item out, kept for whoever wants to leave out all of them.
std::string CopyRun::remedyFor(const std::string& item) {
  const std::string pattern = CopyPlan::literalPattern(item);
  if (mEnd.patterns.size() < kKeptPatterns &&
      std::ranges::find(mEnd.patterns, pattern) == mEnd.patterns.end())
    mEnd.patterns.push_back(pattern);
  return "; to leave it out for good: corvana9 edit " + std::to_string(mOwner.mark.reference) +
         " --exclude " + quoted(pattern);
}

void CopyRun::addLack(const Copy& copy, const std::string& item, std::string text) {
  ++mEnd.notPossible;
  const std::string path = ZAN_FilesUtils::joinedPath(copy.source.path, item);
  addError(path, path + ": " + std::move(text) + remedyFor(item));
}

void CopyRun::takeErrors(const RsyncOutput& output) {
  mEnd.errors += output.errorCount();
  mEnd.notPossible += output.lackCount();
  for (const auto& error : output.errors()) {
    std::string remedy = error.lack ? remedyFor(*error.lack) : std::string();
    if (mEnd.errorTexts.size() < kKeptErrors) mEnd.errorTexts.push_back(error.text + remedy);
  }
  if (!mEnd.firstErrorPath) mEnd.firstErrorPath = output.firstErrorPath();
  if (output.lastErrorPath()) mEnd.lastErrorPath = output.lastErrorPath();
}

std::vector<RsyncOutput::Place> CopyRun::placesOf(const Copy& copy) const {
  std::vector<RsyncOutput::Place> places{
      {copy.source.held.heldPath(), copy.source.held.path(), true},
      {copy.folder.heldPath(), copy.folder.path(), false, true}};
  if (copy.aside) places.push_back({copy.aside->heldPath(), copy.aside->path()});

  return places;
}

Result<RsyncProcess::End> CopyRun::start(CopyPlan::Pass pass, Copy& copy, RsyncOutput& output,
                                         const Special& special) {
  const CopyPlan::Task what{.source = copy.source,
                            .to = copy.placeOfCopy(),
                            .aside = copy.aside ? &*copy.aside : nullptr,
                            .skippedItems = copy.skipped,
                            .options = mOptions,
                            .mayRemoveFolders = mMayDelete,
                            .tellsAll = special.tellsAll,
                            .keepsHalves = !copy.largeItems.empty(),
                            .onlyItem = special.onlyItem};
  RsyncProcess::Task task{.arguments = mPlan.arguments(m.rsync, pass, what),
                          .descriptors = {copy.source.held.descriptor(), copy.folder.descriptor()}};
  if (copy.aside) task.descriptors.push_back(copy.aside->descriptor());

  return run(std::move(task), output,
             [&] { pass == CopyPlan::Pass::copy ? tell(copy, output) : tellLook(output); });
}

Result<RsyncProcess::End> CopyRun::run(RsyncProcess::Task task, RsyncOutput& output,
                                       const std::function<void()>& onNews) {
  task.watched = mMounts.descriptor();
  task.onWatched = [this] {
    const auto there = mPlan.checkMounted(mMounts.mountsReadAgain());
    if (there) return;
    mGone = there.error().text;
    m.control.stop(StopReason::volumeGone);
  };
  return RsyncProcess::run(task, m.control, output, onNews);
}

ExecuteEnd CopyRun::perform() {
  mBegun = m.clock.now();
  if (isInOrder() && openCopies() && lookAtAll() && makeRoom() &&
      std::ranges::all_of(mCopies, [this](Copy& copy) { return transfer(copy); }) && mMayDelete &&
      isAlive()) {
    std::ranges::all_of(mCopies, [this](Copy& copy) { return deleteFrom(copy); });
  }
  if (mHasWritten && mEnd.isExecuted()) isOnDisk();
  if (mVersions && mEnd.isExecuted()) finishVersion();
  mVersions.reset();
  finish();
  return mEnd;
}

ExecuteEnd CopyRun::look(const std::function<void(const Planned&)>& planned) {
  mPlanned = planned;
  if (isInOrder() && openCopies() && lookAtAll()) {
    for (Copy& copy : mCopies) {
      if (mMayDelete) tellPlan(copy);
    }
  }
  finish();
  return mEnd;
}

void CopyRun::finish() {
  if (mEnd.code == ExecuteCode::completed && (mEnd.errors > 0 || !mEnd.reason.empty()))
    mEnd.code = ExecuteCode::completedWithErrors;
  if (mEnd.code == ExecuteCode::completedWithErrors)
    mEnd.errors = std::max<std::uint64_t>(mEnd.errors, 1);
  mProgress.errors = mEnd.errors;
  mProgress.isPlanning = false;
  mProgress.secondsLeft = -1;
  mProgress.bytesToCopy = mBytesToCopy;
  mProgress.filesToCopy = mFilesToCopy;
  if (mEnd.isExecuted()) mProgress.value = 100;
  mEnd.progress = mProgress;
}

/// What was written is in the memory of the system; only the disk itself can say that it took it.
bool CopyRun::isOnDisk() {
  RsyncOutput output;
  RsyncProcess::Task task{.arguments = {m.sync, "--file-system", mDestination->heldPath()},
                          .descriptors = {mDestination->descriptor()}};
  const auto end = run(std::move(task), output, [] {});
  if (!isInOrder()) return false;
  if (end && !end->isGivenUp && !end->signalled && end->status == 0) return true;
  mEnd.isDoubted = true;
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

bool CopyRun::openCopies() {
  auto destination = mPlanned ? mPlan.openWithoutMaking() : mPlan.openDestination();
  if (!destination) return failWith(destination.error());
  mDestination = *std::move(destination);
  if (!checkIdentity()) return false;
  const auto& sources = mPlan.sources();
  if (!std::ranges::all_of(sources, [this](const auto& source) { return open(source); }))
    return false;
  FileSystemFacts facts = mPlan.factsOf(*mDestination);
  for (Copy& copy : mCopies) {
    if (!copy.source.isFolder || !copy.missing.empty()) continue;
    copy.tellsCase = tellsCase(copy.folder, CopyMark::kName);
    facts.tellsCase = facts.tellsCase && copy.tellsCase;
  }
  mOptions = facts.options();
  mEnd.losses = facts.losses();
  return true;
}

bool CopyRun::open(const CopyPlan::Source& source) {
  const std::string path = ZAN_FilesUtils::joinedPath(mPlan.destination(), source.name);
  const bool isDestinationThere = !mPlanned || mPlan.isDestinationThere();
  struct stat state {};
  const bool isThere =
      isDestinationThere &&
      ::fstatat(mDestination->descriptor(), source.name.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0;
  if (isThere && source.isFolder != S_ISDIR(state.st_mode)) {
    return fail(ExecuteCode::unexpectedError,
                source.path +
                    (source.isFolder ? ": it is a folder now, and its copy is none"
                                     : ": it is a file now, and its copy is a folder") +
                    ", which stays as it is; remove or rename " + path);
  }
  std::string missing;
  if (!isDestinationThere) missing = ZAN_FilesUtils::lastPathComponent(mPlan.destination());
  if (!source.isFolder || (mPlanned && !isThere)) {
    if (source.isFolder) missing = ZAN_FilesUtils::joinedPath(missing, source.name);
    auto again = mDestination->again();
    if (!again) return failWith(again.error());
    mCopies.push_back(
        {.source = source, .folder = *std::move(again), .missing = missing, .isEmpty = !isThere});
    return true;
  }
  auto folder = mPlanned ? mDestination->below(source.name) : mDestination->makeBelow(source.name);
  if (!folder) return failWith(folder.error());
  const auto names = namesInFolder(folder->descriptor());
  if (!checkOwner(source, *folder)) return false;
  mCopies.push_back({.source = source,
                     .folder = *std::move(folder),
                     .isEmpty = names && (names->empty() || *names == kMarkAlone)});
  return true;
}

/// A volume that cannot be told from the folder below it is known by the copies on it.
bool CopyRun::checkIdentity() {
  if (mPlan.hasIdentity() || !mOwner.hasRun || mOwner.takesOver) return true;
  for (const auto& source : mPlan.sources()) {
    if (mPlanned && !mPlan.isDestinationThere()) break;
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
  if (mPlanned) return true;
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
         end.signalled             ? "rsync: ended by signal " + std::to_string(end.status)
         : output.errors().empty() ? "rsync: ended with " + std::to_string(end.status)
                                   : output.errors().front().text + " (rsync ended with " +
                                         std::to_string(end.status) + ")");
  }
  return true;
}

bool CopyRun::lookAtAll() {
  mProgress.isPlanning = true;
  for (Copy& copy : mCopies) {
    if (!lookAt(copy)) return false;
    mItemsSeen = mProgress.itemsSeen;
  }
  mProgress.isPlanning = false;
  checkDeletions();
  return true;
}

bool CopyRun::lookAt(Copy& copy) {
  constexpr std::string_view kSubvolumes = "btrfs";
  const SourceSurvey survey(
      copy.source.held,
      {.subvolumes = copy.source.isFolder && copy.source.held.mount().fileSystem == kSubvolumes,
       .clashes = copy.source.isFolder && !copy.tellsCase},
      [this] { return m.control.stopReason() == StopReason::none; });
  std::set<std::string> watched(survey.subvolumes().begin(), survey.subvolumes().end());
  watched.insert(copy.source.mountsWithin.begin(), copy.source.mountsWithin.end());
  for (const auto& clash : survey.clashes()) watched.insert(clash.begin(), clash.end());
  bool isFirst = true;
  for (;;) {
    if (!isInOrder()) return false;
    std::uint64_t bytes = 0;
    std::uint64_t files = 0;
    copy.deletions = NameList();
    copy.changes = NameList();
    copy.newFiles = 0;
    copy.hasWork = false;
    copy.left.clear();
    copy.largeItems.clear();
    std::set<std::string> listed;
    const bool looksForClashes = isFirst && !survey.clashes().empty();
    RsyncOutput output(placesOf(copy), [&](const RsyncOutput::Item& item) {
      if (item.isDeletion()) {
        if (copy.left.size() < kMostLeft && RsyncOutput::itemOfHalf(item.name))
          copy.left.push_back(item.name);
        return copy.deletions.add(item.name);
      }
      if (!watched.empty()) {
        std::string name = item.name.substr(0, item.name.size() - (item.isFolder() ? 1 : 0));
        if (watched.contains(name)) listed.insert(std::move(name));
      }
      if (item.isUnchanged()) return;
      copy.hasWork = true;
      copy.changes.add(item.name);
      if (item.isNew() && !item.isFolder()) ++copy.newFiles;
      if (mPlanned && !looksForClashes && item.name != "./") {
        using Kind = Planned::Kind;
        mPlanned({item.isNew()        ? Kind::copied
                  : item.isTransfer() ? Kind::replaced
                                      : Kind::changed,
                  copy.pathOf(item.name), item.isTransfer() ? item.size : 0});
      }
      if (!item.isTransfer()) return;
      ++files;
      bytes += item.size;
      if (item.size >= kLarge) copy.largeItems.insert(item.name);
    });
    const auto end =
        start(CopyPlan::Pass::look, copy, output, {.tellsAll = isFirst && !watched.empty()});
    if (!end) return fail(ExecuteCode::unexpectedError, end.error().text);
    if (end->skipWanted && isInOrder()) continue;
    if (endsWith(*end, output, copy)) return false;
    if (std::exchange(isFirst, false)) {
      tellWhatIsLeftOut(copy, survey, listed);
      if (!copy.skipped.empty()) continue;
    }
    copy.filesListed = output.filesListed();
    copy.bytesListed = output.bytesListed();
    copy.addUnread(output.unread());
    mBytesToCopy += bytes;
    mFilesToCopy += files;
    if (copy.hasWork && !mPlanned) return true;
    // What is the same already is not looked at again, so this is where its errors are told.
    takeErrors(output);
    if (end->status == kPartial) mEnd.errors = std::max<std::uint64_t>(mEnd.errors, 1);
    return true;
  }
}

/// Says what the copy will lack without a word of rsync's, as far as the user does not leave it
/// out; of names that the copy takes for one, all but one are left as they are.
void CopyRun::tellWhatIsLeftOut(Copy& copy, const SourceSurvey& survey,
                                const std::set<std::string>& listed) {
  for (const auto& within : copy.source.mountsWithin) {
    if (listed.contains(within))
      addLack(copy, within, "another volume is mounted there and is not copied");
  }
  for (const auto& within : survey.subvolumes()) {
    if (listed.contains(within))
      addLack(copy, within, "it is a subvolume of its own and is not copied");
  }
  for (const auto& clash : survey.clashes()) {
    SourceSurvey::Clash names;
    std::ranges::copy_if(clash, std::back_inserter(names),
                         [&](const auto& name) { return listed.contains(name); });
    if (names.size() < 2) continue;
    const std::string above(ZAN_FilesUtils::parentPath("/" + names.front()).substr(1));
    const ZAN_Descriptor folder =
        openPathBelow(copy.folder.descriptor(), above, O_RDONLY | O_DIRECTORY);
    const auto there = folder ? namesInFolder(folder.get()) : std::nullopt;
    auto kept = std::ranges::find_if(names, [&](const auto& name) {
      return there &&
             std::ranges::find(*there, ZAN_FilesUtils::lastPathComponent(name)) != there->end();
    });
    if (kept == names.end()) kept = names.begin();
    for (const auto& name : names) {
      if (name == *kept) continue;
      copy.skipped.push_back(name);
      addLack(copy, name,
              "the disk of the copy takes it for \"" +
                  std::string(ZAN_FilesUtils::lastPathComponent(*kept)) +
                  "\", which is copied; rename one of the two");
    }
  }
}

void CopyRun::tellPlan(Copy& copy) {
  Deletion deletion(copy.source.held, copy.folder, nullptr);
  CaseTwins twins(copy.source.held);
  copy.deletions.forEach([&](const std::string& name) {
    if (!isToGo(copy, name, deletion, twins)) return true;
    mPlanned({Planned::Kind::deleted, ZAN_FilesUtils::joinedPath(copy.folder.path(), name),
              sizeIn(copy.folder, name)});
    return m.control.stopReason() == StopReason::none;
  });
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
  for (Copy& copy : mCopies) {
    for (const auto& left : copy.left) {
      const auto item = RsyncOutput::itemOfHalf(left);
      if (item && copy.largeItems.contains(*item)) HalfFiles::take(copy.folder, left, *item);
    }
  }
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
  mHasWritten = true;
  for (const auto& item : copy.largeItems) {
    if (HalfFiles::has(copy.folder, item) && !transfer(copy, item)) return false;
  }
  return transfer(copy, std::nullopt);
}

/// The whole source, or the one item of which there is a half.
bool CopyRun::transfer(Copy& copy, const std::optional<std::string>& onlyItem) {
  const std::uint64_t replacedBefore = mEnd.filesReplaced;
  const std::uint64_t replacedBytesBefore = mEnd.bytesReplaced;
  for (;;) {
    if (!isInOrder()) return false;
    const std::uint64_t filesBefore = mProgress.filesCopied;
    const std::uint64_t bytesBefore = mProgress.sizeCopied;
    std::uint64_t replaced = 0;
    std::uint64_t replacedBytes = 0;
    RsyncOutput output(placesOf(copy), [&](const RsyncOutput::Item& item) {
      if (item.isNew())
        mVersions->hasAdded(copy.source.isFolder ? copy.source.name : std::string(), item.name);
      if (!item.isTransfer() || item.isNew()) return;
      ++replaced;
      replacedBytes += item.size;
    });
    const auto end = start(CopyPlan::Pass::copy, copy, output, {.onlyItem = onlyItem});
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
      if (output.isFull() && mVersions->removeOldest()) continue;
      takeErrors(output);
      if (output.isFull()) return lacksSpace();
      copy.skipped.push_back(*output.tooLarge());
      if (onlyItem) return true;
      continue;
    }
    if (endsWith(*end, output, copy)) return false;
    // What is wrong with one item is said by the pass over all of them.
    if (onlyItem) return true;
    takeErrors(output);
    if (end->status == kPartial) mEnd.errors = std::max<std::uint64_t>(mEnd.errors, 1);
    return true;
  }
}

/// Whether the source has certainly lost what the copy has.
bool CopyRun::isToGo(const Copy& copy, const std::string& name, Deletion& deletion,
                     CaseTwins& twins) const {
  return !copy.isUnread(name) && deletion.isGone(name) && (copy.tellsCase || !twins.has(name));
}

std::uint64_t CopyRun::sizeIn(const HeldFolder& folder, const std::string& name) {
  struct stat state {};
  if (::fstatat(folder.descriptor(), name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISREG(state.st_mode))
    return 0;
  return static_cast<std::uint64_t>(state.st_size);
}

bool CopyRun::deleteFrom(Copy& copy) {
  if (copy.deletions.count() == 0) return true;
  mHasWritten = true;
  Deletion deletion(copy.source.held, copy.folder, copy.aside ? &*copy.aside : nullptr);
  CaseTwins twins(copy.source.held);
  bool goesOn = true;
  const bool isWhole = copy.deletions.forEach([&](const std::string& name) {
    while (m.control.isPaused() && m.control.stopReason() == StopReason::none) {
      pollfd wake{m.control.wakeDescriptor(), POLLIN, 0};
      ::poll(&wake, 1, -1);
      m.control.clearWake();
    }
    if (m.control.stopReason() != StopReason::none || !mPlan.checkMounted(mMounts.mounts()))
      return goesOn = false;
    if (!isToGo(copy, name, deletion, twins)) return true;
    const std::uint64_t size = sizeIn(copy.folder, name);
    const std::uint64_t movedBefore = deletion.filesMoved();
    if (const Outcome moved = deletion.moveAside(name); !moved)
      addError(ZAN_FilesUtils::joinedPath(copy.folder.path(), name), moved.error().text);
    if (deletion.filesMoved() > movedBefore) mEnd.bytesDeleted += size;
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

void CopyRun::tellLook(const RsyncOutput& output) {
  mProgress.itemsSeen = std::max(mProgress.itemsSeen, mItemsSeen + output.itemsSeen());
  if (m.tell) m.tell(mProgress);
}

void CopyRun::tell(const Copy& copy, const RsyncOutput& output) {
  ExecuteMessages::Progress now = mProgress;
  if (!output.currentItem().empty()) now.currentPath = copy.pathOf(output.currentItem());
  now.filesCopied += output.filesCopied();
  now.sizeCopied += output.bytesCopied();
  now.value = std::max(mProgress.value, progress(now.sizeCopied, now.filesCopied));
  now.errors = mEnd.errors + output.errorCount();
  now.bytesToCopy = mBytesToCopy;
  now.filesToCopy = mFilesToCopy;
  const double time = m.clock.monotonic();
  mBytePace.add(time, static_cast<double>(now.sizeCopied));
  mPace.add(time, now.value);
  now.bytesPerSecond = mBytePace.perSecond();
  if (const double pace = mPace.perSecond(); pace > 0) now.secondsLeft = (100 - now.value) / pace;
  mProgress.value = now.value;
  mProgress.currentPath = now.currentPath;
  mProgress.bytesPerSecond = now.bytesPerSecond;
  if (m.tell) m.tell(now);
}

}  // namespace corvana
