#include "execute/plain/VersionFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "execute/engine/FolderWalk.h"

namespace corvana {

namespace {

using State = VersionFolder::State;

constexpr std::array<std::pair<State, std::string_view>, 4> kStates{{{State::current, ".current"},
                                                                     {State::fresh, ".new"},
                                                                     {State::going, ".deleting"},
                                                                     {State::merging, ".merging"}}};

}  // namespace

Error unwritable(const HeldFolder& folder, std::string_view name) {
  const int code = errno;
  return {ErrorKind::unwritable, ZAN_FilesUtils::joinedPath(folder.path(), std::string(name)) +
                                     ": " + std::strerror(code)};
}

Outcome synchronise(const HeldFolder& folder) {
  const ZAN_Descriptor open(::openat(folder.descriptor(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (open && ::fsync(open.get()) == 0) return {};
  // Some file systems cannot do it to a folder.
  if (open && errno == EINVAL) return {};
  return unwritable(folder);
}

std::string VersionFolder::named(const std::string& base, State state) {
  const auto found = std::ranges::find(kStates, state, &std::pair<State, std::string_view>::first);
  return found == kStates.end() ? base : base + std::string(found->second);
}

std::optional<VersionFolder> VersionFolder::fromName(const std::string& name) {
  VersionFolder folder{.name = name, .base = name};
  for (const auto& [state, ending] : kStates) {
    if (!name.ends_with(ending)) continue;
    folder.state = state;
    folder.base.resize(name.size() - ending.size());
    break;
  }
  const auto dash = folder.base.find("Z-");
  const auto date = versionDate(
      std::string_view(folder.base).substr(0, dash == std::string::npos ? dash : dash + 1));
  if (!date) return std::nullopt;
  folder.date = *date;
  if (dash == std::string::npos) return folder;
  const std::string_view number = std::string_view(folder.base).substr(dash + 2);
  const auto [end, error] =
      std::from_chars(number.data(), number.data() + number.size(), folder.number);
  if (error != std::errc() || end != number.data() + number.size()) return std::nullopt;
  return folder;
}

std::vector<VersionFolder> VersionFolder::all(const HeldFolder& versions) {
  std::vector<VersionFolder> found;
  for (const auto& name :
       namesInFolder(versions.descriptor()).value_or(std::vector<std::string>())) {
    auto folder = fromName(name);
    if (!folder) continue;
    if (const ZAN_Descriptor open = openFolderBelow(versions.descriptor(), name)) {
      const auto header = VersionListReader::headerOf(open.get(), std::string(kList), name);
      if (header) folder->header = *header;
    }
    found.push_back(*std::move(folder));
  }
  std::ranges::sort(found, [](const auto& one, const auto& two) { return one.isOlderThan(two); });
  return found;
}

std::uint64_t VersionFolder::bytesOnDisk(const HeldFolder& versions) const {
  const ZAN_Descriptor folder = openFolderBelow(versions.descriptor(), name);
  std::uint64_t blocks = 0;
  if (!folder) return 0;
  TreeCursor cursor(folder.get(), {});
  while (const auto entry = cursor.next()) {
    struct stat state {};
    if (::fstatat(entry->folder, entry->entry.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0)
      blocks += static_cast<std::uint64_t>(state.st_blocks);
  }
  return blocks * 512;
}

std::size_t VersionFolder::firstKnown(const std::vector<VersionFolder>& chain,
                                      const std::vector<VersionFolder>& all) {
  std::size_t first = chain.size();
  for (; first > 0; --first) {
    const std::string& next = chain[first - 1].header->next;
    const bool isNext = first == chain.size() || next.empty() || next == chain[first].base;
    const auto isMerging = [&](const VersionFolder& other) {
      return other.state == State::merging && other.base == next;
    };
    if (!isNext && std::ranges::none_of(all, isMerging)) break;
  }
  return first;
}

bool VersionFolder::takeNewList(const HeldFolder& folder) {
  const int open = folder.descriptor();
  return ::renameat(open, std::string(kNewList).c_str(), open, std::string(kList).c_str()) == 0;
}

}  // namespace corvana
