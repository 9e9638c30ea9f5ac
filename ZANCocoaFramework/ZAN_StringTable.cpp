#include "ZANCocoaFramework/ZAN_StringTable.h"

#include <QUtf8StringView>
#include <algorithm>
#include <fstream>
#include <optional>

namespace corvana {

namespace {

constexpr std::size_t kLargestFile = 8U << 20U;
constexpr std::string_view kSingular = ".one";

void appendUtf8(std::string& out, char32_t c) {
  if (c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) c = 0xFFFD;
  const auto byte = [&out](char32_t value) {
    out += static_cast<char>(static_cast<unsigned char>(value));
  };
  if (c < 0x80) {
    byte(c);
  } else if (c < 0x800) {
    byte(0xC0 | (c >> 6U));
    byte(0x80 | (c & 0x3FU));
  } else if (c < 0x10000) {
    byte(0xE0 | (c >> 12U));
    byte(0x80 | ((c >> 6U) & 0x3FU));
    byte(0x80 | (c & 0x3FU));
  } else {
    byte(0xF0 | (c >> 18U));
    byte(0x80 | ((c >> 12U) & 0x3FU));
    byte(0x80 | ((c >> 6U) & 0x3FU));
    byte(0x80 | (c & 0x3FU));
  }
}

/// Joins UTF-16 units as they come; a half pair becomes the replacement character.
class Utf16Joiner {
 public:
  explicit Utf16Joiner(std::string& out) : mOut(out) {}
  void add(char32_t unit) {
    const bool isLow = unit >= 0xDC00 && unit < 0xE000;
    if (mHigh != 0 && isLow) {
      appendUtf8(mOut, 0x10000 + ((mHigh - 0xD800) << 10U) + (unit - 0xDC00));
      mHigh = 0;
      return;
    }
    flush();
    if (unit >= 0xD800 && unit < 0xDC00) {
      mHigh = unit;
    } else {
      appendUtf8(mOut, unit);
    }
  }
  void flush() {
    if (mHigh != 0) appendUtf8(mOut, 0xFFFD);
    mHigh = 0;
  }

 private:
  std::string& mOut;
  char32_t mHigh = 0;
};

/// The text without byte-order mark, as UTF-8 whatever it was.
std::string decoded(std::string_view bytes) {
  if (bytes.starts_with("\xEF\xBB\xBF")) return std::string(bytes.substr(3));
  const bool little = bytes.starts_with("\xFF\xFE");
  if (!little && !bytes.starts_with("\xFE\xFF")) return std::string(bytes);
  std::string text;
  text.reserve(bytes.size());
  Utf16Joiner joiner(text);
  for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
    const auto first = static_cast<unsigned char>(bytes[i]);
    const auto second = static_cast<unsigned char>(bytes[i + 1]);
    joiner.add(little ? (second << 8U) | first : (first << 8U) | second);
  }
  joiner.flush();
  return text;
}

bool isWordCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-' || c == '.';
}

/// What may be shown and sent: UTF-8 without NUL.
bool isText(const std::string& bytes) {
  return bytes.find('\0') == std::string::npos &&
         QUtf8StringView(bytes.data(), static_cast<qsizetype>(bytes.size())).isValidUtf8();
}

class Parser {
 public:
  Parser(std::string_view text, ZAN_StringTable::Entries& entries,
         std::vector<ZAN_StringTable::Damage>& damages)
      : mText(text), mEntries(entries), mDamages(damages) {}

  void run() {
    while (skipBlanks()) {
      const std::size_t start = mAt;
      const int line = mLine;
      if (const char* reason = entry()) {
        mDamages.push_back({line, reason});
        mAt = start;
        mLine = line;
        skipLine();
      }
    }
  }

 private:
  /// Reads one entry; null when it was sound, else what was wrong.
  const char* entry() {
    const auto key = word();
    if (!key) return mReason;
    skipBlanks();
    if (!take('=')) return "\"=\" expected after the key";
    skipBlanks();
    auto value = word();
    if (!value) return mReason;
    skipBlanks();
    if (!take(';')) return "\";\" expected after the value";
    if (!isText(*key) || !isText(*value)) return "not a UTF-8 text";
    mEntries.insert_or_assign(*key, std::move(*value));
    return nullptr;
  }

  std::optional<std::string> word() {
    mReason = "a text in quotes expected";
    if (mAt == mText.size()) return std::nullopt;
    if (mText[mAt] == '"') return quoted();
    std::string result;
    while (mAt < mText.size() && isWordCharacter(mText[mAt])) result += mText[mAt++];
    if (result.empty()) return std::nullopt;
    return result;
  }

  std::optional<std::string> quoted() {
    ++mAt;
    std::string result;
    while (mAt < mText.size() && mText[mAt] != '"') {
      if (mText[mAt] == '\\' && mAt + 1 < mText.size()) {
        ++mAt;
        escape(result);
        continue;
      }
      if (mText[mAt] == '\n') ++mLine;
      result += mText[mAt++];
    }
    if (!take('"')) {
      mReason = "the closing quote is missing";
      return std::nullopt;
    }
    return result;
  }

  /// The character behind a backslash.
  void escape(std::string& out) {
    const char c = mText[mAt++];
    switch (c) {
      case 'n':
        out += '\n';
        return;
      case 't':
        out += '\t';
        return;
      case 'r':
        out += '\r';
        return;
      case 'u':
      case 'U': {
        Utf16Joiner joiner(out);
        joiner.add(hexadecimal());
        while (mText.substr(mAt).starts_with("\\u") || mText.substr(mAt).starts_with("\\U")) {
          mAt += 2;
          joiner.add(hexadecimal());
        }
        joiner.flush();
        return;
      }
      default:
        if (c == '\n') ++mLine;
        out += c;
    }
  }

