#include "execute/restic/ResticAction.h"

#include <algorithm>

#include "platform/Machine.h"

namespace corvana {

std::string ResticAction::tags() const {
  // References are of one home; several of a machine may share a repository.
  return std::string(SnapshotTag::own) + "," + std::string(SnapshotTag::action) +
         std::to_string(reference()) + "," + std::string(SnapshotTag::machine) +
         host.machine.machineIdentifier() + "," + std::string(SnapshotTag::home) +
         SnapshotTag::word(host.machine.homeFolder());
}

Result<std::vector<Snapshot>> ResticAction::snapshots() const {
  auto all =
      Snapshot::all(restic, std::string(SnapshotTag::own) + "," + std::string(SnapshotTag::action) +
                                std::to_string(reference()));
  if (!all) return all;
  const Machine& machine = host.machine;
  const std::string home = SnapshotTag::word(machine.homeFolder());
  std::erase_if(*all, [&](const Snapshot& snapshot) {
    return snapshot.tagged(SnapshotTag::machine) != machine.machineIdentifier();
  });
  std::vector<std::vector<std::string>> others;  // what other homes have copied
  for (const Snapshot& snapshot : *all) {
    if (snapshot.tagged(SnapshotTag::home).value_or(home) != home) others.push_back(snapshot.paths);
  }
  std::erase_if(*all, [&](const Snapshot& snapshot) {
    if (const auto tagged = snapshot.tagged(SnapshotTag::home)) return *tagged != home;
    return snapshot.host != machine.hostName() || snapshot.user != resticUser() ||
           std::ranges::find(others, snapshot.paths) != others.end();
  });
  return all;
}

ExecuteEnd ResticAction::endOf(const Error& error) const {
  ExecuteEnd end;
  end.code = ExecuteCode::unexpectedError;
  end.reason = error.text;
  end.isUnreachable = error.kind == ErrorKind::unavailable;
  if (end.isUnreachable || error.kind == ErrorKind::unwritable)
    end.code = ExecuteCode::volumeNotAvailable;
  return end;
}

ExecuteEnd ResticAction::endOf(const ResticEnd& failed) const {
  const auto stopped = host.control.endOfStop(host.watch.gone());
  return stopped ? *stopped : endOf(failed.error(place()));
}

}  // namespace corvana
