#include "volumes/VolumesHistory.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

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

namespace {

bool isKept(const ZAN_Value& records, std::int64_t now) {
  if (records.empty()) return false;
  const std::int64_t age = now - hourOf(records.at(records.size() - 1));
  if (records.size() == 1 && age > kSingleRecord) return false;
  if (records.size() < kFew && age > kFewRecords) return false;
  return age <= kNotSeen;
}

/// From the last to the first: a pass turns their order round.
ZAN_Value pruned(const ZAN_Value& list, const ZAN_Value& more, std::int64_t now) {
  ZAN_Value kept = ZAN_Value::array();
  for (std::size_t i = list.size(); i-- > 0;) {
    ZAN_Value entry = list.at(i);
    const ZAN_Value stored = FreeSpaceHistory::records(entry);
    if (!isKept(stored, now)) continue;
    std::vector<ZAN_Value> hours(stored.elements().begin(), stored.elements().end());
    if (const auto other = indexOf(entry, more))
      mergeRecords(hours, FreeSpaceHistory::records(more.at(*other)));
    const ZAN_Value remaining = thinned(std::move(hours), now);
    if (remaining.empty()) continue;
    setRecords(entry, remaining);
    kept.append(std::move(entry));
  }
  return kept;
}

}  // namespace

ZAN_Value FreeSpaceHistory::records(const ZAN_Value& entry) {
  auto records = ZAN_Unarchiver::unarchiveObjectWithData(entry["VolumeFreeSizeList"].bytes());
  if (!records || !records->isArray()) return ZAN_Value::array();
  return std::move(records).value();
}

ZAN_Value FreeSpaceHistory::readVolumesSurveyorList() {
  ZAN_Value list = mStore.files().readListFromFile(DataFolder::kVolumesInfo);
  for (const Sample& sample : mRecent) addSurveyorData(sample, list);
  return list;
}

void FreeSpaceHistory::addVolumesSurveyorData() {
  mMounted.updateListVolumes();
  for (const ZAN_Value& volume : mMounted.getAllMountedVolumes()) {
    if (const auto sample = sampleOf(volume)) keep(*sample);
  }
  if (!mRecent.empty()) mStore.files().writeRarely(DataFolder::kVolumesInfo, [this] { save(); });
}

void FreeSpaceHistory::keep(const Sample& sample) {
  const auto same = std::ranges::find_if(mRecent, [&](const Sample& one) {
    return one.hour == sample.hour &&
           FolderDescription(one.volume).isSameVolume(FolderDescription(sample.volume));
  });
  Sample whole = sample;
  if (same != mRecent.end()) {
    if (same->first != 0) whole.first = same->first;
    whole.low = std::min(whole.low, same->low);
    whole.high = std::max(whole.high, same->high);
    mRecent.erase(same);
  }
  mRecent.push_back(std::move(whole));
}

void FreeSpaceHistory::cleanVolumesSurveyorList() {
  mIsToBePruned = true;
  mStore.files().writeRarely(DataFolder::kVolumesInfo, [this] { save(); });
}

/// What went wrong is in the system log.
void FreeSpaceHistory::save() {
  const auto lock = mStore.files().lock(DataFolder::kVolumesInfo);
  const bool prunes = std::exchange(mIsToBePruned, false);
  static_cast<void>(mStore.files().writeMadeListToFile(
      [list = mStore.files().readListFromFile(DataFolder::kVolumesInfo),
       more = prunes ? mStore.files().readListFromFile(DataFolder::kMoreVolumesInfo) : ZAN_Value(),
       recent = std::exchange(mRecent, {}), prunes,
       now = static_cast<std::int64_t>(std::floor(mStore.clock().now()))] {
        ZAN_Value all = list;
        for (const Sample& sample : recent) addSurveyorData(sample, all);
        return prunes ? pruned(all, more, now) : all;
      },
      DataFolder::kVolumesInfo));
}

bool FreeSpaceHistory::isEntryOf(const ZAN_Value& entry, const ZAN_Value& volume) {
  return FolderDescription(entry).isSameVolume(descriptionOf(volume));
}

std::optional<FreeSpaceHistory::Sample> FreeSpaceHistory::sampleOf(const ZAN_Value& volume) const {
  const std::string name = volume.string("volName");
  if (name.empty() || volume.string("volPath").empty() || !volume.contains("volSize")) return {};
  if (volume.contains("writable") && !volume["writable"].boolValue()) return {};
  const std::uint64_t size = number(volume, "volSize");
  if (size < kSmallestSystemVolume &&
      (name == "EFI" || name == "Recovery HD" || name == "Boot OS X"))
    return {};
  const std::uint64_t free = number(volume, "volFreeSize");
  const auto now = static_cast<std::int64_t>(std::floor(mStore.clock().now()));
  const auto time = mStore.dates().calendar().components(static_cast<ReferenceTime>(now));
  return Sample{.volume = descriptionOf(volume).toValue(),
                .hour = now - time.minute * 60 - time.second,
                .first = free,
                .last = free,
                .low = free,
                .high = free};
}

