#include "actions/ActivityRecord.h"

#include <algorithm>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_Unarchiver.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr double kKeptPeriod = 60.0 * 86400;  // seconds
constexpr double kFirstPruning = kKeptPeriod + 60;
constexpr std::string_view kExecuteBundle = "Corvana 9 Execute.app";
constexpr std::string_view kMinuteSets[] = {"SchedulerActivity", "MainAppActivity",
                                            "ExecuteActivity", "WakeUpActivity"};

std::uint64_t minuteOf(ReferenceTime time) {
  return time > 0 ? static_cast<std::uint64_t>(time / 60) : 0;
}

ZAN_Value storedSet(const ZAN_Value& record, std::string_view key) {
  auto set = ZAN_Unarchiver::unarchiveObjectWithData(record[key].bytes());
  return set && set->isIndexSet() ? std::move(*set) : ZAN_Value::indexSet();
}

/// The entries of the kept period, with the new status.
ZAN_Value statusAfter(const ZAN_Value& stored, std::optional<std::int64_t> status,
                      ReferenceTime now) {
  if (!status) return stored.isDictionary() ? stored : ZAN_Value::dictionary();
  ZAN_Value kept = ZAN_Value::dictionary();
  for (const ZAN_Value::Entry& entry : stored.entries()) {
    if (entry.key.doubleValue() >= now - kKeptPeriod) {
      kept.setValue(entry.key.stringView(), entry.value);
    }
  }
  kept.setValue(std::to_string(static_cast<std::int64_t>(now)), static_cast<int>(*status));
  return kept;
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

ZAN_Value processesAfter(const ZAN_Value& stored, const std::string& pids, ReferenceTime now) {
  ZAN_Value kept = ZAN_Value::array();
  for (const ZAN_Value& entry : stored.elements()) {
    if (entry["time"].doubleValue() >= now - kKeptPeriod) kept.append(entry);
  }
  const std::span<const ZAN_Value> all = stored.elements();
  if (all.empty() || all.back().string("pid") != pids) {
    kept.append(ZAN_Value::dictionary({{"time", static_cast<std::int64_t>(now)}, {"pid", pids}}));
  }
  if (kept.size() > ActivityRecord::kMostProcesses) {
    kept.removeRange(0, kept.size() - ActivityRecord::kMostProcesses);
  }
  return kept;
}

}  // namespace

void ActivityRecord::saveActivity(std::optional<std::int64_t> status, bool mainAppOpened,
                                  bool executeAppOpened, std::optional<ReferenceTime> setWakeUp,
                                  std::span<const RunningProcess> running) {
  const ReferenceTime now = mFiles.clock().now();
  ZAN_Value record = readActivity();
  if (!record.isDictionary()) record = ZAN_Value::dictionary();
  record.setValue("SchedulerStatus", statusAfter(record["SchedulerStatus"], status, now));
  record.setValue("ProcessActivity",
                  processesAfter(record["ProcessActivity"], executeProcesses(running), now));

  mNoted.push_back({now, now, mainAppOpened, executeAppOpened});
  for (std::size_t i = 0; i < std::size(kMinuteSets); ++i) {
    ZAN_Value set = storedSet(record, kMinuteSets[i]);
    if (now >= kFirstPruning) set.removeIndexesUpTo(minuteOf(now - kKeptPeriod));
    for (const Span& span : mNoted) {
      if ((i == 1 && !span.mainApp) || (i == 2 && !span.executeApp) || i == 3) continue;
      for (std::uint64_t one = minuteOf(span.from); one <= minuteOf(span.to); ++one)
        set.addIndex(one);
    }
    if (i == 3 && setWakeUp) set.addIndex(minuteOf(*setWakeUp));
    record.setValue(kMinuteSets[i], ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(set)));
  }
  mNoted.clear();
  if (record == mCached.value || !mFiles.writeObjectToFile(record, DataFolder::kActivity, false))
    return;
  mCached = {.value = std::move(record),
             .identity = ZAN_FilesUtils::identity(mFiles.folder().pathOf(DataFolder::kActivity))};
}

ZAN_Value ActivityRecord::readActivity() {
  const std::string path = mFiles.folder().pathOf(DataFolder::kActivity);
  if (!mCached.identity || mCached.identity != ZAN_FilesUtils::identity(path)) {
    mCached = mFiles.readObject(path);
  }
  return mCached.value;
}

}  // namespace corvana
