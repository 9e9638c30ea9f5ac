#include "core/work/ActionQueue.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "actions/TaskRequest.h"
#include "core/record/Records.h"
#include "core/work/ExecutionConditions.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {
namespace {

constexpr double kLaunchedFromFileDelay = 0.01;
constexpr double kLookAhead = 60.0;
constexpr double kDay = 86400.0;
/// So many names fit into a message.
constexpr std::size_t kMostNamed = 20;

}  // namespace

ActionQueue::ActionQueue(Records& records, VolumeIdentity& volumes, AutomaticExecution& automatic)
    : m(records), mVolumes(volumes), mAutomatic(automatic) {
  m.state.deadlines.whenMoved([this](double jump, ReferenceTime) { moveDates(jump); });
}

QueueAddition ActionQueue::addActionToQueue(std::int64_t ref, ReferenceTime launchTime, int row,
                                            std::optional<ReferenceTime> due) {
  return add({ref, launchTime, 0, due}, row, false, false,
             std::max(m.platform.clock.now(), launchTime));
}

QueueAddition ActionQueue::addActionToQueue(std::int64_t ref, ReferenceTime launchTime, int row,
                                            bool manualLaunch, bool remoteLaunch,
                                            bool estimateSize) {
  const ReferenceTime now = m.platform.clock.now();
  const bool automatic = !manualLaunch && !remoteLaunch;
  return add({ref, launchTime, estimateSize ? 1 : 0, std::nullopt}, row, manualLaunch, remoteLaunch,
             automatic ? std::max(now, launchTime) : now);
}

QueueAddition ActionQueue::add(const QueueRecord& record, int row, bool manualLaunch,
                               bool remoteLaunch, ReferenceTime scheduleDate) {
  // An occasion is stored before its action is marked: what is lost between comes up again.
  QueueAddition addition{};
  batch([&] { addition = addOne(record, row, manualLaunch, remoteLaunch, scheduleDate); });
  return addition;
}

QueueAddition ActionQueue::addOne(QueueRecord record, int row, bool manualLaunch, bool remoteLaunch,
                                  ReferenceTime scheduleDate) {
  if (contains(record.ref)) return QueueAddition::alreadyQueued;
  // Something was asked for, and what becomes of it is to be seen.
  m.changes.note(Change::queue);

  ProgrammedAction* const action = m.tree.rootItem().actionForReference(record.ref);
  if (action == nullptr || !action->getSettings().isDictionary())
    return m.tree.isThere() ? QueueAddition::unknownAction : QueueAddition::treeUnreadable;
  const ZAN_Value settings = action->getSettings();
  if ((manualLaunch && settings.integer("TriggerPreventManualLaunch") != 0) ||
      (remoteLaunch && settings.integer("TriggerPreventRemoteLaunch") != 0))
    return QueueAddition::notPermitted;

  const std::string title = action->getTitle();
  const std::int64_t type = action->actionType();
  action->setLastScheduleDate(scheduleDate);
  mMarkedInBatch = true;
  if (settings.integer("TriggerIfVolumesMounted") != 0 &&
      !mVolumes.checkIfAllVolumesMounted(settings)) {
    // Another machine may ask again and again: what is said of it must not fill the report.
    if (!remoteLaunch || mRefusedRemotely.begins(m.platform.clock.monotonic())) {
      m.store.texts().addToReportFile(
          m.texts.text("ReportAddActionInQueueNoVolume", {title, type, record.ref}));
      m.messages.sendUserNotification(m.texts.text("ReportAddActionInQueueNoVolume", {title}));
    }
    return QueueAddition::volumesMissing;
  }

  m.store.texts().addToReportFile(
      m.texts.text(manualLaunch ? "ReportManualAddActionInQueue" : "ReportAddActionInQueue",
                   {title, type, record.ref}));
  // The notice has the same words however the action came in.
  m.messages.sendUserNotification(m.texts.text("ReportAddActionInQueue", {title}));

  const std::size_t count = mActionsList.size();
  std::size_t at = count;
  if (row >= 0)
    at = std::min(count, std::max<std::size_t>(count == 0 ? 0 : 1, static_cast<std::size_t>(row)));
  record.scheduleDate = scheduleDate;
  mActionsList.insert(mActionsList.begin() + static_cast<std::ptrdiff_t>(at), record);
  changed();
  if (m.preferences.mPrefShowActionsQueue != 0)
    m.platform.userInterface.showWindowQuietly(Window::queue);
  return QueueAddition::queued;
}

