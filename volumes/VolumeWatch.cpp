#include "volumes/VolumeWatch.h"

#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr double kIntervalWhileExecuting = 300.0;
constexpr double kInterval = 900.0;

}  // namespace

VolumeWatch::VolumeWatch(Clock& clock, DeadlineList& deadlines)
    : mClock(clock), mSchedulerSaveVolumesInfos(deadlines, clock.now() + 30.0) {}

void VolumeWatch::saveVolumesInfos(bool executing) {
  mSchedulerSaveVolumesInfos.set(mClock.now() + (executing ? kIntervalWhileExecuting : kInterval));
}

}  // namespace corvana
