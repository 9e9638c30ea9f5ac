#include "execute/plain/CopyLook.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "execute/plain/SourceSurvey.h"

namespace corvana {

namespace {

const std::vector<std::string> kMarkAlone{std::string(CopyMark::kName)};
/// Of a file as large as that a half is worth to be kept.
constexpr std::uint64_t kLarge = 16'000'000;
constexpr std::size_t kMostLeft = 1000;

/// Of the bytes of a file those that take up no room.
std::uint64_t holesOf(const HeldFolder& folder, const RsyncOutput::Item& item) {
  constexpr std::uint64_t kBlock = 512;
  struct stat state {};
  if (::fstatat(folder.descriptor(), item.name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0) return 0;
  return item.size - std::min(item.size, static_cast<std::uint64_t>(state.st_blocks) * kBlock);
}

std::string number(std::uint64_t count) { return std::to_string(count); }

}  // namespace

bool DeletionLimit::isPassed(std::uint64_t deletions, std::uint64_t filesOfCopy) const {
  return deletions > kFiles &&
         static_cast<double>(deletions) > share * static_cast<double>(filesOfCopy);
}

ExecuteEnd CopyLook::look(const std::function<void(const Planned&)>& planned) {
  mPlanned = planned;
  if (isInOrder() && openCopies() && lookAtAll()) {
    for (Copy& copy : mCopies) {
      if (mMayDelete) tellPlan(copy);
    }
  }
  finish();
  return mEnd;
}

bool CopyLook::openCopies() {
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

bool CopyLook::open(const CopyPlan::Source& source) {
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

bool CopyLook::refuseUntilTakenOver(ExecuteCode code, std::string reason) {
  mEnd.mayTakeOver = true;
  return fail(code, std::move(reason));
}

/// A volume that cannot be told from the folder below it is known by the copies on it.
bool CopyLook::checkIdentity() {
  if (mPlan.identity() == CopyPlan::Identity::sure || !mOwner.hasRun || mOwner.takesOver)
    return true;
  for (const auto& source : mPlan.sources()) {
    if (mPlanned && !mPlan.isDestinationThere()) break;
    struct stat state {};
    if (::fstatat(mDestination->descriptor(), source.name.c_str(), &state, AT_SYMLINK_NOFOLLOW) ==
        0)
      return true;
  }
  return refuseUntilTakenOver(
      ExecuteCode::volumeNotFound,
      mPlan.destination() +
          ": the copies that were made there are not there, so that "
          "another volume, or none, is mounted. If it is the right one: corvana9 edit " +
          std::to_string(mOwner.mark.reference) + " --adopt");
}

/// Whether the copy is this action's to fill; a new one becomes it.
bool CopyLook::checkOwner(const CopyPlan::Source& source, const HeldFolder& copy) {
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
    return refuseUntilTakenOver(ExecuteCode::unexpectedError,
                                copy.path() + ": it is the copy of " + (*found)->toText() +
                                    "; nothing was changed. " + remedy);
  }
  // Since volumes are told by their names, copies have marks.
  const bool isKnown = mOwner.takesOver || (mOwner.hasRun && mOwner.isAlone &&
                                            mPlan.identity() != CopyPlan::Identity::name);
  if (!*found && !isKnown) {
    const auto names = namesInFolder(copy.descriptor());
    if (!names) return failWith({ErrorKind::unreadable, copy.path() + ": " + std::strerror(errno)});
    if (!names->empty()) {
      // A copy that deletes nothing adds to what is there, and leaves it unmarked.
      if (!mPlan.deletes()) return true;
      return refuseUntilTakenOver(ExecuteCode::unexpectedError,
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

bool CopyLook::lookAtAll() {
  mProgress.isPlanning = true;
  for (Copy& copy : mCopies) {
    if (!lookAt(copy)) return false;
    mItemsSeen = mProgress.itemsSeen;
  }
  mProgress.isPlanning = false;
  checkDeletions();
  return true;
}

bool CopyLook::lookAt(Copy& copy) {
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
    std::uint64_t holes = 0;
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
      if (item.size < kLarge) return;
      const std::uint64_t unused = holesOf(copy.source.held, item);
      copy.largeItems.emplace(item.name, unused);
      holes += unused;
    });
    // Where nothing is, all is new whatever its attributes; a plan is to tell which cannot be read.
    const auto end = start(CopyPlan::Pass::look, copy, output,
                           {.tellsAll = isFirst && !watched.empty(),
                            .comparesAttributes = mPlanned || mOwner.hasRun || !copy.isEmpty});
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
    copy.isLookWhole = end->status == 0 && output.errorCount() == 0;
    mBytesToCopy += bytes;
    mFilesToCopy += files;
    mHoles += holes;
    if (copy.hasWork && !mPlanned) return true;
    // What is the same already is not looked at again, so this is where its errors are told.
    takeErrors(output, copy);
    if (end->status == kRsyncPartial) mEnd.errors = std::max<std::uint64_t>(mEnd.errors, 1);
    return true;
  }
}

/// Says what the copy will lack without a word of rsync's, as far as the user does not leave it
/// out; of names that the copy takes for one, all but one are left as they are.
void CopyLook::tellWhatIsLeftOut(Copy& copy, const SourceSurvey& survey,
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

void CopyLook::tellPlan(Copy& copy) {
  Deletion deletion(copy.source.held, copy.folder, nullptr);
  CaseTwins twins(copy.source.held);
  copy.deletions.forEach([&](const std::string& name) {
    if (!copy.isToGo(name, deletion, twins).value_or(false)) return true;
    mPlanned({Planned::Kind::deleted, ZAN_FilesUtils::joinedPath(copy.folder.path(), name),
              sizeIn(copy.folder, name)});
    return m.control.stopReason() == StopReason::none;
  });
}

/// Whether to delete at all: a run that would take too much out of a copy asks.
void CopyLook::checkDeletions() {
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

}  // namespace corvana
