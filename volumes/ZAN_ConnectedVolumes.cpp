#include "volumes/ZAN_ConnectedVolumes.h"

#include <algorithm>
#include <utility>

#include "platform/RunLoop.h"
#include "volumes/ZAN_MountVolume.h"

namespace corvana {

namespace {

std::vector<ZAN_Value> filtered(const std::vector<ZAN_Value>& list, bool mounted) {
  std::vector<ZAN_Value> result;
  std::ranges::copy_if(list, std::back_inserter(result), [&](const ZAN_Value& record) {
    return record.string("mountPoint").empty() != mounted;
  });
  return result;
}

std::optional<std::vector<ZAN_Value>> readRecords(const ZAN_MountVolume& tools) {
  const auto names = ZAN_ConnectedVolumes::getAllBSDName(tools);
  if (!names) return std::nullopt;
  std::vector<ZAN_Value> records;
  for (const auto& name : *names) {
    const ZAN_Value infos = tools.getInfosForBSDName(name);
    const std::string volume = infos.string("VolumeName");
    if (volume.empty()) continue;
    ZAN_Value record = ZAN_Value::dictionary({{"bsdName", name}, {"volName", volume}});
    const std::string place = infos.string("MountPoint");
    if (!place.empty()) record.setValue("mountPoint", place);
    records.push_back(std::move(record));
  }
  return records;
}

}  // namespace

ZAN_ConnectedVolumes::ZAN_ConnectedVolumes(RunLoop& runLoop, const ZAN_MountVolume& tools)
    : mRunLoop(runLoop), mTools(tools), mState(std::make_shared<State>()) {}

void ZAN_ConnectedVolumes::updateListVolumes() {
  if (mState->isUpdating) return;
  mState->isUpdating = true;
  mState->isAvailable = false;
  mRunLoop.detachThread("updateListVolumes",
                        [tools = mTools, &loop = mRunLoop, state = std::weak_ptr(mState)] {
                          auto records = readRecords(tools);
                          loop.performOnMain([state, records = std::move(records)]() mutable {
                            const auto kept = state.lock();
                            if (!kept) return;
                            if (records) kept->list = *std::move(records);
                            kept->isAvailable = true;
                            kept->isUpdating = false;
                          });
                        });
}

std::vector<ZAN_Value> ZAN_ConnectedVolumes::getMountedVolumes() const {
  return filtered(mState->list, true);
}

std::vector<ZAN_Value> ZAN_ConnectedVolumes::getUnmountedVolumes() const {
  return filtered(mState->list, false);
}

void ZAN_ConnectedVolumes::mountVolume(const std::string& name, std::function<void()> done) {
  const auto found = std::ranges::find_if(
      mState->list, [&](const ZAN_Value& record) { return record.string("volName") == name; });
  if (found != mState->list.end()) mountVolumeWithBsd(found->string("bsdName"), std::move(done));
}

void ZAN_ConnectedVolumes::mountVolumeWithBsd(const std::string& bsdName,
                                              std::function<void()> done) {
  mRunLoop.detachThread("mountVolume",
                        [tools = mTools, &loop = mRunLoop, bsdName, done = std::move(done)] {
                          tools.mountPartition(bsdName);
                          if (done) loop.performOnMain(done);
                        });
}

std::optional<std::vector<std::string>> ZAN_ConnectedVolumes::getAllBSDName(
    const ZAN_MountVolume& tools) {
  const ZAN_Value list = tools.getAllVolumesDictionary();
  if (!list["AllDisks"].isArray()) return std::nullopt;
  std::vector<std::string> names;
  for (const ZAN_Value& name : list["AllDisks"].elements()) names.push_back(name.string());
  return names;
}

std::vector<std::string> ZAN_ConnectedVolumes::getAllPartitionsBSDName(
    const ZAN_MountVolume& tools) {
  auto names = getAllBSDName(tools).value_or(std::vector<std::string>());
  for (std::size_t i = names.size(); i-- > 0;) {
    const ZAN_Value infos = tools.getInfosForBSDName(names[i]);
    if (infos["WholeDisk"].boolValue() || infos.string("VolumeName").empty())
      names.erase(names.begin() + static_cast<std::ptrdiff_t>(i));
  }
  return names;
}

}  // namespace corvana
