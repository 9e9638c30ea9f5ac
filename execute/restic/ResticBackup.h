#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "execute/engine/HeldSource.h"
#include "execute/restic/ResticAction.h"
#include "execute/restic/SnapshotNotes.h"
#include "execute/restic/Snapshots.h"

namespace corvana {

/// A backup by restic: what it is told, what it says on the way as progress, and how it ended.
/// Blocks; thread: one.
class ResticBackup {
 public:
  /// `folder`: of a repository on a volume, or the one that is to hold it; null for one far away.
  ResticBackup(const ResticAction& action, const std::vector<HeldSource>& sources,
               const HeldFolder* folder)
      : m(action), mSources(sources), mFolder(folder) {}

  /// Makes the repository when there is none and none has been used. An item that is to be left out
  /// on the way is: restic starts over without it. `notes` learns of the snapshot.
  ExecuteEnd run(SnapshotNotes& notes);
  /// The snapshot of the run, by the beginning of its name.
  const std::optional<Snapshot>& made() const { return mMade; }
  /// Changes nothing.
  ExecuteEnd plan(const std::function<void(const PlannedItem&)>& planned);

 private:
  std::vector<std::string> words(ReferenceTime date) const;
  void addPaths(std::vector<std::string>& words) const;
  ResticEnd backUp(ReferenceTime date);
  bool isNothingThere() const;
  bool expectsRepository() const;
  ResticEnd makeRepository();
  void planFirst(const std::function<void(const PlannedItem&)>& planned) const;
  void readLine(std::string_view line);
  void readErrorLine(std::string_view line);
  void readStatus(const ZAN_Value& status);
  void finish();

  const ResticAction& m;
  const std::vector<HeldSource>& mSources;
  const HeldFolder* mFolder;
  double mStart = 0;
  ZAN_Value mSummary;
  ExecuteProgress mProgress;
  ExecuteEnd mEnd;
  std::optional<Snapshot> mMade;
};

}  // namespace corvana
