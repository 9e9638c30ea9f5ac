#pragma once

#include <string>
#include <vector>

#include "execute/restic/ResticAction.h"
#include "execute/restic/Snapshots.h"

namespace corvana {

/// Brings back what a snapshot has: restic puts it into an empty folder, since it would write over
/// newer work, and from there it goes to its place as any version does. Blocks; thread: one.
class ResticRestoration {
 public:
  ResticRestoration(const ResticAction& action, const Snapshot& snapshot, const TaskHooks& hooks)
      : m(action), mSnapshot(snapshot), mHooks(hooks) {}

  /// As Engine::restore. Of a folder that is there only what differs in kind, size, date, owner or
  /// permissions is fetched, unless that is very much.
  Outcome restore(const std::vector<VersionTarget>& targets, const Restoration::Options& options,
                  Restoration::Counts& restored);
  /// Fetches a few files into the folder that is given, and compares them with what they were
  /// copied from as far as that has not changed since.
  Outcome readBack(const VerifiedShare& share, const std::vector<VersionTarget>& sources,
                   const std::string& folder, VerifiedCounts& verified);

 private:
  struct Wanted;
  struct Fetched {
    ResticEnd end;
    std::vector<std::string> failed;  ///< names
  };

  Result<Wanted> look(const VersionTarget& target, const Restoration::Options& options,
                      Restoration::Counts& restored, Restoration::Counts& all);
  Outcome bring(const VersionTarget& target, const Wanted& wanted,
                const Restoration::Options& options, Restoration::Counts& restored);
  Fetched fetch(const std::vector<std::string>& names, const HeldFolder& folder);
  /// Whether a copy is what lies at its source now; nothing when the source has changed or gone.
  std::optional<bool> isAtItsSource(const std::string& name, const HeldFolder& copies,
                                    const std::vector<VersionTarget>& sources,
                                    std::uint64_t& bytes) const;

  const ResticAction& m;
  const Snapshot& mSnapshot;
  const TaskHooks& mHooks;
};

}  // namespace corvana
