#include "execute/engine/VersionItem.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "execute/engine/Words.h"

namespace corvana {

namespace {

constexpr mode_t kPermissions = 07777;

constexpr std::array<std::pair<VersionItem::Kind, std::string_view>, 5> kKinds{
    {{VersionItem::Kind::none, "none"},
     {VersionItem::Kind::folder, "folder"},
     {VersionItem::Kind::file, "file"},
     {VersionItem::Kind::link, "link"},
     {VersionItem::Kind::other, "other"}}};
constexpr std::array<std::pair<VersionItem::Contents, std::string_view>, 3> kContents{
    {{VersionItem::Contents::here, "here"},
     {VersionItem::Contents::newer, "newer"},
     {VersionItem::Contents::open, "open"}}};

template <class Table, class Value>
std::string_view wordFor(const Table& table, Value value) {
  return std::ranges::find(table, value, &Table::value_type::first)->second;
}

template <class Table>
auto valueFor(const Table& table, std::string_view word)
    -> std::optional<typename Table::value_type::first_type> {
  const auto found = std::ranges::find(table, word, &Table::value_type::second);
  if (found == table.end()) return std::nullopt;
  return found->first;
}

std::vector<std::pair<std::string, std::string>> attributesOf(int folder,
                                                              const std::string& entry) {
  const std::string path = "/proc/self/fd/" + std::to_string(folder) + "/" + entry;
  std::vector<std::pair<std::string, std::string>> found;
  const auto length = ::llistxattr(path.c_str(), nullptr, 0);
  if (length <= 0) return found;
  std::string names(static_cast<std::size_t>(length), '\0');
  const auto count = ::llistxattr(path.c_str(), names.data(), names.size());
  if (count <= 0) return found;
  names.resize(static_cast<std::size_t>(count));
  for (std::size_t start = 0; start < names.size();) {
    const std::string name = names.c_str() + start;
    start += name.size() + 1;
    const auto size = ::lgetxattr(path.c_str(), name.c_str(), nullptr, 0);
    if (size < 0) continue;
    std::string value(static_cast<std::size_t>(size), '\0');
    const auto got = ::lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    if (got < 0) continue;
    value.resize(static_cast<std::size_t>(got));
    found.emplace_back(name, std::move(value));
  }
  std::ranges::sort(found);
  return found;
}

}  // namespace

std::string VersionItem::escaped(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  // A folder's name is written in one way, whatever lies in it.
  bool isText = false;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char letter = bytes[i];
    const auto byte = static_cast<unsigned char>(letter);
    if (i == 0 || letter == '/') {
      const std::size_t end = std::min(bytes.find('/', i + 1), bytes.size());
      isText = isUtf8(bytes.substr(i, end - i));
    }
    if (byte <= ' ' || byte == 0x7f || letter == '\\' || letter == '#' || letter == '=' ||
        (byte >= 0x80 && !isText)) {
      std::array<char, 5> octal{};
      std::snprintf(octal.data(), octal.size(), "\\%03o", byte);
      text += octal.data();
    } else {
      text.push_back(letter);
    }
  }
  return text;
}

std::optional<std::string> VersionItem::unescaped(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      bytes.push_back(text[i]);
      continue;
    }
    unsigned byte = 0;
    if (i + 3 >= text.size() || !parseNumber(text.substr(i + 1, 3), byte, 8) || byte > 0xff)
      return std::nullopt;
    bytes.push_back(static_cast<char>(byte));
    i += 3;
  }
  return bytes;
}

VersionItem::Kind VersionItem::kindOf(const struct stat& state) {
  if (S_ISDIR(state.st_mode)) return Kind::folder;
  if (S_ISREG(state.st_mode)) return Kind::file;
  return S_ISLNK(state.st_mode) ? Kind::link : Kind::other;
}

