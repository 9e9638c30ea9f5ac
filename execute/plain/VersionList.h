#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Time.h"
#include "execute/plain/NameList.h"

namespace corvana {

/// What lay under one name of a copy in a version.
struct VersionItem {
  enum class Kind { none, folder, file, link, other };
  /// Where the contents of a file are: in the folder of the version, or what it has in the next
  /// newer one. While a run works it is open which.
  enum class Contents { here, newer, open };

  std::string name;  ///< relative to the destination, "Documents/letter"
  Kind kind = Kind::none;
  Contents contents = Contents::newer;
  std::uint32_t mode = 0;  ///< permissions
  std::uint32_t user = 0;
  std::uint32_t group = 0;
  std::int64_t seconds = 0;  ///< of the last change, since 1970
  std::int64_t nanoseconds = 0;
  std::uint64_t size = 0;                                            ///< of a file
  std::string target = {};                                           ///< of a link
  std::vector<std::pair<std::string, std::string>> attributes = {};  ///< extended ones

  /// What lies in an open folder under a name of its own, or Kind::none; nothing with errno when
  /// that cannot be told. `withAttributes`: extended ones, too.
  static std::optional<VersionItem> read(int folder, const std::string& entry, std::string name,
                                         bool withAttributes);
  static Kind kindOf(const struct stat& state);

  /// "Documents/letter file here 644 1000:1000 1763899872.000000000 5120", the name first, bytes
  /// that would not be readable as "\ooo". Without a line feed.
  std::string toLine() const;
  static std::optional<VersionItem> fromLine(std::string_view line);
  /// A name, and back.
  static std::string escaped(std::string_view bytes);
  static std::optional<std::string> unescaped(std::string_view text);
};

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

 private:
  static Result<VersionListReader> opened(int folder, const std::string& name,
                                          const std::string& shownPath, bool isWhole);
  explicit VersionListReader(ZAN_Descriptor file) : mFile(std::move(file)), mLines(mFile.get()) {}

  ZAN_Descriptor mFile;
  LineReader mLines;
  VersionHeader mHeader;
  std::uint64_t mCount = 0;
};

/// "2026-11-22T041503Z", as folders of versions are named, and back.
std::string versionDateText(ReferenceTime date);
std::optional<ReferenceTime> versionDate(std::string_view text);

}  // namespace corvana
