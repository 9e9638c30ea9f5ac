#include "ui/windows/LaunchByHand.h"

#include <algorithm>
#include <cmath>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionTree.h"
#include "core/record/SchedulerCommands.h"
#include "core/record/SchedulerLog.h"
#include "core/work/ActionQueue.h"
#include "ui/LaunchRefusal.h"
#include "ui/UserInterfaceSources.h"

namespace corvana {

namespace {

std::vector<std::int64_t> actionsOf(const UserInterfaceSources& sources, std::int64_t ref) {
  ProgrammedAction* node = sources.tree.rootItem().actionOrGroupForReference(ref);
  if (node == nullptr || !node->isGroup()) return {ref};
  ProgrammedAction::Nodes nodes;
  node->getListOfAllProgrammedActions(nodes);
  std::vector<std::int64_t> refs;
  for (const ProgrammedAction* one : nodes) refs.push_back(one->getReference());
  return refs;
}

}  // namespace

std::string titleOf(const UserInterfaceSources& sources, std::int64_t ref) {
  const ProgrammedAction* node = sources.tree.rootItem().actionOrGroupForReference(ref);
  return node == nullptr ? std::string() : node->getTitle();
}

std::string launchByHand(const UserInterfaceSources& sources,
                         const std::vector<std::int64_t>& refs) {
  std::string last;
  int queued = 0;
  for (const std::int64_t chosen : refs) {
    for (const std::int64_t ref : actionsOf(sources, chosen)) {
      const std::string title = titleOf(sources, ref);
      if (sources.queue.contains(ref)) {
        last = sources.texts.text("WindowAlreadyQueued", {title});
      } else if (const Outcome launched = sources.commands.launchAction(ref, false); !launched) {
        last = launchRefusal(sources.texts, title, launched.error());
      } else {
        ++queued;
        last = sources.texts.text("WindowQueued", {title});
      }
    }
  }
  return queued > 1 ? sources.texts.text("WindowQueuedMany", {queued}) : last;
}

std::string resultInWords(std::int64_t code, const ZAN_StringTable& texts) {
  switch (code) {
    case LogCode::launched:
      return texts.text("ResultRunning");
    case LogCode::completed:
      return texts.text("ResultCompleted");
    case LogCode::abortedByUser:
      return texts.text("ResultStopped");
    case LogCode::volumeNotFound:
      return texts.text("ResultNotFound");
    case LogCode::unexpectedError:
      return texts.text("ResultFailed");
    case LogCode::crashed:
      return texts.text("ResultCrashed");
    case LogCode::timeOut:
      return texts.text("ResultTimeOut");
    case LogCode::completedWithErrors:
      return texts.text("ResultWithErrors");
    case LogCode::volumeGone:
      return texts.text("ResultVolumeGone");
    case LogCode::volumeNotAvailable:
      return texts.text("ResultNotAvailable");
    default:
      return {};
  }
}

std::string durationText(double seconds) {
  return ZAN_StringUtils::getDuration(static_cast<std::int64_t>(seconds));
}

}  // namespace corvana
