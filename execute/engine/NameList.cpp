#include "execute/engine/NameList.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace corvana {

namespace {

constexpr std::size_t kBuffer = 1 << 16;
constexpr std::size_t kFirst = 1 << 12;  // often all that is wanted
constexpr std::size_t kMostInMemory = 4 << 20;

}  // namespace

ZAN_Descriptor temporaryFile() {
  ZAN_Descriptor file(::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (file) return file;
  if (std::FILE* const named = std::tmpfile()) {
    file = ZAN_Descriptor(::fcntl(::fileno(named), F_DUPFD_CLOEXEC, 3));
    std::fclose(named);
  }
  return file;
}

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

NameList::NameList() : mFile(temporaryFile()) {}

void NameList::add(std::string_view name) {
  ++mCount;
  if (!name.ends_with('/')) ++mFiles;
  mBuffer.append(name).push_back('\0');
  if (mBuffer.size() >= kBuffer) flush();
}

void NameList::flush() {
  if (!writeAll(mFile.get(), mBuffer)) mIsWhole = false;
  mBuffer.clear();
}

int NameList::descriptor() {
  flush();
  return mIsWhole && ::lseek(mFile.get(), 0, SEEK_SET) == 0 ? mFile.get() : -1;
}

bool NameList::forEach(const std::function<bool(const std::string&)>& each) {
  if (mCount > 0 && descriptor() < 0) return false;
  std::string rest;
  std::string piece(kBuffer, '\0');
  for (;;) {
    const auto count = ::read(mFile.get(), piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    rest.append(piece, 0, static_cast<std::size_t>(count));
    std::size_t start = 0;
    for (std::size_t end; (end = rest.find('\0', start)) != std::string::npos; start = end + 1) {
      if (!each(rest.substr(start, end - start))) return true;
    }
    rest.erase(0, start);
  }
  return true;
}

bool LineReader::next(std::string_view& line) {
  for (;;) {
    const auto end = mBuffer.find('\n', mStart);
    if (end != std::string::npos) {
      line = std::string_view(mBuffer).substr(mStart, end - mStart);
      mStart = end + 1;
      return true;
    }
    mBuffer.erase(0, mStart);
    mStart = 0;
    const std::size_t before = mBuffer.size();
    const std::size_t piece = mOffset == 0 ? kFirst : kBuffer;
    mBuffer.resize(before + piece);
    ssize_t count = 0;
    do {
      count = ::pread(mDescriptor, mBuffer.data() + before, piece, mOffset);
    } while (count < 0 && errno == EINTR);
    mBuffer.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    mHasFailed = count < 0;
    if (count <= 0) return false;
    mOffset += count;
  }
}

std::string_view nameOfLine(std::string_view line) { return line.substr(0, line.find(' ')); }

bool comesBefore(std::string_view name, std::string_view other) {
  const auto [one, two] = std::ranges::mismatch(name, other);
  if (one == name.end() || two == other.end()) return one == name.end() && two != other.end();
  if (*one == '/' || *two == '/') return *one == '/';
  return static_cast<unsigned char>(*one) < static_cast<unsigned char>(*two);
}

void SortedLines::add(std::string_view line) {
  mLines.emplace_back(mText.size(), line.size());
  mText.append(line);
  if (mText.size() + mLines.size() * sizeof mLines.front() >= kMostInMemory && !spill())
    mIsWhole = false;
}

bool SortedLines::spill() {
  ZAN_Descriptor file = temporaryFile();
  const auto lineAt = [this](const std::pair<std::size_t, std::size_t>& place) {
    return std::string_view(mText).substr(place.first, place.second);
  };
  std::ranges::stable_sort(mLines, [&](const auto& one, const auto& two) {
    return comesBefore(nameOfLine(lineAt(one)), nameOfLine(lineAt(two)));
  });
  std::string buffer;
  bool isWritten = true;
  for (const auto& place : mLines) {
    buffer.append(lineAt(place)).push_back('\n');
    if (buffer.size() < kBuffer) continue;
    isWritten = isWritten && writeAll(file.get(), buffer);
    buffer.clear();
  }
  isWritten = isWritten && writeAll(file.get(), buffer);
  mText.clear();
  mLines.clear();
  mSpilled.push_back(std::move(file));
  return isWritten;
}

bool SortedLines::forEach(const std::function<bool(std::string_view)>& each) {
  if (!mLines.empty() && !spill()) mIsWhole = false;
  if (!mIsWhole) return false;
  struct Run {
    LineReader reader;
    std::string_view line = {};
    bool isThere = false;
  };
  std::vector<Run> runs;
  for (const auto& file : mSpilled) runs.push_back({LineReader(file.get())});
  for (auto& run : runs) run.isThere = run.reader.next(run.line);
  for (std::string last;;) {
    Run* first = nullptr;
    for (auto& run : runs) {
      if (run.isThere && (!first || comesBefore(nameOfLine(run.line), nameOfLine(first->line))))
        first = &run;
    }
    if (!first) return true;
    if (nameOfLine(first->line) != last) {
      last = nameOfLine(first->line);
      if (!each(first->line)) return false;
    }
    first->isThere = first->reader.next(first->line);
  }
}

}  // namespace corvana
