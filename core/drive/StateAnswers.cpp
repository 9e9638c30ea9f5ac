#include "core/drive/StateAnswers.h"

#include "actions/ActionTree.h"
#include "actions/ProgrammedAction.h"
#include "core/drive/LaunchStep.h"
#include "core/drive/SiblingStatus.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerCommands.h"
#include "core/record/SchedulerState.h"
#include "core/work/ActionQueue.h"
#include "core/work/ExecuteSupervisor.h"
#include "core/work/TriggerEvaluation.h"
#include "core/work/WhyNot.h"
#include "platform/Clock.h"
#include "platform/Input.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
#include "platform/Processes.h"

namespace corvana {

std::string StateAnswers::titleOf(std::int64_t ref) const {
  const ProgrammedAction* action = m.tree.rootItem().actionForReference(ref);
  return action == nullptr ? std::string() : action->getTitle();
}

ZAN_Value StateAnswers::status() {
  const bool executing = m.supervisor.isExecuting();
  ZAN_Value status =
      ZAN_Value::dictionary({{"home", m.platform.machine.homeFolder()},
                             {"pid", static_cast<long long>(m.platform.processes.ownPid())},
                             {"started", ZAN_Value::date(m.platform.processes.ownStart())},
                             {"enabled", !m.state.mScheduleDisabled},
                             {"disabledWhenDone", m.state.mScheduleDisabledWhenDone},
                             {"otherStartupDisk", m.state.mStartedFromNewMachine},
                             {"paused", m.state.mPause},
                             {"context", m.state.mContext},
                             {"errorCode", m.state.mErrorInExecution},
                             {"schedulerStatus", m.siblings.schedulerStatus()},
                             {"executing", executing},
                             {"waitsForOther", m.supervisor.waitsForOtherExecution()},
                             {"idleTimeIsSeen", m.platform.input.idleSeconds().has_value()},
                             {"queueCount", static_cast<long long>(m.queue.actionsList().size())},
                             {"nextCheck", ZAN_Value::date(m.state.mNextCheck.at())}});
  const auto& next = m.evaluation.actionsNextList();
  if (!next.empty() && next.front().hasDate)
    status.setValue("nextDate", ZAN_Value::date(next.front().date));
  if (executing && !m.queue.empty()) {
    const std::int64_t ref = m.queue.head().ref;
    ZAN_Value current = ZAN_Value::dictionary({{"ref", static_cast<long long>(ref)},
                                               {"title", titleOf(ref)},
                                               {"progress", m.supervisor.progressValue()},
                                               {"retry", m.supervisor.retryNb()}});
    if (const ReferenceTime started = m.supervisor.startOfCurrentAction(); started != 0)
      current.setValue("started", ZAN_Value::date(started));
    status.setValue("current", current);
  }
  return status;
}

ZAN_Value StateAnswers::queue() {
  std::vector<ZAN_Value> list;
  for (const QueueRecord& record : m.queue.actionsList()) {
    list.push_back(
        ZAN_Value::dictionary({{"ref", static_cast<long long>(record.ref)},
                               {"title", titleOf(record.ref)},
                               {"date", ZAN_Value::date(record.date)},
                               {"estimateSize", record.estimateSize != 0},
                               {"running", list.empty() && m.supervisor.isExecuting()}}));
  }
  return ZAN_Value::array(std::move(list));
}

ZAN_Value StateAnswers::next() {
  std::vector<ZAN_Value> list;
  for (const NextAction& action : m.evaluation.actionsNextList()) {
    if (action.isGroup) continue;
    ZAN_Value one = ZAN_Value::dictionary({{"ref", static_cast<long long>(action.ref)},
                                           {"title", action.name()},
                                           {"type", static_cast<long long>(action.actionType)}});
    if (action.hasDate) one.setValue("date", ZAN_Value::date(action.date));
    list.push_back(std::move(one));
  }
  return ZAN_Value::array(std::move(list));
}

Result<std::vector<std::string>> StateAnswers::why(std::int64_t ref) {
  const ProgrammedAction* action = m.tree.rootItem().actionForReference(ref);
  if (action == nullptr)
    return Error{ErrorKind::absent, "action " + std::to_string(ref) + ": there is no such action"};
  const WhyNot::Situation situation =
      WhyNot::situationOf(m.state, m.supervisor, m.queue, m.platform.input);
  const ActionsTools tools(m.evaluation.calendar(), m.platform.clock.now());
  const WhyNot whyNot(tools, {m.texts, m.strings}, m.volumes,
                      [this](std::int64_t other) { return titleOf(other); });
  std::vector<std::string> lines;
  for (const WhyNot::Reason& reason : whyNot.reasons(*action, situation)) {
    lines.push_back(reason.remedyByCommand.empty() ? reason.text
                                                   : reason.text + " " + reason.remedyByCommand);
  }
  return lines;
}

Outcome StateAnswers::launch(std::int64_t ref) {
  if (!m.launchStep.welcomeMessageWasDisplayed()) m.state.holdBackUntil(m.platform.clock.now());
  return m.commands.launchAction(ref, false);
}

}  // namespace corvana
