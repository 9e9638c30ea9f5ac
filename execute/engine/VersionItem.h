#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"

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
  std::uint64_t size = 0;   ///< of a file
  std::string target = {};  ///< of a link; empty: not known
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

/// "2026-11-22T041503Z", as versions are named, and back.
std::string versionDateText(ReferenceTime date);
std::optional<ReferenceTime> versionDate(std::string_view text);

}  // namespace corvana
