#include "ui/windows/WindowWords.h"

#include "ZANCocoaFramework/ZAN_Translation.h"
#include "actions/ActionResults.h"
#include "actions/ActionsTools.h"
#include "actions/TaskRequest.h"
#include "core/work/WhyNot.h"

namespace corvana {

namespace {

/// More lines than these nobody reads in a window.
constexpr std::size_t kMostLines = 500;

std::string lineOf(const ZAN_Value& error) {
  if (error.isString()) return error.string();
  for (const char* key : {"Text", "Path", "N", "P"})
    if (error[key].isString()) return error.string(key);
  return {};
}

ZAN_Value latestErrorsOf(const ZAN_Value& entry, ActionResults& results) {
  const auto date = entry["Date"].asDate();
  const auto count = static_cast<std::int64_t>(results.latestErrorsCount());
  for (std::int64_t i = 0; i < count; ++i) {
    const ZAN_Value one = results.getLatestErrorsAtIndex(i);
    if (one.integer("Ref") == entry.integer("Ref") && one["Date"].asDate() == date)
      return one["List"];
  }
  return {};
}

}  // namespace

bool RunWords::isFailure(const ZAN_Value& entry) {
  const std::int64_t code = entry.integer("C");
  return (code != LogCode::completed && code != LogCode::launched &&
          code != LogCode::abortedByUser) ||
         entry.integer("ActionErrors") != 0;
}

ZAN_Value RunWords::resultsOf(const ZAN_Value& entry, ActionResults& results) {
  ZAN_Value lists;
  if (const auto path = results.getActionResultsPathForRef(entry.integer("Ref"),
                                                           entry["Date"].asDate().value_or(0)))
    lists = results.readActionResults(*path);
  if (lists.isNull()) lists = ZAN_Value::dictionary({{"Errors", latestErrorsOf(entry, results)}});
  return lists;
}

std::optional<double> RunWords::bytesPerSecond(const ZAN_Value& entry) {
  const auto start = entry["Date"].asDate();
  const auto end = entry["EndDate"].asDate();
  if (!start || !end || *end - *start < 1 || !entry.contains(RunKey::bytesCopied))
    return std::nullopt;
  return entry[RunKey::bytesCopied].doubleValue() / (*end - *start);
}

std::string RunWords::result(const ZAN_Value& entry) const {
  return entry.integer(RunKey::onlyLacks) != 0 ? mT.text("ResultOnlyLacks")
                                               : resultInWords(entry.integer("C"), mT);
}

std::string RunWords::work(const ZAN_Value& entry) const {
  std::string text;
  const auto add = [&](const std::string& line) { text += (text.empty() ? "" : "\n") + line; };
  const auto count = [&](std::string_view key) {
    return mS.getIntegerWithSeparators(entry.integer(key));
  };
  const auto size = [&](std::string_view key) {
    return mS.getShortSizeBytes(entry[key].unsignedValue());
  };
  if (entry.contains(RunKey::filesCopied)) {
    std::string line =
        mT.text("LatestWork", {count(RunKey::filesCopied), size(RunKey::bytesCopied)});
    const std::pair<std::string_view, const char*> more[] = {
        {RunKey::filesReplaced, "LatestReplaced"},
        {RunKey::filesDeleted, "LatestDeleted"},
        {RunKey::skipped, "LatestSkipped"},
        {RunKey::notPossible, "LatestNotPossible"}};
    for (const auto& [key, words] : more)
      if (entry.integer(key) != 0) line += ", " + mT.text(words, {count(key)});
    add(line);
  }
  if (const auto speed = bytesPerSecond(entry))
    add(mT.text("ProgressSpeed", {mS.getShortSizeBytes(static_cast<std::uint64_t>(*speed))}));
  if (entry.contains(RunKey::reason))
    add(translated(mT, entry.string(RunKey::reason), ReadAt::window));
  return text;
}

std::string RunWords::list(const std::string& title, const ZAN_Value& lines) const {
  std::string text = title;
  std::size_t count = 0;
  for (const ZAN_Value& one : lines.elements()) {
    if (++count > kMostLines) {
      text += '\n' + mT.text("LatestMoreErrors", {lines.size() - kMostLines});
      break;
    }
    if (const std::string line = lineOf(one); !line.empty())
      text += '\n' + translated(mT, line, ReadAt::window);
  }
  return text;
}

std::string RunWords::lists(const ZAN_Value& results) const {
  std::string text;
  const auto add = [&](const char* key, const char* title) {
    if (results[key].empty()) return;
    text +=
        (text.empty() ? "" : "\n\n") + list(mT.text(title, {results[key].size()}), results[key]);
  };
  add("Errors", "LatestErrors");
  add("Excluded", "LatestExcluded");
  add("Files", "LatestFiles");
  return text;
}

std::string RunWords::details(const ZAN_Value& entry, const ZAN_Value& results) const {
  const auto start = entry["Date"].asDate();
  std::string text =
      mT.text("LatestDetails",
              {titleOf(entry, mT), start ? mS.getMediumDateTime(*start) : "", result(entry)});
  if (const std::string done = work(entry); !done.empty()) text += '\n' + done;
  if (const std::string kept = lists(results); !kept.empty()) text += "\n\n" + kept;
  return text;
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
