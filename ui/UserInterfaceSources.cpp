#include "ui/UserInterfaceSources.h"

#include "core/machine/MachineDuties.h"
#include "core/record/SchedulerCommands.h"

namespace corvana {

UserInterfaceSources::UserInterfaceSources(Records& recordsGiven, Work& workGiven,
                                           MachineDuties& machineGiven,
                                           const LaunchStep& launchStepGiven,
                                           SchedulerCommands& commandsGiven,
                                           StatusItem& statusItemGiven)
    : records(recordsGiven),
      work(workGiven),
      machine(machineGiven),
      launchStep(launchStepGiven),
      commands(commandsGiven),
      statusItem(statusItemGiven),
      lacking([&r = records, &wakeUp = machine.wakeUp](Ability ability) {
        if (ability == Ability::wake) return wakeUp.hindrance();
        if (ability == Ability::network && r.platform.services.isAway())
          return r.texts.text("LackingNetwork");
        const bool needsInput = ability == Ability::seeKeyboard || ability == Ability::seePointer;
        return needsInput && !r.platform.input.pointer() ? r.texts.text("LackingInput")
                                                         : std::string();
      }) {}

namespace {

std::vector<std::int64_t> actionsOf(const UserInterfaceSources& sources, std::int64_t ref) {
  ProgrammedAction* node = sources.records.tree.rootItem().actionOrGroupForReference(ref);
  if (node == nullptr || !node->isGroup()) return {ref};
  ProgrammedAction::Nodes nodes;
  node->getListOfAllProgrammedActions(nodes);
  std::vector<std::int64_t> refs;
  for (const ProgrammedAction* one : nodes) refs.push_back(one->getReference());
  return refs;
}

}  // namespace

std::string queueByHand(const UserInterfaceSources& sources, std::int64_t ref) {
  const std::string title = sources.records.tree.titleOf(ref);
  if (sources.work.queue.contains(ref))
    return sources.records.texts.text("WindowAlreadyQueued", {title});
  const Outcome launched = sources.commands.launchAction(ref, false);
  if (launched) return {};
  switch (launched.error().kind) {
    case ErrorKind::refused:
      return sources.records.texts.text("WindowNotByHand", {title});
    case ErrorKind::unavailable:
      return sources.records.texts.text("WindowVolumesMissing", {title});
    default:
      return sources.records.texts.text("WindowActionGone");
  }
}

std::string launchByHand(const UserInterfaceSources& sources,
                         const std::vector<std::int64_t>& refs) {
  std::string last;
  int queued = 0;
  for (const std::int64_t chosen : refs) {
    for (const std::int64_t ref : actionsOf(sources, chosen)) {
      last = queueByHand(sources, ref);
      if (!last.empty()) continue;
      ++queued;
      last = sources.records.texts.text("WindowQueued", {sources.records.tree.titleOf(ref)});
    }
  }
  return queued > 1 ? sources.records.texts.text("WindowQueuedMany", {queued}) : last;
}

}  // namespace corvana
