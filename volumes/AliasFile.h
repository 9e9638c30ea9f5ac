#pragma once

#include <optional>
#include <string>

namespace corvana {

class Processes;

/// A file that stands for a volume: a desktop link entry ("Type=Link"), a symbolic link, or a file
/// with the alias flag that holds an address. Thread: any; blocks as long as the file does.
class AliasFile {
 public:
  AliasFile() = delete;

  /// Whether the file is an alias by its Finder information, or a desktop link entry.
  static bool isAlias(const std::string& path);

  /// What the alias leads to: an absolute path ("/media/ann/Disk", "/dev/sdb1") or an address
  /// ("smb://server/share"). Nothing when it says neither.
  static std::optional<std::string> target(const std::string& path);

  static constexpr int kNoSuchFile = -43;
  /// Mounts what the alias leads to, without asking anybody: 0, `kNoSuchFile`, or another number.
  static int mountFromAliasFile(Processes& processes, const std::string& path);
};

}  // namespace corvana
