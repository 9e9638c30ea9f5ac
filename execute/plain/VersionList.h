#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Time.h"
#include "execute/engine/NameList.h"
#include "execute/engine/VersionItem.h"

namespace corvana {

/// What the list of a version says before its items.
struct VersionHeader {
  struct Copy {
    std::string name;    ///< in the destination
    std::string source;  ///< its path then
    bool isFolder = true;
    bool operator==(const Copy&) const = default;
  };
  std::string machine = {};
  std::string home = {};
  std::int64_t reference = 0;
  std::string title = {};
  ReferenceTime date = 0;
  /// The run that made it did not come to its end: it goes with the next good run.
  bool isUnfinished = false;
  /// Its list is whole: the run after it has come to its end, or was cut off.
  bool isClosed = false;
  std::uint64_t files = 0;  ///< in all of its copies
  std::uint64_t bytes = 0;
  /// Of the next newer version the folder without its state; what this version has is known by it.
  /// Empty for the newest one, and for those of earlier programs.
  std::string next = {};
  std::string merges = {};  ///< the folder that is being merged into this one
  std::vector<Copy> copies = {};

  bool isOfSameAction(const VersionHeader& other) const {
    return machine == other.machine && home == other.home && reference == other.reference;
  }
};

/// Writes a list: its header, items in their order, and an end that tells whether it is whole.
class VersionListWriter {
 public:
  /// Under that name in the open folder, over what is there.
  VersionListWriter(int folder, std::string name, const VersionHeader& header);
  void add(std::string_view line);
  /// The end, synchronised. False with errno when anything could not be written.
  bool finish();

 private:
  void put(std::string_view line);

  ZAN_Descriptor mFile;
  std::string mBuffer;
  std::uint64_t mCount = 0;
  std::uint32_t mSum = 0;
  int mFailure = 0;
};

/// Reads a list from its beginning, having made sure that it is whole.
class VersionListReader {
 public:
  /// `absent` when there is none of that name, `damaged` when it is not whole.
  static Result<VersionListReader> open(int folder, const std::string& name,
                                        const std::string& shownPath);
  /// The header alone, without a look at what follows.
  static Result<VersionHeader> headerOf(int folder, const std::string& name,
                                        const std::string& shownPath);
  const VersionHeader& header() const { return mHeader; }
  std::uint64_t count() const { return mCount; }
  /// In the order of `comesBefore`; nothing at the end.
  std::optional<VersionItem> next();
  /// The same as it is written, valid until the next call; empty at the end.
  std::string_view nextLine();
  /// After the last one: whether that was the end, and not an error.
  bool isAtEnd() const { return mIsAtEnd; }

 private:
  static Result<VersionListReader> opened(int folder, const std::string& name,
                                          const std::string& shownPath, bool isWhole);
  explicit VersionListReader(ZAN_Descriptor file) : mFile(std::move(file)), mLines(mFile.get()) {}

  ZAN_Descriptor mFile;
  LineReader mLines;
  bool mIsAtEnd = false;
  VersionHeader mHeader;
  std::uint64_t mCount = 0;
};

}  // namespace corvana
