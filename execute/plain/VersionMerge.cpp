#include "execute/plain/VersionMerge.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "execute/engine/FolderWalk.h"

namespace corvana {

namespace {

bool exists(int folder, std::string_view name) {
  struct stat state {};
  return ::fstatat(folder, std::string(name).c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0;
}

}  // namespace

Outcome VersionMerge::perform(const VersionFolder& older, const VersionFolder& newer) const {
  auto into = mAll.below(older.name);
  auto from = mAll.below(newer.name);
  if (!into || !from) return into ? from.error() : into.error();
  const std::string merging = VersionFolder::named(newer.base, VersionFolder::State::merging);
  if (Outcome listed = list(*into, *from, newer.base); !listed) return listed;
  if (Outcome done = synchronise(*into); !done) return done;
  // From here on the newer one is no version any more.
  if (::renameat(mAll.descriptor(), newer.name.c_str(), mAll.descriptor(), merging.c_str()) != 0)
    return unwritable(mAll, newer.name);
  if (Outcome done = synchronise(mAll); !done) return done;
  return finish(*into, merging);
}

/// Its lists are closed at the end: on a share a file that is open does not go, nor its folder.
Outcome VersionMerge::list(const HeldFolder& into, const HeldFolder& from,
                           const std::string& newer) {
  auto first =
      VersionListReader::open(into.descriptor(), std::string(VersionFolder::kList), into.path());
  auto second =
      VersionListReader::open(from.descriptor(), std::string(VersionFolder::kList), from.path());
  if (!first || !second) return first ? second.error() : first.error();
  VersionHeader header = first->header();
  header.merges = VersionFolder::named(newer, VersionFolder::State::merging);
  if (header.next == newer) header.next = second->header().next;
  VersionListWriter writer(into.descriptor(), std::string(VersionFolder::kMerged), header);
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
  return writer.finish() && first->isAtEnd() && second->isAtEnd() ? Outcome() : unwritable(into);
}

Outcome VersionMerge::finish(const HeldFolder& older, const std::string& merging) const {
  auto from = mAll.below(merging);
  if (!from) return from.error();
  auto list = VersionListReader::open(older.descriptor(), std::string(VersionFolder::kMerged),
                                      older.path());
  if (!list) return list.error();
  ParentFolders source(from->descriptor());
  ParentFolders target(older.descriptor());
  while (auto item = list->next()) {
    if (item->contents != VersionItem::Contents::here) continue;
    const auto [above, entry] = splitName(item->name);
    const int parent = source.open(above);
    struct stat state {};
    if (parent < 0 || ::fstatat(parent, entry.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0) {
      // A merge that was cut off has taken it over.
      if (isNothingThere(errno)) continue;
      return unwritable(older, item->name);
    }
    const int folder = target.make(above);
    if (folder < 0) return unwritable(older);
    // What the older one has is what it had.
    if (!renameBeside(parent, folder, entry) && errno != EEXIST)
      return unwritable(older, item->name);
  }
  if (!list->isAtEnd()) return unwritable(older);
  VersionHeader header = list->header();
  header.merges.clear();
  auto again = VersionListReader::open(older.descriptor(), std::string(VersionFolder::kMerged),
                                       older.path());
  if (!again) return again.error();
  VersionListWriter writer(older.descriptor(), std::string(VersionFolder::kNewList), header);
  for (auto line = again->nextLine(); !line.empty(); line = again->nextLine()) writer.add(line);
  if (!again->isAtEnd() || !writer.finish() || !VersionFolder::takeNewList(older))
    return unwritable(older);
  ::unlinkat(older.descriptor(), std::string(VersionFolder::kMerged).c_str(), 0);
  if (Outcome done = synchronise(older); !done) return done;
  return removeTree(mAll.descriptor(), merging) ? Outcome() : unwritable(mAll, merging);
}

Outcome VersionMerge::settle(const VersionFolder& older) const {
  // Most have none, and to hold a folder takes its time.
  const ZAN_Descriptor open = openFolderBelow(mAll.descriptor(), older.name);
  if (!open || !exists(open.get(), VersionFolder::kMerged)) return {};
  const auto held = mAll.below(older.name);
  if (!held) return held.error();
  const auto merged = VersionListReader::headerOf(held->descriptor(),
                                                  std::string(VersionFolder::kMerged), older.name);
  if (!merged && merged.error().kind == ErrorKind::unreadable) return merged.error();
  if (merged && exists(mAll.descriptor(), merged->merges)) return finish(*held, merged->merges);
  ::unlinkat(held->descriptor(), std::string(VersionFolder::kMerged).c_str(), 0);
  return {};
}

}  // namespace corvana
