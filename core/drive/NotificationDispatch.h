#pragma once

#include <deque>
#include <map>
#include <span>
#include <string_view>

#include "platform/Burst.h"
#include "platform/DistributedNotifications.h"

namespace corvana {

class Controls;
class LaunchStep;
struct MachineDuties;
struct Records;
struct Work;

/// Answers the messages of the main application and the execute application: a table from what a
/// message says to what is done. Unknown messages, and missing or wrong details, are ignored; an
/// exception ends the handling of its message only.
/// Thread: main.
class NotificationDispatch {
 public:
  NotificationDispatch(Records& records, Work& work, MachineDuties& machine, LaunchStep& launchStep,
                       Controls& controls);
  ~NotificationDispatch();

  /// The agent was started again on a desktop, whose variables of the environment these are.
  std::function<void(const std::map<std::string, std::string>&)> onDesktopOffered;

  /// Listens from now on, until the end.
  void observe();
  void schedulerNotificationReceived(const DistributedNotification& notification);
  /// Queues and stores the launches that were heard and still wait for their turn of the loop.
  void takeUpLaunches();

  /// Whether the main application has said that it listens.
  bool mainAppReceivesNotifications() const { return mMainAppReceiveNotifications; }
  void setMainAppReceivesNotifications(bool receives) { mMainAppReceiveNotifications = receives; }

 private:
  struct Row {
    std::string_view object;
    void (NotificationDispatch::*action)(const ZAN_Value& userInfo);
  };
  static std::span<const Row> rows();

  void launchAction(const ZAN_Value& userInfo);
  void launchTogether();
  void takeUpLaunch(const ZAN_Value& launch);
  void applicationIsLaunched(const ZAN_Value&);
  void applicationWillQuit(const ZAN_Value&) { mMainAppReceiveNotifications = false; }
  void preferencesDidChange(const ZAN_Value&);
  void openPreferences(const ZAN_Value&);
  void readTreeAnew();
  void actionListChanged(const ZAN_Value&);
  void actionChanged(const ZAN_Value&);
  void cleanVolumesFolder(const ZAN_Value&);
  void executeProgress(const ZAN_Value& userInfo);
  void message(const ZAN_Value& userInfo);
  void messageOff(const ZAN_Value&);
  void activateExecution(const ZAN_Value& userInfo);
  void actionPause(const ZAN_Value& userInfo);
  void setContext(const ZAN_Value& userInfo);
  void actionHistoryChanged(const ZAN_Value&);
  void addToLog(const ZAN_Value& userInfo);
  void displayUserNotification(const ZAN_Value& userInfo);
  void getProcessStatus(const ZAN_Value&);
  void quitProcess(const ZAN_Value&);
  void stopExecution(const ZAN_Value&);
  void showPendingActions(const ZAN_Value&);
  void showLatestActions(const ZAN_Value&);
  void showAllVisibleWindows(const ZAN_Value& userInfo);
  void launchShutDownActions(const ZAN_Value&);
  void shutDownMac(const ZAN_Value&);
  void sendReportEmail(const ZAN_Value&);
  void surveyReply(const ZAN_Value& userInfo);
  void confirmStartupDisk(const ZAN_Value&);
  void errorsWereSeen(const ZAN_Value&);
  void unmountVolume(const ZAN_Value& userInfo);
  void unmountVolumeImmediate(const ZAN_Value& userInfo);
  void sendCopyRecoveryHD(const ZAN_Value& userInfo);

  Records& m;
  Work& mWork;
  MachineDuties& mMachine;
  LaunchStep& mLaunchStep;
  Controls& mControls;
  std::deque<ZAN_Value> mLaunches;  ///< asked for and not yet taken up
  Burst mBurst;                     ///< of launches
  bool mMainAppReceiveNotifications = false;
};

}  // namespace corvana
