#include "execute/plain/VersionList.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "ZANCocoaFramework/ZAN_Utf8.h"

namespace corvana {

namespace {

constexpr std::string_view kFormat = "#corvana9-version 1";
constexpr std::string_view kEnd = "#end ";
constexpr std::size_t kBuffer = 1 << 16;
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

std::string_view takeWord(std::string_view& rest) {
  const auto end = std::min(rest.find(' '), rest.size());
  const std::string_view word = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return word;
}

template <class Number>
bool parse(std::string_view text, Number& number, int base = 10) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size();
}

/// Both sides of the first such letter.
std::pair<std::string_view, std::string_view> cut(std::string_view text, char letter) {
  const auto at = text.find(letter);
  if (at == std::string_view::npos) return {text, {}};
  return {text.substr(0, at), text.substr(at + 1)};
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
    if (i + 3 >= text.size() || !parse(text.substr(i + 1, 3), byte, 8) || byte > 0xff)
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
  const auto [user, group] = cut(takeWord(line), ':');
  const auto [seconds, nanoseconds] = cut(takeWord(line), '.');
  if (!contents || !parse(mode, item.mode, 8) || !parse(user, item.user) ||
      !parse(group, item.group) || !parse(seconds, item.seconds) ||
      !parse(nanoseconds, item.nanoseconds))
    return std::nullopt;
  item.contents = *contents;
  const std::string_view what = takeWord(line);
  if (item.kind == Kind::link) {
    auto target = unescaped(what);
    if (!target) return std::nullopt;
    item.target = *std::move(target);
  } else if (!parse(what, item.size)) {
    return std::nullopt;
  }
  while (!line.empty()) {
    const auto [attribute, value] = cut(takeWord(line), '=');
    auto attributeName = unescaped(attribute);
    auto bytes = unescaped(value);
    if (!attributeName || !bytes) return std::nullopt;
    item.attributes.emplace_back(*std::move(attributeName), *std::move(bytes));
  }
  return item;
}

namespace {

constexpr std::string_view kAbout =
    "What this version had and the next newer one has not: files marked \"here\" lie in this "
    "folder, \"none\" was not there, all else is as in the next newer version or the copy itself.";

std::vector<std::string> linesOf(const VersionHeader& header) {
  const auto line = [](std::string_view key, std::string_view value) {
    return "#" + std::string(key) + " " + VersionItem::escaped(value);
  };
  std::vector<std::string> lines{std::string(kFormat),
                                 "#about " + std::string(kAbout),
                                 line("date", versionDateText(header.date)),
                                 line("machine", header.machine),
                                 line("home", header.home),
                                 line("reference", std::to_string(header.reference)),
                                 line("title", header.title),
                                 line("files", std::to_string(header.files)),
                                 line("bytes", std::to_string(header.bytes))};
  if (header.isUnfinished) lines.emplace_back("#unfinished");
  if (header.isClosed) lines.emplace_back("#closed");
  if (!header.merges.empty()) lines.push_back(line("merges", header.merges));
  for (const auto& copy : header.copies) {
    lines.push_back(line("copy", copy.name) + (copy.isFolder ? " folder " : " file ") +
                    VersionItem::escaped(copy.source));
  }
  return lines;
}

bool readHeaderLine(std::string_view line, VersionHeader& header) {
  line.remove_prefix(1);
  const std::string_view key = takeWord(line);
  if (key == "about") return true;
  if (key == "unfinished") return header.isUnfinished = true;
  if (key == "closed") return header.isClosed = true;
  auto value = VersionItem::unescaped(takeWord(line));
  if (!value) return false;
  if (key == "date") {
    const auto date = versionDate(*value);
    header.date = date.value_or(0);
    return date.has_value();
  }
  if (key == "reference") return parse(*value, header.reference);
  if (key == "files") return parse(*value, header.files);
  if (key == "bytes") return parse(*value, header.bytes);
  if (key == "machine") header.machine = *value;
  if (key == "home") header.home = *value;
  if (key == "title") header.title = *value;
  if (key == "merges") header.merges = *value;
  if (key == "copy") {
    const std::string_view kind = takeWord(line);
    auto source = VersionItem::unescaped(takeWord(line));
    if (!source || (kind != "folder" && kind != "file")) return false;
    header.copies.push_back({*value, *std::move(source), kind == "folder"});
  }
  return true;
}

std::uint32_t sumOf(std::uint32_t before, std::string_view bytes) {
  return static_cast<std::uint32_t>(::crc32(before, reinterpret_cast<const Bytef*>(bytes.data()),
                                            static_cast<uInt>(bytes.size())));
}

}  // namespace

VersionListWriter::VersionListWriter(int folder, std::string name, const VersionHeader& header)
    : mFile(::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC,
                     0600)) {
  if (!mFile) mFailure = errno;
  for (const auto& line : linesOf(header)) put(line);
}