std::optional<VersionItem> VersionItem::read(int folder, const std::string& entry, std::string name,
                                             bool withAttributes) {
  VersionItem item{.name = std::move(name)};
  struct stat state {};
  if (::fstatat(folder, entry.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno != ENOENT && errno != ENOTDIR) return std::nullopt;
    return item;
  }
  item.kind = kindOf(state);
  item.contents =
      item.kind == Kind::folder || item.kind == Kind::link ? Contents::newer : Contents::open;
  item.mode = state.st_mode & kPermissions;
  item.user = state.st_uid;
  item.group = state.st_gid;
  item.seconds = state.st_mtim.tv_sec;
  item.nanoseconds = state.st_mtim.tv_nsec;
  if (item.kind == Kind::file) item.size = static_cast<std::uint64_t>(state.st_size);
  if (item.kind == Kind::link) {
    std::string target(static_cast<std::size_t>(std::max<off_t>(state.st_size, 0)) + 1, '\0');
    const auto length = ::readlinkat(folder, entry.c_str(), target.data(), target.size());
    if (length < 0) return std::nullopt;
    target.resize(static_cast<std::size_t>(length));
    item.target = std::move(target);
  }
  if (withAttributes && item.kind != Kind::link) item.attributes = attributesOf(folder, entry);
  return item;
}

std::string VersionItem::toLine() const {
  std::string line = escaped(name);
  line.append(" ").append(wordFor(kKinds, kind));
  if (kind == Kind::none) return line;
  std::array<char, 96> numbers{};
  std::snprintf(numbers.data(), numbers.size(), " %o %u:%u %lld.%09lld ", mode, user, group,
                static_cast<long long>(seconds), static_cast<long long>(nanoseconds));
  line.append(" ").append(wordFor(kContents, contents)).append(numbers.data());
  line += kind == Kind::link ? escaped(target) : std::to_string(size);
  for (const auto& [attribute, value] : attributes)
    line.append(" ").append(escaped(attribute)).append("=").append(escaped(value));
  return line;
}

std::optional<VersionItem> VersionItem::fromLine(std::string_view line) {
  const auto name = unescaped(takeWord(line));
  const auto kind = valueFor(kKinds, takeWord(line));
  if (!name || name->empty() || !kind) return std::nullopt;
  VersionItem item{.name = *name, .kind = *kind};
  if (item.kind == Kind::none) return item;
  const auto contents = valueFor(kContents, takeWord(line));
  const std::string_view mode = takeWord(line);
  const auto [user, group] = cutAt(takeWord(line), ':');
  const auto [seconds, nanoseconds] = cutAt(takeWord(line), '.');
  if (!contents || !parseNumber(mode, item.mode, 8) || !parseNumber(user, item.user) ||
      !parseNumber(group, item.group) || !parseNumber(seconds, item.seconds) ||
      !parseNumber(nanoseconds, item.nanoseconds))
    return std::nullopt;
  item.contents = *contents;
  const std::string_view what = takeWord(line);
  if (item.kind == Kind::link) {
    auto target = unescaped(what);
    if (!target) return std::nullopt;
    item.target = *std::move(target);
  } else if (!parseNumber(what, item.size)) {
    return std::nullopt;
  }
  while (!line.empty()) {
    const auto [attribute, value] = cutAt(takeWord(line), '=');
    auto attributeName = unescaped(attribute);
    auto bytes = unescaped(value);
    if (!attributeName || !bytes) return std::nullopt;
    item.attributes.emplace_back(*std::move(attributeName), *std::move(bytes));
  }
  return item;
}

std::string versionDateText(ReferenceTime date) {
  const auto seconds = static_cast<std::time_t>(date + kReferenceEpochInUnixTime);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H%M%SZ", &parts);
  return text.data();
}

std::optional<ReferenceTime> versionDate(std::string_view text) {
  constexpr std::string_view kForm = "dddd-dd-ddTddddddZ";
  const auto fits = [](char form, char letter) {
    return form == 'd' ? letter >= '0' && letter <= '9' : form == letter;
  };
  if (!std::ranges::equal(kForm, text, fits)) return std::nullopt;
  std::tm parts{};
  const auto number = [&](std::size_t at, std::size_t length) {
    int value = 0;
    parseNumber(text.substr(at, length), value);
    return value;
  };
  parts.tm_year = number(0, 4) - 1900;
  parts.tm_mon = number(5, 2) - 1;
  parts.tm_mday = number(8, 2);
  parts.tm_hour = number(11, 2);
  parts.tm_min = number(13, 2);
  parts.tm_sec = number(15, 2);
  return static_cast<double>(::timegm(&parts)) - kReferenceEpochInUnixTime;
}

}  // namespace corvana
