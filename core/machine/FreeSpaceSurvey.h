#pragma once

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

class FreeSpaceHistory;
struct Records;

/// Warns when the start-up disk is nearly full, and has the history of free space pruned from time
/// to time. Thread: main.
class FreeSpaceSurvey {
 public:
  FreeSpaceSurvey(Records& records, FreeSpaceHistory& history) : m(records), mHistory(history) {}

  ReferenceTime nextCheck() const;
  /// Below a tenth the window is shown and the next check is in a day, else in 300 s.
  void checkStartupDiskFreeSpace();
  /// What the window says: free space in percent, cut.
  int lowSpacePercent() const { return mStartupDiskLowSpaceValue; }

  ReferenceTime nextCleaning() const;
  /// Every 15 days.
  void cleanVolumesInfos();

 private:
  Records& m;
  FreeSpaceHistory& mHistory;
  int mStartupDiskLowSpaceValue = 0;
};

}  // namespace corvana
