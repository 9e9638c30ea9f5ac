#include "execute/restic/ResticRestoration.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "execute/engine/FileContents.h"
#include "execute/engine/FolderWalk.h"
#include "execute/restic/ResticBackup.h"

namespace corvana {

namespace {

using ItemKind = VersionItem::Kind;
constexpr const char* kStaging = ResticBackup::kStaging;
/// restic compares each item with each name that it is to bring.
constexpr std::size_t kMostNames = 64;

/// Where an item lies below the folder of its target.
std::string placeOf(const VersionTarget& target, const std::string& name) {
  const std::string rest = name.substr(target.name.size());
  if (target.target != ".") return target.target + rest;
  return rest.empty() ? "." : rest.substr(1);
}

/// Whether it is there as the snapshot's list has it, which knows no contents.
bool isThere(const VersionItem& item, const std::optional<VersionItem>& now) {
  if (!now || now->kind != item.kind) return false;
  // Only root can give files away.
  const bool isOthers = ::geteuid() == 0 && (now->user != item.user || now->group != item.group);
  const bool isLink = item.kind == ItemKind::link;
  return !isOthers && now->size == item.size && now->seconds == item.seconds &&
         now->nanoseconds == item.nanoseconds && (isLink || now->mode == item.mode);
}

/// A folder of its own, gone with this object.
class Staging {
 public:
  static Result<Staging> in(const HeldFolder& parent) {
    removeTree(parent.descriptor(), kStaging);
    auto folder = parent.makeBelow(kStaging, 0700);
    if (!folder) return folder.error();
    return Staging(parent, *std::move(folder));
  }
  Staging(Staging&& other) noexcept
      : mParent(std::exchange(other.mParent, nullptr)), mFolder(std::move(other.mFolder)) {}
  Staging& operator=(Staging&&) = delete;
  ~Staging() {
    if (mParent) removeTree(mParent->descriptor(), kStaging);
  }
  const HeldFolder& folder() const { return mFolder; }

 private:
  Staging(const HeldFolder& parent, HeldFolder folder)
      : mParent(&parent), mFolder(std::move(folder)) {}
  const HeldFolder* mParent;
  HeldFolder mFolder;
};

/// Cuts what is to be fetched, where there is no room for all of it at once, into pieces: whole
/// folders as far as they fit, and of larger ones what lies in them.
class Pieces {
 public:
  explicit Pieces(std::uint64_t room) : mRoom(room) {}
  /// In the order of a VersionTree.
  void add(const VersionItem& item) {
    while (!mOpen.empty() && !isBelow(item.name, mOpen.back().folder.name)) close();
    if (item.kind == ItemKind::folder) {
      mOpen.push_back({item, {}});
    } else {
      take({item.name, item.size});
    }
  }
  /// Names that are fetched together, when all were added.
  std::vector<std::vector<std::string>> fetches() {
    while (!mOpen.empty()) close();
    std::vector<std::vector<std::string>> fetches;
    std::uint64_t bytes = 0;
    for (const auto& [name, size] : mPieces) {
      if (fetches.empty() || bytes + size > mRoom || fetches.back().size() == kMostNames) {
        fetches.emplace_back();
        bytes = 0;
      }
      fetches.back().push_back(name);
      bytes += size;
    }
    return fetches;
  }
  /// The folders that are no piece of their own, each before those in it.
  const std::vector<VersionItem>& divided() {
    while (!mOpen.empty()) close();
    std::ranges::sort(mDivided, {}, [](const VersionItem& item) { return item.name.size(); });
    return mDivided;
  }

 private:
  using Piece = std::pair<std::string, std::uint64_t>;
  struct Open {
    VersionItem folder;
    std::vector<Piece> inner;
  };
  void take(Piece piece) {
    (mOpen.empty() ? mPieces : mOpen.back().inner).push_back(std::move(piece));
  }
  void close() {
    Open last = std::move(mOpen.back());
    mOpen.pop_back();
    std::uint64_t bytes = 0;
    for (const auto& [name, size] : last.inner) bytes += size;
    // One that holds a divided folder is larger than the room, too.
    if (bytes <= mRoom) return take({last.folder.name, bytes});
    for (Piece& piece : last.inner) take(std::move(piece));
    mDivided.push_back(std::move(last.folder));
  }

