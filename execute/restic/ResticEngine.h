#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "execute/engine/Engine.h"
#include "execute/engine/HeldSource.h"
#include "execute/restic/ResticAction.h"
#include "execute/restic/ResticBackup.h"
#include "execute/restic/SnapshotNotes.h"
#include "execute/restic/Snapshots.h"

namespace corvana {

/// Keeps copies as snapshots in a repository of restic: encrypted, deduplicated, also far away. The
/// snapshots of an action are those with its tags, so that several machines share a repository.
///
/// restic gets the real paths of the sources, since a snapshot is known by them; that they are
/// there, and stay on their volumes, is seen to beside it.
class ResticEngine final : public Engine {
 public:
  ResticEngine(EngineOrder order, EngineHost host);

  std::string place() const override;
  Outcome prepare() override;
  std::vector<std::string> sources() const override;
  ExecuteEnd plan(const std::function<void(const PlannedItem&)>& planned) override;
  ExecuteEnd run() override;
  Outcome forget() override;
  Result<KeptVersions> versions() override;
  Result<KeptVersion> newest() override;
  Result<std::vector<VersionItem>> statesOf(const std::string& name) override;
  Result<std::unique_ptr<VersionTree>> list(const KeptVersion& version) override;
  Outcome restore(const KeptVersion& version, const std::vector<VersionTarget>& targets,
                  const Restoration::Options& options, const TaskHooks& hooks,
                  Restoration::Counts& restored) override;
  Outcome verify(const VerifiedShare& share, const std::vector<VersionTarget>& sources,
                 const TaskHooks& hooks, VerifiedCounts& verified) override;
  Result<std::string> test() override;

 private:
  Outcome open();
  Outcome openFolder();
  void use(RepositoryAddress address, std::string password);
  Result<std::string> password(const std::string& address, std::string& secretAddress) const;
  /// A keyring that is being unlocked, or hangs, holds no stop.
  Result<std::string> askKeyring(const std::vector<std::string>& words) const;
  ResticBackup backup() const;
  KeptVersion keptVersion(const Snapshot& snapshot) const;
  Result<const Snapshot*> snapshotOf(const KeptVersion& version) const;
  /// The hidden one, which has secrets, notes, and for a moment files that are read back.
  std::string dataFolder() const;

  EngineOrder mOrder;
  EngineHost m;
  std::vector<HeldSource> mSources;
  /// Of a repository on a volume, or the one that is to hold it.
  std::optional<HeldFolder> mFolder;
  std::unique_ptr<Restic> mRestic;
  std::optional<ResticAction> mAction;
  std::optional<SnapshotNotes> mNotes;  ///< of the action's own repository
  std::vector<Snapshot> mSnapshots;     ///< of the action, oldest first; after a run its own
};

}  // namespace corvana
