#include "execute/restic/ResticAction.h"

#include "execute/restic/Snapshots.h"
#include "platform/Machine.h"

namespace corvana {

std::string ResticAction::tags() const {
  // References are of one home; several of a machine may share a repository.
  return std::string(SnapshotTag::own) + "," + std::string(SnapshotTag::action) +
         std::to_string(reference()) + "," + std::string(SnapshotTag::machine) +
         host.machine.machineIdentifier() + "," + std::string(SnapshotTag::home) +
         SnapshotTag::word(host.machine.homeFolder());
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
