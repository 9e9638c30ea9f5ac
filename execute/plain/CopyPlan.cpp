#include "execute/plain/CopyPlan.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string_view>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/ActionsTools.h"
#include "execute/plain/CopyMark.h"
#include "execute/plain/HalfFiles.h"
#include "execute/plain/Rsync.h"
#include "execute/plain/Versions.h"
#include "platform/linux/MountTable.h"

namespace corvana {

namespace {

constexpr const char* kProbe = ".corvana9-probe";

bool lacksOwners(const std::string& fileSystem) {
  constexpr std::array<std::string_view, 6> kinds{"vfat", "msdos", "exfat",
                                                  "ntfs", "ntfs3", "fuseblk"};
  return std::find(kinds.begin(), kinds.end(), fileSystem) != kinds.end();
}

Error systemError(ErrorKind kind, const std::string& path) {
  return Error{kind, path + ": " + std::strerror(errno)};
}

/// Where something of that name in the folder lies on its file system.
Result<std::string> pathOnDevice(const HeldFolder& folder, const std::string& name = {}) {
  const auto path = folder.pathOnDevice();
  if (!path) return Error{ErrorKind::absent, folder.path() + ": it has just gone"};
  return ZAN_FilesUtils::joinedPath(*path, name);
}

/// As a pattern with wildcards wants it.
std::string escaped(const std::string& name) {
  std::string pattern;
  for (const char letter : name) {
    if (std::string_view("*?[\\").find(letter) != std::string_view::npos) pattern.push_back('\\');
    pattern.push_back(letter);
  }
  return pattern;
}

}  // namespace

FileSystemFacts FileSystemFacts::of(const HeldFolder& folder, const Mount& mount) {
  FileSystemFacts facts;
  facts.isDesktopShare = mount.source.find("://") != std::string::npos;
  facts.keepsOwners = !facts.isDesktopShare && !lacksOwners(mount.fileSystem);
  const int place = folder.descriptor();
  constexpr int kFlags = O_RDWR | O_CLOEXEC;
  bool hasName = false;
  ZAN_Descriptor probe(::openat(place, ".", kFlags | O_TMPFILE, 0600));
  if (!probe) {
    hasName = true;
    ::unlinkat(place, kProbe, 0);
    probe = ZAN_Descriptor(::openat(place, kProbe, kFlags | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
  }
  if (!probe) {
    facts.hardLinks = facts.attributes = facts.accessLists = facts.exactTimes = false;
    return facts;
  }
  constexpr timespec kOdd{1'000'000'001, 123'456'789};
  const std::array times{kOdd, kOdd};
  struct stat state {};
  if (::futimens(probe.get(), times.data()) != 0 || ::fstat(probe.get(), &state) != 0) {
    facts.exactTimes = facts.wholeSeconds = false;
  } else {
    facts.exactTimes = state.st_mtim.tv_nsec == kOdd.tv_nsec;
    facts.wholeSeconds = state.st_mtim.tv_sec == kOdd.tv_sec;
  }
  facts.attributes = ::fsetxattr(probe.get(), "user.corvana9.probe", "1", 1, 0) == 0;
  facts.accessLists =
      ::fgetxattr(probe.get(), "system.posix_acl_access", nullptr, 0) >= 0 || errno == ENODATA;
  if (hasName) {
    const std::string second = std::string(kProbe) + "2";
    facts.hardLinks = ::linkat(place, kProbe, place, second.c_str(), 0) == 0;
    ::unlinkat(place, second.c_str(), 0);
    ::unlinkat(place, kProbe, 0);
  }
  return facts;
}

std::vector<std::string> FileSystemFacts::options() const {
  std::vector<std::string> words{"--sparse"};
  if (hardLinks && keepsOwners) words.emplace_back("--hard-links");
  if (attributes) words.emplace_back("--xattrs");
  if (accessLists && keepsOwners) words.emplace_back("--acls");
  if (!keepsOwners) words.insert(words.end(), {"--no-perms", "--no-owner", "--no-group"});
  if (!wholeSeconds || !keepsOwners) {
    words.emplace_back("--modify-window=2");
  } else if (exactTimes) {
    words.emplace_back("--modify-window=-1");
  }
  // They are what it shows anyway, so that there is nothing to set.
  if (isDesktopShare) words.emplace_back("--chmod=D700,F700");
  return words;
}

std::vector<std::string> FileSystemFacts::losses() const {
  std::vector<std::string> words;
  if (!keepsOwners) words.emplace_back("owners and rights");
  if (!accessLists || !keepsOwners) words.emplace_back("access lists");
  if (!attributes) words.emplace_back("extended attributes");
  if (!hardLinks || !keepsOwners) words.emplace_back("hard links");
  if (!wholeSeconds || !keepsOwners) words.emplace_back("times to the second");
  if (!tellsCase) words.emplace_back("names that differ in case alone");
  return words;
}

Result<CopyPlan> CopyPlan::fromSettings(const ZAN_Value& settings, const VolumeGuard& guard) {
  const auto mode = settings.integer("Mode");
  if (mode != kCopy && mode != kSynchronise) {
    return Error{ErrorKind::refused,
                 "Mode: only copying (2) and synchronising (3) can be executed, not " +
                     std::to_string(mode)};
  }
  CopyPlan plan;
  plan.mDeletes = mode == kSynchronise;
  for (const ZAN_Value& pattern : settings[CopyKey::exclusions].elements()) {
    if (!pattern.stringView().empty()) plan.mExclusions.emplace_back(pattern.stringView());
  }
  plan.mBandwidth =
      static_cast<std::uint64_t>(std::max<std::int64_t>(settings.integer(CopyKey::bandwidth), 0));
  plan.mComparesContents = settings.integer(CopyKey::isDoubted) != 0;
  const auto destinations = VolumeIdentity::destinationsOf(settings);
  if (destinations.empty())
    return Error{ErrorKind::refused, "ItemsDestination: the action has no destination"};
  Outcome there;
  for (const FolderDescription& destination : destinations) {
    const Outcome own = plan.setDestination(destination, guard);
    if (own || &destination == &destinations.front()) there = own;
    if (own) break;
  }
  if (!there) return there.error();
  const auto sources = ActionsTools::getSourcesForAction(settings);
  if (sources.empty()) return Error{ErrorKind::refused, "ItemsSource: the action has no source"};
  for (const auto& source : sources) {
    if (const Outcome added = plan.addSource(source, guard); !added) return added.error();
  }
  if (const Outcome apart = plan.checkOverlaps(); !apart) return apart.error();
  return plan;
}

namespace {

CopyPlan::Identity identityOf(const FolderDescription& item, const VolumeInformation& known) {
  if (!item.uuid().empty() && !known.uuid.empty()) return CopyPlan::Identity::sure;
  if (item.fileSystem().empty()) return CopyPlan::Identity::size;
  // A path from the root, or on a server, is one place; of a device the size has to do.
  const std::string_view source = item.source();
  const bool isPlace = source.starts_with('/') || source.find(":/") != std::string_view::npos;
  const bool isJoined = item.fileSystem().starts_with("fuse") || item.fileSystem() == "overlay";
  return isPlace || !isJoined ? CopyPlan::Identity::sure : CopyPlan::Identity::name;
}

}  // namespace

Outcome CopyPlan::setDestination(const FolderDescription& item, const VolumeGuard& guard) {
  auto place = guard.locate(item);
  if (!place) return place.error();
  mDestination = place->path;
  mMount = place->mount;
  mIdentity = identityOf(item, place->information);
  auto held = VolumeGuard::hold(mDestination, *place);
  if (held) {
    if (::access((held->heldPath() + "/.").c_str(), W_OK | X_OK) != 0)
      return systemError(ErrorKind::unwritable, mDestination);
    mHeld = *std::move(held);
    return {};
  }
  if (held.error().kind == ErrorKind::refused)
    return Error{ErrorKind::unwritable, held.error().text};
  if (held.error().kind != ErrorKind::absent || ZAN_FilesUtils::exists(mDestination))
    return held.error();
  const std::string holder(ZAN_FilesUtils::parentPath(mDestination));
  auto above = VolumeGuard::hold(holder, *place);
  if (!above) {
    if (ZAN_FilesUtils::exists(holder)) return above.error();
    return Error{ErrorKind::absent, holder + ": the folder of the destination is not there"};
  }
  mHolder = *std::move(above);
  return {};
}

Outcome CopyPlan::addSource(const FolderDescription& item, const VolumeGuard& guard) {
  auto source = HeldSource::hold(item, guard);
  if (!source) return source.error();
  if (source->name == Versions::kName)
    return Error{ErrorKind::refused,
                 source->path + ": the name is that of the folder of older versions"};
  for (const auto& other : mSources) {
    if (other.name == source->name)
      return Error{ErrorKind::refused,
                   source->path + ": its copy would lie in that of " + other.path};
  }
  mSources.push_back(*std::move(source));
  return {};
}

Outcome CopyPlan::checkOverlaps() {
  const HeldFolder& anchor = mHeld ? *mHeld : *mHolder;
  const auto destination = pathOnDevice(
      anchor, mHeld ? std::string() : std::string(ZAN_FilesUtils::lastPathComponent(mDestination)));
  if (!destination) return destination.error();
  for (auto& source : mSources) {
    // Elsewhere mounted or linked, it is the same place of the same file system.
    if (source.held.mount().device != anchor.mount().device) continue;
    const auto from = pathOnDevice(source.held, source.isFolder ? std::string() : source.name);
    if (!from) return from.error();
    if (ZAN_FilesUtils::isAtOrBelow(*from, ZAN_FilesUtils::joinedPath(*destination, source.name)))
      return Error{ErrorKind::refused, source.path + ": it lies where its copy would be"};
    const auto below = ZAN_FilesUtils::relativePath(*destination, *from);
    if (!below) continue;
    if (below->empty())
      return Error{ErrorKind::refused, source.path + ": it is its own destination"};
    source.excluded.emplace_back(*below);
  }
  return {};
}

Result<HeldFolder> CopyPlan::openDestination() const {
  if (mHeld) return mHeld->again();
  return mHolder->makeBelow(std::string(ZAN_FilesUtils::lastPathComponent(mDestination)));
}

FileSystemFacts CopyPlan::factsOf(const HeldFolder& destination) const {
  return FileSystemFacts::of(destination, mMount);
}

Outcome CopyPlan::checkMounted(const std::vector<Mount>& mounts) const {
  for (const Source& source : mSources) {
    if (Outcome there = source.checkMounted(mounts); !there) return there;
  }
  if ((mHeld ? *mHeld : *mHolder).isMounted(mounts)) return {};
  return Error{ErrorKind::absent, mDestination + ": its volume is not mounted any more"};
}

Outcome CopyPlan::checkAlive() const {
  for (const Source& source : mSources) {
    if (Outcome there = source.checkAlive(); !there) return there;
  }
  return (mHeld ? *mHeld : *mHolder).answers();
}

std::vector<std::string> CopyPlan::arguments(const std::string& rsync, Pass pass,
                                             const Task& task) const {
  const Source& source = task.source;
  // To list the source piece by piece while it is copied costs an eighth more of the processor; all
  // of the list, the look holds in memory anyway.
  std::vector<std::string> words{rsync, "--archive", "--one-file-system", "--no-inc-recursive"};
  std::ranges::copy_if(task.options, std::back_inserter(words), [&](const std::string& option) {
    return task.comparesAttributes || (option != "--xattrs" && option != "--acls");
  });
  if (mComparesContents) words.emplace_back("--checksum");
  if (pass == Pass::look) {
    words.emplace_back("--dry-run");
    if (task.tellsAll) words.emplace_back("-ii");
    // What could not be read is kept from deletion one by one.
    if (mDeletes && source.isFolder)
      words.insert(words.end(), {"--delete-after", "--ignore-errors", "--force"});
  } else {
    if (task.mayRemoveFolders) words.emplace_back("--force");
    if (task.aside)
      words.insert(words.end(), {"--backup", "--backup-dir=" + task.aside->heldPath()});
    if (task.onlyItem) words.emplace_back("--no-whole-file");
    // With the folders above them, which keep their times so; what has just gone is no error.
    if (task.readsItems)
      words.insert(words.end(), {"--files-from=-", "--from0", "--ignore-missing-args"});
    if (mBandwidth > 0)
      words.push_back("--bwlimit=" + std::to_string(std::max<std::uint64_t>(mBandwidth / 1024, 1)));
  }
  // A half is neither copied nor deleted; a look need not see whether each file has one.
  if (task.keepsHalves) {
    words.push_back("--partial-dir=" + std::string(HalfFiles::kName));
  } else if (pass == Pass::look) {
    words.push_back("--filter=-p " + std::string(HalfFiles::kName) + "/");
  }
  // A link to a file means the file.
  if (!source.isFolder) words.emplace_back("--copy-links");
  for (auto& word : RsyncOutput::arguments(pass == Pass::copy)) words.push_back(std::move(word));
  for (const auto* list : {&source.excluded, &task.skippedItems}) {
    for (const auto& item : *list) words.push_back("--exclude=" + literalPattern(item));
  }
  if (source.isFolder) words.push_back("--exclude=" + literalPattern(std::string(CopyMark::kName)));
  for (const auto& mount : source.mountsWithin)
    words.push_back("--exclude=/" + escaped(mount) + "/*");
  if (task.onlyItem) {
    for (std::size_t slash = 0; slash != std::string::npos;) {
      slash = task.onlyItem->find('/', slash + 1);
      words.push_back("--include=" + literalPattern(task.onlyItem->substr(0, slash)));
    }
    words.emplace_back("--exclude=*");
  } else {
    for (const auto& pattern : mExclusions) words.push_back("--exclude=" + pattern);
  }
  words.emplace_back("--");
  words.push_back(source.held.heldPath() + "/" + (source.isFolder ? std::string() : source.name));
  words.push_back(task.to + "/");
  return words;
}

std::string CopyPlan::literalPattern(const std::string& relative) {
  const bool isPlain = relative.find_first_of("*?[") == std::string::npos;
  return "/" + (isPlain ? relative : escaped(relative));
}

}  // namespace corvana
