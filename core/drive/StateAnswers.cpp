#include "core/drive/StateAnswers.h"

#include "actions/ActionsTools.h"
#include "core/drive/LaunchStep.h"
#include "core/record/SchedulerCommands.h"
#include "core/work/WhyNot.h"
#include "core/work/Work.h"

namespace corvana {

namespace {

void tellTask(const QueueRecord& record, ZAN_Value& answer) {
  if (!record.isTask()) return;
  answer.setValue("task", record.task);
  answer.setValue("request", record.request);
}

}  // namespace

ZAN_Value StateAnswers::status() {
  const bool executing = mWork.supervisor.isExecuting();
  ZAN_Value status = ZAN_Value::dictionary(
      {{"home", m.platform.machine.homeFolder()},
       {"pid", static_cast<long long>(m.platform.processes.ownPid())},
       {"started", ZAN_Value::date(m.platform.processes.ownStart())},
       {"enabled", !m.state.mScheduleDisabled},
       {"disabledWhenDone", m.state.mScheduleDisabledWhenDone},
       {"otherStartupDisk", m.state.mStartedFromNewMachine},
       {"paused", m.state.mPause},
       {"context", m.state.mContext},
       {"errorCode", m.state.mErrorInExecution},
       {"schedulerStatus", m.channel.schedulerStatus()},
       {"executing", executing},
       {"waitsForOther", mWork.supervisor.waitsForOtherExecution()},
       {"idleTimeIsSeen", m.platform.input.idleSeconds().has_value()},
       {"queueCount", static_cast<long long>(mWork.queue.actionsList().size())},
       {"nextCheck", ZAN_Value::date(m.state.mNextCheck.at())}});
  if (!m.state.mLacking.empty()) {
    ZAN_Value lacking = ZAN_Value::array();
    for (const std::int64_t ref : m.state.mLacking)
      lacking.append(ZAN_Value::dictionary({{"ref", ref}, {"title", m.tree.titleOf(ref)}}));
    status.setValue("lacking", std::move(lacking));
  }
  if (ZAN_Value storage = m.storage.lasting(); !storage.empty())
    status.setValue("storage", std::move(storage));
  const auto& next = mWork.evaluation.actionsNextList();
  if (!next.empty() && next.front().hasDate)
    status.setValue("nextDate", ZAN_Value::date(next.front().date));
  if (const LaunchHold held = mLaunchStep.hold(); held.cause != LaunchHold::Cause::none) {
    ZAN_Value hold = ZAN_Value::dictionary(
        {{"cause", LaunchHold::nameOf(held.cause)}, {"text", mLaunchStep.holdText()}});
    if (held.until != kNever) hold.setValue("until", ZAN_Value::date(held.until));
    status.setValue("hold", hold);
  }
  if (executing && !mWork.queue.empty()) {
    const std::int64_t ref = mWork.queue.head().ref;
    ZAN_Value current = ZAN_Value::dictionary({{"ref", static_cast<long long>(ref)},
                                               {"title", m.tree.titleOf(ref)},
                                               {"progress", m.state.mProgress.value},
                                               {"retry", mWork.supervisor.retryNb()}});
    tellTask(mWork.queue.head(), current);
    if (const auto& reports = mWork.supervisor.latestExecuteCurrentPath(); !reports.empty()) {
      for (const std::string_view key :
           {ProgressKey::itemsSeen, ProgressKey::bytesToCopy, ProgressKey::filesToCopy,
            ProgressKey::bytesPerSecond, ProgressKey::secondsLeft, std::string_view("SizeCopied"),
            std::string_view("FilesCopied")}) {
        if (reports.back().contains(key)) current.setValue(key, reports.back()[key]);
      }
      current.setValue("progressText", progressInWords(reports.back(), m.texts, m.strings));
    }
    if (const ReferenceTime started = mWork.supervisor.startOfCurrentAction(); started != 0)
      current.setValue("started", ZAN_Value::date(started));
    if (const auto stall = mWork.supervisor.stall()) {
      current.setValue("stuckSince", ZAN_Value::date(stall->since));
      current.setValue("stuck", mWork.supervisor.stallText());
    }
    if (mWork.supervisor.stopStage() != ExecutionStop::Stage::none)
      current.setValue("stopping", static_cast<int>(mWork.supervisor.stopStage()));
    status.setValue("current", current);
  }
  return status;
}

ZAN_Value StateAnswers::queue() {
  std::vector<ZAN_Value> list;
  for (const QueueRecord& record : mWork.queue.actionsList()) {
    ZAN_Value one =
        ZAN_Value::dictionary({{"ref", static_cast<long long>(record.ref)},
                               {"title", m.tree.titleOf(record.ref)},
                               {"date", ZAN_Value::date(record.date)},
                               {"estimateSize", record.estimateSize != 0 && !record.isTask()},
                               {"running", list.empty() && mWork.supervisor.isExecuting()}});
    tellTask(record, one);
    list.push_back(std::move(one));
  }
  return ZAN_Value::array(std::move(list));
}

ZAN_Value StateAnswers::next() {
  std::vector<ZAN_Value> list;
  for (const NextAction& action : mWork.evaluation.actionsNextList()) {
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
  const WhyNot::Situation situation = WhyNot::situationOf(m.state, mWork.supervisor, mWork.queue,
                                                          m.platform.input, mLaunchStep.holdText());
  const ActionsTools tools(mWork.evaluation.calendar(), m.platform.clock.now());
  const WhyNot whyNot(tools, {m.texts, m.strings}, mWork.volumes,
                      [this](std::int64_t other) { return m.tree.nameOf(other); });
  std::vector<std::string> lines;
  for (const WhyNot::Reason& reason : whyNot.reasons(*action, situation)) {
    lines.push_back(reason.remedyByCommand.empty() ? reason.text
                                                   : reason.text + " " + reason.remedyByCommand);
  }
  return lines;
}

bool StateAnswers::together(const std::function<bool()>& body) {
  mWork.interruptions.settle();
  return mWork.queue.burst(body);
}

Outcome StateAnswers::launch(std::int64_t ref) {
  if (!mLaunchStep.welcomeMessageWasDisplayed()) m.state.holdBackUntil(m.platform.clock.now());
  return mCommands.launchAction(ref, false);
}

}  // namespace corvana
