#include "ZANCocoaFramework/ZAN_Compression.h"

#include <zlib.h>

#include <algorithm>
#include <limits>
#include <memory>

namespace corvana {

namespace {

constexpr std::size_t kStep = std::size_t{1} << 16;
constexpr std::size_t kLargestPiece = std::numeric_limits<uInt>::max();

Bytef* zlibBytes(const std::byte* bytes) {
  return const_cast<Bytef*>(reinterpret_cast<const Bytef*>(bytes));
}

}  // namespace

std::vector<std::byte> ZAN_Compression::compressedData(std::span<const std::byte> data) {
  uLongf size = compressBound(static_cast<uLong>(data.size()));
  std::vector<std::byte> out(size);
  compress2(reinterpret_cast<Bytef*>(out.data()), &size, zlibBytes(data.data()),
            static_cast<uLong>(data.size()), Z_DEFAULT_COMPRESSION);
  out.resize(size);
  return out;
}

Result<std::vector<std::byte>> ZAN_Compression::decompressedData(std::span<const std::byte> data,
                                                                 std::size_t limit) {
  z_stream stream{};
  if (inflateInit(&stream) != Z_OK) return Error{ErrorKind::unavailable, "no memory to inflate"};
  const std::unique_ptr<z_stream, int (*)(z_stream*)> end(&stream, inflateEnd);

  std::vector<std::byte> out;
  std::size_t given = 0;
  std::size_t made = 0;
  for (int status = Z_OK; status != Z_STREAM_END;) {
    if (stream.avail_in == 0 && given < data.size()) {
      const std::size_t piece = std::min(data.size() - given, kLargestPiece);
      stream.next_in = zlibBytes(data.data() + given);
      stream.avail_in = static_cast<uInt>(piece);
      given += piece;
    }
    if (made == out.size()) {
      if (made > limit) return Error{ErrorKind::limit, "inflates beyond the permitted size"};
      // One byte above the limit tells a stream that ends there from one that goes on.
      out.resize(std::min(made + std::max(made, kStep), limit + 1));
    }
    const std::size_t room = std::min(out.size() - made, kLargestPiece);
    stream.next_out = reinterpret_cast<Bytef*>(out.data() + made);
    stream.avail_out = static_cast<uInt>(room);
    status = inflate(&stream, Z_NO_FLUSH);
    made += room - stream.avail_out;
    if (status != Z_OK && status != Z_STREAM_END) {
      const bool cut = status == Z_BUF_ERROR;
      return Error{ErrorKind::damaged,
                   cut ? "compressed data is cut short" : "compressed data is damaged"};
    }
  }
  if (made > limit) return Error{ErrorKind::limit, "inflates beyond the permitted size"};
  if (stream.avail_in != 0 || given != data.size()) {
    return Error{ErrorKind::damaged, "bytes after the end of the compressed data"};
  }
  out.resize(made);
  return out;
}

}  // namespace corvana
