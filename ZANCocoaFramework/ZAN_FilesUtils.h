#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

/// Tells whether a file is still the one that was read: a file that was replaced or rewritten has
/// another identity.
struct ZAN_FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t modified = 0;  ///< nanoseconds since 1970
  std::uint64_t size = 0;
  bool operator==(const ZAN_FileIdentity&) const = default;
};

/// What the extended attribute "user.com.apple.FinderInfo" says about a file: 32 bytes, of which
/// type, creator (four characters each) and flags (big-endian, at offset 8) are read and written.
struct ZAN_FinderInfo {
  static constexpr std::uint16_t kAlias = 0x8000;
  static constexpr std::uint16_t kHiddenExtension = 0x0010;

  std::string type;
  std::string creator;
  std::uint16_t flags = 0;

  bool isAlias() const { return (flags & kAlias) != 0; }
  bool operator==(const ZAN_FinderInfo&) const = default;
};

/// A file with the bytes and the identity that belong together.
struct ZAN_FileContents {
  std::string bytes;
  ZAN_FileIdentity identity;
};

/// Files, folders and paths. Symbolic links are followed unless said otherwise. Thread: any.
class ZAN_FilesUtils {
 public:
  ZAN_FilesUtils() = delete;

  // Paths: text only, nothing is looked up. A trailing "/" does not count as a component.
  static std::string_view lastPathComponent(std::string_view path);  ///< of "/" it is "/"
  /// Without its last component and the "/" before it; "/" for an entry of the root, empty for a
  /// bare name.
  static std::string_view parentPath(std::string_view path);
  /// What follows the last "." of the last component; empty without one or when the name only
  /// begins with it.
  static std::string_view pathExtension(std::string_view path);
  /// The path without its extension and the "." before it.
  static std::string_view pathWithoutExtension(std::string_view path);
  /// The last component without its extension: "Mail" of "/Applications/Mail.app".
  static std::string_view nameWithoutExtension(std::string_view path);
  /// What of the path follows the folder, without a "/" at either end: empty for the folder itself,
  /// nothing when the path lies elsewhere. By whole components: "/a/bc" does not lie in "/a/b".
  /// Every absolute path lies in "/", none in a folder without a name.
  static std::optional<std::string_view> relativePath(std::string_view path,
                                                      std::string_view folder);
  static bool isAtOrBelow(std::string_view path, std::string_view folder);
  static bool isBelow(std::string_view path, std::string_view folder);
  /// Joined by exactly one "/"; an empty part adds nothing.
  static std::string joinedPath(std::string_view folder, std::string_view name);
  /// A name that can be one component: "/" becomes ":" and NUL is dropped; at most 255 bytes, cut
  /// on a code-point border before `suffix`, which is always whole. "." and ".." become "_" and
  /// "__".
  static std::string safeFileName(std::string_view name, std::string_view suffix = {});

  static bool exists(const std::string& path);
  static bool isFolder(const std::string& path);
  /// Nothing when there is no file, or none that can be seen.
  static std::optional<ZAN_FileIdentity> identity(const std::string& path);
  static std::optional<ReferenceTime> modificationDate(const std::string& path);
  static Outcome setModificationDate(const std::string& path, ReferenceTime date);

  /// The whole file. `absent` when there is none; `limit` when it holds more than `limit` bytes; a
  /// folder or a device is `unreadable`.
  static Result<ZAN_FileContents> readFile(const std::string& path,
                                           std::uint64_t limit = std::uint64_t{1} << 30);

  /// The first `most` bytes of a file, or all that it has; errors as of `readFile`.
  static Result<std::string> readBeginning(const std::string& path, std::size_t most);

  /// Adds to the end of a file, which is created when missing; for logs that grow by lines.
  static Outcome appendToFile(const std::string& path, std::string_view text, bool synchronise);

  /// Creates the folder and those above it; one that is there already is fine and keeps its mode.
  static Outcome createFolder(const std::string& path, unsigned mode = 0777);
  /// Removes a file or a link; nothing there is fine.
  static Outcome removeFile(const std::string& path);
  static Outcome renameFile(const std::string& from, const std::string& to);
  /// Names of a folder's entries without "." and "..", sorted by their bytes.
  static Result<std::vector<std::string>> listFolder(const std::string& path);

  /// Nothing when the file has no such attribute, or its file system none.
  static std::optional<ZAN_FinderInfo> finderInfo(const std::string& path);
  static Outcome setFinderInfo(const std::string& path, const ZAN_FinderInfo& info);
};

/// The form in which Finder information lies in its extended attribute: type, creator and flags,
/// the rest 0.
using ZAN_FinderInfoBytes = std::array<char, 32>;

inline constexpr const char* kFinderInfoAttribute = "user.com.apple.FinderInfo";

inline ZAN_FinderInfoBytes bytesOfFinderInfo(const ZAN_FinderInfo& info) {
  ZAN_FinderInfoBytes bytes{};
  std::copy_n(info.type.begin(), std::min<std::size_t>(4, info.type.size()), bytes.begin());
  std::copy_n(info.creator.begin(), std::min<std::size_t>(4, info.creator.size()),
              bytes.begin() + 4);
  bytes[8] = static_cast<char>(info.flags >> 8);
  bytes[9] = static_cast<char>(info.flags & 0xFF);
  return bytes;
}

inline ZAN_FinderInfo finderInfoOfBytes(const ZAN_FinderInfoBytes& bytes) {
  const auto code = [&](std::size_t offset) {
    std::string text(bytes.data() + offset, 4);
    text.erase(std::find(text.begin(), text.end(), '\0'), text.end());
    return text;
  };
  return {.type = code(0),
          .creator = code(4),
          .flags = static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[8]) << 8 |
                                              static_cast<unsigned char>(bytes[9]))};
}

}  // namespace corvana
