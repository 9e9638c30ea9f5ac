#pragma once

#include <string>
#include <vector>

#include "execute/engine/Engine.h"
#include "execute/restic/Restic.h"
#include "execute/restic/Snapshots.h"

namespace corvana {

/// The action that restic is called for, and what works for it; all of it outlives this.
struct ResticAction {
  const EngineOrder& order;
  EngineHost& host;
  Restic& restic;

  std::int64_t reference() const { return order.settings.integer("Ref"); }
  std::string place() const { return restic.address().shown(); }
  /// What its snapshots, and no others of the repository, are tagged with; commas between.
  std::string tags() const;
  /// Its snapshots, oldest first. Earlier versions of this program tagged none with a home: such a
  /// snapshot counts when machine, host and user are these, and no other home's action of this
  /// number has copied the same paths.
  Result<std::vector<Snapshot>> snapshots() const;
  /// What an error, or a call of restic that came to nothing, makes of a run.
  ExecuteEnd endOf(const Error& error) const;
  ExecuteEnd endOf(const ResticEnd& failed) const;
};

}  // namespace corvana
