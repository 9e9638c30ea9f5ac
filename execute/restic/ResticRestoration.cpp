#include "execute/restic/ResticRestoration.h"

#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "execute/engine/FolderWalk.h"
#include "execute/restic/RestorePieces.h"
#include "execute/restic/StagedSnapshot.h"

namespace corvana {

namespace {

using ItemKind = VersionItem::Kind;
/// restic compares each item with each name that it is to bring.
constexpr std::size_t kMostNames = 64;

/// Whether it is there as the snapshot's list has it, which knows no contents.
bool isThere(const VersionItem& item, const std::optional<VersionItem>& now) {
  if (!now || now->kind != item.kind) return false;
  // Only root can give files away.
  const bool isOthers = ::geteuid() == 0 && (now->user != item.user || now->group != item.group);
  const bool isLink = item.kind == ItemKind::link;
  return !isOthers && now->size == item.size && now->seconds == item.seconds &&
         now->nanoseconds == item.nanoseconds && (isLink || now->mode == item.mode);
}

}  // namespace

/// Targets in one folder that are listed and fetched together.
struct ResticRestoration::Batch {
  std::vector<const VersionTarget*> targets = {};
  std::uint64_t bytes = 0;  ///< once it was looked at

  const HeldFolder& folder() const { return targets.front()->folder; }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const VersionTarget* target : targets) names.push_back(target->name);
    return names;
  }
  /// The one that a name of the version belongs to.
  const VersionTarget& targetOf(const std::string& name) const {
    return **std::ranges::find_if(targets, [&](const VersionTarget* target) {
      return name == target->name || isBelow(name, target->name);
    });
  }
};

std::vector<ResticRestoration::Batch> ResticRestoration::batchesOf(
    const std::vector<VersionTarget>& targets) const {
  std::vector<Batch> batches;
  for (const VersionTarget& target : targets) {
    if (batches.empty() || batches.back().targets.size() == kMostNames ||
        !batches.back().folder().isSameFolder(target.folder))
      batches.emplace_back();
    batches.back().targets.push_back(&target);
  }
  return batches;
}

/// How much it is; with `onlyLooks` tells what would be done.
Outcome ResticRestoration::look(Batch& batch, const Restoration::Options& options,
                                Restoration::Counts& restored, Restoration::Counts& all) {
  ParentFolders folders(batch.folder().descriptor());
  const SnapshotTree tree(m.restic, mSnapshot);
  const auto names = batch.names();
  std::set<std::string, std::less<>> notSeen(names.begin(), names.end());
  const Outcome looked = tree.forEachOf(names, [&](const VersionTree::Entry& entry) {
    const VersionItem& item = entry.item;
    notSeen.erase(item.name);
    if (item.kind == ItemKind::folder) return true;
    ++all.files;
    all.bytes += item.size;
    batch.bytes += item.size;
    if (!options.onlyLooks) return true;
    const std::string place = batch.targetOf(item.name).placeOf(item.name);
    const auto [above, name] = splitName(place);
    const int folder = folders.open(above);
    const auto now = folder < 0 ? std::nullopt : VersionItem::read(folder, name, {}, false);
    const std::string path = ZAN_FilesUtils::joinedPath(batch.folder().path(), place);
    if (isThere(item, now)) {
      ++restored.same;
      ++restored.unread;
      return mHooks.goesOn(path, all.files, all.bytes);
    }
    ++restored.files;
    restored.bytes += item.size;
    if (now && now->kind != ItemKind::none &&
        (!options.overwrites || now->kind == ItemKind::folder)) {
      ++restored.kept;
      mHooks.done(path, true);
    }
    mHooks.done(path, false);
    return mHooks.goesOn(path, all.files, all.bytes);
  });
  if (!looked || m.host.control.stopReason() != StopReason::none) return looked;
  for (const std::string& name : notSeen) mHooks.failed(Restoration::notThere(name));
  return {};
}

