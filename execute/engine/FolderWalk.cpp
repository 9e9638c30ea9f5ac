#include "execute/engine/FolderWalk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "execute/engine/NameList.h"
#include "execute/engine/VersionItem.h"
#include "platform/linux/HeldFolder.h"

namespace corvana {

std::pair<std::string, std::string> splitName(std::string_view name) {
  if (name.ends_with('/')) name.remove_suffix(1);
  const auto slash = name.rfind('/');
  if (slash == std::string_view::npos) return {std::string(), std::string(name)};
  return {std::string(name.substr(0, slash)), std::string(name.substr(slash + 1))};
}

bool isBelow(std::string_view name, std::string_view folder) {
  return name.size() > folder.size() && name.starts_with(folder) && name[folder.size()] == '/';
}

int ParentFolders::open(const std::string& name) {
  if (!mIsKnown || mName != name) {
    mFolder = openPathBelow(mRoot, name, O_PATH | O_DIRECTORY);
    mFailure = mFolder ? 0 : errno;
    mName = name;
    mIsKnown = true;
  }
  errno = mFailure;
  return mFolder.get();
}

int ParentFolders::make(const std::string& name) {
  if (const int folder = open(name); folder >= 0 || errno != ENOENT) return folder;
  for (std::size_t end = 0; end != std::string::npos;) {
    end = name.find('/', end + 1);
    const auto [above, entry] = splitName(std::string_view(name).substr(0, end));
    const ZAN_Descriptor folder = openPathBelow(mRoot, above, O_PATH | O_DIRECTORY);
    if (!folder || (::mkdirat(folder.get(), entry.c_str(), 0700) != 0 && errno != EEXIST))
      return -1;
  }
  forget();
  return open(name);
}

TreeCursor::TreeCursor(int folder, std::string prefix,
                       std::function<void(const std::string&)> unreadable)
    : mUnreadable(std::move(unreadable)) {
  enter(ZAN_Descriptor(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
        std::move(prefix));
}

void TreeCursor::enter(ZAN_Descriptor folder, std::string prefix) {
  auto names = folder ? namesInFolder(folder.get()) : std::nullopt;
  if (!names) {
    if (mUnreadable) mUnreadable(prefix);
    return;
  }
  std::vector<std::pair<std::string, std::string>> sorted;
  for (auto& name : *names) sorted.emplace_back(VersionItem::escaped(name), std::move(name));
  std::ranges::sort(
      sorted, [](const auto& one, const auto& two) { return comesBefore(one.first, two.first); });
  Level level{.folder = std::move(folder), .prefix = std::move(prefix), .entries = {}};
  for (auto& [shown, name] : sorted) level.entries.push_back(std::move(name));
  mLevels.push_back(std::move(level));
}

std::optional<TreeCursor::Entry> TreeCursor::next() {
  if (mWanted) {
    ZAN_Descriptor below = openFolderBelow(mWanted->folder, mWanted->entry);
    // What is mounted there is none of it.
    if (below || errno != EXDEV) enter(std::move(below), std::move(mWanted->name));
    mWanted.reset();
  }
  while (!mLevels.empty() && mLevels.back().at == mLevels.back().entries.size()) mLevels.pop_back();
  if (mLevels.empty()) return std::nullopt;
  Level& level = mLevels.back();
  const std::string& entry = level.entries[level.at++];
  struct stat state {};
  const bool isFolder =
      ::fstatat(level.folder.get(), entry.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISDIR(state.st_mode);
  Entry found{level.folder.get(), entry, level.prefix.empty() ? entry : level.prefix + "/" + entry,
              isFolder};
  if (isFolder) mWanted = found;
  return found;
}

bool removeTree(int parent, const std::string& name) {
  if (::unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT) return true;
  if (errno != EISDIR && errno != EPERM) return false;
  {
    const ZAN_Descriptor folder = openFolderBelow(parent, name);
    if (!folder) return false;
    const auto names = namesInFolder(folder.get());
    if (!names) return false;
    bool isEmpty = true;
    for (const auto& entry : *names) isEmpty = removeTree(folder.get(), entry) && isEmpty;
    if (!isEmpty) return false;
  }
  return ::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT;
}

bool renameBeside(int from, int to, const std::string& entry) {
  if (::renameat2(from, entry.c_str(), to, entry.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL) return false;
  struct stat state {};
  if (::fstatat(to, entry.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0) {
    errno = EEXIST;
    return false;
  }
  return ::renameat(from, entry.c_str(), to, entry.c_str()) == 0;
}

}  // namespace corvana
