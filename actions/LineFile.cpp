#include "actions/LineFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <system_error>
#include <vector>

#include "ZANCocoaFramework/ZAN_Descriptor.h"

namespace corvana {

namespace {

/// Of a file's end, to find it again among the lines; repeated lines are told apart by those
/// before.
constexpr std::size_t kTail = 4096;
constexpr std::uint64_t kMostBytes = 1UL << 20;
constexpr int kReplacements = 8;
constexpr double kLongestWait = 2.0;

Error unwritable(const std::string& path) {
  return {ErrorKind::unwritable, path + ": " + std::generic_category().message(errno)};
}

std::optional<std::string> readEnd(const ZAN_Descriptor& file, std::uint64_t size,
                                   std::size_t most) {
  std::string text(static_cast<std::size_t>(std::min<std::uint64_t>(most, size)), '\0');
  std::size_t length = 0;
  while (length < text.size()) {
    const ssize_t count = ::pread(file.get(), text.data() + length, text.size() - length,
                                  static_cast<off_t>(size - text.size() + length));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;
    length += static_cast<std::size_t>(count);
  }
  return text;
}

bool write(const ZAN_Descriptor& file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(file.get(), text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

/// The whole lines of the end of a file; nothing when its last one is torn, or there is none.
std::vector<std::string_view> wholeLines(std::string_view tail, bool isWholeFile) {
  std::vector<std::string_view> lines;
  if (tail.empty() || tail.back() != '\n') return lines;
  std::size_t begin = isWholeFile ? 0 : tail.find('\n') + 1;
  while (begin < tail.size()) {
    const std::size_t end = tail.find('\n', begin);
    lines.push_back(tail.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

/// Number of the line after those that the file ends with; nothing when it ends otherwise.
std::optional<std::size_t> lineAfter(const std::vector<std::string_view>& end,
                                     const LineFile::Lines& lines) {
  std::vector<std::string> texts;  // from the last one on
  const auto text = [&](std::size_t number) -> const std::string& {
    while (texts.size() < lines.count - number)
      texts.push_back(lines.line(lines.count - 1 - texts.size()));
    return texts[lines.count - 1 - number];
  };
  if (end.empty()) return std::nullopt;
  for (std::size_t after = lines.count; after > 0; --after) {
    const std::size_t length = std::min(end.size(), after);
    std::size_t same = 0;
    while (same < length && text(after - 1 - same) == end[end.size() - 1 - same]) ++same;
    if (same == length) return after;
  }
  return std::nullopt;
}

/// Nothing when the file has to be written anew.
std::optional<std::string> missingFrom(const std::string& path, const LineFile::Lines& lines) {
  const ZAN_Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status;
  if (!file || ::fstat(file.get(), &status) != 0) return std::nullopt;
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (size > kMostBytes) return std::nullopt;
  const auto tail = readEnd(file, size, kTail);
  if (!tail) return std::nullopt;
  const auto first = lineAfter(wholeLines(*tail, tail->size() == size), lines);
  if (!first) return std::nullopt;
  std::string missing;
  for (std::size_t number = *first; number < lines.count; ++number)
    missing += lines.line(number) + "\n";
  return missing;
}

}  // namespace

Outcome LineFile::append(const std::string& path, std::string_view lines) {
  for (int time = 0; time < kReplacements; ++time) {
    ZAN_Descriptor file(::open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
    struct stat status;
    if (!file || ::fstat(file.get(), &status) != 0) return unwritable(path);
    const auto last = readEnd(file, static_cast<std::uint64_t>(status.st_size), 1);
    const bool isTorn = last && !last->empty() && *last != "\n";
    if (!write(file, isTorn ? "\n" + std::string(lines) : std::string(lines)) ||
        ::fstat(file.get(), &status) != 0 || file.close() != 0)
      return unwritable(path);
    if (status.st_nlink > 0) return {};
  }
  return Error{ErrorKind::unwritable, path + ": replaced again and again by other programs"};
}

Outcome LineFile::show(const std::string& path, const Lines& lines, const ZAN_FileWriter& writer) {
  ZAN_FileLock held;
  if (!lines.lockPath.empty()) {
    auto lock = ZAN_FileLock::acquire(lines.lockPath, kLongestWait, lines.pause);
    // Without it two programs may show a line twice, until the next one makes good for that.
    if (lock) held = std::move(*lock);
  }
  if (!lines.isAnew) {
    if (const auto missing = missingFrom(path, lines))
      return missing->empty() ? Outcome() : append(path, *missing);
  }
  std::string all;
  for (std::size_t number = 0; number < lines.count; ++number) all += lines.line(number) + "\n";
  return writer.write(path, all, {});
}

}  // namespace corvana
