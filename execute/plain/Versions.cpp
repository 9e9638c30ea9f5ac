#include "execute/plain/Versions.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "execute/engine/FolderWalk.h"
#include "execute/plain/VersionMerge.h"

namespace corvana {

namespace {

using State = VersionFolder::State;

}  // namespace

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
  if (!mLock) return unwritable(*mAll);
  if (::flock(mLock.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    return Error{ErrorKind::unavailable, mAll->path() + ": another run works there"};

  for (const auto& folder : VersionFolder::all(*mAll)) {
    if (folder.state == State::going) {
      removeTree(mAll->descriptor(), folder.name);
    } else if (folder.state == State::current && folder.header && folder.header->isClosed) {
      if (!rename(folder.name, folder.base)) return unwritable(*mAll, folder.name);
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
      } else if (!rename(folder.name, VersionFolder::named(folder.base, State::current))) {
        return unwritable(*mAll, folder.name);
      }
    } else if (folder.state == State::dated) {
      if (Outcome done = VersionMerge(*mAll).settle(folder); !done) return done;
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
  auto held = mAll->below(VersionFolder::named(base, State::current));
  if (!held) return held.error();
  mCurrent = *std::move(held);
  mBase = base;
  return {};
}

bool Versions::wasCut() const { return mCurrent && VersionJournal::isIn(*mCurrent); }

/// A name for the folder of a version of that date that no other has.
std::string Versions::newBase(ReferenceTime date) const {
  const auto all = VersionFolder::all(*mAll);
  std::string base = versionDateText(date);
  for (int number = 2; std::ranges::find(all, base, &VersionFolder::base) != all.end(); ++number)
    base = versionDateText(date) + "-" + std::to_string(number);
  return base;
}

Outcome Versions::makeFolder(const VersionHeader& header, State state, const std::string& base) {
  const std::string name = VersionFolder::named(base, state);
  if (::mkdirat(mAll->descriptor(), name.c_str(), 0700) != 0) return unwritable(*mAll, base);
  auto folder = mAll->below(name);
  if (!folder) return folder.error();
  if (!VersionListWriter(folder->descriptor(), std::string(VersionFolder::kList), header)
           .finish()) {
    const Error error = unwritable(*mAll, name);
    removeTree(mAll->descriptor(), name);
    return error;
  }
  if (Outcome done = synchronise(*folder); !done) return done;
  return synchronise(*mAll);
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
    const std::string base = newBase(next.date);
    if (Outcome made = makeFolder(next, State::current, base); !made) return made;
    if (Outcome opened = openCurrent(base); !opened) return opened;
  }
  // Of what was never whole nothing is needed, unless something older is.
  const auto versions = chain();
  if (versions.size() == 1 && versions.front().header->isUnfinished) return {};
  return mJournal.begin(*mCurrent);
}

Result<HeldFolder> Versions::folderOf(const std::string& copy) const {
  return mCurrent->makeBelow(copy);
}

/// The current version gets its list and its final name, and the next one takes its place.
Outcome Versions::close(VersionHeader next) {
  auto header = VersionListReader::headerOf(mCurrent->descriptor(),
                                            std::string(VersionFolder::kList), mCurrent->path());
  if (!header) return header.error();
  // Clocks are set back; the order of versions stays.
  next.date = std::max(std::floor(next.date), header->date + 1);
  const std::string base = newBase(next.date);
  header->isClosed = true;
  header->next = base;
  if (Outcome written = VersionJournal::writeList(*mCurrent, mDestination, *header); !written)
    return written;
  if (Outcome made = makeFolder(next, State::fresh, base); !made) return made;
  if (!VersionFolder::takeNewList(*mCurrent)) return unwritable(*mCurrent);
  ::unlinkat(mCurrent->descriptor(), std::string(VersionFolder::kJournal).c_str(), 0);
  if (Outcome done = synchronise(*mCurrent); !done) return done;
  if (!rename(VersionFolder::named(mBase, State::current), mBase) ||
      !rename(VersionFolder::named(base, State::fresh), VersionFolder::named(base, State::current)))
    return unwritable(*mAll, mBase);
  if (Outcome done = synchronise(*mAll); !done) return done;
  return openCurrent(base);
}

Outcome Versions::finish(VersionHeader now) {
  if (!mCurrent) return {};
  if (Outcome noted = mJournal.finish(); !noted) return noted;
  now.isUnfinished = now.isClosed = false;
  if (Outcome closed = close(std::move(now)); !closed) return closed;
  auto versions = chain();
  for (const auto& version : std::vector(versions)) {
    if (!version.header->isUnfinished || version.state != State::dated) continue;
    if (Outcome dropped = drop(version, versions); !dropped) return dropped;
  }
  return {};
}

/// What the version alone had is gone; what older ones need goes to the next older one.
Outcome Versions::drop(const VersionFolder& version, std::vector<VersionFolder>& chain) {
  const auto found = std::ranges::find(chain, version.name, &VersionFolder::name);
  if (found == chain.end()) return {};
  if (found != chain.begin()) {
    if (Outcome done = VersionMerge(*mAll).perform(*std::prev(found), version); !done) return done;
  } else if (!remove(version.name)) {
    return unwritable(*mAll, version.name);
  }
  chain.erase(found);
  return {};
}

bool Versions::remove(const std::string& name) {
  // Half of a folder is not to be taken for a whole one.
  const auto folder = VersionFolder::fromName(name);
  const std::string going = folder ? VersionFolder::named(folder->base, State::going) : name;
  if (going != name && !rename(name, going)) return false;
  return removeTree(mAll->descriptor(), going);
}

Outcome Versions::thin(ReferenceTime now, const VersionsKept& kept) {
  if (!mAll) return {};
  auto versions = chain();
  const auto all = versions;
  std::vector<ReferenceTime> dates;
  for (const auto& version : versions) dates.push_back(version.date);
  const bool isTimeBelieved = VersionsKept::beforeLeap(dates, now) == 0;
  for (const auto& folder : VersionFolder::all(*mAll)) {
    if (isTimeBelieved && !folder.header && folder.state == State::dated &&
        now - folder.date > kKeptWithoutList)
      remove(folder.name);
  }
  for (const std::size_t index : kept.superfluous(dates, now)) {
    if (Outcome dropped = drop(all[index], versions); !dropped) return dropped;
  }
  if (kept.bytes > 0) {
    std::uint64_t bytes = 0;
    std::vector<std::uint64_t> sizes;
    for (const auto& version : versions) {
      sizes.push_back(version.bytesOnDisk(*mAll));
      bytes += sizes.back();
    }
    for (std::size_t i = 0; i + 1 < versions.size() && bytes > kept.bytes; ++i) {
      if (!remove(versions[i].name)) return unwritable(*mAll, versions[i].name);
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
    if (!remove(folder.name)) return unwritable(*mAll, folder.name);
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
      found.emplace_back(folder, folder.bytesOnDisk(*mAll));
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
