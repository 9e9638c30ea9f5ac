#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <deque>
#include <span>
#include <unordered_map>

#include "ZANCocoaFramework/ZAN_ArchiveTypes.h"
#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// The lower half of reading a sequential archive: bytes, numbers and the table of shared strings.
///
/// Every function that gives a bool gives false after damage, and `error` then says what and where;
/// nothing may be read after that.
class ZAN_ArchiveStream {
 public:
  /// A string of the table with what it means as a type string.
  struct Shared {
    std::string_view bytes;
    char letter = 0;          ///< of a single type; kBytes for "[Nc]"; 0 for anything else
    std::uint32_t count = 0;  ///< N of "[Nc]"
    std::int32_t types = -1;  ///< parsed form, once it was asked for
  };
  static constexpr char kBytes = 'D';
  static constexpr std::int32_t kNoString = -1;

  explicit ZAN_ArchiveStream(std::span<const std::byte> data);

  bool readHeader();

  std::size_t position() const { return static_cast<std::size_t>(mNext - mBegin); }
  std::size_t remaining() const { return static_cast<std::size_t>(mEnd - mNext); }

  bool readByte(std::uint8_t& byte) {
    if (mNext == mEnd) return fail("the data is cut short");
    byte = *mNext++;
    return true;
  }
  /// Takes `byte` if it is the next one.
  bool takeIf(std::uint8_t byte) {
    if (mNext == mEnd || *mNext != byte) return false;
    ++mNext;
    return true;
  }
  bool readBytes(std::size_t count, std::string_view& bytes) {
    if (count > remaining()) return fail("the data is cut short");
    bytes = {reinterpret_cast<const char*>(mNext), count};
    mNext += count;
    return true;
  }

  /// An integer of at most `width` bytes (2, 4 or 8) whose head was read already.
  bool readInteger(std::uint8_t head, int width, std::int64_t& value) {
    const auto small = static_cast<std::int8_t>(head);
    if (small >= archive::kFirstReference) {
      value = small;
      return true;
    }
    return readWideInteger(head, width, value);
  }
  bool readInteger(int width, std::int64_t& value) {
    std::uint8_t head = 0;
    return readByte(head) && readInteger(head, width, value);
  }
  bool readReal(char letter, double& value);
  /// A length or a count.
  bool readLength(std::uint8_t head, std::size_t& length);
  bool readLength(std::size_t& length) {
    std::uint8_t head = 0;
    return readByte(head) && readLength(head, length);
  }
  /// The number of an entry in a table of `size` entries, from its head.
  bool readReference(std::uint8_t head, std::size_t size, std::size_t& index);

  /// Index in the table of shared strings, kNoString for nil.
  bool readShared(std::int32_t& index);
  const Shared& shared(std::int32_t index) const {
    return mShared[static_cast<std::size_t>(index)];
  }
  /// The parsed form of a type string; fails when it is none that can be read.
  bool parsedTypes(std::int32_t index, const std::vector<archive::Type>*& types);

  bool fail(const char* reason, ErrorKind kind = ErrorKind::damaged);
  Error error() const;

 private:
  template <class T>
  bool readFixed(T& value);
  bool readWideInteger(std::uint8_t head, int width, std::int64_t& value);

  const std::uint8_t* mBegin;
  const std::uint8_t* mNext;
  const std::uint8_t* mEnd;
  bool mBigEndian = false;
  std::vector<Shared> mShared;
  std::deque<std::vector<archive::Type>> mTypes;  ///< handed out by address
  const char* mReason = "";
  ErrorKind mErrorKind = ErrorKind::damaged;
};

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