  char32_t hexadecimal() {
    char32_t value = 0;
    for (int i = 0; i < 4 && mAt < mText.size(); ++i, ++mAt) {
      const char c = mText[mAt];
      if (c >= '0' && c <= '9') {
        value = value * 16 + static_cast<char32_t>(c - '0');
      } else if ((c | 0x20) >= 'a' && (c | 0x20) <= 'f') {
        value = value * 16 + static_cast<char32_t>((c | 0x20) - 'a' + 10);
      } else {
        break;
      }
    }
    return value;
  }

  bool take(char c) {
    if (mAt == mText.size() || mText[mAt] != c) return false;
    ++mAt;
    return true;
  }

  void skipLine() {
    mAt = std::min(mText.find('\n', mAt), mText.size());
    if (take('\n')) ++mLine;
  }

  /// Passes blanks and comments; whether something follows.
  bool skipBlanks() {
    while (mAt < mText.size()) {
      const std::string_view rest = mText.substr(mAt);
      if (rest[0] == '\n') {
        ++mLine;
        ++mAt;
      } else if (rest[0] == ' ' || rest[0] == '\t' || rest[0] == '\r') {
        ++mAt;
      } else if (rest.starts_with("//")) {
        skipLine();
      } else if (const auto end =
                     rest.starts_with("/*") ? rest.find("*/", 2) : std::string_view::npos;
                 end != std::string_view::npos) {
        mLine +=
            static_cast<int>(std::count(rest.begin(), rest.begin() + static_cast<long>(end), '\n'));
        mAt += end + 2;
      } else {
        return true;
      }
    }
    return false;
  }

  std::string_view mText;
  ZAN_StringTable::Entries& mEntries;
  std::vector<ZAN_StringTable::Damage>& mDamages;
  std::size_t mAt = 0;
  int mLine = 1;
  const char* mReason = nullptr;
};

/// The names under which the wanted languages may be found, each with a region before its plain
/// form; what could leave the folder is dropped.
std::vector<std::string> folderNames(const std::vector<std::string>& languages) {
  std::vector<std::string> names;
  const auto add = [&names](const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  };
  for (const std::string& language : languages) {
    std::string name = language.substr(0, language.find_first_of(".@"));
    if (name.empty() || !std::all_of(name.begin(), name.end(), isWordCharacter)) continue;
    std::replace(name.begin(), name.end(), '-', '_');
    add(name);
    std::replace(name.begin(), name.end(), '_', '-');
    add(name);
    add(name.substr(0, name.find('-')));
  }
  return names;
}

Result<std::string> readWhole(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return Error{ErrorKind::absent, path + ": not there"};
  std::string bytes;
  char chunk[16384];
  while (file.read(chunk, sizeof chunk) || file.gcount() > 0) {
    bytes.append(chunk, static_cast<std::size_t>(file.gcount()));
    if (bytes.size() > kLargestFile) return Error{ErrorKind::limit, path + ": too large"};
  }
  if (file.bad()) return Error{ErrorKind::unreadable, path + ": cannot be read"};
  return bytes;
}

}  // namespace

ZAN_StringTable::Entries ZAN_StringTable::parse(std::string_view bytes,
                                                std::vector<Damage>& damages) {
  Entries entries;
  const std::string text = decoded(bytes);
  Parser(text, entries, damages).run();
  return entries;
}

Outcome ZAN_StringTable::load(const std::string& resourcesFolder,
                              const std::vector<std::string>& languages) {
  std::vector<std::string> names = folderNames(languages);
  // English is complete, so whatever the user wants less than English is never looked at.
  names.erase(std::find(names.begin(), names.end(), "en"), names.end());
  names.emplace_back("en");
  mEntries.clear();
  Error trouble;
  for (const std::string& name : names) {
    const std::string path = resourcesFolder + "/" + name + ".lproj/Localizable.strings";
    const auto say = [&trouble](ErrorKind kind, const std::string& text) {
      trouble.kind = kind;
      trouble.text += (trouble.text.empty() ? "" : "\n") + text;
    };
    const auto bytes = readWhole(path);
    if (!bytes) {
      if (bytes.error().kind != ErrorKind::absent || name == "en")
        say(bytes.error().kind, bytes.error().text);
      continue;
    }
    std::vector<Damage> damages;
    Entries entries = parse(*bytes, damages);
    for (const Damage& damage : damages) {
      say(ErrorKind::damaged, path + ":" + std::to_string(damage.line) + ": " + damage.reason);
    }
    // An empty text is a translation not made yet.
    std::erase_if(entries, [](const auto& entry) { return entry.second.empty(); });
    // Nor does the singular of one language go with the plural of another.
    std::erase_if(entries, [this](const auto& entry) {
      std::string_view key = entry.first;
      if (!key.ends_with(kSingular)) return false;
      key.remove_suffix(kSingular.size());
      return mEntries.contains(key);
    });
    mEntries.merge(entries);
  }
  if (!trouble.text.empty()) return trouble;
  return {};
}

const std::string& ZAN_StringTable::text(std::string_view key) const {
  static const std::string kNone;
  const auto found = mEntries.find(key);
  return found == mEntries.end() ? kNone : found->second;
}

std::string ZAN_StringTable::text(std::string_view key,
                                  ZAN_StringUtils::Arguments arguments) const {
  for (const auto* argument = arguments.end(); argument != arguments.begin();) {
    const auto* number = std::get_if<std::int64_t>(&(--argument)->value());
    if (number == nullptr) continue;
    if (*number != 1) break;
    const std::string& singular = text(std::string(key).append(kSingular));
    if (!singular.empty()) return ZAN_StringUtils::format(singular, arguments);
    break;
  }
  return ZAN_StringUtils::format(text(key), arguments);
}

}  // namespace corvana