Outcome ResticRestoration::put(const VersionTree& tree, const Batch& batch,
                               const std::vector<std::string>& names,
                               const Restoration::Options& options, Restoration::Counts& restored) {
  const Restoration::Counts before = restored;
  Restoration restoration(tree, batch.folder(), options,
                          {.goesOn =
                               [&](const std::string& path, const Restoration::Counts& counts) {
                                 return mHooks.goesOn(
                                     path, before.files + before.same + counts.files + counts.same,
                                     before.bytes + counts.bytes);
                               },
                           .failed = mHooks.failed,
                           .done = mHooks.done});
  Outcome done;
  for (const std::string& name : names) {
    done = restoration.perform({name, batch.targetOf(name).placeOf(name)});
    if (!done || m.host.control.stopReason() != StopReason::none) break;
  }
  restored += restoration.counts();
  return done;
}

Outcome ResticRestoration::bring(const Batch& batch, const std::vector<std::string>& names,
                                 const Restoration::Options& options,
                                 Restoration::Counts& restored) {
  auto staged = StagedSnapshot::in(batch.folder());
  if (!staged) return staged.error();
  const ResticEnd end = staged->fetch(m.restic, mSnapshot, names, mHooks.failed);
  if (m.host.control.stopReason() != StopReason::none) return {};
  if (end.kind == ResticEnd::Kind::full) {
    return Error{
        ErrorKind::unwritable,
        batch.folder().path() + ": there is no room for what is to be restored (" + end.text +
            "); what did not fit stays as it was. Make room, or give another disk by --to FOLDER"};
  }
  if (!end.isDone()) return end.error(m.place());
  Restoration::Options moving = options;
  moving.moves = true;
  return put(*staged, batch, names, moving, restored);
}

Outcome ResticRestoration::bringInPieces(const Batch& batch, std::uint64_t room,
                                         const Restoration::Options& options,
                                         Restoration::Counts& restored) {
  RestorePieces pieces(room, kMostNames);
  const SnapshotTree tree(m.restic, mSnapshot);
  const Outcome listed = tree.forEachOf(batch.names(), [&](const VersionTree::Entry& entry) {
    pieces.add(entry.item);
    return mHooks.goesOn(batch.folder().path(), restored.files, restored.bytes);
  });
  if (!listed) return listed;
  std::vector<std::string> folders;
  for (const VersionItem& folder : pieces.divided()) folders.push_back(folder.name);
  const DividedFolders divided(pieces.divided(), batch.folder(), [&](const std::string& name) {
    return batch.targetOf(name).placeOf(name);
  });
  // They are made before what belongs into them, and get their dates afterwards.
  Outcome done = put(divided, batch, folders, options, restored);
  Outcome tooLarge;
  for (const auto& names : pieces.fetches()) {
    if (!done || m.host.control.stopReason() != StopReason::none) return done;
    done = bring(batch, names, options, restored);
    // A smaller one may fit all the same.
    if (!done && done.error().kind == ErrorKind::unwritable) tooLarge = std::exchange(done, {});
  }
  if (done) done = put(divided, batch, folders, options, restored);
  return done ? tooLarge : done;
}

Outcome ResticRestoration::bring(const Batch& batch, const Restoration::Options& options,
                                 Restoration::Counts& restored) {
  // Beside what is there already, for a while; a little is left for others.
  struct statvfs space {};
  const bool isKnown = ::fstatvfs(batch.folder().descriptor(), &space) == 0;
  const auto free = static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
  if (!isKnown || batch.bytes < free - free / 16)
    return bring(batch, batch.names(), options, restored);
  return bringInPieces(batch, free / 4, options, restored);
}

Outcome ResticRestoration::restore(const std::vector<VersionTarget>& targets,
                                   const Restoration::Options& options,
                                   Restoration::Counts& restored) {
  Restoration::Counts all;
  auto batches = batchesOf(targets);
  for (Batch& batch : batches) {
    if (const Outcome looked = look(batch, options, restored, all); !looked) return looked;
  }
  mHooks.inAll(all.files, all.bytes);
  if (options.onlyLooks) return {};
  for (const Batch& batch : batches) {
    if (!mHooks.goesOn(m.place(), restored.files, restored.bytes)) return {};
    if (const Outcome done = bring(batch, options, restored); !done) return done;
  }
  return {};
}

}  // namespace corvana
