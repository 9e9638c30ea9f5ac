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

  /// As Engine::restore. All that is wanted is fetched, and what is there already is told by its
  /// contents; in several pieces where there is no room for all of it at once. With `onlyLooks`
  /// nothing is read, and what is there is told by restic's list.
  Outcome restore(const std::vector<VersionTarget>& targets, const Restoration::Options& options,
                  Restoration::Counts& restored);

 private:
  struct Batch;

  std::vector<Batch> batchesOf(const std::vector<VersionTarget>& targets) const;
  Outcome look(Batch& batch, const Restoration::Options& options, Restoration::Counts& restored,
               Restoration::Counts& all);
  Outcome bring(const Batch& batch, const Restoration::Options& options,
                Restoration::Counts& restored);
  Outcome bringInPieces(const Batch& batch, std::uint64_t room, const Restoration::Options& options,
                        Restoration::Counts& restored);
  /// Fetches those names, and puts them where they belong.
  Outcome bring(const Batch& batch, const std::vector<std::string>& names,
                const Restoration::Options& options, Restoration::Counts& restored);
  Outcome put(const VersionTree& tree, const Batch& batch, const std::vector<std::string>& names,
              const Restoration::Options& options, Restoration::Counts& restored);

  const ResticAction& m;
  const Snapshot& mSnapshot;
  const TaskHooks& mHooks;
};

}  // namespace corvana
