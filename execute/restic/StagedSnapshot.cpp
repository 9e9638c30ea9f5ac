#include "execute/restic/StagedSnapshot.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "execute/engine/FolderWalk.h"

namespace corvana {

Result<StagedSnapshot> StagedSnapshot::in(const HeldFolder& parent) {
  removeTree(parent.descriptor(), kFolder);
  auto folder = parent.makeBelow(kFolder, 0700);
  if (!folder) return folder.error();
  return StagedSnapshot(parent, *std::move(folder));
}

StagedSnapshot::StagedSnapshot(StagedSnapshot&& other) noexcept
    : mParent(std::exchange(other.mParent, nullptr)),
      mFolder(std::move(other.mFolder)),
      mFailed(std::move(other.mFailed)) {}

StagedSnapshot::~StagedSnapshot() {
  if (mParent) removeTree(mParent->descriptor(), kFolder);
}

ResticEnd StagedSnapshot::fetch(Restic& restic, const Snapshot& snapshot,
                                const std::vector<std::string>& names,
                                const std::function<void(std::string text)>& failed) {
  std::vector<std::string> words{"restore", snapshot.id, "--target", mFolder.heldPath()};
  for (const auto& name : names) words.push_back("--include=" + resticLiteral("/" + name));
  ResticEnd end = restic.call(
      {.words = std::move(words),
       .onErrorLine =
           [&](std::string_view line) {
             constexpr std::string_view kIgnoring = "ignoring error for ";
             if (!line.starts_with(kIgnoring)) return;
             line.remove_prefix(kIgnoring.size());
             const std::string path(line.substr(0, line.find(": ")));
             // Of what is not there it tells again that it gets no date.
             const bool isNew =
                 mFailed.insert(path.substr(std::min<std::size_t>(1, path.size()))).second;
             if (failed && isNew) failed(inWords(path, line));
           },
       .descriptors = {mFolder.descriptor()}});
  // What could not be read is told one by one; anything else leaves it open what is good.
  const bool isToldOfAll =
      end.kind == ResticEnd::Kind::failed || end.kind == ResticEnd::Kind::damaged;
  if (isToldOfAll && !mFailed.empty()) end = {};
  return end;
}

/// Without the place where it was fetched to, which nobody knows.
std::string StagedSnapshot::inWords(const std::string& path, std::string_view line) const {
  if (line.find("CreateHardlink") != std::string_view::npos)
    return path +
           ": it is another name of a file, and its file system has no such links; restore it by "
           "its name alone";
  std::string text(line);
  const std::string held = mFolder.heldPath();
  for (auto at = text.find(held); at != std::string::npos; at = text.find(held, at))
    text.erase(at, held.size());
  return text;
}

bool StagedSnapshot::isGood(const std::string& name) const { return !mFailed.contains(name); }

Outcome StagedSnapshot::forEach(const std::string& name,
                                const std::function<bool(const Entry&)>& each,
                                const std::function<void(const std::string&)>& unreadable) const {
  const auto [above, entry] = splitName(name);
  const ZAN_Descriptor parent = openPathBelow(mFolder.descriptor(), above, O_PATH | O_DIRECTORY);
  auto first = parent ? VersionItem::read(parent.get(), entry, name, true) : std::nullopt;
  if (!first || first->kind == VersionItem::Kind::none || !isGood(name)) return {};
  const bool isFolder = first->kind == VersionItem::Kind::folder;
  if (!each({*std::move(first), &mFolder}) || !isFolder) return {};
  const ZAN_Descriptor folder = openFolderBelow(parent.get(), entry);
  if (!folder) return Error{ErrorKind::unreadable, name + ": " + std::strerror(errno)};
  TreeCursor cursor(folder.get(), name, unreadable);
  while (const auto found = cursor.next()) {
    auto item = VersionItem::read(found->folder, found->entry, found->name, true);
    if (item && isGood(found->name) && !each({*std::move(item), &mFolder})) return {};
  }
  return {};
}

}  // namespace corvana