void VersionListWriter::put(std::string_view line) {
  const std::size_t before = mBuffer.size();
  mBuffer.append(line).push_back('\n');
  mSum = sumOf(mSum, std::string_view(mBuffer).substr(before));
  if (mBuffer.size() < kBuffer) return;
  if (mFailure == 0 && !writeAll(mFile.get(), mBuffer)) mFailure = errno;
  mBuffer.clear();
}

void VersionListWriter::add(std::string_view line) {
  ++mCount;
  put(line);
}

bool VersionListWriter::finish() {
  std::array<char, 64> end{};
  std::snprintf(end.data(), end.size(), "%s%llu %08x\n", std::string(kEnd).c_str(),
                static_cast<unsigned long long>(mCount), mSum);
  mBuffer += end.data();
  if (mFailure == 0 && (!writeAll(mFile.get(), mBuffer) || ::fsync(mFile.get()) != 0))
    mFailure = errno;
  mBuffer.clear();
  if (mFile.close() != 0 && mFailure == 0) mFailure = errno;
  errno = mFailure;
  return mFailure == 0;
}

Result<VersionListReader> VersionListReader::open(int folder, const std::string& name,
                                                  const std::string& shownPath) {
  return opened(folder, name, shownPath, true);
}

Result<VersionHeader> VersionListReader::headerOf(int folder, const std::string& name,
                                                  const std::string& shownPath) {
  auto reader = opened(folder, name, shownPath, false);
  if (!reader) return reader.error();
  return reader->mHeader;
}

Result<VersionListReader> VersionListReader::opened(int folder, const std::string& name,
                                                    const std::string& shownPath, bool isWhole) {
  ZAN_Descriptor file(
      ::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file)
    return Error{errno == ENOENT ? ErrorKind::absent : ErrorKind::unreadable,
                 shownPath + ": " + std::strerror(errno)};
  const Error damaged{ErrorKind::damaged, shownPath + ": the list of the version is not whole"};
  VersionListReader reader(std::move(file));
  LineReader lines(reader.mFile.get());
  std::string_view line;
  if (!lines.next(line) || line != kFormat) return damaged;
  std::uint32_t sum = sumOf(sumOf(0, line), "\n");
  bool isGood = false;
  while (lines.next(line)) {
    if (!isWhole && (line.starts_with(kEnd) || !line.starts_with('#'))) {
      isGood = true;
      break;
    }
    if (line.starts_with(kEnd)) {
      std::string_view rest = line.substr(kEnd.size());
      std::uint64_t count = 0;
      std::uint32_t wanted = 0;
      isGood = parse(takeWord(rest), count) && parse(rest, wanted, 16) && count == reader.mCount &&
               wanted == sum;
      break;
    }
    sum = sumOf(sumOf(sum, line), "\n");
    if (!line.starts_with('#')) {
      ++reader.mCount;
    } else if (!readHeaderLine(line, reader.mHeader)) {
      break;
    }
  }
  if (!isGood) return damaged;
  return reader;
}

std::string_view VersionListReader::nextLine() {
  std::string_view line;
  while (mLines.next(line)) {
    if (line.starts_with(kEnd)) break;
    if (!line.starts_with('#')) return line;
  }
  return {};
}

std::optional<VersionItem> VersionListReader::next() {
  const std::string_view line = nextLine();
  if (line.empty()) return std::nullopt;
  return VersionItem::fromLine(line);
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
    parse(text.substr(at, length), value);
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
