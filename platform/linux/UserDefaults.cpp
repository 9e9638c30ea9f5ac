#include "platform/linux/UserDefaults.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"

namespace corvana {

namespace {

bool needsEscape(unsigned char letter) { return letter <= ' ' || letter == '%' || letter == '='; }

std::string escaped(std::string_view key) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  for (const char one : key) {
    const auto letter = static_cast<unsigned char>(one);
    // A line that begins so is a comment or a heading to others who read such files.
    const bool special = text.empty() && (one == '[' || one == '#' || one == ';');
    if (!needsEscape(letter) && !special) {
      text += one;
      continue;
    }
    text += '%';
    text += kDigits[letter >> 4U];
    text += kDigits[letter & 15U];
  }
  return text;
}

std::string unescaped(std::string_view text) {
  const auto digit = [](char letter) {
    if (letter >= '0' && letter <= '9') return letter - '0';
    if (letter >= 'A' && letter <= 'F') return letter - 'A' + 10;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
  };
  std::string key;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? digit(text[i + 1]) : -1;
    const int low = high >= 0 ? digit(text[i + 2]) : -1;
    if (low < 0) {
      key += text[i];
      continue;
    }
    key += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return key;
}

}  // namespace

ZAN_Value UserDefaults::value(const std::string& key) const {
  refresh();
  const auto found = std::find_if(mLines.rbegin(), mLines.rend(),
                                  [&](const Line& line) { return line.key == key; });
  return key.empty() || found == mLines.rend() ? ZAN_Value() : found->value;
}

void UserDefaults::setValue(const std::string& key, const ZAN_Value& value) {
  if (key.empty()) return;
  refresh();
  const auto json = value.isNull() ? Result<std::string>(std::string())
                                   : ZAN_Json::jsonWithValue(value, {.compact = true});
  if (!json) return;
  const auto found =
      std::find_if(mLines.begin(), mLines.end(), [&](const Line& line) { return line.key == key; });
  const auto others = std::remove_if(found == mLines.end() ? found : found + 1, mLines.end(),
                                     [&](const Line& line) { return line.key == key; });
  mLines.erase(others, mLines.end());
  if (value.isNull()) {
    std::erase_if(mLines, [&](const Line& line) { return line.key == key; });
  } else {
    const Line line{escaped(key) + "=" + *json, key, value};
    const auto place =
        std::find_if(mLines.begin(), mLines.end(), [&](const Line& one) { return one.key == key; });
    if (place == mLines.end()) {
      mLines.push_back(line);
    } else {
      *place = line;
    }
  }
  write();
}

UserDefaults::Identity UserDefaults::identity() const {
  struct stat status {};
  if (stat(mPath.c_str(), &status) != 0) return {};
  return {status.st_ino, status.st_size,
          status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec};
}

void UserDefaults::refresh() const {
  const Identity now = identity();
  if (now == mIdentity) return;
  mIdentity = now;
  mLines.clear();
  std::ifstream file(mPath, std::ios::binary);
  for (std::string text; std::getline(file, text);) {
    Line line{text, {}, {}};
    const std::string_view setting = ZAN_StringUtils::trimmed(text);
    const std::size_t equals = setting.find('=');
    const bool understood = equals != std::string_view::npos && setting.front() != '[' &&
                            setting.front() != '#' && setting.front() != ';';
    if (understood) {
      const auto value =
          ZAN_Json::valueWithJson(ZAN_StringUtils::trimmed(setting.substr(equals + 1)));
      if (value) {
        line.key = unescaped(ZAN_StringUtils::trimmed(setting.substr(0, equals)));
        line.value = *value;
      }
    }
    mLines.push_back(std::move(line));
  }
}

void UserDefaults::write() {
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(mPath).parent_path(), ignored);
  std::string text;
  for (const Line& line : mLines) text += line.text + "\n";
  const ZAN_FileWriter writer{std::string()};
  if (writer.write(mPath, text, {.attributes = {.mode = 0600, .finderInfo = {}}})) {
    mIdentity = identity();
  }
}

}  // namespace corvana
