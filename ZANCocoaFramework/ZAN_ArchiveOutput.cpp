#include "ZANCocoaFramework/ZAN_ArchiveOutput.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace corvana {

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
