#include "execute/plain/VersionList.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "execute/engine/Words.h"

namespace corvana {

namespace {

constexpr std::string_view kFormat = "#corvana9-version 1";
constexpr std::string_view kEnd = "#end ";
constexpr std::size_t kBuffer = 1 << 16;

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
  if (!header.next.empty()) lines.push_back(line("next", header.next));
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
  if (key == "reference") return parseNumber(*value, header.reference);
  if (key == "files") return parseNumber(*value, header.files);
  if (key == "bytes") return parseNumber(*value, header.bytes);
  if (key == "machine") header.machine = *value;
  if (key == "home") header.home = *value;
  if (key == "title") header.title = *value;
  if (key == "next") header.next = *value;
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
  const Error damaged{ErrorKind::damaged,
                      shownPath +
                          ": the list of the version is damaged, and what is older cannot be told; "
                          "rename that folder, and newer versions go on without it"};
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
      isGood = parseNumber(takeWord(rest), count) && parseNumber(rest, wanted, 16) &&
               count == reader.mCount && wanted == sum;
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
    mIsAtEnd = line.starts_with(kEnd);
    if (mIsAtEnd) break;
    if (!line.starts_with('#')) return line;
  }
  return {};
}

std::optional<VersionItem> VersionListReader::next() {
  const std::string_view line = nextLine();
  if (line.empty()) return std::nullopt;
  return VersionItem::fromLine(line);
}

}  // namespace corvana
