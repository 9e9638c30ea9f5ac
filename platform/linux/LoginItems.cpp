#include "platform/linux/LoginItems.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

std::vector<std::string> parts(std::string_view list) {
  std::vector<std::string> found;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(':'), list.size());
    if (end > 0) found.emplace_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return found;
}

std::string variable(const char* name, const char* otherwise) {
  const char* value = std::getenv(name);
  return value == nullptr || *value == '\0' ? otherwise : value;
}

/// The first word of a command line: in double quotes, with backslashes, or up to a blank.
std::string firstWord(std::string_view command) {
  std::string word;
  bool quoted = false;
  for (std::size_t i = 0; i < command.size(); ++i) {
    const char letter = command[i];
    if (letter == '"') {
      quoted = !quoted;
    } else if (letter == '\\' && i + 1 < command.size()) {
      word += command[++i];
    } else if (letter == ' ' && !quoted) {
      if (!word.empty()) break;
    } else {
      word += letter;
    }
  }
  return word;
}

/// The program of an autostart entry; nothing when it is switched off or is no program.
std::optional<std::string> programOfEntry(const std::string& path) {
  std::ifstream file(path);
  bool inEntry = false;
  std::optional<std::string> program;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with('[')) inEntry = line.starts_with("[Desktop Entry]");
    const std::size_t equals = line.find('=');
    if (!inEntry || equals == std::string::npos) continue;
    std::string key = line.substr(0, equals);
    while (key.ends_with(' ')) key.pop_back();
    const std::size_t begin = line.find_first_not_of(' ', equals + 1);
    const std::string value = begin == std::string::npos ? std::string() : line.substr(begin);
    if ((key == "Hidden" && value == "true") ||
        (key == "X-GNOME-Autostart-enabled" && value == "false"))
      return std::nullopt;
    if (key == "Exec") program = firstWord(value);
  }
  return program;
}

}  // namespace

LoginItems::LoginItems(std::vector<std::string> folders, std::string path)
    : mFolders(std::move(folders)), mPath(std::move(path)) {}

LoginItems LoginItems::ofUser(const std::string& configurationFolder) {
  std::vector<std::string> folders{configurationFolder + "/autostart"};
  for (const std::string& folder : parts(variable("XDG_CONFIG_DIRS", "/etc/xdg")))
    folders.push_back(folder + "/autostart");
  return {std::move(folders), variable("PATH", "/usr/local/bin:/usr/bin:/bin")};
}

std::vector<std::string> LoginItems::programs() const {
  std::map<std::string, std::string> entries;
  for (const std::string& folder : mFolders) {
    for (const std::string& name :
         ZAN_FilesUtils::listFolder(folder).valueOr(std::vector<std::string>{})) {
      if (name.ends_with(".desktop")) entries.emplace(name, folder + "/" + name);
    }
  }
  std::vector<std::string> programs;
  for (const auto& [name, path] : entries) {
    if (const auto program = programOfEntry(path); program && !program->empty())
      programs.push_back(fullPath(*program));
  }
  return programs;
}

std::string LoginItems::fullPath(const std::string& program) const {
  if (program.find('/') != std::string::npos) return program;
  for (const std::string& folder : parts(mPath)) {
    std::string path = folder + "/" + program;
    if (access(path.c_str(), X_OK) == 0) return path;
  }
  return program;
}

}  // namespace corvana
