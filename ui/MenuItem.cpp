#include "ui/MenuItem.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <utility>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "platform/Processes.h"

namespace corvana {

namespace {

constexpr std::size_t kMostItems = 60;

constexpr double kPatience = 60;

struct Entry {
  std::string name;
  std::string sortName;
  bool isFolder = false;
};

/// "d" or "f" and the name of each, with a NUL at its end.
std::string namesIn(const std::string& path) {
  std::string names;
  std::error_code failed;
  std::filesystem::directory_iterator each(
      path, std::filesystem::directory_options::skip_permission_denied, failed);
  for (; !failed && each != std::filesystem::directory_iterator(); each.increment(failed)) {
    const std::string name = each->path().filename().string();
    if (name.empty() || name.front() == '.') continue;
    std::error_code unknown;
    names += each->is_directory(unknown) ? 'd' : 'f';
    names += name;
    names += '\0';
  }
  return names;
}

std::vector<Entry> entriesOf(Processes& processes, const std::string& path) {
  std::vector<Entry> entries;
  const auto names = processes.askExpendable([&] { return namesIn(path); }, kPatience);
  std::istringstream lines(names.valueOr({}));
  for (std::string line; std::getline(lines, line, '\0');) {
    std::string name = line.substr(1);
    std::string sortName = foldedCase(name);
    entries.push_back({std::move(name), std::move(sortName), line.front() == 'd'});
  }
  std::ranges::sort(entries, {}, &Entry::sortName);
  if (entries.size() > kMostItems) entries.resize(kMostItems);
  return entries;
}

}  // namespace

MenuItem::List folderItems(Processes& processes, const std::string& path,
                           const std::function<void(const std::string&)>& open) {
  MenuItem::List items;
  for (Entry& entry : entriesOf(processes, path)) {
    const std::string inside = (std::filesystem::path(path) / entry.name).string();
    MenuItem item = MenuItem::command(std::move(entry.name), [open, inside] { open(inside); });
    item.icon = entry.isFolder ? MenuIcon::folder : MenuIcon::file;
    if (entry.isFolder) {
      item.kind = MenuItem::Kind::submenu;
      item.read = [&processes, open, inside] { return folderItems(processes, inside, open); };
    }
    items.push_back(std::move(item));
  }
  return items;
}

}  // namespace corvana
