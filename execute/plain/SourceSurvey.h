#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/HeldFolder.h"

namespace corvana {

/// Whether a folder takes "Docs" and "docs" for two names. Found out by a file that is there (it
/// has small letters in its name) or, without one, by a hidden file that goes again; a folder that
/// takes no file counts as one that does.
bool tellsCase(const HeldFolder& folder, std::string_view file);

/// A name as folders compare it that do not tell capital from small letters.
std::string withoutCase(std::string_view name);

/// A walk through the folders of a source, by their names alone, for what a copy of it would lack
/// without a word: folders that are subvolumes of their own, and names that the copy's file system
/// takes for one. Blocks; thread: any.
class SourceSurvey {
 public:
  struct Wanted {
    bool subvolumes = false;
    bool clashes = false;
  };
  /// Names of one folder that differ in nothing but case, relative to the source.
  using Clash = std::vector<std::string>;

  /// Until `goesOn` says no. What cannot be opened is left to whoever reads it.
  SourceSurvey(const HeldFolder& source, Wanted wanted, const std::function<bool()>& goesOn);

  const std::vector<std::string>& subvolumes() const { return mSubvolumes; }  ///< relative names
  const std::vector<Clash>& clashes() const { return mClashes; }
  bool isEmpty() const { return mSubvolumes.empty() && mClashes.empty(); }

 private:
  void lookAt(const HeldFolder& source, const std::string& folder, Wanted wanted);

  unsigned long mDevice = 0;
  std::vector<std::string> mToDo;
  std::vector<std::string> mSubvolumes;
  std::vector<Clash> mClashes;
};

/// Tells what a copy has under another spelling than its source, so that it is not taken for gone.
class CaseTwins {
 public:
  explicit CaseTwins(const HeldFolder& source) : mSource(source) {}
  /// Whether the source has that item, or a folder above it, in other letters.
  bool has(std::string_view name);

 private:
  const std::set<std::string>& namesIn(const std::string& folder);

  const HeldFolder& mSource;
  std::optional<std::string> mFolder;  ///< whose names are kept
  std::set<std::string> mNames;        ///< without case
};

}  // namespace corvana
