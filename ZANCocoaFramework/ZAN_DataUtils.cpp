#include "ZANCocoaFramework/ZAN_DataUtils.h"

#include <zlib.h>

#include <QByteArray>
#include <QCryptographicHash>
#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>

namespace corvana {

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::string base64(std::span<const std::byte> bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 3; ++k) {
      group = group << 8 | (i + k < bytes.size() ? static_cast<std::uint32_t>(bytes[i + k]) : 0);
    }
    for (std::size_t k = 0; k < 4; ++k) {
      text += i + k <= bytes.size() ? kAlphabet[group >> (18 - 6 * k) & 63] : '=';
    }
  }
  return text;
}

std::optional<std::string> fromBase64(std::string_view text) {
  std::string bytes;
  std::uint32_t group = 0;
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (const char c : text) {
    if (c == ' ' || c == '\n' || c == '\r' || c == '\t') continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const std::size_t value = kAlphabet.find(c);
    if (value == std::string_view::npos || padding > 0) return std::nullopt;
    group = group << 6 | static_cast<std::uint32_t>(value);
    if (++digits % 4 == 0) {
      for (const int shift : {16, 8, 0}) bytes += static_cast<char>(group >> shift & 0xff);
      group = 0;
    }
  }
  const std::size_t rest = digits % 4;
  if (rest == 1 || padding != (4 - rest) % 4) return std::nullopt;
  for (std::size_t k = 1; k < rest; ++k)
    bytes += static_cast<char>(group >> (6 * rest - 8 * k) & 0xff);
  return bytes;
}

std::array<std::byte, 16> md5(std::string_view bytes) {
  const QByteArray digest = QCryptographicHash::hash(
      QByteArray::fromRawData(bytes.data(), static_cast<qsizetype>(bytes.size())),
      QCryptographicHash::Md5);
  std::array<std::byte, 16> result{};
  std::memcpy(result.data(), digest.constData(), result.size());
  return result;
}

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
