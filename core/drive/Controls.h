#pragma once

#include <functional>
#include <string>

#include "core/record/SchedulerCommands.h"

namespace corvana {

class ActionQueue;
class Contexts;
class ExecuteSupervisor;
class FloatingIcon;
class LaunchStep;
class Messages;
class Preferences;
class SchedulerLog;
class SiblingChannel;
class SiblingStatus;
class StatusItem;
class TextFiles;
class TriggerEvaluation;
class VolumeMounter;
class VolumesFolderSurvey;
class ZAN_StringTable;
struct Platform;
struct SchedulerState;

/// The user's hand on the scheduler: every command of the menus, the windows, the bus and other
/// machines ends here. Thread: main.
class Controls : public SchedulerCommands {
 public:
  /// What it leans on; everything outlives it.
  struct Surroundings {
    Platform& platform;
    SchedulerState& state;
    Preferences& preferences;
    TextFiles& report;
    SchedulerLog& log;
    Messages& messages;
    SiblingChannel& channel;
    SiblingStatus& siblings;
    ActionQueue& queue;
    TriggerEvaluation& evaluation;
    ExecuteSupervisor& supervisor;
    Contexts& contexts;
    StatusItem& statusItem;
    FloatingIcon& floatingIcon;
    LaunchStep& launchStep;
    VolumeMounter& mounter;
    VolumesFolderSurvey& folderSurvey;
    const ZAN_StringTable& texts;
    std::string mainAppBundlePath;
  };

  explicit Controls(Surroundings surroundings);

  /// The agent is to end, or to be replaced by a fresh run of itself.
  std::function<void()> onQuitWanted;
  std::function<void()> onRelaunchWanted;
  /// Automatic execution was switched on or off: what other machines see has to follow.
  std::function<void()> onActiveChanged;
  /// The report is to be mailed.
  std::function<void()> onDailyReportWanted;
  /// Preferences were read again.
  std::function<void()> onPreferencesChanged;

  /// What concerns the machine is done elsewhere; each is the command of its name.
  std::function<void()> onAskAboutStartupDiskChange;
  std::function<void()> onConfirmStartupDisk;
  std::function<Result<std::string>()> onSaveListProcess;
  std::function<void()> onShowAllDisksInformation;

  /// Enables automatic execution without a word, as at the end of the start-up.
  void enableAfterStartup();
  /// The menus, the menu's title and the main application follow a change of the execution's state.
  void updateExecutionStatusMenus();
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
  void setAnnouncePosition(const Point& position) override;
  void messageClosedByUser() override;
  void userNotificationActivated() override;
  void openNotificationInMainApp(std::size_t index) override;
  void showSurveyFolderResults() override;
  void showLatestActions() override;
  void openMainApp() override;
  void askAboutStartupDiskChange() override { onAskAboutStartupDiskChange(); }
  void confirmStartupDisk() override { onConfirmStartupDisk(); }
  Result<std::string> saveListProcess() override;
  void showAllDisksInformation() override;
  void mountVolumes() override;
  void updateListOfVolumesToMount() override;
  void mountVolume(std::size_t index) override;
  void mountSelectedVolumes(const std::vector<std::size_t>& rows) override;
  void setMountsSystemPartitions(bool also) override;
  void setPreference(const std::string& key, const ZAN_Value& value) override;
  void repairAndContinueExecution() override;
  void preferencesDidChange() override;
  void sendDailyReportNow() override;
  void quitScheduler() override;
  void terminateBySelf() override;
  void relaunchScheduler() override;

 private:
  void togglePause(bool tellExecute);

  Surroundings m;
  bool mListActionWasOpenByUser = false;
  bool mAsksToQuit = false;
};

}  // namespace corvana