QueueAddition ActionQueue::addTask(std::int64_t ref, std::string_view task,
                                   std::string_view request) {
  const QueueRecord record{.ref = ref,
                           .date = m.platform.clock.now(),
                           .estimateSize = 1,
                           .task = std::string(task),
                           .request = std::string(request)};
  if (!TaskRequest::isTask(task) || !TaskRequest::isName(request) ||
      !ZAN_FilesUtils::exists(requestPath(record)))
    return QueueAddition::unknownAction;
  if (isThere(record)) return QueueAddition::alreadyQueued;
  if (m.tree.rootItem().actionForReference(ref) == nullptr)
    return m.tree.isThere() ? QueueAddition::unknownAction : QueueAddition::treeUnreadable;
  // Somebody sits there and waits for it.
  auto at = mActionsList.begin() + (mHeadIsRunning ? 1 : 0);
  while (at != mActionsList.end() && at->isTask()) ++at;
  mActionsList.insert(at, record);
  mExecuteNowActionsList.push_back(record);
  m.store.texts().addToReportFile(m.texts.text("ReportTaskAsked", {titleOf(record)}));
  changed();
  return QueueAddition::queued;
}

std::string ActionQueue::titleOf(const QueueRecord& record) const {
  const std::string title = m.tree.nameOf(record.ref);
  return record.isTask()
             ? m.texts.text(record.task == TaskRequest::kRestore ? "TaskRestore" : "TaskVerify",
                            {title})
             : title;
}

std::string ActionQueue::requestPath(const QueueRecord& record) const {
  return TaskRequest::pathIn(m.store.folder().hiddenFolderPath(), record.request);
}

void ActionQueue::addWish(std::int64_t ref, ReferenceTime launchTime, bool remote,
                          bool estimateSize) {
  std::string_view key;
  switch (addActionToQueue(ref, launchTime, -1, !remote, remote, estimateSize)) {
    case QueueAddition::unknownAction:
      key = "ReportWishGone";
      break;
    case QueueAddition::treeUnreadable:
      key = "ReportWishUnreadable";
      break;
    case QueueAddition::notPermitted:
      key = "ReportWishNotPermitted";
      break;
    default:
      return;
  }
  // One without its details names none.
  if (ref == 0) return;
  const std::string text = m.texts.text(key, {m.tree.nameOf(ref)});
  m.store.texts().addToReportFile(text);
  // Other machines are to raise no notices.
  if (!remote) m.messages.sendUserNotification(text);
}

void ActionQueue::changed() {
  if (mBatchDepth > 0) {
    mChangedInBatch = true;
    return;
  }
  saveActionsQueue();
  m.changes.note(Change::queue);
}

void ActionQueue::saveActionsQueue() {
  ZAN_Value occasions = ZAN_Value::array();
  for (const auto* records : {&mUnfinished, &mActionsList})
    for (const QueueRecord& record : *records) occasions.append(record.toOccasion());
  // A failure is logged by the store, and the next save tries again.
  (void)m.store.files().writeListToFile(occasions, DataFolder::kOccasions);
  mDropped.clear();

  ZAN_Value list = ZAN_Value::array();
  if (m.preferences.mPrefKeepQueueAtShutdown != 0)
    for (std::size_t i = 1; i < mActionsList.size(); ++i) list.append(mActionsList[i].toValue());
  m.preferences.setPref("SchedulerActionsToDoList", list);
  m.preferences.savePrefs();
}

void ActionQueue::restoreActionsQueue() {
  const bool taken = !m.state.mStartedFromNewMachine && m.preferences.mPrefKeepQueueAtShutdown != 0;
  for (QueueRecord& record :
       storedOccasions(m.store, m.preferences.prefForKey("SchedulerActionsToDoList"))) {
    bound(record);
    (record.begun ? mUnfinished : taken ? mActionsList : mDropped).push_back(record);
  }
}

/// Dates far ahead come from a clock that was wrong, or from a file of another time.
void ActionQueue::bound(QueueRecord& record) const {
  const ReferenceTime now = m.platform.clock.now();
  const auto heal = [&](ReferenceTime date) { return date > now + kDay ? now : date; };
  record.date = heal(record.date);
  for (auto* const date : {&record.due, &record.scheduleDate, &record.begun})
    if (*date) *date = heal(**date);
  record.retry = std::max(record.retry, 0);
}

