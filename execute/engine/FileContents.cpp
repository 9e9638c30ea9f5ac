#include "execute/engine/FileContents.h"

#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

namespace corvana {

namespace {

constexpr std::size_t kPiece = 1 << 18;
/// A slow disk has done that much within a few seconds.
constexpr off_t kBetweenLooks = 1 << 24;

bool isToGoOn(const GoesOnWithin& goesOn, off_t bytes) {
  if (!goesOn || goesOn(static_cast<std::uint64_t>(bytes))) return true;
  errno = ECANCELED;
  return false;
}

std::optional<std::size_t> fill(int file, std::string& piece, off_t at) {
  std::size_t done = 0;
  while (done < piece.size()) {
    const auto count =
        ::pread(file, piece.data() + done, piece.size() - done, at + static_cast<off_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  return done;
}

bool copyPiece(int from, int to, off_t start, off_t end, const GoesOnWithin& goesOn) {
  while (start < end) {
    // At the same places, however much is copied at once.
    const off_t stop = std::min(end, (start / kBetweenLooks + 1) * kBetweenLooks);
    const auto length = static_cast<std::size_t>(stop - start);
    off_t source = start;
    off_t target = start;
    ssize_t count = ::copy_file_range(from, &source, to, &target, length, 0);
    if (count < 0 &&
        (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) {
      std::string piece(std::min(length, kPiece), '\0');
      count = ::pread(from, piece.data(), piece.size(), start);
      if (count > 0) count = ::pwrite(to, piece.data(), static_cast<std::size_t>(count), start);
    }
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      if (count == 0) errno = EIO;
      return false;
    }
    start += count;
    if (start % kBetweenLooks == 0 && !isToGoOn(goesOn, start)) return false;
  }
  return true;
}

}  // namespace

bool copyContents(int from, int to, off_t size, const GoesOnWithin& goesOn) {
  if (::ftruncate(to, size) != 0) return false;
  for (off_t at = 0; at < size;) {
    off_t data = ::lseek(from, at, SEEK_DATA);
    if (data < 0 && errno == ENXIO) return true;
    if (data < 0) data = at;
    off_t hole = ::lseek(from, data, SEEK_HOLE);
    if (hole <= data) hole = size;
    if (!copyPiece(from, to, data, std::min(hole, size), goesOn)) return false;
    at = hole;
  }
  return true;
}

std::optional<std::pair<bool, std::uint32_t>> readTogether(int one, int two,
                                                           const GoesOnWithin& goesOn) {
  std::string first(kPiece, '\0');
  std::string second(kPiece, '\0');
  std::uint32_t sum = 0;
  bool isSame = true;
  for (off_t at = 0;; at += static_cast<off_t>(kPiece)) {
    const auto count = fill(one, first, at);
    const auto other = two < 0 ? count : fill(two, second, at);
    if (!count || !other) return std::nullopt;
    sum = static_cast<std::uint32_t>(
        ::crc32(sum, reinterpret_cast<const Bytef*>(first.data()), static_cast<uInt>(*count)));
    if (two >= 0 && (*count != *other || std::memcmp(first.data(), second.data(), *count) != 0))
      isSame = false;
    if (*count < kPiece) return std::pair(isSame, sum);
    if (at % kBetweenLooks == 0 && !isToGoOn(goesOn, at)) return std::nullopt;
  }
}

}  // namespace corvana
