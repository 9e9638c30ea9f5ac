#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "execute/engine/Engine.h"
#include "execute/engine/HeldSource.h"
#include "execute/restic/Restic.h"
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
  Result<std::vector<VersionItem>> statesOf(const std::string& name) override;
  Result<std::unique_ptr<VersionTree>> list(const KeptVersion& version) override;
  Outcome restore(const KeptVersion& version, const std::vector<VersionTarget>& targets,
                  const Restoration::Options& options, const TaskHooks& hooks,
                  Restoration::Counts& restored) override;
  Outcome verify(const VerifiedShare& share, const std::vector<VersionTarget>& sources,
                 const TaskHooks& hooks, VerifiedCounts& verified) override;
  Result<std::string> test() override;

 private:
  class Backup;
  struct Restored {
    ResticEnd end;
    std::vector<std::string> failed;  ///< names
  };

  Outcome open();
  Outcome openFolder();
  Result<std::string> password(const std::string& address, std::string& secretAddress) const;
  /// Whether there is a repository that opens.
  ResticEnd look();
  std::string tags() const;
  std::vector<std::string> backupWords() const;
  Result<const Snapshot*> snapshotOf(const KeptVersion& version) const;
  Restored restoreInto(const Snapshot& snapshot, const std::vector<std::string>& names,
                       const HeldFolder& folder, const TaskHooks& hooks);
  Outcome readBack(const VerifiedShare& share, const std::vector<VersionTarget>& sources,
                   const TaskHooks& hooks, VerifiedCounts& verified);
  ExecuteEnd endOf(const ResticEnd& end) const;
  ExecuteEnd endOf(const Error& error) const;
  std::string secretsFolder() const;
  std::string countsFile() const;

  EngineOrder mOrder;
  EngineHost m;
  std::vector<HeldSource> mSources;
  std::optional<HeldFolder>
      mFolder;  ///< of a repository on a volume, or the one that is to hold it
  std::unique_ptr<Restic> mRestic;
  std::vector<Snapshot> mSnapshots;  ///< those of the action, oldest first
};

}  // namespace corvana
