#include "execute/plain/CopyJob.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "execute/engine/Words.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr std::size_t kKeptErrors = 200;
/// What a file costs besides its bytes, for a progress that moves with small ones, too.
constexpr double kBytesAFile = 4096;
constexpr double kNearlyDone = 99;
constexpr std::size_t kKeptPatterns = 200;

// rsync's exit codes.
constexpr int kVanished = 24;
constexpr int kTimeOut = 30;
constexpr int kConnectionTimeOut = 35;

bool isThrough(const RsyncProcess::End& end) {
  return !end.signalled && !end.isGivenUp &&
         (end.status == 0 || end.status == kRsyncPartial || end.status == kVanished);
}

}  // namespace

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

std::uint64_t CopyJob::Copy::filesOfCopy() const {
  return filesListed - std::min(newFiles, filesListed) + deletions.countOfFiles();
}

bool CopyJob::Copy::isUnread(const std::string& name) const {
  if (!unread) return true;
  for (std::size_t end = name.size();; end = name.rfind('/', end - 1)) {
    if (end == std::string::npos) break;
    if (unread->contains(name.substr(0, end))) return true;
    if (end == 0) break;
  }
  return unread->contains({});
}

void CopyJob::Copy::addUnread(const std::optional<std::set<std::string>>& names) {
  if (!names || !unread) return unread.reset();
  unread->insert(names->begin(), names->end());
}

std::string CopyJob::Copy::pathOf(const std::string& item) const {
  if (!source.isFolder || item == "./") return source.path;
  return ZAN_FilesUtils::joinedPath(source.path, item);
}

std::string CopyJob::Copy::placeOfCopy() const {
  return missing.empty() ? folder.heldPath() : folder.heldPath() + "/" + missing;
}

std::optional<bool> CopyJob::Copy::isToGo(const std::string& name, Deletion& deletion,
                                          CaseTwins& twins) const {
  if (isUnread(name)) return false;
  const auto isGone = deletion.isGone(name);
  return isGone && *isGone ? tellsCase || !twins.has(name) : isGone;
}

bool CopyJob::fail(ExecuteCode code, std::string reason) {
  mEnd.code = code;
  mEnd.reason = std::move(reason);
  return false;
}

bool CopyJob::failWith(const Error& error) {
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
bool CopyJob::isInOrder() {
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

bool CopyJob::isAlive() {
  if (!isInOrder()) return false;
  const Outcome alive = mPlan.checkAlive();
  if (alive) return true;
  return alive.error().kind == ErrorKind::refused
             ? fail(ExecuteCode::completedWithErrors, alive.error().text + "; nothing was deleted")
             : failWith(alive.error());
}

void CopyJob::addError(const std::string& path, std::string text) {
  ++mEnd.errors;
  if (mEnd.errorTexts.size() < kKeptErrors) mEnd.errorTexts.push_back(std::move(text));
  if (!mEnd.firstErrorPath) mEnd.firstErrorPath = path;
  mEnd.lastErrorPath = path;
}

/// What leaves the item out, kept for whoever wants to leave out all of them.
std::string CopyJob::remedyFor(const std::string& item) {
  constexpr std::size_t kLongest = 200;
  const std::string pattern = CopyPlan::literalPattern(item);
  if (mEnd.patterns.size() < kKeptPatterns &&
      std::ranges::find(mEnd.patterns, pattern) == mEnd.patterns.end())
    mEnd.patterns.push_back(pattern);
  return "; to leave it out for good: corvana9 edit " + std::to_string(mOwner.mark.reference) +
         (pattern.size() > kLongest ? " --exclude-missing" : " --exclude " + shellWord(pattern));
}

void CopyJob::addLack(const Copy& copy, const std::string& item, std::string text) {
  ++mEnd.notPossible;
  const std::string path = ZAN_FilesUtils::joinedPath(copy.source.path, item);
  addError(path, path + ": " + std::move(text) + remedyFor(item));
}

void CopyJob::takeErrors(const RsyncOutput& output, const Copy& copy) {
  mEnd.errors += output.errorCount();
  mEnd.notPossible += output.lackCount();
  for (const auto& error : output.errors()) {
    std::string remedy = error.lack ? remedyFor(*error.lack) : std::string();
    if (mEnd.errorTexts.size() >= kKeptErrors) continue;
    if (error.hindered) remedy = hindrance(copy.folder, *error.hindered);
    mEnd.errorTexts.push_back(error.text + remedy);
  }
  if (!mEnd.firstErrorPath) mEnd.firstErrorPath = output.firstErrorPath();
  if (output.lastErrorPath()) mEnd.lastErrorPath = output.lastErrorPath();
}

std::vector<RsyncOutput::Place> CopyJob::placesOf(const Copy& copy) const {
  std::vector<RsyncOutput::Place> places{
      {copy.source.held.heldPath(), copy.source.held.path(), true},
      {copy.folder.heldPath(), copy.folder.path(), false, true}};
  if (copy.aside) places.push_back({copy.aside->heldPath(), copy.aside->path()});

  return places;
}

Result<RsyncProcess::End> CopyJob::start(CopyPlan::Pass pass, Copy& copy, RsyncOutput& output,
                                         const Special& special) {
  const CopyPlan::Task what{.source = copy.source,
                            .to = copy.placeOfCopy(),
                            .aside = copy.aside ? &*copy.aside : nullptr,
                            .skippedItems = copy.skipped,
                            .options = mOptions,
                            .mayRemoveFolders = mMayDelete,
                            .tellsAll = special.tellsAll,
                            .comparesAttributes = special.comparesAttributes,
                            .keepsHalves = !copy.largeItems.empty(),
                            .onlyItem = special.onlyItem,
                            .readsItems = special.items >= 0};
  RsyncProcess::Task task{.arguments = mPlan.arguments(m.rsync, pass, what),
                          .descriptors = {copy.source.held.descriptor(), copy.folder.descriptor()},
                          .input = special.items};
  if (copy.aside) task.descriptors.push_back(copy.aside->descriptor());

  return run(std::move(task), output,
             [&] { pass == CopyPlan::Pass::copy ? tell(copy, output) : tellLook(output); });
}

Result<RsyncProcess::End> CopyJob::run(RsyncProcess::Task task, RsyncOutput& output,
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

/// Ends the run when rsync did not get through; errors are left to the caller.
bool CopyJob::endsWith(const RsyncProcess::End& end, const RsyncOutput& output, const Copy& copy) {
  if (!isInOrder()) return true;
  if (isThrough(end)) return false;
  takeErrors(output, copy);
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

std::uint64_t CopyJob::sizeIn(const HeldFolder& folder, const std::string& name) {
  struct stat state {};
  if (::fstatat(folder.descriptor(), name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISREG(state.st_mode))
    return 0;
  return static_cast<std::uint64_t>(state.st_size);
}

double CopyJob::progress(std::uint64_t bytes, std::uint64_t files) const {
  const double all =
      static_cast<double>(mBytesToCopy) + kBytesAFile * static_cast<double>(mFilesToCopy);
  const double done = static_cast<double>(bytes) + kBytesAFile * static_cast<double>(files);
  return all <= 0 ? 0 : std::min(kNearlyDone, 100 * done / all);
}

void CopyJob::tellLook(const RsyncOutput& output) {
  mProgress.itemsSeen = std::max(mProgress.itemsSeen, mItemsSeen + output.itemsSeen());
  if (m.tell) m.tell(mProgress);
}

void CopyJob::tell(const Copy& copy, const RsyncOutput& output) {
  ExecuteProgress now = mProgress;
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

void CopyJob::finish() {
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

}  // namespace corvana
