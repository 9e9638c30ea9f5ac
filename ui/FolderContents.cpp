#include "ui/FolderContents.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_Utf8.h"

namespace corvana {

namespace {

constexpr std::size_t kMostItems = 60;

struct Entry {
  std::string name;
  std::string sortName;
  bool isFolder = false;
};

std::vector<Entry> entriesOf(const std::string& path) {
  std::vector<Entry> entries;
  std::error_code failed;
  std::filesystem::directory_iterator each(
      path, std::filesystem::directory_options::skip_permission_denied, failed);
  for (; !failed && each != std::filesystem::directory_iterator(); each.increment(failed)) {
    std::string name = each->path().filename().string();
    if (name.empty() || name.front() == '.') continue;
    std::error_code unknown;
    const bool isFolder = each->is_directory(unknown);
    std::string sortName = foldedCase(name);
    entries.push_back({std::move(name), std::move(sortName), isFolder});
  }
  std::ranges::sort(entries, {}, &Entry::sortName);
  if (entries.size() > kMostItems) entries.resize(kMostItems);
  return entries;
}

}  // namespace

MenuItem::List folderItems(const std::string& path,
                           const std::function<void(const std::string&)>& open) {
  MenuItem::List items;
  for (Entry& entry : entriesOf(path)) {
    const std::string inside = (std::filesystem::path(path) / entry.name).string();
    MenuItem item = MenuItem::command(std::move(entry.name), [open, inside] { open(inside); });
    item.icon = entry.isFolder ? MenuIcon::folder : MenuIcon::file;
    if (entry.isFolder) {
      item.kind = MenuItem::Kind::submenu;
      item.read = [open, inside] { return folderItems(inside, open); };
    }
    items.push_back(std::move(item));
  }
  return items;
}

}  // namespace corvana
