#include "execute/plain/Versions.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

using State = VersionFolder::State;

constexpr std::size_t kBuffer = 1 << 16;
constexpr int kMostASecond = 100;
constexpr std::string_view kNewList = ".corvana9-list.new";
constexpr std::string_view kMerged = ".corvana9-merged";
constexpr std::array<std::pair<State, std::string_view>, 4> kStates{{{State::current, ".current"},
                                                                     {State::fresh, ".new"},
                                                                     {State::going, ".deleting"},
                                                                     {State::merging, ".merging"}}};

std::string named(const std::string& base, State state) {
  const auto found = std::ranges::find(kStates, state, &std::pair<State, std::string_view>::first);
  return found == kStates.end() ? base : base + std::string(found->second);
}

bool exists(int folder, std::string_view name) {
  struct stat state {};
  return ::fstatat(folder, std::string(name).c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0;
}

bool isOwnFile(std::string_view name) {
  return name == Versions::kList || name == Versions::kJournal || name == kNewList ||
         name == kMerged;
}

Outcome synchronise(const HeldFolder& folder) {
  const ZAN_Descriptor open(::openat(folder.descriptor(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (open && ::fsync(open.get()) == 0) return {};
  // Some file systems cannot do it to a folder.
  if (open && errno == EINVAL) return {};
  return Error{ErrorKind::unwritable, folder.path() + ": " + std::strerror(errno)};
}

std::uint64_t sizeOf(int all, const std::string& name) {
  const ZAN_Descriptor folder = openFolderBelow(all, name);
  std::uint64_t blocks = 0;
  if (!folder) return 0;
  TreeCursor cursor(folder.get(), {});
  while (const auto entry = cursor.next()) {
    struct stat state {};
    if (::fstatat(entry->folder, entry->entry.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0)
      blocks += static_cast<std::uint64_t>(state.st_blocks);
  }
  return blocks * 512;
}

}  // namespace

std::optional<VersionFolder> VersionFolder::fromName(const std::string& name) {
  VersionFolder folder{.name = name, .base = name};
  for (const auto& [state, ending] : kStates) {
    if (!name.ends_with(ending)) continue;
    folder.state = state;
    folder.base.resize(name.size() - ending.size());
    break;
  }
  const auto dash = folder.base.find("Z-");
  const auto date = versionDate(
      std::string_view(folder.base).substr(0, dash == std::string::npos ? dash : dash + 1));
  if (!date) return std::nullopt;
  folder.date = *date;
  if (dash == std::string::npos) return folder;
  const std::string_view number = std::string_view(folder.base).substr(dash + 2);
  const auto [end, error] =
      std::from_chars(number.data(), number.data() + number.size(), folder.number);
  if (error != std::errc() || end != number.data() + number.size()) return std::nullopt;
  return folder;
}

std::vector<VersionFolder> VersionFolder::all(const HeldFolder& versions) {
  std::vector<VersionFolder> found;
  for (const auto& name :
       namesInFolder(versions.descriptor()).value_or(std::vector<std::string>())) {
    auto folder = fromName(name);
    if (!folder) continue;
    if (const ZAN_Descriptor open = openFolderBelow(versions.descriptor(), name)) {
      const auto header =
          VersionListReader::headerOf(open.get(), std::string(Versions::kList), name);
      if (header) folder->header = *header;
    }
    found.push_back(*std::move(folder));
  }
  std::ranges::sort(found, [](const auto& one, const auto& two) { return one.isOlderThan(two); });
  return found;
}

Error Versions::failed(const std::string& name) const {
  const int code = errno;
  const std::string path = ZAN_FilesUtils::joinedPath(mDestination.path(), std::string(kName));
  return {ErrorKind::unwritable,
          ZAN_FilesUtils::joinedPath(path, name) + ": " + std::strerror(code)};
}

/// Those of the action, oldest first, without what is going.
std::vector<VersionFolder> Versions::chain() const {
  auto all = mAll ? VersionFolder::all(*mAll) : std::vector<VersionFolder>();
  std::erase_if(all, [&](const VersionFolder& folder) {
    return !folder.header || !folder.header->isOfSameAction(mOwn) ||
           (folder.state != State::dated && folder.state != State::current);
  });
  return all;
}

Result<Versions> Versions::open(const HeldFolder& destination, VersionHeader own) {
  auto held = destination.again();
  if (!held) return held.error();
  Versions versions(*std::move(held), std::move(own));
  auto all = destination.below(std::string(kName));
  if (!all && all.error().kind == ErrorKind::absent) return versions;
  if (!all) return all.error();
  versions.mAll = *std::move(all);
  if (const Outcome settled = versions.settle(); !settled) return settled.error();
  return versions;
}

bool Versions::rename(const std::string& from, const std::string& to) const {
  return ::renameat(mAll->descriptor(), from.c_str(), mAll->descriptor(), to.c_str()) == 0;
}

Outcome Versions::settle() {
  mLock = ZAN_Descriptor(::openat(mAll->descriptor(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!mLock) return failed({});
  if (::flock(mLock.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    return Error{ErrorKind::unavailable, mAll->path() + ": another run works there"};

  for (const auto& folder : VersionFolder::all(*mAll)) {
    if (folder.state == State::going) {
      removeTree(mAll->descriptor(), folder.name);
    } else if (folder.state == State::current && folder.header && folder.header->isClosed) {
      if (!rename(folder.name, folder.base)) return failed(folder.name);
    }
  }
  const auto all = VersionFolder::all(*mAll);
  for (const auto& folder : all) {
    if (folder.state == State::fresh) {
      const bool isSucceeded =
          !folder.header || std::ranges::any_of(all, [&](const VersionFolder& other) {
            return other.state == State::current && other.header &&
                   other.header->isOfSameAction(*folder.header);
          });
      if (isSucceeded) {
        removeTree(mAll->descriptor(), folder.name);
      } else if (!rename(folder.name, named(folder.base, State::current))) {
        return failed(folder.name);
      }
    } else if (folder.state == State::dated) {
      const ZAN_Descriptor open = openFolderBelow(mAll->descriptor(), folder.name);
      if (!open || !exists(open.get(), kMerged)) continue;
      const auto merged =
          VersionListReader::headerOf(open.get(), std::string(kMerged), folder.name);
      auto held = mAll->below(folder.name);
      if (!held) return held.error();
      if (merged && exists(mAll->descriptor(), merged->merges)) {
        if (Outcome done = finishMerge(*held, merged->merges); !done) return done;
      } else {
        ::unlinkat(open.get(), std::string(kMerged).c_str(), 0);
      }
    }
  }
  for (const auto& folder : all) {
    if (folder.state == State::merging) removeTree(mAll->descriptor(), folder.name);
  }
  for (const auto& folder : chain()) {
    if (folder.state != State::current) continue;
    if (Outcome opened = openCurrent(folder.base); !opened) return opened;
  }
  return {};
}

Outcome Versions::openCurrent(const std::string& base) {
  auto held = mAll->below(named(base, State::current));
  if (!held) return held.error();
  mCurrent = *std::move(held);
  mBase = base;
  return {};
}

bool Versions::wasCut() const { return mCurrent && exists(mCurrent->descriptor(), kJournal); }

/// A folder of its own for the header's date, or later where there is one already.
Outcome Versions::makeFolder(const VersionHeader& header, State state, std::string& base) {
  const auto all = VersionFolder::all(*mAll);
  for (int number = 1; number <= kMostASecond; ++number) {
    base = versionDateText(header.date);
    if (number > 1) base += "-" + std::to_string(number);
    if (std::ranges::any_of(all, [&](const auto& other) { return other.base == base; })) continue;
    const std::string name = named(base, state);
    if (::mkdirat(mAll->descriptor(), name.c_str(), 0700) != 0) break;
    auto folder = mAll->below(name);
    if (!folder) return folder.error();
    if (!VersionListWriter(folder->descriptor(), std::string(kList), header).finish()) {
      const Error error = failed(name);
      removeTree(mAll->descriptor(), name);
      return error;
    }
    if (Outcome done = synchronise(*folder); !done) return done;
    return synchronise(*mAll);
  }
  return failed(base);
}

Outcome Versions::endCut() {
  if (!wasCut()) return {};
  VersionHeader next = mOwn;
  next.date = 0;  // right after the one before it
  next.isUnfinished = true;
  return close(std::move(next));
}

Outcome Versions::begin(ReferenceTime now, bool isFirst) {
  if (!mAll) {
    auto all = mDestination.makeBelow(std::string(kName), 0700);
    if (!all) return all.error();
    mAll = *std::move(all);
    if (Outcome settled = settle(); !settled) return settled;
  }
  if (Outcome ended = endCut(); !ended) return ended;
  if (!mCurrent) {
    VersionHeader next = mOwn;
    // What is there was made before there were versions, and may be as old as that.
    if (next.date == 0 || next.date >= now) next.date = now - 1;
    next.isUnfinished = isFirst;
    std::string base;
    if (Outcome made = makeFolder(next, State::current, base); !made) return made;
    if (Outcome opened = openCurrent(base); !opened) return opened;
  }
  // Of what was never whole nothing is needed, unless something older is.
  const auto versions = chain();
  mRecords = versions.size() != 1 || !versions.front().header->isUnfinished;
  if (!mRecords) return {};
  mJournal = ZAN_Descriptor(::openat(mCurrent->descriptor(), std::string(kJournal).c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!mJournal) return failed(std::string(kJournal));
  return {};
}

Result<HeldFolder> Versions::folderOf(const std::string& copy) const {
  return mCurrent->makeBelow(copy);
}

void Versions::note(std::string line) {
  mBuffer.append(line).push_back('\n');
  if (mBuffer.size() < kBuffer) return;
  if (!writeAll(mJournal.get(), mBuffer) && mFailure == 0) mFailure = errno;
  mBuffer.clear();
}

void Versions::willChange(const HeldFolder& copy, const std::string& prefix,
                          const std::string& name) {
  if (!mRecords) return;
  if (mNoted != &copy) {
    mNoted = &copy;
    mParents.emplace(copy.descriptor());
  }
  auto [above, entry] = splitName(name);
  std::string full =
      ZAN_FilesUtils::joinedPath(prefix, above.empty() ? entry : above + "/" + entry);
  if (entry == ".") full = prefix;
  const int parent = mParents->open(above);
  // Below what is no folder there is nothing.
  if (parent < 0 && (errno == ENOENT || errno == ENOTDIR || errno == ELOOP))
    return note(VersionItem{.name = std::move(full)}.toLine());
  auto item = parent < 0 ? std::nullopt : VersionItem::read(parent, entry, full, true);
  if (!item) {
    if (mFailure == 0) mFailure = errno;
    return;
  }
  note(item->toLine());
}

Outcome Versions::willChangeNoMore() {
  mParents.reset();
  mNoted = nullptr;
  if (!mRecords) return {};
  if (mFailure == 0 && !writeAll(mJournal.get(), mBuffer)) mFailure = errno;
  if (mFailure == 0 && ::fsync(mJournal.get()) != 0) mFailure = errno;
  mBuffer.clear();
  if (mFailure != 0) {
    errno = mFailure;
    return failed(std::string(kJournal));
  }
  return synchronise(*mCurrent);
}

void Versions::hasAdded(const std::string& prefix, const std::string& name) {
  if (!mRecords) return;
  const auto [above, entry] = splitName(name);
  note(VersionItem{
      .name = ZAN_FilesUtils::joinedPath(prefix, above.empty() ? entry : above + "/" + entry)}
           .toLine());
}

/// Puts the journal in order, with what lies in the folder: what no run could note is told by that.
Outcome Versions::writeList(const HeldFolder& folder, const VersionHeader& header) {
  SortedLines lines;
  const ZAN_Descriptor journal(::openat(folder.descriptor(), std::string(kJournal).c_str(),
                                        O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (journal) {
    LineReader reader(journal.get());
    for (std::string_view line; reader.next(line);) lines.add(line);
  }
  TreeCursor cursor(folder.descriptor(), {});
  while (const auto entry = cursor.next()) {
    if (entry->isFolder || isOwnFile(entry->name)) continue;
    if (const auto item = VersionItem::read(entry->folder, entry->entry, entry->name, true))
      lines.add(item->toLine());
  }
  ParentFolders aside(folder.descriptor());
  ParentFolders copies(mDestination.descriptor());
  const auto kindIn = [](ParentFolders& parents, const std::string& name) {
    const auto [above, entry] = splitName(name);
    struct stat state {};
    const int parent = parents.open(above);
    return parent >= 0 && ::fstatat(parent, entry.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0
               ? VersionItem::kindOf(state)
               : VersionItem::Kind::none;
  };
  VersionListWriter writer(folder.descriptor(), std::string(kNewList), header);
  std::string closedName;
  const bool isSorted = lines.forEach([&](std::string_view line) {
    auto item = VersionItem::fromLine(line);
    // Below what is no folder there is nothing to tell.
    if (!item || (!closedName.empty() && isBelow(item->name, closedName))) return true;
    if (item->kind == VersionItem::Kind::none &&
        kindIn(copies, item->name) == VersionItem::Kind::none)
      return true;
    if (item->kind != VersionItem::Kind::folder) closedName = item->name;
    if (item->contents == VersionItem::Contents::open) {
      item->contents = kindIn(aside, item->name) == item->kind ? VersionItem::Contents::here
                                                               : VersionItem::Contents::newer;
    }
    writer.add(item->toLine());
    return true;
  });
  if (!writer.finish() || !isSorted) return failed(folder.path());
  return {};
}

/// The current version gets its list and its final name, and the next one takes its place.
Outcome Versions::close(VersionHeader next) {
  auto header =
      VersionListReader::headerOf(mCurrent->descriptor(), std::string(kList), mCurrent->path());
  if (!header) return header.error();
  header->isClosed = true;
  if (Outcome written = writeList(*mCurrent, *header); !written) return written;
  // Clocks are set back; the order of versions stays.
  next.date = std::max(std::floor(next.date), header->date + 1);
  std::string base;
  if (Outcome made = makeFolder(next, State::fresh, base); !made) return made;
  const int folder = mCurrent->descriptor();
  if (::renameat(folder, std::string(kNewList).c_str(), folder, std::string(kList).c_str()) != 0)
    return failed(mBase);
  ::unlinkat(folder, std::string(kJournal).c_str(), 0);
  if (Outcome done = synchronise(*mCurrent); !done) return done;
  if (!rename(named(mBase, State::current), mBase) ||
      !rename(named(base, State::fresh), named(base, State::current)))
    return failed(mBase);
  if (Outcome done = synchronise(*mAll); !done) return done;
  return openCurrent(base);
}

Outcome Versions::finish(VersionHeader now) {
  if (!mCurrent) return {};
  if (mRecords) {
    if (mFailure == 0 && !writeAll(mJournal.get(), mBuffer)) mFailure = errno;
    mBuffer.clear();
    mJournal.close();
    if (mFailure != 0) {
      errno = mFailure;
      return failed(std::string(kJournal));
    }
  }
  now.isUnfinished = now.isClosed = false;
  if (Outcome closed = close(std::move(now)); !closed) return closed;
  mRecords = false;
  for (auto versions = chain(); const auto& version : versions) {
    if (!version.header->isUnfinished || version.state != State::dated) continue;
    if (Outcome dropped = drop(version, chain()); !dropped) return dropped;
  }
  return {};
}

/// What the version alone had is gone; what older ones need goes to the next older one.
Outcome Versions::drop(const VersionFolder& version, const std::vector<VersionFolder>& chain) {
  const auto found = std::ranges::find(chain, version.name, &VersionFolder::name);
  if (found == chain.end()) return {};
  if (found != chain.begin()) return merge(*std::prev(found), version);
  return remove(version.name) ? Outcome() : failed(version.name);
}

Outcome Versions::merge(const VersionFolder& older, const VersionFolder& newer) {
  auto into = mAll->below(older.name);
  auto from = mAll->below(newer.name);
  if (!into || !from) return into ? from.error() : into.error();
  const std::string merging = named(newer.base, State::merging);
  if (Outcome listed = listMerged(*into, *from, merging); !listed) return listed;
  if (Outcome done = synchronise(*into); !done) return done;
  // From here on the newer one is no version any more.
  if (!rename(newer.name, merging)) return failed(newer.name);
  if (Outcome done = synchronise(*mAll); !done) return done;
  return finishMerge(*into, merging);
}

/// Its lists are closed at the end: on a share a file that is open does not go, nor its folder.
Outcome Versions::listMerged(const HeldFolder& into, const HeldFolder& from,
                             const std::string& merging) {
  auto first = VersionListReader::open(into.descriptor(), std::string(kList), into.path());
  auto second = VersionListReader::open(from.descriptor(), std::string(kList), from.path());
  if (!first || !second) return first ? second.error() : first.error();
  VersionHeader header = first->header();
  header.merges = merging;
  VersionListWriter writer(into.descriptor(), std::string(kMerged), header);
  auto one = first->next();
  auto two = second->next();
  std::string closedName;
  const auto before = [](const VersionItem& item, const VersionItem& other) {
    return comesBefore(VersionItem::escaped(item.name), VersionItem::escaped(other.name));
  };
  while (one || two) {
    const bool isOlder = one && (!two || !before(*two, *one));
    const bool isBoth = isOlder && two && one->name == two->name;
    VersionItem item = isOlder ? *one : *two;
    if (isBoth && item.contents == VersionItem::Contents::newer) item.contents = two->contents;
    if (isOlder) one = first->next();
    if (!isOlder || isBoth) two = second->next();
    if (!closedName.empty() && isBelow(item.name, closedName)) continue;
    if (item.kind != VersionItem::Kind::folder) closedName = item.name;
    writer.add(item.toLine());
  }
  return writer.finish() ? Outcome() : failed(into.path());
}

Outcome Versions::finishMerge(const HeldFolder& older, const std::string& merging) {
  auto from = mAll->below(merging);
  if (!from) return from.error();
  auto list = VersionListReader::open(older.descriptor(), std::string(kMerged), older.path());
  if (!list) return list.error();
  ParentFolders source(from->descriptor());
  ParentFolders target(older.descriptor());
  while (auto item = list->next()) {
    if (item->contents != VersionItem::Contents::here) continue;
    const auto [above, entry] = splitName(item->name);
    const int parent = source.open(above);
    if (parent < 0 || !exists(parent, entry)) continue;
    const int folder = target.make(above);
    if (folder < 0) return failed(older.path());
    // What the older one has is what it had.
    if (!renameBeside(parent, folder, entry) && errno != EEXIST) return failed(item->name);
  }
  VersionHeader header = list->header();
  header.merges.clear();
  auto again = VersionListReader::open(older.descriptor(), std::string(kMerged), older.path());
  if (!again) return again.error();
  VersionListWriter writer(older.descriptor(), std::string(kNewList), header);
  for (auto line = again->nextLine(); !line.empty(); line = again->nextLine()) writer.add(line);
  const int folder = older.descriptor();
  if (!writer.finish() ||
      ::renameat(folder, std::string(kNewList).c_str(), folder, std::string(kList).c_str()) != 0)
    return failed(older.path());
  ::unlinkat(folder, std::string(kMerged).c_str(), 0);
  if (Outcome done = synchronise(older); !done) return done;
  return removeTree(mAll->descriptor(), merging) ? Outcome() : failed(merging);
}

bool Versions::remove(const std::string& name) {
  // Half of a folder is not to be taken for a whole one.
  const auto folder = VersionFolder::fromName(name);
  const std::string going = folder ? named(folder->base, State::going) : name;
  if (going != name && !rename(name, going)) return false;
  return removeTree(mAll->descriptor(), going);
}

Outcome Versions::thin(ReferenceTime now, const VersionsKept& kept) {
  if (!mAll) return {};
  auto versions = chain();
  std::vector<ReferenceTime> dates;
  for (const auto& version : versions) dates.push_back(version.date);
  const bool isTimeBelieved = VersionsKept::beforeLeap(dates, now) == 0;
  for (const auto& folder : VersionFolder::all(*mAll)) {
    if (isTimeBelieved && !folder.header && folder.state == State::dated &&
        now - folder.date > kKeptWithoutList)
      remove(folder.name);
  }
  for (const std::size_t index : kept.superfluous(dates, now)) {
    if (Outcome dropped = drop(versions[index], chain()); !dropped) return dropped;
  }
  if (kept.bytes > 0) {
    versions = chain();
    std::uint64_t bytes = 0;
    std::vector<std::uint64_t> sizes;
    for (const auto& version : versions) {
      sizes.push_back(sizeOf(mAll->descriptor(), version.name));
      bytes += sizes.back();
    }
    for (std::size_t i = 0; i + 1 < versions.size() && bytes > kept.bytes; ++i) {
      if (!remove(versions[i].name)) return failed(versions[i].name);
      bytes -= sizes[i];
    }
  }
  if (freeSpace() >= kept.freeSpace) return {};
  std::uint64_t given = 0;
  constexpr double kTwoDays = 2 * 86400.0;
  for (const auto& [folder, size] : removable()) {
    // What others have written is not for the versions to make good.
    if (freeSpace() >= kept.freeSpace || given + size > kept.added || now - folder.date < kTwoDays)
      break;
    if (!remove(folder.name)) return failed(folder.name);
    given += size;
  }
  return {};
}

std::uint64_t Versions::freeSpace() const {
  struct statvfs space {};
  if (::fstatvfs(mDestination.descriptor(), &space) != 0) return UINT64_MAX;
  return static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
}

std::vector<std::pair<VersionFolder, std::uint64_t>> Versions::removable() const {
  std::vector<std::pair<VersionFolder, std::uint64_t>> found;
  for (auto& folder : mAll ? VersionFolder::all(*mAll) : std::vector<VersionFolder>()) {
    if (folder.state == State::dated || folder.state == State::going)
      found.emplace_back(folder, sizeOf(mAll->descriptor(), folder.name));
  }
  return found;
}

bool Versions::makeRoom(std::uint64_t bytes) {
  const std::uint64_t free = freeSpace();
  if (free >= bytes) return true;
  std::uint64_t inAll = free;
  const auto oldest = removable();
  for (const auto& [folder, size] : oldest) inAll += size;
  // Others fill the disk, and would take what is given up, too.
  if (inAll < bytes) return false;
  for (const auto& [folder, size] : oldest) {
    if (freeSpace() >= bytes || !remove(folder.name)) break;
  }
  return freeSpace() >= bytes;
}

bool Versions::forget() {
  bool isGone = true;
  mCurrent.reset();
  for (const auto& folder : chain()) isGone = remove(folder.name) && isGone;
  return isGone;
}

}  // namespace corvana
