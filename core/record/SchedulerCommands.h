#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "platform/Input.h"
#include "platform/UserInterface.h"

namespace corvana {

/// What the menu, the windows, other machines and the bus may ask of the scheduler. One object
/// answers it; those who ask know nothing else of it. A command that makes no sense now does
/// nothing. Thread: main.
class SchedulerCommands {
 public:
  virtual ~SchedulerCommands() = default;

  // Automatic execution
  virtual void setSchedulerActive(bool active) = 0;
  virtual void enableSchedule() = 0;
  virtual void disableSchedule() = 0;
  virtual void disableScheduleWhenAllDone() = 0;
  /// Item of the main status pop-up: 0 enables, 1 disables when all is done, 2 disables.
  virtual void changeExecutionStatus(int item) = 0;
  virtual void setContextMode(std::int64_t context) = 0;
  virtual void setContext(std::int64_t context) = 0;  ///< chosen from the menu

  // The running execution
  /// Toggles between paused and running, and tells the execute application so.
  virtual void pauseExecution() = 0;
  virtual void continueExecution() = 0;
  virtual void stopExecution() = 0;
  virtual void skipItem() = 0;
  virtual void showProgress() = 0;
  /// Index of the execution-survey mode pop-up, handed to the execute application.
  virtual void setExecutionMode(int mode) = 0;

  // The queue
  /// Queues an action as if by hand, or says why it is not queued.
  virtual Outcome launchAction(std::int64_t ref, bool estimateSize) = 0;
  /// From another machine: due in 5 s; those that do not allow it are passed over.
  virtual void launchActionsRemotely(std::span<const std::int64_t> refs) = 0;
  /// The queued action runs now even though automatic execution is off.
  virtual void executeNow(std::int64_t ref) = 0;
  virtual void removeFromQueue(const std::vector<std::size_t>& rows) = 0;
  /// The record stands at `to` afterwards; nothing passes a running head.
  virtual void moveInQueue(std::size_t from, std::size_t to) = 0;

  // Windows
  virtual void menuWillOpen() = 0;
  virtual void showWindow(Window window) = 0;
  virtual void hideWindow(Window window) = 0;
  virtual void showAllVisibleWindows() = 0;
  /// Shows the failures, and leaves the keyboard where it is.
  virtual void showErrorSummary() = 0;
  /// The user has seen what failed: the error state goes.
  virtual void errorsWereSeen() = 0;
  /// What a click on the icon asks for: how everything stands, in the main application where that
  /// is installed, else in a window of the agent's own.
  virtual void showOverview() = 0;
  /// The user has put the announce window there; its lower left corner.
  virtual void setAnnouncePosition(const Point& position) = 0;
  /// The user closed a message by its button.
  virtual void messageClosedByUser() = 0;
  virtual void userNotificationActivated() = 0;
  virtual void openNotificationInMainApp(std::size_t index) = 0;
  /// Hands what the last survey of a folder found to the main application, which is opened when it
  /// does not run; once it has been handed over it no longer waits to be seen.
  virtual void showSurveyFolderResults() = 0;
  virtual void showLatestActions() = 0;
  virtual void openMainApp() = 0;
  /// Opens the main application where files are brought back.
  virtual void showRestore() = 0;

  // The machine
  /// Asks whether the start-up disk, which is another one than before, is to be the usual one.
  virtual void askAboutStartupDiskChange() = 0;
  /// Takes the present start-up disk as the usual one without asking.
  virtual void confirmStartupDisk() = 0;
  /// Writes the list of the running processes to the user's "Downloads" folder; the file's path.
  virtual Result<std::string> saveListProcess() = 0;
  /// Reads all disks and partitions anew and shows their text in its window.
  virtual void showAllDisksInformation() = 0;

  // Volumes
  /// Shows the window of volumes to mount, with a fresh list, or hides it.
  virtual void mountVolumes() = 0;
  virtual void updateListOfVolumesToMount() = 0;
  /// The candidate chosen from the menu.
  virtual void mountVolume(std::size_t index) = 0;
  /// The candidates selected in the window.
  virtual void mountSelectedVolumes(const std::vector<std::size_t>& rows) = 0;
  /// Also offers partitions of the system.
  virtual void setMountsSystemPartitions(bool also) = 0;

  /// Moves the stray folders in the volumes folder aside and says what came of it; when none is
  /// left, executions go on.
  virtual void repairAndContinueExecution() = 0;
  /// Asks whether the stray folders last told of are to be deleted with all that is in them, and
  /// does it then.
  virtual void deleteStrayFolders() = 0;

  // The agent itself
  /// Stores a preference under its key and takes it over; null goes back to the built-in value.
  virtual void setPreference(const std::string& key, const ZAN_Value& value) = 0;
  /// The preferences of the settings file are to be read again and taken over.
  virtual void preferencesDidChange() = 0;
  /// Mails the report of what happened since the last automatic one.
  virtual void sendDailyReportNow() = 0;
  /// Asks before it quits.
  virtual void quitScheduler() = 0;
  virtual void terminateBySelf() = 0;
  virtual void relaunchScheduler() = 0;
};

}  // namespace corvana
