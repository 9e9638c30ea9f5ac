#include "core/machine/VolumeWatch.h"

#include <algorithm>
#include <utility>

#include "core/record/Records.h"
#include "core/work/TriggerEvaluation.h"
#include "volumes/VolumesHistory.h"
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

namespace {

constexpr double kCheckInterval = 300.0;
constexpr double kAfterWarning = 86'400.0;
constexpr double kCleaningInterval = 1'296'000.0;
/// Free space is not older than that when it is checked.
constexpr double kFresh = 10.0;

}  // namespace

ReferenceTime FreeSpaceSurvey::nextCheck() const {
  return m.preferences.mCheckFreeSpace ? m.preferences.mCheckStartupDiskFreeSpace.passing()
                                       : kNever;
}

void FreeSpaceSurvey::checkStartupDiskFreeSpace() {
  const ReferenceTime now = m.platform.clock.now();
  ReferenceTime next = now + kCheckInterval;
  if (m.preferences.mCheckFreeSpace) {
    VolumeInformation space;
    for (const Mount& mount : m.platform.volumes.mounts()) {
      if (mount.target == "/")
        space = m.platform.volumes.information(mount, kFresh).value_or(space);
    }
    if (space.totalSize != 0 && space.freeSize < space.totalSize / 10) {
      next = now + kAfterWarning;
      mStartupDiskLowSpaceValue = static_cast<int>(space.freeSize * 100 / space.totalSize);
      m.platform.systemLog.write("The start-up disk is nearly full: " +
                                 std::to_string(mStartupDiskLowSpaceValue) + " % free");
      m.platform.userInterface.showWindowQuietly(Window::lowSpace);
    } else {
      m.platform.userInterface.hideWindow(Window::lowSpace);
    }
  }
  m.preferences.mCheckStartupDiskFreeSpace.set(next);
  m.preferences.setPref(PreferenceKey::nextFreeSpaceCheck, next);
  // Whoever was warned is not to be warned again by the next agent.
  if (next == now + kAfterWarning) m.preferences.savePrefs();
}

ReferenceTime FreeSpaceSurvey::nextCleaning() const {
  return m.preferences.mSchedulerCleanVolumesInfos.passing();
}

void FreeSpaceSurvey::cleanVolumesInfos() {
  const ReferenceTime next = m.platform.clock.now() + kCleaningInterval;
  m.preferences.mSchedulerCleanVolumesInfos.set(next);
  mHistory.cleanVolumesSurveyorList();
  m.preferences.setPref(PreferenceKey::nextPruning, next);
}

}  // namespace corvana
