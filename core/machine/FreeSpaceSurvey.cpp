#include "core/machine/FreeSpaceSurvey.h"

#include <algorithm>
#include <string>

#include "core/record/Records.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/UserInterface.h"
#include "platform/Volumes.h"
#include "volumes/FreeSpaceHistory.h"

namespace corvana {

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
