#include "actions/History.h"

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
    : mStore(store),
      mLog(store),
      mCounters(store),
      mResults(store),
      mList(store.files(), DataFolder::kHistory,
            [this](const ZAN_Value& list, bool isAnew) { showAsText(list, isAnew); }) {}

void History::reloadProgrammedHistoryList() { mList.refresh(); }

ZAN_Value History::getProgrammedHistoryList() {
  mList.refresh();
  return mList.elements();
}

std::size_t History::historyCount() {
  mList.refresh();
  return mList.elements().empty() ? 0 : mList.elements().size() - 1;
}

ZAN_Value History::historyEntryAtIndex(std::int64_t index) {
  if (index < 0 || static_cast<std::size_t>(index) >= historyCount()) return {};
  return mList.elements().at(static_cast<std::size_t>(index) + 1);
}

void History::addHistoryEntry(const ZAN_Value& entry) {
  mList.add(entry, [](ZAN_Value& list, const ZAN_Value& each) {
    if (list.empty()) list.append(kHeader);
    const auto date = each["Date"].asDate();
    if (list.size() > 1 && date && list.at(list.size() - 1)["Date"].asDate() == date)
      list.removeAt(list.size() - 1);
    list.append(each);
    if (list.size() > kMaximum + 1) list.removeRange(1, list.size() - kMaximum - 1);
  });
}

void History::removeHistoryEntriesBefore(ReferenceTime date) {
  mList.keepOnly([date](std::size_t index, const ZAN_Value& entry) {
    const auto start = entry["Date"].asDate();
    return index == 0 || !start || *start >= date;
  });
}

void History::saveProgrammedHistoryList() { mList.store(mList.elements(), true); }

void History::showAsText(const ZAN_Value& list, bool isAnew) const {
  const std::string path =
      ZAN_FilesUtils::joinedPath(mStore.folder().userLogsFolderPath(), kTextLog);
  (void)mStore.files().showLinesInFile(
      path, list.empty() ? 0 : list.size() - 1,
      [list, calendar = mStore.dates().calendar()](std::size_t number) {
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
