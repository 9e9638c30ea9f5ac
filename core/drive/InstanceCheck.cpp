#include "core/drive/InstanceCheck.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "core/record/Messages.h"
#include "core/record/SchedulerLog.h"
#include "core/record/SiblingChannel.h"
#include "platform/Clock.h"
#include "platform/DistributedNotifications.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
#include "platform/Processes.h"
#include "platform/UserInterface.h"

namespace corvana {

namespace {

constexpr double kMessageSeconds = 10.0;
constexpr double kBlockSeconds = 15.0;

std::string fileName(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

}  // namespace

bool InstanceCheck::anotherInstanceRuns() const {
  const std::string own = fileName(mPlatform.machine.bundlePath());
  if (own.empty()) return false;
  const auto running = mPlatform.processes.running();
  const auto me = std::ranges::find(running, mPlatform.processes.ownPid(), &RunningProcess::pid);
  return std::ranges::any_of(running, [&](const RunningProcess& process) {
    if (fileName(process.bundlePath) != own) return false;
    if (me == running.end()) return process.pid != mPlatform.processes.ownPid();
    return std::pair(process.start, process.pid) < std::pair(me->start, me->pid);
  });
}

void InstanceCheck::leaveToTheOtherInstance() {
  const std::string& text = mTexts.text("SchedulerLaunchedMultipleText");
  mLog.addSchedulerLog(LogCode::message, text);
  mPlatform.notifications.stopObserving(std::string(kSchedulerNotification));
  ZAN_Value desktop;
  for (const auto& [name, value] : mPlatform.userInterface.desktop()) {
    desktop.setValue(name, value);
  }
  mPlatform.notifications.post(
      {std::string(kSchedulerNotification), "ShowAllVisibleWindowsActions", desktop});
  mMessages.showMessageImmediatly(mTexts.text("SchedulerLaunchedMultiple"), text, kMessageSeconds,
                                  false);
  mPlatform.clock.sleep(kBlockSeconds);
}

}  // namespace corvana