  std::uint64_t mRoom;
  std::vector<Open> mOpen;
  std::vector<Piece> mPieces;
  std::vector<VersionItem> mDivided;
};

/// Folders without what lies in them, as restic's list has them; it knows no extended attributes,
/// so that they keep those that they have.
class FolderTree final : public VersionTree {
 public:
  /// All of it outlives the tree. `placeOf`: where in the target's folder a name belongs.
  FolderTree(const std::vector<VersionItem>& folders, const HeldFolder& target,
             std::function<std::string(const std::string&)> placeOf)
      : mFolders(folders), mTarget(target), mPlaceOf(std::move(placeOf)) {}
  using VersionTree::forEach;
  Outcome forEach(const std::string& name, const std::function<bool(const Entry&)>& each,
                  const std::function<void(const std::string&)>&) const override {
    const auto found = std::ranges::find(mFolders, name, &VersionItem::name);
    if (found == mFolders.end()) return {};
    VersionItem folder = *found;
    const auto [above, entry] = splitName(mPlaceOf(name));
    const ZAN_Descriptor parent = openPathBelow(mTarget.descriptor(), above, O_PATH | O_DIRECTORY);
    if (auto now = parent ? VersionItem::read(parent.get(), entry, {}, true) : std::nullopt)
      folder.attributes = std::move(now->attributes);
    each({std::move(folder), nullptr});
    return {};
  }

