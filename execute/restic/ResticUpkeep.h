#pragma once

#include <optional>
#include <string>
#include <vector>

#include "execute/engine/Thinning.h"
#include "execute/restic/ResticAction.h"
#include "execute/restic/SnapshotNotes.h"
#include "execute/restic/Snapshots.h"

namespace corvana {

/// Keeps a repository small and sound. Others may be at work in it: what they hold up is no error,
/// and left to the next run. Blocks; thread: one.
class ResticUpkeep {
 public:
  explicit ResticUpkeep(const ResticAction& action) : m(action) {}

  /// Forgets the snapshots of the action that need not be kept, each by its name, and once a week
  /// removes what no snapshot needs. The repository is asked only when the notes have something
  /// that is to go, or nothing at all.
  Outcome forget(SnapshotNotes& notes);
  /// Reads a part of the data. What is damaged is told and counted, and is no error.
  Outcome check(const VerifiedShare& share, const TaskHooks& hooks, VerifiedCounts& verified);

 private:
  Outcome thin(const VersionsKept& kept, SnapshotNotes& notes);
  Outcome prune();
  /// Nothing: it is left to the next run.
  std::optional<ResticEnd> call(std::vector<std::string> words);

  const ResticAction& m;
};

}  // namespace corvana
