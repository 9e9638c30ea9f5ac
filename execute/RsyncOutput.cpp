#include "execute/RsyncOutput.h"

#include <algorithm>
#include <charconv>

namespace corvana {
namespace {

constexpr std::size_t kKeptErrors = 200;
constexpr std::size_t kLongestLine = 1 << 16;

/// Hands out the whole lines of `rest` + `bytes` and keeps what follows the last of them.
template <class Handler>
void splitLines(std::string& rest, std::string_view bytes, std::string_view separators,
                Handler handler) {
  rest.append(bytes);
  std::size_t start = 0;
  for (std::size_t end; (end = rest.find_first_of(separators, start)) != std::string::npos;
       start = end + 1) {
    if (end > start) handler(std::string_view(rest).substr(start, end - start));
  }
  rest.erase(0, start);
  if (rest.size() > kLongestLine) rest.clear();
}

std::optional<std::uint64_t> leadingNumber(std::string_view& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

void skipBlanks(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
}

std::optional<std::uint64_t> numberAfter(std::string_view text, std::string_view word) {
  const auto at = text.find(word);
  if (at == std::string_view::npos) return std::nullopt;
  text.remove_prefix(at + word.size());
  return leadingNumber(text);
}

bool isOctal(char letter) { return letter >= '0' && letter <= '7'; }

}  // namespace

std::vector<std::string> RsyncOutput::arguments() {
  // "@" tells an item's line from the progress lines; a name comes last, since it may hold blanks.
  return {"--outbuf=L", "--no-human-readable", "--info=progress2,name0,flist0,del0,stats0",
          "--out-format=@%i %l %n"};
}

std::string RsyncOutput::decodedName(std::string_view text) {
  std::string name;
  name.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 4 < text.size() && text[i + 1] == '#' && isOctal(text[i + 2]) &&
        isOctal(text[i + 3]) && isOctal(text[i + 4])) {
      name.push_back(static_cast<char>(((text[i + 2] - '0') << 6) | ((text[i + 3] - '0') << 3) |
                                       (text[i + 4] - '0')));
      i += 4;
    } else {
      name.push_back(text[i]);
    }
  }
  return name;
}

void RsyncOutput::readOutput(std::string_view bytes) {
  splitLines(mOutputRest, bytes, "\r\n", [this](std::string_view line) { readOutputLine(line); });
}

void RsyncOutput::readErrors(std::string_view bytes) {
  splitLines(mErrorRest, bytes, "\n", [this](std::string_view line) { readErrorLine(line); });
}

void RsyncOutput::finish() {
  readOutput("\n");
  readErrors("\n");
}

void RsyncOutput::readOutputLine(std::string_view line) {
  if (line.front() != '@') return readProgressLine(line);
  line.remove_prefix(1);
  const std::string_view change = line.substr(0, line.find(' '));
  line.remove_prefix(change.size());
  skipBlanks(line);
  if (!leadingNumber(line) || line.size() < 2 || line.front() != ' ') return;
  line.remove_prefix(1);
  if (change.starts_with("*deleting")) {
    ++mDeleted;
  } else {
    mCurrentItem = decodedName(line);
  }
}

// "        30000007 100%  286.10MB/s    0:00:00 (xfr#5, to-chk=0/7)"; "ir-chk" while folders are
// still being read.
void RsyncOutput::readProgressLine(std::string_view line) {
  skipBlanks(line);
  const auto bytes = leadingNumber(line);
  skipBlanks(line);
  const auto percent = leadingNumber(line);
  if (!bytes || !percent || !line.starts_with('%')) return;
  mBytes = std::max(mBytes, *bytes);
  if (const auto files = numberAfter(line, "xfr#")) mFiles = std::max(mFiles, *files);
  if (line.find("ir-chk=") != std::string_view::npos) return;
  double progress = static_cast<double>(*percent);
  const auto left = numberAfter(line, "to-chk=");
  const auto at = line.rfind('/');
  const auto all = at == std::string_view::npos ? std::nullopt : numberAfter(line.substr(at), "/");
  if (left && all && *all > 0 && *left <= *all) {
    // What is there already is never transferred, so the bytes alone would stop short of the end.
    progress =
        std::max(progress, 100.0 * static_cast<double>(*all - *left) / static_cast<double>(*all));
  }
  mProgress = std::clamp(progress, mProgress, 100.0);
}

void RsyncOutput::readErrorLine(std::string_view line) {
  // The closing line only sums up, and a file that vanished while being read was not the copy's
  // fault.
  for (const std::string_view harmless :
       {"rsync error:", "rsync warning:", "file has vanished:", "IO error encountered"}) {
    if (line.starts_with(harmless)) return;
  }
  ++mErrorCount;
  if (mErrors.size() < kKeptErrors) mErrors.push_back(decodedName(line));
  const auto open = line.find('"');
  const auto close = line.rfind('"');
  if (open == std::string_view::npos || close == open) return;
  mLastErrorPath = decodedName(line.substr(open + 1, close - open - 1));
  if (!mFirstErrorPath) mFirstErrorPath = mLastErrorPath;
}

}  // namespace corvana
