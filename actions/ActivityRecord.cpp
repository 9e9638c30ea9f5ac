#include "actions/ActivityRecord.h"

#include <algorithm>
#include <utility>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr double kKeptPeriod = 60.0 * 86400;  // seconds
constexpr double kFirstPruning = kKeptPeriod + 60;
constexpr std::string_view kExecuteBundle = "Corvana 9 Execute.app";
constexpr std::array<std::string_view, 4> kMinuteSets = {"SchedulerActivity", "MainAppActivity",
                                                         "ExecuteActivity", "WakeUpActivity"};

std::uint64_t minuteOf(ReferenceTime time) {
  return time > 0 ? static_cast<std::uint64_t>(time / 60) : 0;
}

ZAN_Value storedSet(const ZAN_Value& record, std::string_view key) {
  auto set = ZAN_Unarchiver::unarchiveObjectWithData(record[key].bytes());
  return set && set->isIndexSet() ? std::move(*set) : ZAN_Value::indexSet();
}

/// Entries stand in the order of their times.
void noteStatus(ZAN_Value& list, std::int64_t status, ReferenceTime now) {
  const auto all = list.entries();
  const auto kept = std::ranges::find_if(all, [&](const ZAN_Value::Entry& entry) {
    return entry.key.doubleValue() >= now - kKeptPeriod;
  });
  if (kept != all.begin()) list = ZAN_Value::dictionaryOf({kept, all.end()});
  list.setValue(std::to_string(static_cast<std::int64_t>(now)), static_cast<int>(status));
}

std::string executeProcesses(std::span<const RunningProcess> running) {
  std::vector<std::int64_t> pids;
  for (const RunningProcess& process : running) {
    if (process.bundleExecutable == kExecuteBundle ||
        ZAN_FilesUtils::lastPathComponent(process.bundlePath) == kExecuteBundle) {
      pids.push_back(process.pid);
    }
  }
  std::sort(pids.begin(), pids.end());
  std::string text;
  for (const std::int64_t pid : pids) {
    if (!text.empty()) text += ',';
    text += std::to_string(pid);
  }
  return text;
}

/// Whether something has changed. Entries stand in the order of their times.
bool noteProcesses(ZAN_Value& list, const std::string& pids, ReferenceTime now) {
  const std::span<const ZAN_Value> all = list.elements();
  const bool isNew = all.empty() || all.back()["pid"].stringView() != pids;
  const auto kept = std::ranges::find_if(all, [&](const ZAN_Value& entry) {
    return entry["time"].doubleValue() >= now - kKeptPeriod;
  });
  auto old = static_cast<std::size_t>(kept - all.begin());
  const std::size_t count = all.size() + (isNew ? 1 : 0);
  if (count > ActivityRecord::kMostProcesses)
    old = std::max(old, count - ActivityRecord::kMostProcesses);
  if (old > 0) list.removeRange(0, old);
  if (isNew || !list.isArray()) {
    list.append(ZAN_Value::dictionary({{"time", static_cast<std::int64_t>(now)}, {"pid", pids}}));
  }
  return isNew || old > 0;
}

/// Takes the value out of the record, so that changing it copies nothing.
ZAN_Value taken(ZAN_Value& record, std::string_view key) {
  ZAN_Value value = record[key];
  record.setValue(key, {});
  return value;
}

}  // namespace

void ActivityRecord::saveActivity(std::optional<std::int64_t> status, bool mainAppOpened,
                                  bool executeAppOpened, std::optional<ReferenceTime> setWakeUp,
                                  std::span<const RunningProcess> running) {
  const ReferenceTime now = mFiles.clock().now();
  refresh();
  ZAN_Value record = std::exchange(mCached.value, {});
  bool changed = status.has_value() || !record.isDictionary();
  if (!record.isDictionary()) record = ZAN_Value::dictionary();
  ZAN_Value statuses = taken(record, "SchedulerStatus");
  if (!statuses.isDictionary()) statuses = ZAN_Value::dictionary();
  if (status) noteStatus(statuses, *status, now);
  record.setValue("SchedulerStatus", std::move(statuses));
  ZAN_Value processes = taken(record, "ProcessActivity");
  changed |= noteProcesses(processes, executeProcesses(running), now);
  record.setValue("ProcessActivity", std::move(processes));

  mNoted.push_back({now, now, mainAppOpened, executeAppOpened});
  for (std::size_t i = 0; i < std::size(kMinuteSets); ++i) {
    if (!noteMinutes(i, now, setWakeUp) && record.contains(kMinuteSets[i])) continue;
    changed = true;
    record.setValue(kMinuteSets[i],
                    ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(mMinutes[i])));
  }
  mNoted.clear();
  mCached.value = std::move(record);
  if (status || setWakeUp) {
    write();
  } else if (changed) {
    mFiles.writeRarely(DataFolder::kActivity, [this] { write(); });
  }
}

void ActivityRecord::write() {
  if (mFiles.writeObjectToFile(mCached.value, DataFolder::kActivity, DataFiles::Saving::soon))
    mCached.identity = mFiles.identity(mFiles.folder().pathOf(DataFolder::kActivity));
}

/// Whether the set has changed.
bool ActivityRecord::noteMinutes(std::size_t index, ReferenceTime now,
                                 std::optional<ReferenceTime> setWakeUp) {
  ZAN_Value& set = mMinutes[index];
  bool changed = false;
  if (const std::uint64_t limit = minuteOf(now - kKeptPeriod);
      now >= kFirstPruning && !set.ranges().empty() && set.ranges().front().location <= limit) {
    set.removeIndexesUpTo(limit);
    changed = true;
  }
  const auto add = [&](std::uint64_t minute) {
    if (set.containsIndex(minute)) return;
    set.addIndex(minute);
    changed = true;
  };
  for (const Span& span : mNoted) {
    if ((index == 1 && !span.mainApp) || (index == 2 && !span.executeApp) || index == 3) continue;
    for (std::uint64_t one = minuteOf(span.from); one <= minuteOf(span.to); ++one) add(one);
  }
  if (index == 3 && setWakeUp) add(minuteOf(*setWakeUp));
  return changed;
}

void ActivityRecord::refresh() {
  const std::string path = mFiles.folder().pathOf(DataFolder::kActivity);
  if (std::exchange(mIsRead, true) && mCached.identity == mFiles.identity(path)) return;
  mCached = mFiles.readObject(path);
  for (std::size_t i = 0; i < mMinutes.size(); ++i)
    mMinutes[i] = storedSet(mCached.value, kMinuteSets[i]);
}

ZAN_Value ActivityRecord::readActivity() {
  refresh();
  return mCached.value;
}

}  // namespace corvana
