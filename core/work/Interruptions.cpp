#include "core/work/Interruptions.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>

#include "actions/TaskRequest.h"
#include "core/record/Records.h"
#include "core/work/ActionQueue.h"
#include "core/work/ExecuteSupervisor.h"

namespace corvana {
namespace {

constexpr double kLookInterval = 5.0;

}  // namespace

Interruptions::Interruptions(Records& records, ActionQueue& queue, ExecuteSupervisor& supervisor)
    : m(records), mQueue(queue), mSupervisor(supervisor), mNextLook(records.state.deadlines) {}

void Interruptions::takeUp() {
  markOccasions();
  tellDropped();
  removeOldRequests();
  mNextLook.set(m.platform.clock.now());
  settle();
}

/// An occasion may have been stored when its action was not marked yet.
void Interruptions::markOccasions() {
  m.tree.holdChanges();
  const auto mark = [this](const QueueRecord& record) {
    auto* const action = m.tree.rootItem().actionForReference(record.ref);
    if (action == nullptr || !record.scheduleDate) return;
    const auto last = action->schedule().lastScheduleDate;
    if (!last || *last < *record.scheduleDate) action->setLastScheduleDate(*record.scheduleDate);
  };
  for (const auto* records : {&mQueue.actionsList(), &mQueue.unfinished(), &mQueue.dropped()})
    for (const QueueRecord& record : *records) mark(record);
  m.tree.storeHeldChanges();
}

void Interruptions::tellDropped() {
  if (mQueue.dropped().empty()) return;
  const std::string names = mQueue.tellNotRun(mQueue.dropped(), "ReportQueueDropped");
  m.messages.displayStandardMessage(
      m.texts.text(m.state.mStartedFromNewMachine ? "QueueDroppedOtherDisk" : "QueueDropped",
                   {names}),
      LogCode::message);
  mQueue.saveActionsQueue();
}

/// Those whose answers nobody has fetched, since who asked had gone.
void Interruptions::removeOldRequests() {
  constexpr auto kKept = std::chrono::hours(24);
  std::error_code failed;
  const auto now = std::filesystem::file_time_type::clock::now();
  for (const auto& file :
       std::filesystem::directory_iterator(m.store.folder().hiddenFolderPath(), failed)) {
    const std::string name = file.path().filename().string();
    const bool isWanted = std::ranges::any_of(mQueue.actionsList(), [&](const QueueRecord& one) {
      return one.isTask() && name.starts_with(one.request);
    });
    const auto changed = file.last_write_time(failed);
    if (!isWanted && !failed && TaskRequest::isOfRequest(name) && now - changed > kKept)
      std::filesystem::remove(file.path(), failed);
  }
}

ReferenceTime Interruptions::nextLook() const {
  return mQueue.unfinished().empty() ? kNever : mNextLook.at();
}

void Interruptions::settle() {
  if (mQueue.unfinished().empty()) return;
  if (!m.tree.isThere() || mSupervisor.isExecuting() || m.siblingWatch.isExecuteAppLaunched()) {
    mNextLook.set(m.platform.clock.now() + kLookInterval);
    return;
  }
  // What the execute program noted last.
  (void)m.tree.updateActionsWithChanges(false);
  const bool keeps = m.preferences.mPrefKeepQueueAtShutdown != 0 && !m.state.mStartedFromNewMachine;
  while (!mQueue.unfinished().empty()) {
    const QueueRecord record = mQueue.unfinished().front();
    const ZAN_Value trace = traceOf(record);
    const bool ended = hasEnded(record, trace);
    const bool isThere = m.tree.rootItem().actionForReference(record.ref) != nullptr;
    // Whoever asked for a task may have changed since what it would put things into.
    const bool repeated = !ended && keeps && isThere && record.retry < 1 && !record.isTask();
    if (!ended) tellInterrupted(record, trace, repeated);
    mQueue.settleUnfinished(repeated);
  }
  m.state.checkAt(m.platform.clock.now());
}

/// The newest entry of the history that the execution has written; null for none.
ZAN_Value Interruptions::traceOf(const QueueRecord& record) const {
  for (auto index = static_cast<std::int64_t>(m.history.historyCount()); index-- > 0;) {
    ZAN_Value entry = m.history.historyEntryAtIndex(index);
    const auto date = entry["Date"].asDate();
    if (date && *date < *record.begun) break;
    const bool isOfAction = entry.contains("Ref")
                                ? entry.integer("Ref") == record.ref
                                : entry.string("Title") == m.tree.titleOf(record.ref);
    if (isOfAction && entry.string(TaskRequest::kTaskKey) == record.task) return entry;
  }
  return {};
}

bool Interruptions::hasEnded(const QueueRecord& record, const ZAN_Value& trace) const {
  if (trace["EndDate"].asDate()) return true;
  // Its last deed is to take that away.
  if (record.isTask()) return !ZAN_FilesUtils::exists(mQueue.requestPath(record));
  const ProgrammedAction* const action = m.tree.rootItem().actionForReference(record.ref);
  if (action == nullptr) return false;
  const auto last = action->getSettings()["LastExecutionDate"].asDate();
  return last && *last >= *record.begun;
}

void Interruptions::tellInterrupted(const QueueRecord& record, const ZAN_Value& trace,
                                    bool repeated) {
  const std::string title = m.tree.nameOf(record.ref);
  const std::string began = m.strings.getShortTimeDate(*record.begun);
  ZAN_Value event = ZAN_Value::dictionary({{"R", record.ref},
                                           {"N", title},
                                           {"F", m.texts.text("InterruptedReason", {began})},
                                           {"C", LogCode::crashed}});
  // Takes the place of the entry that the program wrote at its begin.
  const auto start = trace["Date"].asDate().value_or(*record.begun);
  ZAN_Value run = ZAN_Value::dictionary({{"Date", ZAN_Value::date(start)},
                                         {"Title", title},
                                         {"Ref", record.ref},
                                         {"C", LogCode::crashed},
                                         {"ActionErrors", 0}});
  if (record.isTask()) {
    for (ZAN_Value* const entry : {&event, &run})
      entry->setValue(TaskRequest::kTaskKey, record.task);
    const std::string request = mQueue.requestPath(record);
    for (const std::string& file : {request, TaskRequest::answerOf(request)})
      (void)ZAN_FilesUtils::removeFile(file);
  }
  m.log.addSchedulerLog(event);
  m.history.addHistoryEntry(run);
  m.messages.displayStandardMessage(m.texts.text(record.isTask() ? "InterruptedTask"
                                                 : repeated      ? "InterruptedRedo"
                                                                 : "InterruptedAfter",
                                                 {mQueue.titleOf(record), began}),
                                    0);
}

}  // namespace corvana
