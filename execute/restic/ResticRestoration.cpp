#include "execute/restic/ResticRestoration.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <map>
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
  if (item.kind == ItemKind::folder) return true;
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

}  // namespace

/// What of a target is to be fetched.
struct ResticRestoration::Wanted {
  std::vector<std::string> names = {};  ///< with all that is below them
  bool isWhole = false;                 ///< rather than those names
  std::uint64_t same = 0;               ///< files that are there
  /// Folders that are there, by their places, as they were.
  std::map<std::string, VersionItem> folders = {};
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

/// Compares a target with the snapshot; with `onlyLooks` tells what would be done.
Result<ResticRestoration::Wanted> ResticRestoration::look(const VersionTarget& target,
                                                          const Restoration::Options& options,
                                                          Restoration::Counts& restored,
                                                          Restoration::Counts& all) {
  Wanted wanted;
  ParentFolders folders(target.folder.descriptor());
  const SnapshotTree tree(m.restic, mSnapshot);
  const Outcome listed = tree.forEach(target.name, [&](const VersionTree::Entry& entry) {
    const VersionItem& item = entry.item;
    const std::string place = placeOf(target, item.name);
    const auto [above, name] = splitName(place);
    const int folder = folders.open(above);
    const auto now =
        folder < 0 ? std::nullopt : VersionItem::read(folder, name.empty() ? "." : name, {}, false);
    const bool isFolder = item.kind == ItemKind::folder;
    const bool isSame = isThere(item, now);
    if (!isSame && (wanted.names.empty() || !isBelow(item.name, wanted.names.back()))) {
      // The list has names in Unicode, and others can be asked for by none.
      constexpr std::string_view kUnknownLetter = "\xef\xbf\xbd";
      wanted.isWhole = wanted.isWhole || wanted.names.size() == kMostNames ||
                       item.name.find(kUnknownLetter) != std::string::npos;
      if (!wanted.isWhole) wanted.names.push_back(item.name);
    }
    if (isFolder) {
      if (isSame) wanted.folders.emplace(place, item);
      return true;
    }
    ++all.files;
    all.bytes += item.size;
    if (isSame) ++wanted.same;
    if (isSame || !options.onlyLooks) return true;
    ++restored.files;
    restored.bytes += item.size;
    const std::string path = ZAN_FilesUtils::joinedPath(target.folder.path(), place);
    if (now && now->kind != ItemKind::none &&
        (!options.overwrites || now->kind == ItemKind::folder)) {
      ++restored.kept;
      mHooks.done(path, true);
    }
    mHooks.done(path, false);
    return mHooks.goesOn(path, all.files, all.bytes);
  });
  if (!listed) return listed.error();
  return wanted;
}

Outcome ResticRestoration::bring(const VersionTarget& target, const Wanted& wanted,
                                 const Restoration::Options& options,
                                 Restoration::Counts& restored) {
  const auto staging = Staging::in(target.folder);
  if (!staging) return staging.error();
  std::vector<std::string> names = wanted.names;
  if (wanted.isWhole) names = {target.name};
  Fetched fetched = fetch(names, staging->folder());
  if (!fetched.end.isDone())
    return m.host.control.stopReason() == StopReason::none ? Outcome(fetched.end.error(m.place()))
                                                           : Outcome();
  const StagedTree staged(staging->folder(), std::move(fetched.failed));
  Restoration::Options moving = options;
  moving.moves = true;
  if (!wanted.isWhole) restored.same += wanted.same;
  const Restoration::Counts before = restored;
  Restoration restoration(staged, target.folder, moving,
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
    done = restoration.perform({name, placeOf(target, name)});
    if (!done || m.host.control.stopReason() != StopReason::none) break;
  }
  restored += restoration.counts();
  if (wanted.isWhole) return done;
  // What was put into a folder has given that another date.
  for (const std::string& name : names) {
    const std::string above = splitName(placeOf(target, name)).first;
    const auto folder = wanted.folders.find(above.empty() ? "." : above);
    if (folder == wanted.folders.end()) continue;
    const timespec time{static_cast<time_t>(folder->second.seconds),
                        static_cast<long>(folder->second.nanoseconds)};
    const std::array times{time, time};
    const ZAN_Descriptor open =
        openPathBelow(target.folder.descriptor(), folder->first, O_RDONLY | O_DIRECTORY);
    if (open) ::futimens(open.get(), times.data());
  }
  return done;
}

Outcome ResticRestoration::restore(const std::vector<VersionTarget>& targets,
                                   const Restoration::Options& options,
                                   Restoration::Counts& restored) {
  Restoration::Counts all;
  std::vector<std::pair<const VersionTarget*, Wanted>> wanted;
  for (const VersionTarget& target : targets) {
    auto found = look(target, options, restored, all);
    if (!found) return found.error();
    if (options.onlyLooks || (found->names.empty() && !found->isWhole)) {
      restored.same += found->same;
    } else {
      wanted.emplace_back(&target, *std::move(found));
    }
  }
  mHooks.inAll(all.files, all.bytes);
  if (options.onlyLooks) return {};
  for (const auto& [target, what] : wanted) {
    if (!mHooks.goesOn(m.place(), restored.files, restored.bytes)) return {};
    if (const Outcome done = bring(*target, what, options, restored); !done) return done;
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

Outcome ResticRestoration::readBack(const VerifiedShare& share,
                                    const std::vector<VersionTarget>& sources,
                                    const std::string& folder, VerifiedCounts& verified) {
  std::vector<std::string> names;
  std::uint64_t bytes = 0;
  const SnapshotTree tree(m.restic, mSnapshot);
  const Outcome listed = tree.forEach({}, [&](const VersionTree::Entry& entry) {
    const VersionItem& item = entry.item;
    if (item.kind != ItemKind::file || bytes + item.size > share.bytes) return true;
    names.push_back(item.name);
    bytes += item.size;
    return names.size() < share.files;
  });
  if (!listed || names.empty()) return listed;
  mHooks.inAll(names.size(), bytes);
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
