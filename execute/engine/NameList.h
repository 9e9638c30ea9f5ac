#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Descriptor.h"

namespace corvana {

/// A list of names that may be long, kept in a file without a name.
class NameList {
 public:
  NameList();
  void add(std::string_view name);
  std::uint64_t count() const { return mCount; }
  /// Of those that do not end in "/".
  std::uint64_t countOfFiles() const { return mFiles; }
  /// In the order in which they were added, until `each` says no. False when the list could not be
  /// kept whole; then nothing is called.
  bool forEach(const std::function<bool(const std::string&)>& each);
  /// The file at its beginning, with a NUL behind each name; -1 when it could not be kept whole.
  int descriptor();

 private:
  void flush();

  ZAN_Descriptor mFile;
  std::string mBuffer;
  std::uint64_t mCount = 0;
  std::uint64_t mFiles = 0;
  bool mIsWhole = true;
};

/// A file without a name, for what is too long to be held in memory; invalid when there is no room.
ZAN_Descriptor temporaryFile();
/// Writes all of it; false with errno otherwise.
bool writeAll(int descriptor, std::string_view bytes);

/// The whole lines of an open file from its beginning, one after the other.
class LineReader {
 public:
  explicit LineReader(int descriptor) : mDescriptor(descriptor) {}
  /// The next one without its line feed, valid until the next call; false at the end, and for what
  /// has no line feed.
  bool next(std::string_view& line);
  /// The end came by an error.
  bool hasFailed() const { return mHasFailed; }

 private:
  int mDescriptor;
  bool mHasFailed = false;
  std::int64_t mOffset = 0;
  std::string mBuffer;
  std::size_t mStart = 0;
};

/// Whether a name, written as in the list of a version, comes before another: what lies in a folder
/// comes right after the folder.
bool comesBefore(std::string_view name, std::string_view other);
/// A line's name: what comes before its first blank.
std::string_view nameOfLine(std::string_view line);

/// Sorts lines by their names, however many there are. Of lines with one name the one that was
/// added first stays.
class SortedLines {
 public:
  void add(std::string_view line);
  /// Once. False when they could not be kept or `each` says no.
  bool forEach(const std::function<bool(std::string_view)>& each);

 private:
  bool spill();

  std::string mText;
  std::vector<std::pair<std::size_t, std::size_t>> mLines;  ///< start and length
  std::vector<ZAN_Descriptor> mSpilled;
  bool mIsWhole = true;
};

}  // namespace corvana
