#include "execute/plain/VersionJournal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "execute/engine/NameList.h"

namespace corvana {

namespace {

constexpr std::size_t kBuffer = 1 << 16;

bool isOwnFile(std::string_view name) {
  constexpr std::array kOwn{VersionFolder::kList, VersionFolder::kNewList, VersionFolder::kMerged,
                            VersionFolder::kJournal};
  return std::ranges::find(kOwn, name) != kOwn.end();
}

}  // namespace

bool VersionJournal::isIn(const HeldFolder& version) {
  struct stat state {};
  return ::fstatat(version.descriptor(), std::string(VersionFolder::kJournal).c_str(), &state,
                   AT_SYMLINK_NOFOLLOW) == 0;
}

Outcome VersionJournal::begin(const HeldFolder& version) {
  mVersion = &version;
  mFile =
      ZAN_Descriptor(::openat(version.descriptor(), std::string(VersionFolder::kJournal).c_str(),
                              O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  return mFile ? Outcome() : unwritable(version, VersionFolder::kJournal);
}

void VersionJournal::note(const std::string& line) {
  mBuffer.append(line).push_back('\n');
  if (mBuffer.size() < kBuffer) return;
  if (!writeAll(mFile.get(), mBuffer) && mFailure == 0) mFailure = errno;
  mBuffer.clear();
}

void VersionJournal::willChange(const HeldFolder& copy, const std::string& prefix,
                                const std::string& name) {
  if (!mFile) return;
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
  if (parent < 0 && isNothingThere(errno))
    return note(VersionItem{.name = std::move(full)}.toLine());
  auto item = parent < 0 ? std::nullopt : VersionItem::read(parent, entry, full, true);
  if (!item) {
    if (mFailure == 0) mFailure = errno;
    return;
  }
  note(item->toLine());
}

Outcome VersionJournal::willChangeNoMore() {
  mParents.reset();
  mNoted = nullptr;
  if (!mFile) return {};
  if (mFailure == 0 && !writeAll(mFile.get(), mBuffer)) mFailure = errno;
  if (mFailure == 0 && ::fsync(mFile.get()) != 0) mFailure = errno;
  if (const Outcome all = written(); !all) return all;
  return synchronise(*mVersion);
}

void VersionJournal::hasAdded(const std::string& prefix, const std::string& name) {
  if (!mFile) return;
  const auto [above, entry] = splitName(name);
  note(VersionItem{
      .name = ZAN_FilesUtils::joinedPath(prefix, above.empty() ? entry : above + "/" + entry)}
           .toLine());
}

Outcome VersionJournal::finish() {
  if (!mFile) return {};
  if (mFailure == 0 && !writeAll(mFile.get(), mBuffer)) mFailure = errno;
  mFile.close();
  return written();
}

Outcome VersionJournal::written() {
  mBuffer.clear();
  if (mFailure == 0) return {};
  errno = mFailure;
  return unwritable(*mVersion, VersionFolder::kJournal);
}

Outcome VersionJournal::writeList(const HeldFolder& folder, const HeldFolder& destination,
                                  const VersionHeader& header) {
  SortedLines lines;
  int failure = 0;
  const auto fail = [&failure] {
    if (failure == 0) failure = errno;
  };
  const ZAN_Descriptor journal(::openat(folder.descriptor(),
                                        std::string(VersionFolder::kJournal).c_str(),
                                        O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (journal) {
    LineReader reader(journal.get());
    for (std::string_view line; reader.next(line);) lines.add(line);
    if (reader.hasFailed()) fail();
  } else if (errno != ENOENT) {
    fail();
  }
  TreeCursor cursor(folder.descriptor(), {}, [&](const std::string&) { fail(); });
  while (const auto entry = cursor.next()) {
    if (entry->isFolder || isOwnFile(entry->name)) continue;
    const auto item = VersionItem::read(entry->folder, entry->entry, entry->name, true);
    item ? lines.add(item->toLine()) : fail();
  }
  ParentFolders aside(folder.descriptor());
  ParentFolders copies(destination.descriptor());
  const auto kindIn = [&](ParentFolders& parents, const std::string& name) {
    const auto [above, entry] = splitName(name);
    struct stat state {};
    const int parent = parents.open(above);
    if (parent >= 0 && ::fstatat(parent, entry.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0)
      return VersionItem::kindOf(state);
    // What is mounted there is none of it.
    if (!isNothingThere(errno) && errno != EXDEV) fail();
    return VersionItem::Kind::none;
  };
  VersionListWriter writer(folder.descriptor(), std::string(VersionFolder::kNewList), header);
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
  if (failure == 0 && writer.finish() && isSorted) return {};
  if (failure != 0) errno = failure;
  return unwritable(folder);
}

}  // namespace corvana