 private:
  const std::vector<VersionItem>& mFolders;
  const HeldFolder& mTarget;
  std::function<std::string(const std::string&)> mPlaceOf;
};

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

ResticRestoration::Fetched ResticRestoration::fetch(const std::vector<std::string>& names,
                                                    const HeldFolder& folder) {
  Fetched fetched;
  std::vector<std::string> words{"restore", mSnapshot.id, "--target", folder.heldPath()};
  for (const auto& name : names) words.push_back("--include=" + resticLiteral("/" + name));
  fetched.end = m.restic.call({.words = std::move(words),
                               .onErrorLine =
                                   [&](std::string_view line) {
                                     constexpr std::string_view kIgnoring = "ignoring error for ";
                                     if (!line.starts_with(kIgnoring)) return;
                                     line.remove_prefix(kIgnoring.size());
                                     const auto colon = line.find(": ");
                                     const std::string path(line.substr(0, colon));
                                     fetched.failed.push_back(
                                         path.substr(std::min<std::size_t>(1, path.size())));
                                     if (mHooks.failed) mHooks.failed(std::string(line));
                                   },
                               .descriptors = {folder.descriptor()}});
  // What could not be read is told one by one; anything else leaves it open what is good.
  if (fetched.end.kind == ResticEnd::Kind::failed && !fetched.failed.empty()) fetched.end = {};
  return fetched;
}

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
  return tree.forEachOf(batch.names(), [&](const VersionTree::Entry& entry) {
    const VersionItem& item = entry.item;
    if (item.kind == ItemKind::folder) return true;
    ++all.files;
    all.bytes += item.size;
    batch.bytes += item.size;
    if (!options.onlyLooks) return true;
    const std::string place = placeOf(batch.targetOf(item.name), item.name);
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
    done = restoration.perform({name, placeOf(batch.targetOf(name), name)});
    if (!done || m.host.control.stopReason() != StopReason::none) break;
  }
  restored += restoration.counts();
  return done;
}

Outcome ResticRestoration::bring(const Batch& batch, const std::vector<std::string>& names,
                                 const Restoration::Options& options,
                                 Restoration::Counts& restored) {
  const auto staging = Staging::in(batch.folder());
  if (!staging) return staging.error();
  Fetched fetched = fetch(names, staging->folder());
  if (m.host.control.stopReason() != StopReason::none) return {};
  if (fetched.end.kind == ResticEnd::Kind::full) {
    return Error{
        ErrorKind::unwritable,
        batch.folder().path() + ": there is no room for what is to be restored (" +
            fetched.end.text +
            "); what did not fit stays as it was. Make room, or give another disk by --to FOLDER"};
  }
  if (!fetched.end.isDone()) return fetched.end.error(m.place());
  Restoration::Options moving = options;
  moving.moves = true;
  return put(StagedTree(staging->folder(), std::move(fetched.failed)), batch, names, moving,
             restored);
}

Outcome ResticRestoration::bringInPieces(const Batch& batch, std::uint64_t room,
                                         const Restoration::Options& options,
                                         Restoration::Counts& restored) {
  Pieces pieces(room);
  const SnapshotTree tree(m.restic, mSnapshot);
  const Outcome listed = tree.forEachOf(batch.names(), [&](const VersionTree::Entry& entry) {
    pieces.add(entry.item);
    return mHooks.goesOn(batch.folder().path(), restored.files, restored.bytes);
  });
  if (!listed) return listed;
  std::vector<std::string> folders;
  for (const VersionItem& folder : pieces.divided()) folders.push_back(folder.name);
  const FolderTree divided(pieces.divided(), batch.folder(), [&](const std::string& name) {
    return placeOf(batch.targetOf(name), name);
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

std::optional<bool> ResticRestoration::isAtItsSource(const std::string& name,
                                                     const HeldFolder& copies,
                                                     const std::vector<VersionTarget>& sources,
                                                     std::uint64_t& bytes) const {
  const ZAN_Descriptor copy = openPathBelow(copies.descriptor(), name, O_RDONLY);
  ZAN_Descriptor source;
  for (const VersionTarget& target : sources) {
    if (name == target.name || isBelow(name, target.name))
      source =
          openPathBelow(target.folder.descriptor(), placeOf(target, name), O_RDONLY | O_NONBLOCK);
  }
  struct stat one {};
  struct stat two {};
  if (!copy || !source || ::fstat(copy.get(), &one) != 0 || ::fstat(source.get(), &two) != 0 ||
      one.st_size != two.st_size || one.st_mtim.tv_sec != two.st_mtim.tv_sec ||
      one.st_mtim.tv_nsec != two.st_mtim.tv_nsec)
    return std::nullopt;
  bytes += static_cast<std::uint64_t>(one.st_size);
  const auto found = readTogether(copy.get(), source.get());
  return found && found->first;
}

/// Names of files that lie at their sources now, and so are in the snapshot, unless they were left
/// out.
std::vector<std::string> ResticRestoration::filesOf(const std::vector<VersionTarget>& sources,
                                                    const VerifiedShare& share) const {
  std::vector<std::string> names;
  std::uint64_t bytes = 0;
  const auto take = [&](int folder, const std::string& entry, std::string name) {
    const auto item = VersionItem::read(folder, entry, std::move(name), false);
    if (!item || item->kind != ItemKind::file || bytes + item->size > share.bytes) return;
    names.push_back(item->name);
    bytes += item->size;
  };
  for (const VersionTarget& source : sources) {
    const auto [above, entry] = splitName(source.target);
    const ZAN_Descriptor parent =
        openPathBelow(source.folder.descriptor(), above, O_PATH | O_DIRECTORY);
    const ZAN_Descriptor folder = parent ? openFolderBelow(parent.get(), entry) : ZAN_Descriptor();
    if (!folder) {
      if (parent) take(parent.get(), entry, source.name);
      continue;
    }
    TreeCursor cursor(folder.get(), source.name);
    for (auto found = cursor.next(); found && names.size() < share.files; found = cursor.next())
      if (!found->isFolder) take(found->folder, found->entry, found->name);
  }
  return names;
}

Result<std::vector<std::string>> ResticRestoration::filesListed(const VerifiedShare& share) const {
  std::vector<std::string> names;
  std::uint64_t bytes = 0;
  const Outcome listed =
      SnapshotTree(m.restic, mSnapshot).forEach({}, [&](const VersionTree::Entry& entry) {
        const VersionItem& item = entry.item;
        if (item.kind != ItemKind::file || bytes + item.size > share.bytes) return true;
        names.push_back(item.name);
        bytes += item.size;
        return names.size() < share.files;
      });
  if (!listed) return listed.error();
  return names;
}

Outcome ResticRestoration::readBack(const VerifiedShare& share,
                                    const std::vector<VersionTarget>& sources,
                                    const std::string& folder, VerifiedCounts& verified) {
  const Outcome read = readBack(filesOf(sources, share), sources, folder, verified);
  if (!read || verified.files + verified.mismatches > 0) return read;
  // What lies there now tells nothing of what the snapshot has.
  verified = {};
  const auto names = filesListed(share);
  return names ? readBack(*names, sources, folder, verified) : names.error();
}

Outcome ResticRestoration::readBack(const std::vector<std::string>& names,
                                    const std::vector<VersionTarget>& sources,
                                    const std::string& folder, VerifiedCounts& verified) {
  if (names.empty()) return {};
  mHooks.inAll(names.size(), 0);
  const auto place = HeldFolder::open(folder);
  if (!place) return place.error();
  const auto staging = Staging::in(*place);
  if (!staging) return staging.error();
  const Fetched fetched = fetch(names, staging->folder());
  if (!fetched.end.isDone()) return fetched.end.error(m.place());
  for (const auto& name : names) {
    if (!mHooks.goesOn("/" + name, verified.files, verified.bytes)) break;
    if (std::ranges::find(fetched.failed, name) != fetched.failed.end()) {
      ++verified.mismatches;
      continue;
    }
    const auto isSame = isAtItsSource(name, staging->folder(), sources, verified.bytes);
    if (!isSame) {
      ++verified.unknown;
      continue;
    }
    ++verified.files;
    if (*isSame) continue;
    ++verified.mismatches;
    mHooks.failed("/" + name + ": it is not what its source is, though that has not changed");
  }
  return {};
}

}  // namespace corvana
