#include "execute/restic/RestorePieces.h"

#include <fcntl.h>

#include <algorithm>
#include <optional>

#include "execute/engine/FolderWalk.h"

namespace corvana {

void RestorePieces::add(const VersionItem& item) {
  while (!mOpen.empty() && !isBelow(item.name, mOpen.back().folder.name)) close();
  if (item.kind == VersionItem::Kind::folder) {
    mOpen.push_back({item, {}});
  } else {
    take({item.name, item.size});
  }
}

std::vector<std::vector<std::string>> RestorePieces::fetches() {
  while (!mOpen.empty()) close();
  std::vector<std::vector<std::string>> fetches;
  std::uint64_t bytes = 0;
  for (const auto& [name, size] : mPieces) {
    if (fetches.empty() || bytes + size > mRoom || fetches.back().size() == mMostNames) {
      fetches.emplace_back();
      bytes = 0;
    }
    fetches.back().push_back(name);
    bytes += size;
  }
  return fetches;
}

const std::vector<VersionItem>& RestorePieces::divided() {
  while (!mOpen.empty()) close();
  std::ranges::sort(mDivided, {}, [](const VersionItem& item) { return item.name.size(); });
  return mDivided;
}

void RestorePieces::take(Piece piece) {
  (mOpen.empty() ? mPieces : mOpen.back().inner).push_back(std::move(piece));
}

void RestorePieces::close() {
  Open last = std::move(mOpen.back());
  mOpen.pop_back();
  std::uint64_t bytes = 0;
  for (const auto& [name, size] : last.inner) bytes += size;
  // One that holds a divided folder is larger than the room, too.
  if (bytes <= mRoom) return take({last.folder.name, bytes});
  for (Piece& piece : last.inner) take(std::move(piece));
  mDivided.push_back(std::move(last.folder));
}

Outcome DividedFolders::forEach(const std::string& name,
                                const std::function<bool(const Entry&)>& each,
                                const std::function<void(const std::string&)>&) const {
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

}  // namespace corvana
