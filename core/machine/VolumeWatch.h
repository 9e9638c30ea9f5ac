#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/record/Deadline.h"
#include "platform/Volumes.h"

namespace corvana {

class DebugLog;
class ZAN_ConnectedVolumes;
class ZAN_MountedVolumes;
struct Platform;

/// Keeps the agent informed of which volumes are there: hears of mounts and unmounts, hands each
/// mount on, keeps the lists up to date, and has the information about volumes saved from time to
/// time. Thread: main.
class VolumeWatch {
 public:
  VolumeWatch(Platform& platform, DeadlineList& deadlines, DebugLog& debugLog,
              ZAN_MountedVolumes& mounted, ZAN_ConnectedVolumes& connected);
  ~VolumeWatch();

  /// A volume was mounted at that path: actions that wait for it are to be found.
  std::function<void(const std::string& path)> onVolumeMounted;
  /// What is mounted, or its order, has changed: the history of mounted volumes follows.
  std::function<void()> onMountedVolumesChanged;
  /// Information about volumes is to be saved: free space and what is mounted.
  std::function<void()> onSaveVolumesInfos;
  /// The lists of volumes are being read again: the menu follows.
  std::function<void()> onListsUpdated;

  /// Begins to hear of volumes, and reads the lists.
  void start();

  /// Paths "Network" and "/Network" are no volumes and ignored in both.
  void deviceDidMount(const std::string& path);
  void deviceDidUnmount(const std::string& path);

  /// Compares what is mounted with the last look.
  void surveyMountedVolumes();
  void updateListVolumes();

  bool isSavingDue(ReferenceTime now) const { return mSchedulerSaveVolumesInfos.isReached(now); }
  ReferenceTime nextSaving() const { return mSchedulerSaveVolumesInfos.at(); }
  void saveVolumesInfosAt(ReferenceTime at) { mSchedulerSaveVolumesInfos.set(at); }
  /// Saves, and saves again in 300 s while an execution runs, else in 900 s.
  void saveVolumesInfos(bool executing);

  /// The paths of the mounted volumes as of the last look, in the order of mounting.
  const std::vector<std::string>& currentVolumesContent() const { return mCurrentVolumesContent; }

 private:
  void followLists();

  Platform& m;
  DebugLog& mDebugLog;
  ZAN_MountedVolumes& mMounted;
  ZAN_ConnectedVolumes& mConnected;
  Deadline mSchedulerSaveVolumesInfos;
  std::vector<std::string> mCurrentVolumesContent;
};

}  // namespace corvana
