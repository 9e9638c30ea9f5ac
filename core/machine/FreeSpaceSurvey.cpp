#include "core/machine/FreeSpaceSurvey.h"

#include <algorithm>
#include <string>

#include "core/record/Preferences.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
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

bool FreeSpaceSurvey::isCheckDue(ReferenceTime now) const {
  return mPreferences.mCheckFreeSpace && mPreferences.mCheckStartupDiskFreeSpace.isPassed(now);
}

void FreeSpaceSurvey::checkStartupDiskFreeSpace() {
  const ReferenceTime now = m.clock.now();
  ReferenceTime next = now + kCheckInterval;
  if (mPreferences.mCheckFreeSpace) {
    VolumeInformation space;
    for (const Mount& mount : m.volumes.mounts()) {
      if (mount.target == "/") space = m.volumes.information(mount, kFresh).value_or(space);
    }
    if (space.totalSize != 0 && space.freeSize < space.totalSize / 10) {
      next = now + kAfterWarning;
      mStartupDiskLowSpaceValue = static_cast<int>(space.freeSize * 100 / space.totalSize);
      m.systemLog.write("The start-up disk is nearly full: " +
                        std::to_string(mStartupDiskLowSpaceValue) + " % free");
      m.userInterface.showWindowQuietly(Window::lowSpace);
    } else {
      m.userInterface.hideWindow(Window::lowSpace);
    }
  }
  mPreferences.mCheckStartupDiskFreeSpace.set(next);
  mPreferences.setPref(PreferenceKey::nextFreeSpaceCheck, next);
  mPreferences.savePrefs(false);
}

bool FreeSpaceSurvey::isCleaningDue(ReferenceTime now) const {
  return mPreferences.mSchedulerCleanVolumesInfos.isPassed(now);
}

void FreeSpaceSurvey::cleanVolumesInfos() {
  const ReferenceTime next = m.clock.now() + kCleaningInterval;
  mPreferences.mSchedulerCleanVolumesInfos.set(next);
  mHistory.cleanVolumesSurveyorList();
  mPreferences.setPref(PreferenceKey::nextPruning, next);
  mPreferences.savePrefs(false);
}

ReferenceTime FreeSpaceSurvey::nextWork() const {
  const ReferenceTime cleaning = mPreferences.mSchedulerCleanVolumesInfos.at();
  return mPreferences.mCheckFreeSpace
             ? std::min(cleaning, mPreferences.mCheckStartupDiskFreeSpace.at())
             : cleaning;
}

}  // namespace corvana
