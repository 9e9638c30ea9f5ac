#include "execute/ExecuteRecords.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "actions/History.h"
#include "actions/RecordKeys.h"
#include "actions/TaskRequest.h"
#include "platform/Clock.h"

namespace corvana {
namespace {

/// The agent reads it when the execution has crashed.
constexpr std::string_view kCrashPath = "Corvana 9 CurrentPath.txt";
constexpr double kPathInterval = 1.0;
constexpr double kAgentPatience = 3.0;
constexpr int kStarted = 1;

}  // namespace

ExecuteRecords::ExecuteRecords(Files files, ExecuteMessages& messages,
                               std::function<bool()> agentRuns, std::int64_t reference,
                               std::string title)
    : mFiles(files),
      mMessages(messages),
      mAgentRuns(std::move(agentRuns)),
      mReference(reference),
      mTitle(std::move(title)),
      mStart(files.store.clock().now()) {}

ZAN_Value ExecuteRecords::historyEntry() const {
  return ZAN_Value::dictionary(
      {{"Date", ZAN_Value::date(mStart)}, {"Title", mTitle}, {"Ref", mReference}});
}

void ExecuteRecords::began(std::string_view task) {
  ZAN_Value entry = historyEntry();
  if (!task.empty()) entry.setValue(TaskRequest::kTaskKey, task);
  entry.setValue("C", kStarted);
  mFiles.history.addHistoryEntry(entry);
}

void ExecuteRecords::takeUp() {
  const auto count = static_cast<std::int64_t>(mFiles.history.historyCount());
  const ZAN_Value last = mFiles.history.historyEntryAtIndex(count - 1);
  const auto start = last["Date"].asDate();
  if (start && last.integer("Ref") == mReference && last.integer("C") == kStarted) mStart = *start;
}

void ExecuteRecords::workingOn(const std::string& path) {
  mFiles.store.texts().saveCurrentPath(path);
  const double now = mFiles.store.clock().monotonic();
  if (now < mNextCrashPath) return;
  mNextCrashPath = now + kPathInterval;
  // Lost by a power failure at worst, so it costs no disk a wake-up.
  [[maybe_unused]] const Outcome failureIsLogged = mFiles.store.files().writeFileAtPath(
      mFiles.store.folder().dataFolderPathWithFileName(kCrashPath), {},
      std::as_bytes(std::span(path)), false);
}

void ExecuteRecords::forgetCurrentPath() {
  mFiles.store.texts().clearCurrentPath();
  [[maybe_unused]] const Outcome gone =
      ZAN_FilesUtils::removeFile(mFiles.store.folder().pathOf(kCrashPath));
}

void ExecuteRecords::ended(const ExecuteEnd& end) {
  ZAN_Value entry = historyEntry();
  entry.setValue("EndDate", ZAN_Value::date(mFiles.store.clock().now()));
  entry.setValue("C", static_cast<int>(end.code));
  entry.setValue("ActionErrors", end.errors);
  entry.setValue(RunKey::filesCopied, end.progress.filesCopied);
  entry.setValue(RunKey::bytesCopied, end.progress.sizeCopied);
  entry.setValue(RunKey::filesReplaced, end.filesReplaced);
  entry.setValue(RunKey::bytesReplaced, end.bytesReplaced);
  entry.setValue(RunKey::filesDeleted, end.filesDeleted);
  entry.setValue(RunKey::bytesDeleted, end.bytesDeleted);
  entry.setValue(RunKey::skipped, std::uint64_t{end.skipped.size()});
  entry.setValue(RunKey::notPossible, end.notPossible);
  if (end.onlyLacks()) entry.setValue(RunKey::onlyLacks, 1);
  if (end.mayTakeOver) entry.setValue(RunKey::mayTakeOver, 1);
  if (const std::string reason = reasonOf(end); !reason.empty())
    entry.setValue(RunKey::reason, reason);
  mFiles.history.addHistoryEntry(entry);

  auto* action = mFiles.tree.rootItem().actionForReference(mReference);
  if (action && end.isExecuted()) {
    noteSuccess(*action, end.isSuccess());
    action->incrementExecutionCounter();
    action->setLastExecutionDate();
    const ZAN_Value& settings = action->getSettings();
    if (settings.integer(DeletionKey::toConfirm) != static_cast<std::int64_t>(end.toConfirm))
      action->addInChangesList(end.toConfirm, DeletionKey::toConfirm);
    // A consent is for one run.
    for (const auto key :
         {DeletionKey::confirmed, CopyKey::isNew, CopyKey::takesOver, CopyKey::isDoubted}) {
      if (settings.integer(key) != 0) action->addInChangesList(std::uint64_t{0}, key);
    }
    mLacksOthers = keepIfOther(*action, CopyKey::notPossible, end.patterns);
    if (keepIfOther(*action, CopyKey::losses, end.losses)) {
      for (const std::string& loss : end.losses)
        mNewLosses += (mNewLosses.empty() ? "" : ", ") + loss;
    }
  }
  if (action) noteReach(*action, end.isUnreachable);
  if (action && end.isDoubted) action->addInChangesList(std::uint64_t{1}, CopyKey::isDoubted);
  auto& texts = mFiles.store.texts();
  texts.saveCurrentPathForFirstError(end.firstErrorPath);
  if (end.lastErrorPath) texts.saveCurrentPathForLastError(*end.lastErrorPath);
  saveResults(end);
  addToLog(end);
  mMessages.postHistoryChanged();
  forgetCurrentPath();
}

/// Records of before know only that something was executed, be it with errors; the history tells.
void ExecuteRecords::noteSuccess(ProgrammedAction& action, bool isSuccess) {
  if (isSuccess) {
    action.addInChangesList(ZAN_Value::date(mFiles.store.clock().now()), ActionKey::lastSuccess);
    return;
  }
  if (action.getSettings().contains(ActionKey::lastSuccess)) return;
  ReferenceTime last = 0;
  for (const ZAN_Value& entry : mFiles.history.getProgrammedHistoryList().elements()) {
    const bool isWhole = entry.integer("C") == static_cast<int>(ExecuteCode::completed) ||
                         entry.integer(RunKey::onlyLacks) != 0;
    if (isWhole && entry.integer("Ref") == mReference && !entry.contains(TaskRequest::kTaskKey))
      last = entry["EndDate"].asDate().value_or(last);
  }
  action.addInChangesList(ZAN_Value::date(last), ActionKey::lastSuccess);
}

/// A target that was away is tried again soon, later and much later; then the schedule goes on.
void ExecuteRecords::noteReach(ProgrammedAction& action, bool isUnreachable) {
  constexpr std::array kWaits{900.0, 3600.0, 14400.0};
  const ZAN_Value& settings = action.getSettings();
  const auto before =
      static_cast<std::size_t>(std::max<std::int64_t>(settings.integer(EngineKey::putOff), 0));
  if (isUnreachable && before < kWaits.size()) {
    action.addInChangesList(ZAN_Value::date(mFiles.store.clock().now() + kWaits.at(before)),
                            EngineKey::tryAgain);
    action.addInChangesList(std::uint64_t{before + 1}, EngineKey::putOff);
  } else if (before > 0) {
    action.addInChangesList(ZAN_Value::date(0), EngineKey::tryAgain);
    action.addInChangesList(std::uint64_t{0}, EngineKey::putOff);
  }
}

std::string ExecuteRecords::reasonOf(const ExecuteEnd& end) const {
  if (!end.onlyLacks()) return end.reason;
  return std::to_string(end.notPossible) + (end.notPossible == 1 ? " item is" : " items are") +
         " not in the copy; all others are. \"corvana9 edit " + std::to_string(mReference) +
         " --exclude-missing\" leaves out for good what could not be copied";
}

bool ExecuteRecords::keepIfOther(ProgrammedAction& action, std::string_view key,
                                 const std::vector<std::string>& texts) {
  ZAN_Value list = ZAN_Value::array();
  for (const auto& text : texts) list.append(text);
  const ZAN_Value& known = action.getSettings()[key];
  if (known == list || (known.isNull() && texts.empty())) return false;
  action.addInChangesList(std::move(list), key);
  return true;
}

void ExecuteRecords::estimated(std::uint64_t files, std::uint64_t bytes) {
  if (auto* action = mFiles.tree.rootItem().actionForReference(mReference)) {
    action->setTotalFiles(static_cast<std::int64_t>(files), bytes);
  }
  forgetCurrentPath();
}

void ExecuteRecords::taskEnded(std::string_view task, const ExecuteEnd& end) {
  ZAN_Value entry = historyEntry();
  entry.setValue("EndDate", ZAN_Value::date(mFiles.store.clock().now()));
  entry.setValue("C", static_cast<int>(end.code));
  entry.setValue(TaskRequest::kTaskKey, task);
  entry.setValue("ActionErrors", end.errors);
  entry.setValue(RunKey::filesCopied, end.progress.filesCopied);
  entry.setValue(RunKey::bytesCopied, end.progress.sizeCopied);
  if (!end.reason.empty()) entry.setValue(RunKey::reason, end.reason);
  mFiles.history.addHistoryEntry(entry);
  saveResults(end);
  addToLog(end, task);
  mMessages.postHistoryChanged();
  forgetCurrentPath();
}

void ExecuteRecords::logged(const ExecuteEnd& end) {
  addToLog(end);
  forgetCurrentPath();
}

void ExecuteRecords::saveResults(const ExecuteEnd& end) {
  if (end.errorTexts.empty() && end.skipped.empty()) return;
  ZAN_Value errors = ZAN_Value::array();
  for (const auto& text : end.errorTexts) errors.append(text);
  ZAN_Value skipped = ZAN_Value::array();
  for (const auto& item : end.skipped) skipped.append(item);
  const ZAN_Value header = ZAN_Value::dictionary(
      {{"Ref", mReference}, {"Title", mTitle}, {"Date", ZAN_Value::date(mStart)}});
  [[maybe_unused]] const Outcome logged =
      mFiles.history.results().saveActionResults(header, {}, {}, errors, skipped);
}

void ExecuteRecords::addToLog(const ExecuteEnd& end, std::string_view task) {
  ZAN_Value entry =
      ZAN_Value::dictionary({{"C", static_cast<int>(end.code)}, {"N", mTitle}, {"R", mReference}});
  if (!task.empty()) entry.setValue(TaskRequest::kTaskKey, task);
  if (const std::string reason = reasonOf(end); !reason.empty()) entry.setValue("F", reason);
  if (end.onlyLacks()) {
    entry.setValue(RunKey::onlyLacks, 1);
    if (mLacksOthers) entry.setValue(RunKey::lacksOthers, 1);
  }
  if (end.isReadBack) entry.setValue(RunKey::isReadBack, 1);
  if (end.isUnreachable) entry.setValue(LogKey::unreachable, 1);
  if (!mNewLosses.empty()) {
    entry.setValue(CopyKey::losses, mNewLosses);
    if (!entry.contains("F"))
      entry.setValue("F", "the file system of the copies cannot keep: " + mNewLosses);
  }
  if (end.firstErrorPath) entry.setValue("P", *end.firstErrorPath);
  if (end.toConfirm > 0) entry.setValue(DeletionKey::toConfirm, end.toConfirm);

  mFiles.store.texts().addToReportFile(ActionLog::messageForEntry(entry));

  Clock& clock = mFiles.store.clock();
  const ReferenceTime sent = clock.now();
  if (mAgentRuns()) {
    // The agent shows an error and counts it besides logging it. A message may be lost all the
    // same, with an agent that is just leaving: then the entry is written here.
    mMessages.postLogEntry(entry);
    for (const double until = clock.monotonic() + kAgentPatience; clock.monotonic() < until;
         clock.sleep(0.05)) {
      const ZAN_Value list = mFiles.history.log().readLogList();
      for (std::size_t back = 1; back <= 20 && back <= list.size(); ++back) {
        const ZAN_Value& last = list.at(list.size() - back);
        if (last.integer("C") == entry.integer("C") && last.integer("R") == mReference &&
            last["M"].asDate().value_or(0) >= sent) {
          return;
        }
      }
    }
  }
  entry.setValue("M", ZAN_Value::date(clock.now()));
  entry.setValue(LogKey::untold, 1);
  mFiles.history.log().addLog(entry);
}

}  // namespace corvana
