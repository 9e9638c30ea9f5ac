#include "execute/restic/ResticReadBack.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "execute/engine/FileContents.h"
#include "execute/engine/FolderWalk.h"
#include "execute/restic/StagedSnapshot.h"

namespace corvana {

namespace {

using ItemKind = VersionItem::Kind;

}  // namespace

Outcome ResticReadBack::perform(const VerifiedShare& share, const TaskHooks& hooks,
                                VerifiedCounts& verified) {
  const Outcome read = compare(filesOfSources(share), hooks, verified);
  if (!read || verified.files + verified.mismatches > 0) return read;
  // What lies there now tells nothing of what the snapshot has.
  verified = {};
  const auto names = filesListed(share);
  return names ? compare(*names, hooks, verified) : names.error();
}

/// Names of files that lie at their sources now, and so are in the snapshot, unless they were left
/// out.
std::vector<std::string> ResticReadBack::filesOfSources(const VerifiedShare& share) const {
  std::vector<std::string> names;
  std::uint64_t bytes = 0;
  const auto take = [&](int folder, const std::string& entry, std::string name) {
    const auto item = VersionItem::read(folder, entry, std::move(name), false);
    if (!item || item->kind != ItemKind::file || bytes + item->size > share.bytes) return;
    names.push_back(item->name);
    bytes += item->size;
  };
  for (const VersionTarget& source : mSources) {
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

Result<std::vector<std::string>> ResticReadBack::filesListed(const VerifiedShare& share) const {
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

Outcome ResticReadBack::compare(const std::vector<std::string>& names, const TaskHooks& hooks,
                                VerifiedCounts& verified) {
  if (names.empty()) return {};
  hooks.inAll(names.size(), 0);
  const auto place = HeldFolder::open(mFolder);
  if (!place) return place.error();
  auto staged = StagedSnapshot::in(*place);
  if (!staged) return staged.error();
  const ResticEnd end = staged->fetch(m.restic, mSnapshot, names, hooks.failed);
  if (!end.isDone()) return end.error(m.place());
  for (const auto& name : names) {
    if (!hooks.goesOn("/" + name, verified.files, verified.bytes)) break;
    if (!staged->isGood(name)) {
      ++verified.mismatches;
      continue;
    }
    const auto isSame = isAtItsSource(name, staged->folder(), verified.bytes);
    if (!isSame) {
      ++verified.unknown;
      continue;
    }
    ++verified.files;
    if (*isSame) continue;
    ++verified.mismatches;
    hooks.failed("/" + name + ": it is not what its source is, though that has not changed");
  }
  return {};
}

std::optional<bool> ResticReadBack::isAtItsSource(const std::string& name, const HeldFolder& copies,
                                                  std::uint64_t& bytes) const {
  const ZAN_Descriptor copy = openPathBelow(copies.descriptor(), name, O_RDONLY);
  ZAN_Descriptor source;
  for (const VersionTarget& target : mSources) {
    if (name == target.name || isBelow(name, target.name))
      source =
          openPathBelow(target.folder.descriptor(), target.placeOf(name), O_RDONLY | O_NONBLOCK);
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

}  // namespace corvana