void ActionQueue::settleUnfinished(bool repeated) {
  QueueRecord record = mUnfinished.front();
  mUnfinished.erase(mUnfinished.begin());
  if (repeated && !contains(record.ref)) {
    record.begun.reset();
    ++record.retry;
    record.date = m.platform.clock.now();
    mActionsList.insert(mActionsList.begin() + (mHeadIsRunning ? 1 : 0), record);
  }
  changed();
}

void ActionQueue::headBegins(std::optional<ReferenceTime> at) {
  if (mActionsList.empty()) return;
  mActionsList.front().begun = at;
  saveActionsQueue();
}

std::string ActionQueue::tellNotRun(const std::vector<QueueRecord>& records, std::string_view key) {
  std::string names;
  for (std::size_t i = 0; i < records.size(); ++i) {
    const std::string name = m.tree.nameOf(records[i].ref);
    m.store.texts().addToReportFile(m.texts.text(key, {name}));
    if (i < kMostNamed) names += (i == 0 ? "" : ", ") + name;
  }
  return records.size() > kMostNamed ? names + ", …" : names;
}

void ActionQueue::removeFromQueue(const std::set<std::size_t>& rows) {
  std::vector<QueueRecord> removed;
  for (std::size_t row = mActionsList.size(); row-- > 1;)
    if (rows.contains(row)) removed.push_back(erase(row));
  if (!mHeadIsRunning && !mActionsList.empty() && rows.contains(0)) {
    removed.push_back(erase(0));
    m.state.mProgress = {};
    m.changes.note(Change::progress);
  }
  (void)tellNotRun(removed, "ReportQueueRemoved");
  changed();
}

void ActionQueue::moveRecord(std::size_t from, std::size_t to) {
  const std::size_t first = mHeadIsRunning ? 1 : 0;
  if (from >= mActionsList.size() || from < first) return;
  to = std::clamp(to, first, mActionsList.size() - 1);
  const auto begin = mActionsList.begin();
  const auto position = [&](std::size_t row) { return begin + static_cast<std::ptrdiff_t>(row); };
  if (from < to)
    std::rotate(position(from), position(from + 1), position(to + 1));
  else
    std::rotate(position(to), position(from), position(from + 1));
  changed();
}

void ActionQueue::removeRecordsOfOtherContexts(ActionContext context) {
  std::vector<QueueRecord> removed;
  for (std::size_t row = mActionsList.size(); row-- > 2;) {
    const ProgrammedAction* const action =
        m.tree.rootItem().actionForReference(mActionsList[row].ref);
    if (mActionsList[row].isTask()) continue;
    if (action == nullptr || !isOtherContext(action->getActionContext(), context)) continue;
    removed.push_back(erase(row));
  }
  if (removed.empty()) return;
  std::ranges::reverse(removed);
  m.messages.sendUserNotification(
      m.texts.text("QueueLeftContext", {tellNotRun(removed, "ReportQueueLeftContext")}));
  changed();
}

void ActionQueue::executeActionsInFile(const std::string& path) {
  const DataFiles::List records = m.store.files().readListAtPath(path, {});
  if (!records.readable) {
    const auto kept = m.store.files().putAside(path);
    m.messages.displayStandardMessage(m.texts.text("RequestFileDamaged", {kept ? *kept : path}),
                                      LogCode::message);
    return;
  }
  batch([&] {
    for (const ZAN_Value& record : records.elements.elements())
      addWish(record.integer("Ref"), m.platform.clock.now() + kLaunchedFromFileDelay, false,
              record.integer("EstimateSize") != 0);
  });
  m.debugLog.logMessage("Scheduler execute actions manually launched from a file", true);
  if (m.preferences.mPrefScheduleDisabled == 0) mAutomatic.enableQuietly();
  std::error_code failure;
  std::filesystem::remove(path, failure);
  if (failure) m.platform.systemLog.write(path + ": cannot be deleted: " + failure.message());
}

