#include "core/machine/VolumeWatch.h"

#include <utility>

#include "core/record/Records.h"
#include "core/work/TriggerEvaluation.h"
#include "platform/Clock.h"
#include "platform/RunLoop.h"
#include "platform/Volumes.h"
#include "volumes/FreeSpaceHistory.h"
#include "volumes/MountedVolumesHistory.h"
#include "volumes/ZAN_ConnectedVolumes.h"
#include "volumes/ZAN_MountedVolumes.h"

namespace corvana {

namespace {

constexpr double kIntervalWhileExecuting = 300.0;
constexpr double kInterval = 900.0;
constexpr double kSavingAfterMount = 2.0;
constexpr double kSurveyDelay = 0.1;
constexpr double kListDelay = 1.0;

/// The folder of the automounter is no volume.
bool isNetworkFolder(const std::string& path) { return path == "Network" || path == "/Network"; }

}  // namespace

VolumeWatch::VolumeWatch(Records& records, TriggerEvaluation& evaluation, const Lists& lists)
    : m(records),
      mEvaluation(evaluation),
      mLists(lists),
      mSchedulerSaveVolumesInfos(m.state.deadlines, m.platform.clock.now() + 30.0) {}

VolumeWatch::~VolumeWatch() { m.platform.volumes.observe({}); }

void VolumeWatch::start() {
  const auto performed = [this](void (VolumeWatch::*did)(const std::string&)) {
    return [this, did](const Mount& mount) {
      m.platform.runLoop.performOnMain([this, did, path = mount.target] { (this->*did)(path); });
    };
  };
  m.platform.volumes.observe(
      {performed(&VolumeWatch::deviceDidMount), performed(&VolumeWatch::deviceDidUnmount)});
  updateListVolumes();
}

void VolumeWatch::deviceDidMount(const std::string& path) {
  if (isNetworkFolder(path)) return;
  mEvaluation.checkActionsToLaunch(path);
  saveVolumesInfosAt(m.platform.clock.now() + kSavingAfterMount);
  followLists();
}

void VolumeWatch::deviceDidUnmount(const std::string& path) {
  if (!isNetworkFolder(path)) followLists();
}

void VolumeWatch::followLists() {
  m.platform.runLoop.performAfter(kSurveyDelay, [this] { surveyMountedVolumes(); });
  m.platform.runLoop.performAfter(kListDelay, [this] { updateListVolumes(); });
}

void VolumeWatch::surveyMountedVolumes() {
  const double start = m.platform.clock.monotonic();
  std::vector<std::string> paths;
  for (const auto& mount : m.platform.volumes.mounts()) {
    if (mount.isVolume) paths.push_back(mount.target);
  }
  if (paths != mCurrentVolumesContent) {
    mCurrentVolumesContent = std::move(paths);
    mLists.mounted.updateListVolumes();
    mLists.mountedHistory.updateSurveyMountedVolumes();
  }
  m.debugLog.addToTimer(DebugLog::Timer::mountedVolumes, m.platform.clock.monotonic() - start);
}

void VolumeWatch::updateListVolumes() {
  mLists.connected.updateListVolumes();
  m.changes.note(Change::volumes);
}

void VolumeWatch::saveVolumesInfos() {
  mLists.freeSpace.addVolumesSurveyorData();
  mLists.mountedHistory.updateSurveyMountedVolumes();
  mSchedulerSaveVolumesInfos.set(m.platform.clock.now() +
                                 (m.state.mExecuting ? kIntervalWhileExecuting : kInterval));
}

}  // namespace corvana
