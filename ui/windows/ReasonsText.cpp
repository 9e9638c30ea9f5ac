#include "ui/windows/ReasonsText.h"

#include "actions/ActionTree.h"
#include "core/record/SchedulerState.h"
#include "core/work/ActionQueue.h"
#include "core/work/ExecuteSupervisor.h"
#include "core/work/TriggerEvaluation.h"
#include "core/work/WhyNot.h"
#include "platform/Clock.h"
#include "platform/Input.h"
#include "platform/Platform.h"
#include "ui/UserInterfaceSources.h"
#include "ui/windows/LaunchByHand.h"

namespace corvana {

std::string reasonsText(const UserInterfaceSources& sources, std::int64_t ref) {
  const ProgrammedAction* action = sources.tree.rootItem().actionForReference(ref);
  if (action == nullptr) return {};
  const WhyNot::Situation situation =
      WhyNot::situationOf(sources.state, sources.supervisor, sources.queue, sources.platform.input);
  const ActionsTools tools(sources.evaluation.calendar(), sources.platform.clock.now());
  const WhyNot whyNot(tools, {sources.texts, sources.strings}, sources.volumes,
                      [&](std::int64_t other) { return titleOf(sources, other); });
  std::string text;
  for (const WhyNot::Reason& reason : whyNot.reasons(*action, situation)) {
    if (!text.empty()) text += '\n';
    text += reason.text;
    if (!reason.remedy.empty()) text += ' ' + reason.remedy;
  }
  return text;
}

}  // namespace corvana