std::size_t ActionQueue::enqueueActionsDueWithinAMinute(std::span<const NextAction> nextActions) {
  const ReferenceTime now = m.platform.clock.now();
  std::size_t added = 0;
  batch([&] {
    for (const NextAction& next : nextActions) {
      if (!next.hasDate || next.date - now >= kLookAhead) continue;
      // What may not be launched by hand is not launched ahead of its date either.
      const ProgrammedAction* const action = m.tree.rootItem().actionForReference(next.ref);
      if (action != nullptr && action->getSettings().integer("TriggerPreventManualLaunch") != 0)
        continue;
      const auto addition =
          add({next.ref, next.date, 0}, -1, false, false, std::max(now, next.date));
      if (addition == QueueAddition::queued) ++added;
    }
  });
  return added;
}

void ActionQueue::moveDates(double jump) {
  const std::size_t first = mHeadIsRunning ? 1 : 0;
  if (mActionsList.size() <= first) return;
  for (std::size_t row = first; row < mActionsList.size(); ++row) mActionsList[row].date += jump;
  changed();
}

bool ActionQueue::contains(std::int64_t ref) const {
  const auto in = [ref](const std::vector<QueueRecord>& records) {
    return std::ranges::any_of(records, [ref](const QueueRecord& record) {
      return record.ref == ref && !record.isTask();
    });
  };
  return in(mActionsList) || in(mUnfinished);
}

/// The one that was asked for, wherever it stands by now.
bool ActionQueue::isThere(const QueueRecord& asked) const {
  return std::ranges::any_of(mActionsList, [&](const QueueRecord& record) {
    return record.ref == asked.ref && record.request == asked.request;
  });
}

bool ActionQueue::executeNow(std::int64_t ref) {
  const auto isRun = [ref](const QueueRecord& record) {
    return record.ref == ref && !record.isTask();
  };
  const auto found = std::ranges::find_if(mActionsList, isRun);
  if (found == mActionsList.end()) return false;
  if (std::ranges::none_of(mExecuteNowActionsList, isRun)) mExecuteNowActionsList.push_back(*found);
  m.changes.note(Change::queue);
  if (mHeadIsRunning && found == mActionsList.begin()) return true;
  found->date = m.platform.clock.now();
  moveRecord(static_cast<std::size_t>(found - mActionsList.begin()), 0);
  return true;
}

void ActionQueue::clearExecuteNowActions() {
  mExecuteNowActionsList.clear();
  m.changes.note(Change::queue);
}

void ActionQueue::dropFinishedExecuteNowActions() {
  std::erase_if(mExecuteNowActionsList,
                [this](const QueueRecord& record) { return !isThere(record); });
}

bool ActionQueue::hasExecuteNowAction() const {
  return std::ranges::any_of(mExecuteNowActionsList,
                             [this](const QueueRecord& record) { return isThere(record); });
}

void ActionQueue::insertCopyOfHead() {
  if (mActionsList.empty()) return;
  QueueRecord copy = head();
  copy.begun.reset();
  ++copy.retry;
  mActionsList.insert(mActionsList.begin() + 1, copy);
  m.changes.note(Change::queue);
}

void ActionQueue::removeHead() {
  if (mActionsList.empty()) return;
  erase(0);
  saveActionsQueue();
  m.changes.note(Change::queue);
}

QueueRecord ActionQueue::erase(std::size_t row) {
  const QueueRecord record = mActionsList[row];
  mActionsList.erase(mActionsList.begin() + static_cast<std::ptrdiff_t>(row));
  return record;
}

void ActionQueue::batch(const std::function<void()>& body) {
  burst([&] {
    body();
    return false;
  });
}

bool ActionQueue::burst(const std::function<bool()>& body) {
  ++mBatchDepth;
  m.tree.holdChanges();
  bool moreFollow = false;
  try {
    moreFollow = body();
  } catch (...) {
    endBatch(false);
    throw;
  }
  endBatch(moreFollow);
  return moreFollow;
}

void ActionQueue::endBatch(bool moreFollow) {
  if (--mBatchDepth > 0) return m.tree.storeHeldChanges();
  if (moreFollow) {
    // One hold of the changes stays until all is stored.
    if (std::exchange(mIsOwed, true)) m.tree.storeHeldChanges();
    return;
  }
  // An occasion is stored before its action is marked.
  if (std::exchange(mChangedInBatch, false)) changed();
  if (std::exchange(mIsOwed, false)) m.tree.storeHeldChanges();
  m.tree.storeHeldChanges();
  // Once the dates are stored, so that the main application finds them.
  if (std::exchange(mMarkedInBatch, false)) m.channel.postToMainApp("ActionListChanged");
}

}  // namespace corvana
