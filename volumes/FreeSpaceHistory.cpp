#include "volumes/FreeSpaceHistory.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/ActionStore.h"
#include "actions/FolderDescription.h"
#include "platform/Clock.h"
#include "volumes/ZAN_MountedVolumes.h"

namespace corvana {

namespace {

constexpr std::uint64_t kSmallestSystemVolume = 990'000'000;
constexpr std::int64_t kDay = 86'400;
constexpr std::int64_t kSingleRecord = 15 * kDay;
constexpr std::int64_t kFewRecords = 30 * kDay;
constexpr std::size_t kFew = 6;
constexpr std::int64_t kNotSeen = 90 * kDay;
constexpr std::int64_t kDailyAfter = 180 * kDay;
constexpr std::int64_t kOldest = 1'830 * kDay;
constexpr std::int64_t kAhead = 2 * kDay;

std::uint64_t number(const ZAN_Value& dictionary, std::string_view key) {
  return dictionary.value(key).unsignedValue();
}

ZAN_Value large(std::uint64_t value) { return ZAN_Value::unsignedInteger(value); }

FolderDescription descriptionOf(const ZAN_Value& volume) {
  return FolderDescription()
      .setVolumeName(volume["volName"].stringView())
      .setVolumeSize(large(number(volume, "volSize")))
      .setVolumeDate(large(number(volume, "volDate")));
}

std::optional<std::size_t> indexOf(const ZAN_Value& entry, const ZAN_Value& list) {
  const auto entries = list.elements();
  const FolderDescription volume(entry);
  const auto found = std::ranges::find_if(entries, [&](const ZAN_Value& other) {
    return volume.isSameVolume(FolderDescription(other));
  });
  if (found == entries.end()) return std::nullopt;
  return static_cast<std::size_t>(found - entries.begin());
}

void setRecords(ZAN_Value& entry, const ZAN_Value& records) {
  entry.setValue("VolumeFreeSizeList",
                 ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(records)));
}

std::int64_t hourOf(const ZAN_Value& record) { return record.integer("D"); }

/// Adds what is not there yet.
void mergeRecords(std::vector<ZAN_Value>& records, const ZAN_Value& others) {
  std::multimap<std::int64_t, ZAN_Value> known;
  for (const ZAN_Value& record : records) known.emplace(hourOf(record), record);
  for (const ZAN_Value& record : others.elements()) {
    const auto [begin, end] = known.equal_range(hourOf(record));
    if (std::any_of(begin, end, [&](const auto& one) { return one.second == record; })) continue;
    known.emplace(hourOf(record), record);
    records.push_back(record);
  }
}

/// Sorted by hour, one a day of what is old, nothing that is too old or yet to come.
ZAN_Value thinned(std::vector<ZAN_Value> records, std::int64_t now) {
  std::ranges::stable_sort(records, {}, hourOf);
  std::optional<std::int64_t> keptDay;
  std::vector<ZAN_Value> kept;
  for (auto record = records.rbegin(); record != records.rend(); ++record) {
    const std::int64_t age = now - hourOf(*record);
    if (age > kOldest || age < -kAhead) continue;
    const std::int64_t day = hourOf(*record) / kDay;
    if (age > kDailyAfter && keptDay == day) continue;
    keptDay = day;
    kept.push_back(*record);
  }
  std::ranges::reverse(kept);
  return ZAN_Value::array(std::move(kept));
}

}  // namespace

ZAN_Value FreeSpaceHistory::records(const ZAN_Value& entry) {
  auto records = ZAN_Unarchiver::unarchiveObjectWithData(entry["VolumeFreeSizeList"].bytes());
  if (!records || !records->isArray()) return ZAN_Value::array();
  return std::move(records).value();
}

ZAN_Value FreeSpaceHistory::readVolumesSurveyorList() {
  return mStore.files().readListFromFile(DataFolder::kVolumesInfo);
}

void FreeSpaceHistory::saveVolumesSurveyorList(const ZAN_Value& list) {
  // What went wrong is in the system log.
  static_cast<void>(mStore.files().writeListToFile(list, DataFolder::kVolumesInfo,
                                                   DataFiles::Saving::soon, false));
}

