#pragma once

#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "core/record/Deadline.h"

namespace corvana {

class FreeSpaceHistory;
class MountedVolumesHistory;
class TriggerEvaluation;
class ZAN_ConnectedVolumes;
class ZAN_MountedVolumes;
struct Records;

/// Keeps the agent informed of which volumes are there: hears of mounts and unmounts, hands each
/// mount on, keeps the lists up to date, and has the information about volumes saved from time to
/// time. Thread: main.
class VolumeWatch {
 public:
  /// What is mounted, as others see it, and what is kept of it.
  struct Lists {
    ZAN_MountedVolumes& mounted;
    ZAN_ConnectedVolumes& connected;
    FreeSpaceHistory& freeSpace;
    MountedVolumesHistory& mountedHistory;
  };

  VolumeWatch(Records& records, TriggerEvaluation& evaluation, const Lists& lists);
  ~VolumeWatch();

  /// Begins to hear of volumes, and reads the lists.
  void start();

  /// Paths "Network" and "/Network" are no volumes and ignored in both.
  void deviceDidMount(const std::string& path);
  void deviceDidUnmount(const std::string& path);

  /// Compares what is mounted with the last look.
  void surveyMountedVolumes();
  void updateListVolumes();

  ReferenceTime nextSaving() const { return mSchedulerSaveVolumesInfos.at(); }
  void saveVolumesInfosAt(ReferenceTime at) { mSchedulerSaveVolumesInfos.set(at); }
  /// Saves free space and what is mounted, again in 300 s while an execution runs, else in 900 s.
  void saveVolumesInfos();

  /// The paths of the mounted volumes as of the last look, in the order of mounting.
  const std::vector<std::string>& currentVolumesContent() const { return mCurrentVolumesContent; }

 private:
  void followLists();

  Records& m;
  TriggerEvaluation& mEvaluation;
  Lists mLists;
  Deadline mSchedulerSaveVolumesInfos;
  std::vector<std::string> mCurrentVolumesContent;
};

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
