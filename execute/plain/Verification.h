#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "execute/plain/VersionView.h"

namespace corvana {

/// Reads copies and compares them: with their sources where these have not changed since, else with
/// the checksums of an earlier verification. What it finds good it notes for the next one. Blocks;
/// thread: one.
class Verification {
 public:
  struct Share {
    /// Of so many parts of the copies that part; which file belongs to which is told by its name.
    std::uint32_t parts = 1;
    std::uint32_t part = 0;
    std::uint64_t files = UINT64_MAX;  ///< so many at most
    std::uint64_t bytes = UINT64_MAX;
  };
  struct Counts {
    std::uint64_t files = 0;  ///< read and compared
    std::uint64_t bytes = 0;
    std::uint64_t unknown = 0;  ///< changed at the source, and never compared before
    std::uint64_t mismatches = 0;
  };
  struct Source {
    std::string copy;  ///< its name in the destination
    const HeldFolder* folder;
    std::string name = {};  ///< of a file in the folder; empty: the folder is the source
  };
  struct Hooks {
    std::function<bool(const std::string& name, const Counts& counts)> goesOn;
    std::function<void(std::string text)> failed;
  };

  /// `newest`: the version that are the copies themselves. `sums`: the file beside the versions
  /// that keeps the checksums, by its name there.
  Verification(const VersionView& newest, const HeldFolder& versions, std::string sums,
               std::vector<Source> sources, Hooks hooks)
      : mView(newest),
        mVersions(versions),
        mSums(std::move(sums)),
        mSources(std::move(sources)),
        mHooks(std::move(hooks)) {}

  Outcome perform(const Share& share);
  const Counts& counts() const { return mCounts; }

  /// Reads the first file, and with it the second unless that is -1, to their ends: whether they
  /// are the same, and the first one's checksum. Nothing when they cannot be read.
  static std::optional<std::pair<bool, std::uint32_t>> read(int one, int two);

 private:
  ZAN_Descriptor sourceOf(const VersionItem& item) const;
  void verify(const VersionView::Entry& entry, const std::string& known,
              const std::function<void(std::uint32_t)>& note);

  const VersionView& mView;
  const HeldFolder& mVersions;
  std::string mSums;
  std::vector<Source> mSources;
  Hooks mHooks;
  Counts mCounts;
};

}  // namespace corvana
