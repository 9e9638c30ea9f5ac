#include "core/machine/VolumeWatch.h"

#include <utility>

#include "core/record/DebugLog.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "platform/RunLoop.h"
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

VolumeWatch::VolumeWatch(Platform& platform, DeadlineList& deadlines, DebugLog& debugLog,
                         ZAN_MountedVolumes& mounted, ZAN_ConnectedVolumes& connected)
    : m(platform),
      mDebugLog(debugLog),
      mMounted(mounted),
      mConnected(connected),
      mSchedulerSaveVolumesInfos(deadlines, m.clock.now() + 30.0) {}

VolumeWatch::~VolumeWatch() { m.volumes.observe({}); }

void VolumeWatch::start() {
  const auto performed = [this](void (VolumeWatch::*did)(const std::string&)) {
    return [this, did](const Mount& mount) {
      m.runLoop.performOnMain([this, did, path = mount.target] { (this->*did)(path); });
    };
  };
  m.volumes.observe(
      {performed(&VolumeWatch::deviceDidMount), performed(&VolumeWatch::deviceDidUnmount)});
  updateListVolumes();
}

void VolumeWatch::deviceDidMount(const std::string& path) {
  if (isNetworkFolder(path)) return;
  if (onVolumeMounted) onVolumeMounted(path);
  saveVolumesInfosAt(m.clock.now() + kSavingAfterMount);
  followLists();
}

void VolumeWatch::deviceDidUnmount(const std::string& path) {
  if (!isNetworkFolder(path)) followLists();
}

void VolumeWatch::followLists() {
  m.runLoop.performAfter(kSurveyDelay, [this] { surveyMountedVolumes(); });
  m.runLoop.performAfter(kListDelay, [this] { updateListVolumes(); });
}

void VolumeWatch::surveyMountedVolumes() {
  const double start = m.clock.monotonic();
  std::vector<std::string> paths;
  for (const auto& mount : m.volumes.mounts()) {
    if (mount.isVolume) paths.push_back(mount.target);
  }
  if (paths != mCurrentVolumesContent) {
    mCurrentVolumesContent = std::move(paths);
    mMounted.updateListVolumes();
    if (onMountedVolumesChanged) onMountedVolumesChanged();
  }
  mDebugLog.addToTimer(DebugLog::Timer::mountedVolumes, m.clock.monotonic() - start);
}

void VolumeWatch::updateListVolumes() {
  mConnected.updateListVolumes();
  if (onListsUpdated) onListsUpdated();
}

void VolumeWatch::saveVolumesInfos(bool executing) {
  if (onSaveVolumesInfos) onSaveVolumesInfos();
  mSchedulerSaveVolumesInfos.set(m.clock.now() + (executing ? kIntervalWhileExecuting : kInterval));
}

}  // namespace corvana
