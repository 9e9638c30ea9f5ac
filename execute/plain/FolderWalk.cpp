#include "execute/plain/FolderWalk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <vector>

#include "execute/plain/NameList.h"
#include "execute/plain/VersionList.h"
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

bool walkTree(int folder, const std::string& prefix,
              const std::function<Step(int, const std::string&, const std::string&)>& each,
              const std::function<void(const std::string&)>& unreadable) {
  auto names = namesInFolder(folder);
  if (!names) {
    if (unreadable) unreadable(prefix);
    return true;
  }
  std::vector<std::pair<std::string, std::string>> entries;
  for (auto& name : *names) entries.emplace_back(VersionItem::escaped(name), std::move(name));
  names.reset();
  std::ranges::sort(
      entries, [](const auto& one, const auto& two) { return comesBefore(one.first, two.first); });
  for (const auto& [shown, entry] : entries) {
    const std::string name = prefix.empty() ? entry : prefix + "/" + entry;
    const Step step = each(folder, entry, name);
    if (step == Step::stop) return false;
    if (step == Step::over) continue;
    const ZAN_Descriptor below = openFolderBelow(folder, entry);
    if (!below) {
      // What is no folder, or none of this volume, was asked for in vain.
      if (errno != ENOTDIR && errno != ELOOP && errno != EXDEV && unreadable) unreadable(name);
      continue;
    }
    if (!walkTree(below.get(), name, each, unreadable)) return false;
  }
  return true;
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
