#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "execute/engine/Engine.h"
#include "execute/plain/VersionView.h"

namespace corvana {

/// Reads copies and compares them: with their sources where these have not changed since, else with
/// the checksums of an earlier verification. What it finds good it notes for the next one. Blocks;
/// thread: one.
class Verification {
 public:
  using Share = VerifiedShare;
  using Counts = VerifiedCounts;
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