/// Its entry goes to the end.
void FreeSpaceHistory::addSurveyorData(const Sample& sample, ZAN_Value& list) {
  ZAN_Value entry = sample.volume;
  ZAN_Value hours = ZAN_Value::array();
  if (const auto index = indexOf(entry, list)) {
    entry = list.at(*index);
    list.removeAt(*index);
    hours = records(entry);
  }
  std::uint64_t first = sample.first, low = sample.low, high = sample.high;
  if (!hours.empty() && hourOf(hours.at(hours.size() - 1)) == sample.hour) {
    const ZAN_Value& last = hours.at(hours.size() - 1);
    if (number(last, "F") != 0) first = number(last, "F");
    low = std::min(low, number(last, "L"));
    high = std::max(high, number(last, "H"));
    hours.removeAt(hours.size() - 1);
  }
  hours.append(ZAN_Value::dictionary({{"D", large(static_cast<std::uint64_t>(sample.hour))},
                                      {"F", large(first)},
                                      {"E", large(sample.last)},
                                      {"L", large(low)},
                                      {"H", large(high)}}));
  setRecords(entry, hours);
  entry.setValue("E", ZAN_Value::integer(static_cast<std::int64_t>(sample.last), 'q'));
  list.append(std::move(entry));
}

namespace {

constexpr std::size_t kManySnapshots = 31;
constexpr double kOldSnapshot = 1'296'001;  ///< seconds

/// A list of the same length is new as soon as one volume stands where it stood; this is what other
/// programs expect of the history.
bool isToBeRecorded(const ZAN_Value& list, const ZAN_Value& snapshots) {
  if (snapshots.empty()) return true;
  const ZAN_Value& last = snapshots.at(snapshots.size() - 1)["list"];
  if (last.size() != list.size()) return true;
  return !std::ranges::equal(last.elements(), list.elements(),
                             [](const ZAN_Value& a, const ZAN_Value& b) { return !(a == b); });
}

}  // namespace

ZAN_Value MountedVolumesHistory::readSurveyMountedVolumesList() {
  return mUnsaved ? *mUnsaved : mStore.files().readListFromFile(DataFolder::kVolumesMounted);
}

/// What went wrong is in the system log.
void MountedVolumesHistory::save() {
  static_cast<void>(mStore.files().writeListToFile(
      *std::exchange(mUnsaved, {}), DataFolder::kVolumesMounted, DataFiles::Saving::soon));
}

ZAN_Value MountedVolumesHistory::getSurveyMountedVolumeForData(const ZAN_Value& volume) {
  if (volume.string("volPath").empty() || !volume.contains("volSize")) return {};
  if (volume.contains("writable") && !volume["writable"].boolValue()) return {};
  const auto large = [&](std::string_view key) {
    return ZAN_Value::unsignedInteger(volume[key].unsignedValue());
  };
  return FolderDescription()
      .setPath(volume["volPath"].stringView())
      .setVolumeName(volume["volName"].stringView())
      .setVolumeSize(large("volSize"))
      .setVolumeDate(large("volDate"))
      .toValue();
}

void MountedVolumesHistory::updateSurveyMountedVolumes() {
  ZAN_Value list = ZAN_Value::array();
  mMounted.updateListVolumes();
  for (const ZAN_Value& volume : mMounted.getAllMountedVolumes()) {
    if (volume.string("volName").empty()) continue;
    ZAN_Value description = getSurveyMountedVolumeForData(volume);
    if (!description.isNull()) list.append(std::move(description));
  }
  ZAN_Value snapshots = readSurveyMountedVolumesList();
  if (!isToBeRecorded(list, snapshots)) return;
  const ReferenceTime now = mStore.clock().now();
  if (snapshots.size() >= kManySnapshots) {
    for (std::size_t i = snapshots.size(); i-- > 0;) {
      const auto date = snapshots.at(i)["date"].asDate();
      if (date && std::floor(now - *date) >= kOldSnapshot) snapshots.removeAt(i);
    }
  }
  snapshots.append(ZAN_Value::dictionary({{"date", ZAN_Value::date(now)}, {"list", list}}));
  mUnsaved = std::move(snapshots);
  mStore.files().writeRarely(DataFolder::kVolumesMounted, [this] { save(); });
}

}  // namespace corvana
