#pragma once

#include <optional>
#include <string>
#include <vector>

#include "execute/engine/Engine.h"
#include "execute/plain/CopyPlan.h"
#include "execute/plain/CopyRun.h"

namespace corvana {

/// Keeps copies as ordinary folders beside folders of what runs replaced (`Versions`).
class PlainEngine final : public Engine {
 public:
  PlainEngine(EngineOrder order, EngineHost host) : mOrder(std::move(order)), m(std::move(host)) {}

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
  CopyOwner owner() const;
  VersionHeader own() const;
  Outcome findPlace();
  Result<std::size_t> indexOf(const KeptVersion& version) const;
  Result<HeldFolder> versionsFolder() const;
  CopyRun runOf(VersionsKept kept);

  EngineOrder mOrder;
  EngineHost m;
  std::optional<CopyPlan> mPlan;
  std::optional<HeldFolder> mDestination;  ///< of the versions
  std::vector<VersionFolder> mChain;       ///< those of the action, oldest first
  std::uint64_t mAdded = 0;                ///< bytes, by the run
};

}  // namespace corvana
