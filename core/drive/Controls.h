#pragma once

#include <functional>

#include "core/record/SchedulerCommands.h"

namespace corvana {

class LaunchStep;
struct MachineDuties;
struct Records;
struct Work;

/// The user's hand on the scheduler: every command of the menus, the windows, the bus and other
/// machines ends here. Thread: main.
class Controls : public SchedulerCommands {
 public:
  Controls(Records& records, Work& work, MachineDuties& machine, LaunchStep& launchStep);

  // Hooks
  /// The agent is to end, or to be replaced by a fresh run of itself.
  std::function<void()> onQuitWanted;
  std::function<void()> onRelaunchWanted;
  /// The report is to be mailed.
  std::function<void()> onDailyReportWanted;

  /// Sets the pause without telling the execute application, as it asked for it itself.
  void setPause(bool pause);
  void bringWindowsToFront();
  /// Stray folders are gone, or the user has closed their window: the pause that they made ends;
  /// one that the user made stays.
  void strayFoldersWereSeen();

  bool queueWindowOpenedByUser() const { return mListActionWasOpenByUser; }

  void setSchedulerActive(bool active) override;
  void enableSchedule() override { setSchedulerActive(true); }
  void disableSchedule() override { setSchedulerActive(false); }
  void disableScheduleWhenAllDone() override;
  void changeExecutionStatus(int item) override;
  void setContextMode(std::int64_t context) override;
  void setContext(std::int64_t context) override;
  void pauseExecution() override;
  void continueExecution() override;
  void stopExecution() override;
  void skipItem() override;
  void showProgress() override;
  void setExecutionMode(int mode) override;
  Outcome launchAction(std::int64_t ref, bool estimateSize) override;
  void launchActionsRemotely(std::span<const std::int64_t> refs) override;
  void executeNow(std::int64_t ref) override;
  void removeFromQueue(const std::vector<std::size_t>& rows) override;
  void moveInQueue(std::size_t from, std::size_t to) override;
  void menuWillOpen() override;
  void showWindow(Window window) override;
  void hideWindow(Window window) override;
  void showAllVisibleWindows() override;
  void showErrorSummary() override;
  void errorsWereSeen() override;
  void showOverview() override;
  void setAnnouncePosition(const Point& position) override;
  void messageClosedByUser() override;
  void userNotificationActivated() override;
  void openNotificationInMainApp(std::size_t index) override;
  void showSurveyFolderResults() override;
  void showLatestActions() override;
  void openMainApp() override;
  void showRestore() override;
  /// The main application listens from now on.
  void mainAppListens();
  void askAboutStartupDiskChange() override;
  void confirmStartupDisk() override;
  Result<std::string> saveListProcess() override;
  void showAllDisksInformation() override;
  void mountVolumes() override;
  void updateListOfVolumesToMount() override;
  void mountVolume(std::size_t index) override;
  void mountSelectedVolumes(const std::vector<std::size_t>& rows) override;
  void setMountsSystemPartitions(bool also) override;
  void setPreference(const std::string& key, const ZAN_Value& value) override;
  void repairAndContinueExecution() override;
  void deleteStrayFolders() override;
  void preferencesDidChange() override;
  void sendDailyReportNow() override;
  void quitScheduler() override;
  void terminateBySelf() override;
  void relaunchScheduler() override;

 private:
  void togglePause(bool tellExecute);
  void quitNow();

  Records& m;
  Work& mWork;
  MachineDuties& mMachine;
  LaunchStep& mLaunchStep;
  bool mListActionWasOpenByUser = false;
  bool mAsksToQuit = false;
  bool mWantsRestore = false;  ///< the main application is to hear of it
};

}  // namespace corvana
