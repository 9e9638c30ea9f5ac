#include "platform/linux/LinuxMachine.h"

#include <limits.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <string_view>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "platform/BundlePath.h"
#include "platform/linux/LoginItems.h"
#include "platform/linux/StartupVolumeFacts.h"

namespace corvana {

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

}  // namespace corvana
