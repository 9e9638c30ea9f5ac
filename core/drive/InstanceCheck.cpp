#include "core/drive/InstanceCheck.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>

#include "core/record/Records.h"
#include "platform/Clock.h"
#include "platform/DistributedNotifications.h"
#include "platform/Machine.h"
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
  const std::string own = fileName(m.platform.machine.bundlePath());
  if (own.empty()) return false;
  const auto running = m.platform.processes.running();
  const auto me = std::ranges::find(running, m.platform.processes.ownPid(), &RunningProcess::pid);
  return std::ranges::any_of(running, [&](const RunningProcess& process) {
    if (fileName(process.bundlePath) != own) return false;
    if (me == running.end()) return process.pid != m.platform.processes.ownPid();
    return std::pair(process.start, process.pid) < std::pair(me->start, me->pid);
  });
}

void InstanceCheck::leaveToTheOtherInstance() {
  const std::string& text = m.texts.text("SchedulerLaunchedMultipleText");
  m.log.addSchedulerLog(LogCode::message, text);
  m.platform.notifications.stopObserving(std::string(kSchedulerNotification));
  ZAN_Value desktop;
  for (const auto& [name, value] : m.platform.userInterface.desktop()) {
    desktop.setValue(name, value);
  }
  m.platform.notifications.post(
      {std::string(kSchedulerNotification), "ShowAllVisibleWindowsActions", desktop});
  m.messages.showMessageImmediatly(m.texts.text("SchedulerLaunchedMultiple"), text, kMessageSeconds,
                                   false);
  m.platform.clock.sleep(kBlockSeconds);
}

}  // namespace corvana
