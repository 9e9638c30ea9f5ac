#include "ui/windows/WindowWords.h"

#include "actions/TaskRequest.h"
#include "core/work/WhyNot.h"

namespace corvana {

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

std::string titleOf(const ZAN_Value& entry, const ZAN_StringTable& texts) {
  const std::string title = entry.string(entry.contains("Title") ? "Title" : "N");
  const std::string task = entry.string(TaskRequest::kTaskKey);
  if (task == TaskRequest::kRestore) return texts.text("TaskRestore", {title});
  return task == TaskRequest::kVerify ? texts.text("TaskVerify", {title}) : title;
}

std::string reasonsText(const UserInterfaceSources& sources, std::int64_t ref) {
  const ProgrammedAction* action = sources.records.tree.rootItem().actionForReference(ref);
  if (action == nullptr) return {};
  const WhyNot::Situation situation =
      WhyNot::situationOf(sources.records.state, sources.work.supervisor, sources.work.queue,
                          sources.records.platform.input, sources.launchStep.holdText());
  const ActionsTools tools(sources.work.evaluation.calendar(),
                           sources.records.platform.clock.now());
  const WhyNot whyNot(tools, {sources.records.texts, sources.records.strings}, sources.work.volumes,
                      [&](std::int64_t other) { return sources.records.tree.nameOf(other); });
  std::string text;
  for (const WhyNot::Reason& reason : whyNot.reasons(*action, situation)) {
    if (!text.empty()) text += '\n';
    text += reason.text;
    if (!reason.remedy.empty()) text += ' ' + reason.remedy;
  }
  return text;
}

}  // namespace corvana
