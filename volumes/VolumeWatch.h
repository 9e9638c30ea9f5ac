#pragma once

#include "core/record/Deadline.h"

namespace corvana {

class Clock;

/// Keeps the information about volumes up to date: how often it is saved. Thread: main.
class VolumeWatch {
 public:
  VolumeWatch(Clock& clock, DeadlineList& deadlines);

  bool isSavingDue(ReferenceTime now) const { return mSchedulerSaveVolumesInfos.isReached(now); }
  ReferenceTime nextSaving() const { return mSchedulerSaveVolumesInfos.at(); }
  void saveVolumesInfosAt(ReferenceTime at) { mSchedulerSaveVolumesInfos.set(at); }
  /// Saves, and saves again in 300 s while an execution runs, else in 900 s.
  void saveVolumesInfos(bool executing);

 private:
  Clock& mClock;
  Deadline mSchedulerSaveVolumesInfos;
};

}  // namespace corvana
