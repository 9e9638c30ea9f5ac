#include "ZANCocoaFramework/ZAN_ArchiveStream.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <limits>

namespace corvana {

using archive::Type;

namespace {

ZAN_ArchiveStream::Shared sharedString(std::string_view bytes) {
  ZAN_ArchiveStream::Shared shared{.bytes = bytes};
  if (bytes.size() == 1) {
    shared.letter = bytes[0];
  } else if (bytes.size() > 3 && bytes.starts_with('[') && bytes.ends_with("c]")) {
    const char* end = bytes.data() + bytes.size() - 2;
    const auto [stop, error] = std::from_chars(bytes.data() + 1, end, shared.count);
    if (error == std::errc() && stop == end) shared.letter = ZAN_ArchiveStream::kBytes;
  }
  return shared;
}

}  // namespace

ZAN_ArchiveStream::ZAN_ArchiveStream(std::span<const std::byte> data)
    : mBegin(reinterpret_cast<const std::uint8_t*>(data.data())),
      mNext(mBegin),
      mEnd(mBegin + data.size()) {}

bool ZAN_ArchiveStream::readHeader() {
  std::uint8_t version = 0;
  std::size_t length = 0;
  std::string_view signature;
  if (remaining() == 0) return fail("there is no data");
  if (!readByte(version) || !readLength(length)) return false;
  if (length != archive::kLittleEndianSignature.size()) return fail("this is no archive");
  if (!readBytes(length, signature)) return false;
  mBigEndian = signature == archive::kBigEndianSignature;
  if (!mBigEndian && signature != archive::kLittleEndianSignature)
    return fail("this is no archive");
  if (version != archive::kStreamerVersion) return fail("an archive of an unknown version");
  std::int64_t system = 0;
  return readInteger(4, system);
}

template <class T>
bool ZAN_ArchiveStream::readFixed(T& value) {
  if (remaining() < sizeof value) return fail("the data is cut short");
  std::uint8_t bytes[sizeof value];
  std::memcpy(bytes, mNext, sizeof value);
  mNext += sizeof value;
  if (mBigEndian) std::reverse(std::begin(bytes), std::end(bytes));
  std::memcpy(&value, bytes, sizeof value);
  return true;
}

bool ZAN_ArchiveStream::readWideInteger(std::uint8_t head, int width, std::int64_t& value) {
  if (head == archive::kInteger16) {
    std::int16_t number = 0;
    if (!readFixed(number)) return false;
    value = number;
    return true;
  }
  if (head == archive::kInteger32 && width >= 4) {
    std::int32_t number = 0;
    if (!readFixed(number)) return false;
    value = number;
    return true;
  }
  if (head == archive::kInteger64 && width == 8) return readFixed(value);
  return fail("something else stands where a number belongs");
}

bool ZAN_ArchiveStream::readReal(char letter, double& value) {
  std::uint8_t head = 0;
  if (!readByte(head)) return false;
  if (head != archive::kReal) {
    std::int64_t whole = 0;
    if (!readInteger(head, 4, whole)) return false;
    value = static_cast<double>(whole);
    return true;
  }
  if (letter == 'd') return readFixed(value);
  float single = 0;
  if (!readFixed(single)) return false;
  value = static_cast<double>(single);
  return true;
}

bool ZAN_ArchiveStream::readLength(std::uint8_t head, std::size_t& length) {
  std::int64_t number = 0;
  if (!readInteger(head, 4, number)) return false;
  if (number < 0) return fail("a negative length");
  length = static_cast<std::size_t>(number);
  return true;
}

bool ZAN_ArchiveStream::readReference(std::uint8_t head, std::size_t size, std::size_t& index) {
  std::int64_t number = 0;
  if (!readInteger(head, 4, number)) return false;
  number -= archive::kFirstReference;
  if (number < 0 || static_cast<std::uint64_t>(number) >= size) {
    return fail("a reference to something that is not there");
  }
  index = static_cast<std::size_t>(number);
  return true;
}

bool ZAN_ArchiveStream::readShared(std::int32_t& index) {
  std::uint8_t head = 0;
  if (!readByte(head)) return false;
  if (head == archive::kNil) {
    index = kNoString;
    return true;
  }
  if (head != archive::kNew) {
    std::size_t entry = 0;
    if (!readReference(head, mShared.size(), entry)) return false;
    index = static_cast<std::int32_t>(entry);
    return true;
  }
  std::size_t length = 0;
  std::string_view bytes;
  if (!readByte(head)) return false;
  if (head == archive::kNil) return fail("a new string that is nil");
  if (!readLength(head, length) || !readBytes(length, bytes)) return false;
  index = static_cast<std::int32_t>(mShared.size());
  mShared.push_back(sharedString(bytes));
  return true;
}

bool ZAN_ArchiveStream::parsedTypes(std::int32_t index, const std::vector<Type>*& types) {
  Shared& entry = mShared[static_cast<std::size_t>(index)];
  if (entry.types < 0) {
    auto parsed = archive::parseTypes(entry.bytes);
    if (!parsed) return fail("a type that cannot be read");
    entry.types = static_cast<std::int32_t>(mTypes.size());
    mTypes.push_back(std::move(*parsed));
  }
  types = &mTypes[static_cast<std::size_t>(entry.types)];
  return true;
}

bool ZAN_ArchiveStream::fail(const char* reason, ErrorKind kind) {
  mReason = reason;
  mErrorKind = kind;
  return false;
}

Error ZAN_ArchiveStream::error() const {
  return {mErrorKind, std::string(mReason) + " (at byte " + std::to_string(position()) + ")"};
}

static_assert(std::endian::native == std::endian::little,
              "numbers are written as they lie in memory");

namespace {

/// Whether a real is written as the integer `whole`. The detour through a single-precision number
/// makes a whole number of more than 24 bits a real; the platform's writer takes it, and so do its
/// files.
template <class T>
bool isWhole(T value, std::int64_t& whole) {
  whole = 0;
  const auto wide = static_cast<double>(value);
  if (wide < 2147483646.0 && wide >= -2147483646.0) {
    whole = static_cast<std::int64_t>(static_cast<float>(value));
  }
  return value == static_cast<T>(whole);
}

}  // namespace

void ZAN_ArchiveOutput::writeHeader() {
  writeByte(archive::kStreamerVersion);
  writeUnshared(archive::kLittleEndianSignature);
  writeInteger(archive::kSystemVersion);
}

void ZAN_ArchiveOutput::grow(std::size_t count) {
  mBytes.resize(std::max(mBytes.size() * 2, mUsed + count));
}

template <class T>
void ZAN_ArchiveOutput::writeFixed(std::uint8_t head, T value) {
  require(1 + sizeof value);
  mBytes[mUsed++] = static_cast<std::byte>(head);
  std::memcpy(mBytes.data() + mUsed, &value, sizeof value);
  mUsed += sizeof value;
}

void ZAN_ArchiveOutput::writeWideInteger(std::int64_t value) {
  if (value >= -32767 && value <= 32767) {
    writeFixed(archive::kInteger16, static_cast<std::int16_t>(value));
  } else if (value >= std::numeric_limits<std::int32_t>::min() &&
             value <= std::numeric_limits<std::int32_t>::max()) {
    writeFixed(archive::kInteger32, static_cast<std::int32_t>(value));
  } else {
    writeFixed(archive::kInteger64, value);
  }
}

void ZAN_ArchiveOutput::writeReal(double value, char letter) {
  std::int64_t whole = 0;
  if (letter == 'f') {
    const auto single = static_cast<float>(value);
    if (isWhole(single, whole)) return writeInteger(whole);
    return writeFixed(archive::kReal, single);
  }
  if (isWhole(value, whole)) return writeInteger(whole);
  writeFixed(archive::kReal, value);
}

void ZAN_ArchiveOutput::writeNewShared(std::string_view text) {
  mStrings.add(text, mStringCount++);
  writeByte(archive::kNew);
  writeUnshared(text);
}

std::vector<std::byte> ZAN_ArchiveOutput::take() {
  mBytes.resize(mUsed);
  return std::move(mBytes);
}

}  // namespace corvana
