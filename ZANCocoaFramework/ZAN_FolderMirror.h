#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// Makes one folder like another, one way: missing and changed files are copied, then what the
/// source does not have is removed from the destination. A file is replaced by rename, whole, and
/// nothing is removed before everything was copied. Symbolic links, devices and the like are left
/// alone, links are never followed into another folder, and nothing is removed on another file
/// system mounted inside the destination. A failure ends the work and leaves the destination partly
/// updated. Thread: any; it blocks for as long as the file systems take.
class ZAN_FolderMirror {
 public:
  enum class Step { list, readAttributes, remove, createFolder, copy, write };
  /// Called before each step with the path of the item; a large file has several `write` steps. A
  /// number other than 0 is taken as the errno with which the step fails.
  using StepHook = std::function<int(Step, const std::string& path)>;

  struct Options {
    /// Folders get 0700, and files no rights for others, those that are there already too.
    bool closed = false;
    /// Names in the destination itself that are left alone.
    std::vector<std::string> spared = {};
    /// A folder in the destination, among the spared, that takes what is replaced or removed,
    /// unless it has the same name already; empty: it goes.
    std::string earlier = {};
    /// What is copied of a file: nothing, the file itself. An error keeps what is there of this one
    /// file; the others are mirrored, and the whole has failed.
    std::function<Result<std::optional<std::string>>(const std::string& source,
                                                     const std::string& destination)>
        contents = {};
  };

  explicit ZAN_FolderMirror(StepHook hook = {}) : ZAN_FolderMirror(Options{}, std::move(hook)) {}
  explicit ZAN_FolderMirror(Options options, StepHook hook = {})
      : mHook(std::move(hook)), mOptions(std::move(options)) {}

  /// Whether one may be mirrored into the other, which need not be there: neither may lie inside
  /// the other, and a destination that is there is a folder and no link.
  static Outcome mayMirror(const std::string& source, const std::string& destination);
  /// Both folders must be there. A file counts as changed when its modification date differs; a
  /// copy gets the date, the mode and the Finder information of its source, and its bytes are on
  /// the disk before it takes its place.
  Outcome mirror(const std::string& source, const std::string& destination) const;
  /// Removes a folder with all that is in it on its file system.
  Outcome removeFolder(const std::string& path) const;

 private:
  struct Item;
  int step(Step step, const std::string& path) const;
  Outcome copyFolder(const std::string& source, const std::string& destination) const;
  Outcome removeExtras(const std::string& source, const std::string& destination) const;
  bool isSpared(const std::string& path) const;
  Outcome putAway(const std::string& path, std::uint64_t device) const;
  Outcome mirrorItem(const std::string& source, const std::string& destination) const;
  Result<Item> item(const std::string& path) const;
  Outcome remove(const std::string& path, std::uint64_t device) const;
  Outcome copyFile(const std::string& source, const std::string& destination) const;

  StepHook mHook;
  Options mOptions;
  mutable std::string mRoot;     ///< the destination being mirrored
  mutable std::string mRefused;  ///< why a file was not copied, the first of them
};

}  // namespace corvana