void FreeSpaceHistory::addVolumesSurveyorData() {
  mMounted.updateListVolumes();
  const auto lock = mStore.files().lock(DataFolder::kVolumesInfo);
  ZAN_Value list = readVolumesSurveyorList();
  for (const ZAN_Value& volume : mMounted.getAllMountedVolumes()) addSurveyorData(volume, list);
  saveVolumesSurveyorList(list);
}

bool FreeSpaceHistory::isEntryOf(const ZAN_Value& entry, const ZAN_Value& volume) {
  return FolderDescription(entry).isSameVolume(descriptionOf(volume));
}

void FreeSpaceHistory::addSurveyorData(const ZAN_Value& volume, ZAN_Value& list) {
  const std::string name = volume.string("volName");
  if (name.empty() || volume.string("volPath").empty() || !volume.contains("volSize")) return;
  if (volume.contains("writable") && !volume["writable"].boolValue()) return;
  const std::uint64_t size = number(volume, "volSize");
  if (size < kSmallestSystemVolume &&
      (name == "EFI" || name == "Recovery HD" || name == "Boot OS X"))
    return;
  const std::uint64_t free = number(volume, "volFreeSize");
  const auto now = static_cast<std::int64_t>(std::floor(mStore.clock().now()));
  const auto time = mStore.dates().calendar().components(static_cast<ReferenceTime>(now));
  const std::int64_t hour = now - time.minute * 60 - time.second;

  ZAN_Value entry = descriptionOf(volume).toValue();
  ZAN_Value hours = ZAN_Value::array();
  if (const auto index = indexOf(entry, list)) {
    entry = list.at(*index);
    list.removeAt(*index);
    hours = records(entry);
  }
  std::uint64_t first = free, low = free, high = free;
  if (!hours.empty() && hourOf(hours.at(hours.size() - 1)) == hour) {
    const ZAN_Value& last = hours.at(hours.size() - 1);
    if (number(last, "F") != 0) first = number(last, "F");
    low = std::min(low, number(last, "L"));
    high = std::max(high, number(last, "H"));
    hours.removeAt(hours.size() - 1);
  }
  hours.append(ZAN_Value::dictionary({{"D", large(static_cast<std::uint64_t>(hour))},
                                      {"F", large(first)},
                                      {"E", large(free)},
                                      {"L", large(low)},
                                      {"H", large(high)}}));
  setRecords(entry, hours);
  entry.setValue("E", ZAN_Value::integer(static_cast<std::int64_t>(free), 'q'));
  list.append(std::move(entry));
}

bool FreeSpaceHistory::isKept(const ZAN_Value& records, std::int64_t now) const {
  if (records.empty()) return false;
  const std::int64_t age = now - hourOf(records.at(records.size() - 1));
  if (records.size() == 1 && age > kSingleRecord) return false;
  if (records.size() < kFew && age > kFewRecords) return false;
  return age <= kNotSeen;
}

void FreeSpaceHistory::cleanVolumesSurveyorList() {
  const auto now = static_cast<std::int64_t>(std::floor(mStore.clock().now()));
  const auto lock = mStore.files().lock(DataFolder::kVolumesInfo);
  const ZAN_Value list = readVolumesSurveyorList();
  const ZAN_Value more = mStore.files().readListFromFile(DataFolder::kMoreVolumesInfo);
  ZAN_Value kept = ZAN_Value::array();
  // From the last to the first: a pass turns their order round.
  for (std::size_t i = list.size(); i-- > 0;) {
    ZAN_Value entry = list.at(i);
    const ZAN_Value stored = records(entry);
    if (!isKept(stored, now)) continue;
    std::vector<ZAN_Value> hours(stored.elements().begin(), stored.elements().end());
    if (const auto other = indexOf(entry, more)) mergeRecords(hours, records(more.at(*other)));
    const ZAN_Value remaining = thinned(std::move(hours), now);
    if (remaining.empty()) continue;
    setRecords(entry, remaining);
    kept.append(std::move(entry));
  }
  saveVolumesSurveyorList(kept);
}

}  // namespace corvana
