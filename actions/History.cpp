#include "actions/History.h"

#include <utility>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionStore.h"
#include "actions/ActionsTools.h"
#include "actions/TaskRequest.h"

namespace corvana {

namespace {

constexpr std::string_view kTextLog = "Corvana 9 Actions.log";
constexpr std::string_view kHeader = "Programmed History Data";

/// "1:02:03"; hours grow as they must.
std::string durationText(double seconds) {
  return ZAN_StringUtils::getDuration(
      static_cast<std::int64_t>(std::max(0.0, std::min(seconds, 1e12))));
}

std::string lineForEntry(const ZAN_Value& entry, const ZAN_DateUtils& calendar) {
  std::string line;
  const auto start = entry["Date"].asDate();
  const auto end = entry["EndDate"].asDate();
  if (start) line = calendar.format(*start, "%Y-%m-%d %H:%M:%S");
  line += " - ";
  if (start && end) line += durationText(*end - *start) + " - ";
  line += ActionLog::messageForEntry(
      ZAN_Value::dictionary({{"C", entry["C"]},
                             {"N", entry["Title"]},
                             {TaskRequest::kTaskKey, entry[TaskRequest::kTaskKey]}}));
  const std::int64_t errors = entry.integer("ActionErrors");
  if (errors > 0) line += " (errors: " + std::to_string(errors) + ")";
  if (!entry.contains(RunKey::filesCopied)) return line;
  const auto count = [&](std::string_view key) { return std::to_string(entry.integer(key)); };
  line += "; copied: " + count(RunKey::filesCopied) + " (" + count(RunKey::bytesCopied) +
          " bytes), replaced: " + count(RunKey::filesReplaced) +
          ", deleted: " + count(RunKey::filesDeleted) + ", skipped: " + count(RunKey::skipped) +
          ", not possible: " + count(RunKey::notPossible);
  return line;
}

}  // namespace

History::History(ActionStore& store)
    : mStore(store), mLog(store), mCounters(store), mResults(store) {}

/// What is in memory, and waits, stays where the file cannot be read at the moment.
bool History::refresh() {
  const std::string path = mStore.folder().dataFolderPathWithFileName(DataFolder::kHistory);
  if (mIdentity && mIdentity == mStore.files().identity(path)) return true;
  DataFiles::List list = mStore.files().readListAtPath(path, {});
  if (!list.readNow) return false;
  mList = std::move(list.elements);
  mIdentity = list.identity;
  return true;
}

void History::reloadProgrammedHistoryList() { refresh(); }

ZAN_Value History::getProgrammedHistoryList() {
  refresh();
  return mList;
}

std::size_t History::historyCount() {
  refresh();
  return mList.empty() ? 0 : mList.size() - 1;
}

ZAN_Value History::historyEntryAtIndex(std::int64_t index) {
  if (index < 0 || static_cast<std::size_t>(index) >= historyCount()) return {};
  return mList.at(static_cast<std::size_t>(index) + 1);
}

void History::addHistoryEntry(const ZAN_Value& entry) {
  const DataFiles::Lock held = mStore.files().lock(DataFolder::kHistory);
  mWaiting.push_back(entry);
  if (!refresh()) return;
  if (mList.empty()) mList.append(kHeader);
  for (const ZAN_Value& each : std::exchange(mWaiting, {})) {
    const auto date = each["Date"].asDate();
    if (mList.size() > 1 && date && mList.at(mList.size() - 1)["Date"].asDate() == date)
      mList.removeAt(mList.size() - 1);
    mList.append(each);
  }
  if (mList.size() > kMaximum + 1) mList.removeRange(1, mList.size() - kMaximum - 1);
  save(false);
}

void History::removeHistoryEntriesBefore(ReferenceTime date) {
  const DataFiles::Lock held = mStore.files().lock(DataFolder::kHistory);
  if (!refresh()) return;
  std::vector<ZAN_Value> kept;
  for (std::size_t index = 0; index < mList.size(); ++index) {
    const auto start = mList.at(index)["Date"].asDate();
    if (index == 0 || !start || *start >= date) kept.push_back(mList.at(index));
  }
  mList = ZAN_Value::array(std::move(kept));
  saveProgrammedHistoryList();
}

void History::saveProgrammedHistoryList() { save(true); }

void History::save(bool isAnew) {
  const DataFiles::Lock held = mStore.files().lock(DataFolder::kHistory);
  (void)mStore.files().writeListToFile(mList, DataFolder::kHistory, DataFiles::Saving::soon);
  // What could not be written stays in memory and is written with the next entry.
  mIdentity = mStore.files().identity(mStore.folder().pathOf(DataFolder::kHistory));
  saveProgrammedHistoryListAsLog(isAnew);
}

void History::saveProgrammedHistoryListAsLog(bool isAnew) {
  const std::string path =
      ZAN_FilesUtils::joinedPath(mStore.folder().userLogsFolderPath(), kTextLog);
  (void)mStore.files().showLinesInFile(
      path, mList.empty() ? 0 : mList.size() - 1,
      [list = mList, calendar = mStore.dates().calendar()](std::size_t number) {
        return lineForEntry(list.at(number + 1), calendar);
      },
      isAnew);
}

void ExecutionCounters::incrementCounter(std::string_view counter, std::int64_t reference) {
  const DataFiles::Lock held = mStore.files().lock(DataFolder::kExecutions);
  ZAN_Value all = mStore.files().readObjectFromFile(DataFolder::kExecutions);
  if (!all.isDictionary()) all = ZAN_Value::dictionary();
  const std::string key = std::to_string(reference);
  ZAN_Value counts = all[key].isDictionary() ? all[key] : ZAN_Value::dictionary();
  counts.setValue(counter, static_cast<int>(counts.integer(counter) + 1));
  all.setValue(key, counts);
  // Another count than before the power failed does no harm.
  (void)mStore.files().writeObjectToFile(all, DataFolder::kExecutions, DataFiles::Saving::soon);
}

std::int64_t ExecutionCounters::counter(std::string_view counter, std::int64_t reference) {
  return mStore.files()
      .readObjectFromFile(DataFolder::kExecutions)[std::to_string(reference)]
      .integer(counter);
}

std::int64_t ExecutionCounters::total(std::string_view counter) {
  std::int64_t sum = 0;
  const ZAN_Value all = mStore.files().readObjectFromFile(DataFolder::kExecutions);
  for (const ZAN_Value::Entry& entry : all.entries()) sum += entry.value.integer(counter);
  return sum;
}

}  // namespace corvana
