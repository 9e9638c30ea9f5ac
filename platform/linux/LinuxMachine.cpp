#include "platform/linux/LinuxMachine.h"

#include <limits.h>
#include <pwd.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <map>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "platform/Processes.h"
#include "platform/linux/MountTable.h"

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

namespace {

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : value;
}

std::string firstOf(std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (std::string value = environment(name); !value.empty()) return value;
  }
  return {};
}

std::string linkTarget(const std::string& path) {
  std::array<char, PATH_MAX> buffer{};
  const ssize_t size = readlink(path.c_str(), buffer.data(), buffer.size());
  return size <= 0 ? std::string() : std::string(buffer.data(), static_cast<std::size_t>(size));
}

const passwd* user() { return getpwuid(getuid()); }

std::string homeOfUser() {
  if (std::string home = environment("HOME"); !home.empty()) return home;
  const passwd* entry = user();
  return entry == nullptr ? "/" : entry->pw_dir;
}

std::string configurationOfUser(const std::string& home) {
  const std::string folder = environment("XDG_CONFIG_HOME");
  return folder.starts_with('/') ? folder : home + "/.config";
}

std::string languageOf(std::string_view locale) {
  std::string language(locale.substr(0, locale.find_first_of(".@")));
  std::replace(language.begin(), language.end(), '_', '-');
  return language == "C" || language == "POSIX" ? std::string() : language;
}

}  // namespace

LinuxMachine::LinuxMachine(const Places& places)
    : mPlaces(places),
      mHome(homeOfUser()),
      mConfiguration(configurationOfUser(mHome)),
      mExecutable(withoutDeletedMark(linkTarget(places.executable))),
      mDefaults(mConfiguration + "/corvana9/defaults.ini") {}

std::string LinuxMachine::desktopFolder() const {
  return userFolder("XDG_DESKTOP_DIR", mHome + "/Desktop");
}

std::string LinuxMachine::downloadsFolder() const {
  return userFolder("XDG_DOWNLOAD_DIR", mHome + "/Downloads");
}

std::string LinuxMachine::userFolder(const std::string& key, const std::string& otherwise) const {
  std::ifstream file(mConfiguration + "/user-dirs.dirs");
  std::string folder = otherwise;
  for (std::string line; std::getline(file, line);) {
    const std::size_t first = line.find_first_not_of(" \t");
    const std::string begin = key + "=\"";
    if (first == std::string::npos || line.compare(first, begin.size(), begin) != 0) continue;
    std::string value;
    for (std::size_t i = first + begin.size(); i < line.size() && line[i] != '"'; ++i) {
      if (line[i] == '\\' && i + 1 < line.size()) ++i;
      value += line[i];
    }
    constexpr std::string_view kHome = "$HOME";
    if (value == kHome || value.starts_with("$HOME/")) {
      value = mHome + value.substr(kHome.size());
    }
    while (value.size() > 1 && value.ends_with('/')) value.pop_back();
    if (value.starts_with('/')) folder = value;
  }
  return folder;
}

std::string LinuxMachine::loginName() const {
  if (const passwd* entry = user()) return entry->pw_name;
  return firstOf({"LOGNAME", "USER"});
}

std::string LinuxMachine::hostName() const {
  std::array<char, HOST_NAME_MAX + 1> name{};
  if (gethostname(name.data(), name.size() - 1) != 0) return "localhost";
  return name.data();
}

std::string LinuxMachine::networkName() const {
  const std::string full = hostName();
  return full.substr(0, full.find('.'));
}

std::string LinuxMachine::machineIdentifier() const {
  std::ifstream file(mPlaces.machineId);
  std::string identifier;
  if (!(file >> identifier)) identifier = networkName();
  // FNV-1a. Most of the 128 bits are lost, so that nobody gets back to them.
  std::uint64_t digest = 0xcbf29ce484222325U;
  for (const char c : "corvana9 " + identifier)
    digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  std::array<char, 13> text{};
  std::snprintf(text.data(), text.size(), "%012llx",
                static_cast<unsigned long long>(digest & 0xffffffffffffU));
  return text.data();
}

std::int64_t LinuxMachine::userIdentifier() const { return getuid(); }

std::string LinuxMachine::timeZoneName() const {
  if (std::getenv("TZ") == nullptr && linkTarget(mPlaces.localTime).empty()) {
    // A zone file that was copied instead of linked does not say its name.
    std::ifstream file(mPlaces.timeZone);
    if (std::string zone; file >> zone) return zone;
  }
  return ZAN_DateUtils::systemZoneName(mPlaces.localTime);
}

std::string LinuxMachine::regionName() const { return ZAN_DateUtils::systemRegionName(); }

std::vector<std::string> LinuxMachine::languageNames() const {
  const std::string locale = languageOf(firstOf({"LC_ALL", "LC_MESSAGES", "LANG"}));
  std::vector<std::string> languages;
  const auto add = [&](const std::string& language) {
    const bool known = std::find(languages.begin(), languages.end(), language) != languages.end();
    if (!language.empty() && !known) languages.push_back(language);
  };
  // Without a language of its own a session shows the untranslated texts, whatever it would prefer.
  if (!locale.empty()) {
    const std::string wanted = environment("LANGUAGE");
    for (std::size_t begin = 0; begin < wanted.size();) {
      const std::size_t end = std::min(wanted.find(':', begin), wanted.size());
      add(languageOf(std::string_view(wanted).substr(begin, end - begin)));
      begin = end + 1;
    }
    add(locale);
  }
  const std::vector<std::string> exact = languages;
  for (const std::string& language : exact) add(language.substr(0, language.find('-')));
  add("en");
  return languages;
}

std::string LinuxMachine::bundlePath() const {
  const std::string bundle = bundlePathOfExecutable(mExecutable);
  return bundle.empty() ? mExecutable.substr(0, mExecutable.rfind('/')) : bundle;
}

bool LinuxMachine::isOwnedByRootAndSetUserId(const std::string& path) const {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && status.st_uid == 0 && (status.st_mode & S_ISUID) != 0;
}

std::optional<StartupVolume> LinuxMachine::startupVolume() const {
  return StartupVolumeFacts({}).read();
}

std::vector<std::string> LinuxMachine::loginItems() const {
  return LoginItems::ofUser(mConfiguration).programs();
}

Syslog::Syslog() { openlog("corvana9", LOG_PID, LOG_USER); }

Syslog::~Syslog() { closelog(); }

void Syslog::write(const std::string& line) {
  syslog(LOG_NOTICE, "%s", ZAN_StringUtils::oneLine(line).c_str());
}

void StandardErrorLog::write(const std::string& line) {
  const time_t now = time(nullptr);
  tm fields{};
  localtime_r(&now, &fields);
  std::array<char, 16> clock{};
  strftime(clock.data(), clock.size(), "%H:%M:%S", &fields);
  // One call, so that lines of several threads do not mix.
  std::fprintf(stderr, "%s %s\n", clock.data(), ZAN_StringUtils::oneEntry(line).c_str());
}

}  // namespace corvana
