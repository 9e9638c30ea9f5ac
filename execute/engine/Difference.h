#pragma once

#include <functional>
#include <string>

#include "execute/engine/VersionTree.h"
#include "platform/linux/HeldFolder.h"

namespace corvana {

/// What differs between something of a version and a place of the user's files: "new", "changed",
/// "attributes" and "gone", told by the path there. Contents are told apart by size and date.
/// Blocks; thread: one.
class Difference {
 public:
  struct Hooks {
    /// Before each item of the version.
    std::function<bool(const std::string& path)> goesOn;
    std::function<void(const char* what, const std::string& path)> tell;
  };

  Difference(const VersionTree& version, const HeldFolder& folder, Hooks hooks)
      : mVersion(version), mFolder(folder), mHooks(std::move(hooks)) {}

  /// `name` in the version beside `target` below the folder ("." for that one itself).
  Outcome find(const std::string& name, const std::string& target) const;

 private:
  void compare(const VersionItem& then, const VersionItem& now, const std::string& path) const;

  const VersionTree& mVersion;
  const HeldFolder& mFolder;
  Hooks mHooks;
};

}  // namespace corvana
