#pragma once

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

class FreeSpaceHistory;
class Preferences;
struct Platform;

/// Warns when the start-up disk is nearly full, and has the history of free space pruned from time
/// to time. Thread: main.
class FreeSpaceSurvey {
 public:
  FreeSpaceSurvey(Platform& platform, Preferences& preferences, FreeSpaceHistory& history)
      : m(platform), mPreferences(preferences), mHistory(history) {}

  bool isCheckDue(ReferenceTime now) const;
  /// Below a tenth the window is shown and the next check is in a day, else in 300 s.
  void checkStartupDiskFreeSpace();
  /// What the window says: free space in percent, cut.
  int lowSpacePercent() const { return mStartupDiskLowSpaceValue; }

  bool isCleaningDue(ReferenceTime now) const;
  /// Every 15 days.
  void cleanVolumesInfos();

  /// The next of the two.
  ReferenceTime nextWork() const;

 private:
  Platform& m;
  Preferences& mPreferences;
  FreeSpaceHistory& mHistory;
  int mStartupDiskLowSpaceValue = 0;
};

}  // namespace corvana
