#pragma once

#include <cstdint>
#include <functional>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// Makes one folder like another, one way: what the source does not have is removed from the
/// destination, missing and changed files are copied. Symbolic links, devices and the like are left
/// alone, links are never followed into another folder, and nothing is removed on another file
/// system mounted inside the destination. A failure ends the work and leaves the destination partly
/// updated. Thread: any; it blocks for as long as the file systems take.
class ZAN_FolderMirror {
 public:
  enum class Step { list, readAttributes, remove, createFolder, copy, write };
  /// Called before each step with the path of the item; a large file has several `write` steps. A
  /// number other than 0 is taken as the errno with which the step fails.
  using StepHook = std::function<int(Step, const std::string& path)>;

  explicit ZAN_FolderMirror(StepHook hook = {}) : mHook(std::move(hook)) {}

  /// Both folders must be there and neither may lie inside the other. A file counts as changed when
  /// its modification date differs; a copy gets the date, the mode and the Finder information of
  /// its source, and its bytes are on the disk before it gets the date.
  Outcome mirror(const std::string& source, const std::string& destination) const;

 private:
  struct Item;
  int step(Step step, const std::string& path) const;
  Outcome mirrorFolder(const std::string& source, const std::string& destination) const;
  Outcome mirrorItem(const std::string& source, const std::string& destination) const;
  Result<Item> item(const std::string& path) const;
  Outcome remove(const std::string& path, std::uint64_t device) const;
  Outcome copyFile(const std::string& source, const std::string& destination) const;

  StepHook mHook;
};

}  // namespace corvana
