#include "volumes/MountedVolumesHistory.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "actions/ActionStore.h"
#include "actions/FolderDescription.h"
#include "platform/Clock.h"
#include "volumes/ZAN_MountedVolumes.h"

namespace corvana {

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
