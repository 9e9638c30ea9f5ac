#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ZANCocoaFramework/ZAN_ArchiveTypes.h"

namespace corvana {

/// Numbers given to texts in the order in which they come; a text of one letter is found without
/// hashing.
class ZAN_ArchiveNumbers {
 public:
  static constexpr std::int64_t kNone = -1;

  ZAN_ArchiveNumbers() { mLetters.fill(kNone); }

  /// kNone when the text has no number yet.
  std::int64_t find(std::string_view text) const {
    if (text.size() == 1) return mLetters[static_cast<unsigned char>(text[0])];
    const auto found = mTexts.find(text);
    return found == mTexts.end() ? kNone : found->second;
  }
  void add(std::string_view text, std::int64_t number) {
    if (text.size() == 1) {
      mLetters[static_cast<unsigned char>(text[0])] = number;
    } else {
      mTexts.emplace(text, number);
    }
  }

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const {
      return std::hash<std::string_view>()(text);
    }
  };

  std::array<std::int64_t, 256> mLetters;
  std::unordered_map<std::string, std::int64_t, Hash, std::equal_to<>> mTexts;
};

/// The lower half of writing a sequential archive: bytes, numbers and the table of shared strings.
class ZAN_ArchiveOutput {
 public:
  ZAN_ArchiveOutput() : mBytes(4096) {}

  void writeHeader();
  void writeByte(std::uint8_t byte) {
    require(1);
    mBytes[mUsed++] = static_cast<std::byte>(byte);
  }
  void writeBytes(std::string_view bytes) {
    require(bytes.size());
    if (!bytes.empty()) std::memcpy(mBytes.data() + mUsed, bytes.data(), bytes.size());
    mUsed += bytes.size();
  }
  void writeInteger(std::int64_t value) {
    if (value >= archive::kFirstReference && value <= 127) {
      writeByte(static_cast<std::uint8_t>(value));
    } else {
      writeWideInteger(value);
    }
  }
  void writeReal(double value, char letter);
  void writeReference(std::int64_t number) { writeInteger(number + archive::kFirstReference); }
  /// Length and bytes.
  void writeUnshared(std::string_view text) {
    writeInteger(static_cast<std::int64_t>(text.size()));
    writeBytes(text);
  }
  void writeShared(std::string_view text) {
    const std::int64_t number = mStrings.find(text);
    if (number != ZAN_ArchiveNumbers::kNone) {
      writeReference(number);
    } else {
      writeNewShared(text);
    }
  }
  /// The type of a group with one value.
  void writeGroup(char letter) { writeShared({&letter, 1}); }

  std::vector<std::byte> take();

 private:
  void require(std::size_t count) {
    if (mBytes.size() - mUsed < count) grow(count);
  }
  void grow(std::size_t count);
  template <class T>
  void writeFixed(std::uint8_t head, T value);
  void writeWideInteger(std::int64_t value);
  void writeNewShared(std::string_view text);

  std::vector<std::byte> mBytes;
  std::size_t mUsed = 0;
  ZAN_ArchiveNumbers mStrings;
  std::int64_t mStringCount = 0;
};

}  // namespace corvana
