#include "core/machine/ShutdownHelper.h"

#include <algorithm>
#include <filesystem>

#include "actions/ProgrammedAction.h"
#include "core/record/Records.h"
#include "platform/Machine.h"
#include "platform/Processes.h"

namespace corvana {

const std::string& ShutdownHelper::bundle() const {
  return m.store.installPaths().installPathForCode(InstallPaths::shutDownBundle);
}

void ShutdownHelper::update() {
  ProgrammedAction::Nodes actions;
  m.tree.rootItem().getListOfShutDownActions(actions);
  if (actions.empty()) return end();
  std::error_code ignored;
  if (!std::filesystem::exists(bundle(), ignored)) return;
  const auto running = m.platform.processes.running();
  if (std::ranges::find(running, bundle(), &RunningProcess::bundlePath) != running.end()) return;
  if (const Outcome opened = m.platform.processes.open(bundle()); !opened)
    m.platform.systemLog.write(opened.error().text);
}

void ShutdownHelper::end() {
  const auto running = m.platform.processes.running();
  const auto found = std::ranges::find(running, bundle(), &RunningProcess::bundlePath);
  if (found != running.end()) m.platform.processes.kill(found->pid);
}

}  // namespace corvana
