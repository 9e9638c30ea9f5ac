#include "platform/Volumes.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

constexpr int kMostLinks = 40;

}  // namespace

const Mount* mountAt(const std::vector<Mount>& mounts, std::string_view path) {
  const Mount* found = nullptr;
  for (const auto& mount : mounts) {
    if (ZAN_FilesUtils::isAtOrBelow(path, mount.target) &&
        (!found || mount.target.size() >= found->target.size()))
      found = &mount;
  }
  return found;
}

std::string withLinksFollowed(const std::vector<Mount>& mounts, const std::string& path) {
  std::string done;
  std::string rest = path;
  for (int links = 0; !rest.empty() && links <= kMostLinks;) {
    const auto start = rest.find_first_not_of('/');
    if (start == std::string::npos) break;
    const auto end = std::min(rest.find('/', start), rest.size());
    const std::string component = rest.substr(start, end - start);
    std::string after = rest.substr(end);
    if (component == ".." || component == ".") {
      if (component == "..") done = std::string(ZAN_FilesUtils::parentPath(done));
      if (done == "/") done.clear();
      rest = std::move(after);
      continue;
    }
    const std::string place = done + '/' + component;
    const Mount* mount = mountAt(mounts, place);
    if (mount && mount->isForeign) return place + after;
    std::error_code none;
    // The place of a mount is a folder, and looking at it asks what is mounted there.
    const auto link = mount && mount->target == place ? std::filesystem::path()
                                                      : std::filesystem::read_symlink(place, none);
    if (link.empty()) {
      done = place;
      rest = std::move(after);
    } else {
      ++links;
      if (link.is_absolute()) done.clear();
      rest = link.string() + after;
      if (!rest.starts_with('/')) rest.insert(rest.begin(), '/');
    }
  }
  return done.empty() ? "/" : done;
}

}  // namespace corvana
