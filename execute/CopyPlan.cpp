#include "execute/CopyPlan.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/ActionsTools.h"
#include "execute/Rsync.h"

namespace corvana {

Result<VolumeGuard::Place> VolumeGuard::locate(const FolderDescription& item) const {
  VolumeIdentity identity(*mVolumes);
  auto place = identity.locate(item, mTolerant);
  if (!place || !identity.reference().isBelowVolumesFolder(place->path)) return place;
  struct stat volume {};
  struct stat folder {};
  std::string nearest = place->path;
  while (::stat(nearest.c_str(), &folder) != 0) {
    if (nearest.size() <= place->mount.target.size()) break;
    nearest = ZAN_FilesUtils::parentPath(nearest);
  }
  // What cannot be looked at is for the copying to complain of.
  if (::stat(place->mount.target.c_str(), &volume) == 0 && folder.st_ino != 0 &&
      folder.st_dev != volume.st_dev)
    return Error{ErrorKind::absent, nearest + ": it does not lie on the volume described"};
  return place;
}

namespace {

namespace fs = std::filesystem;

std::string canonical(const std::string& path) {
  std::error_code ignored;
  const fs::path result = fs::weakly_canonical(path, ignored);
  return result.empty() ? path : result.string();
}

bool isEmptyFolder(const std::string& path) {
  std::error_code failed;
  return fs::is_directory(path, failed) &&
         fs::directory_iterator(path, failed) == fs::directory_iterator() && !failed;
}

/// A pattern that matches this very path and no other. A backslash is special only beside a
/// wildcard.
std::string literalPattern(const std::string& path) {
  if (path.find_first_of("*?[") == std::string::npos) return "/" + path;
  std::string pattern = "/";
  for (const char letter : path) {
    if (std::string_view("*?[\\").find(letter) != std::string_view::npos) pattern.push_back('\\');
    pattern.push_back(letter);
  }
  return pattern;
}

/// A share that the desktop shows as a folder. It knows no permissions and refuses to be told any.
constexpr std::string_view kDesktopShare = "share";

bool lacksOwners(const std::string& fileSystem) {
  constexpr std::array<std::string_view, 6> kinds{"vfat", "msdos", "exfat",
                                                  "ntfs", "ntfs3", "fuseblk"};
  return std::find(kinds.begin(), kinds.end(), fileSystem) != kinds.end();
}

Error systemError(ErrorKind kind, const std::string& path) {
  return Error{kind, path + ": " + std::strerror(errno)};
}

}  // namespace

Result<CopyPlan> CopyPlan::fromSettings(const ZAN_Value& settings, const VolumeGuard& guard) {
  if (settings["OptionsPerformer"].stringView() != "corvana9") {
    return Error{ErrorKind::refused, "OptionsPerformer: the action was not made for this program"};
  }
  const auto mode = settings.integer("Mode");
  if (mode != kCopy && mode != kSynchronise) {
    return Error{ErrorKind::refused,
                 "Mode: only copying (2) and synchronising (3) can be executed, not " +
                     std::to_string(mode)};
  }
  CopyPlan plan;
  plan.mDeletes = mode == kSynchronise;
  const FolderDescription destination = ActionsTools::getDestinationForAction(settings);
  if (destination.isNull())
    return Error{ErrorKind::refused, "ItemsDestination: the action has no destination"};
  auto place = guard.locate(destination);
  if (!place) return place.error();
  plan.mDestination = place->path;
  const bool isDesktopShare = place->mount.source.find("://") != std::string::npos;
  plan.mFileSystem = isDesktopShare ? std::string(kDesktopShare) : place->mount.fileSystem;
  const std::string holder(ZAN_FilesUtils::parentPath(plan.mDestination));
  if (ZAN_FilesUtils::exists(plan.mDestination)) {
    if (!ZAN_FilesUtils::isFolder(plan.mDestination)) {
      return Error{ErrorKind::unwritable, plan.mDestination + ": not a folder"};
    }
    if (::access(plan.mDestination.c_str(), W_OK | X_OK) != 0) {
      return systemError(ErrorKind::unwritable, plan.mDestination);
    }
  } else if (!ZAN_FilesUtils::isFolder(holder)) {
    return Error{ErrorKind::absent, holder + ": the folder of the destination is not there"};
  }

  const auto sources = ActionsTools::getSourcesForAction(settings);
  if (sources.empty()) return Error{ErrorKind::refused, "ItemsSource: the action has no source"};
  for (const auto& source : sources) {
    if (const Outcome added = plan.addSource(source, guard); !added) return added.error();
  }
  if (const Outcome apart = plan.checkOverlaps(); !apart) return apart.error();
  return plan;
}

Outcome CopyPlan::addSource(const FolderDescription& item, const VolumeGuard& guard) {
  auto place = guard.locate(item);
  if (!place) return place.error();
  const std::string& path = place->path;
  if (path == "/") return Error{ErrorKind::refused, "/: its copy would have no name of its own"};
  if (::access(path.c_str(), R_OK) != 0) {
    return systemError(errno == ENOENT ? ErrorKind::absent : ErrorKind::unwritable, path);
  }
  const std::string name(ZAN_FilesUtils::lastPathComponent(path));
  for (const auto& other : mSources) {
    if (other.name == name) {
      return Error{ErrorKind::refused, path + ": its copy would lie in that of " + other.path};
    }
  }
  mSources.push_back({path, name});
  return {};
}

Outcome CopyPlan::checkOverlaps() {
  const std::string destination = canonical(mDestination);
  for (const auto& source : mSources) {
    const std::string from = canonical(source.path);
    const std::string to = canonical(ZAN_FilesUtils::joinedPath(destination, source.name));
    if (ZAN_FilesUtils::isAtOrBelow(from, to)) {
      return Error{ErrorKind::refused, source.path + ": it lies where its copy would be"};
    }
    if (ZAN_FilesUtils::isAtOrBelow(destination, from)) {
      if (destination == from)
        return Error{ErrorKind::refused, source.path + ": it is its own destination"};
      mExcluded.push_back(source.name + destination.substr(from.size()));
    }
    std::error_code ignored;
    if (mDeletes && isEmptyFolder(source.path) && fs::exists(to, ignored) && !isEmptyFolder(to)) {
      return Error{ErrorKind::refused,
                   source.path + ": it is empty and its copy is not; nothing was deleted"};
    }
  }
  return {};
}

Outcome CopyPlan::createDestination() const {
  if (::mkdir(mDestination.c_str(), 0777) == 0 || errno == EEXIST) return {};
  return systemError(ErrorKind::unwritable, mDestination);
}

std::vector<std::string> CopyPlan::arguments(const std::string& rsync,
                                             const std::vector<std::string>& skippedItems) const {
  std::vector<std::string> words{rsync, "--archive", "--one-file-system"};
  if (mDeletes) words.push_back("--delete");
  const bool isDesktopShare = mFileSystem == kDesktopShare;
  if (isDesktopShare || lacksOwners(mFileSystem)) {
    // Times there are kept to two seconds.
    words.insert(words.end(), {"--no-perms", "--no-owner", "--no-group", "--modify-window=2"});
  }
  // They are what it shows anyway, so that there is nothing to set.
  if (isDesktopShare) words.emplace_back("--chmod=D700,F700");
  for (auto& word : RsyncOutput::arguments()) words.push_back(std::move(word));
  for (const auto* list : {&mExcluded, &skippedItems}) {
    for (const auto& item : *list) words.push_back("--exclude=" + literalPattern(item));
  }
  words.push_back("--");
  for (const auto& source : mSources) words.push_back(source.path);
  words.push_back(mDestination + "/");
  return words;
}

std::string CopyPlan::sourcePathOf(const std::string& item) const {
  const std::string name = item.substr(0, item.find('/'));
  for (const auto& source : mSources) {
    if (source.name == name) return source.path + item.substr(name.size());
  }
  return item;
}

}  // namespace corvana
