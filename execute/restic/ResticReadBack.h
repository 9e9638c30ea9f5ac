#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "execute/restic/ResticAction.h"
#include "execute/restic/Snapshots.h"

namespace corvana {

/// Fetches a few files of a snapshot, and compares them with what they were copied from as far as
/// that has not changed since. Blocks; thread: one.
class ResticReadBack {
 public:
  /// `sources`: where what was copied lies now; `folder`: has what is fetched for a moment.
  ResticReadBack(const ResticAction& action, const Snapshot& snapshot,
                 const std::vector<VersionTarget>& sources, std::string folder)
      : m(action), mSnapshot(snapshot), mSources(sources), mFolder(std::move(folder)) {}

  /// As Engine::verify.
  Outcome perform(const VerifiedShare& share, const TaskHooks& hooks, VerifiedCounts& verified);

 private:
  std::vector<std::string> filesOfSources(const VerifiedShare& share) const;
  Result<std::vector<std::string>> filesListed(const VerifiedShare& share) const;
  Outcome compare(const std::vector<std::string>& names, const TaskHooks& hooks,
                  VerifiedCounts& verified);
  /// Whether a copy is what lies at its source now; nothing when the source has changed or gone.
  std::optional<bool> isAtItsSource(const std::string& name, const HeldFolder& copies,
                                    std::uint64_t& bytes) const;

  const ResticAction& m;
  const Snapshot& mSnapshot;
  const std::vector<VersionTarget>& mSources;
  std::string mFolder;
};

}  // namespace corvana
