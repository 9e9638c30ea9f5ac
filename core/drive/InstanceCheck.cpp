#include "core/drive/InstanceCheck.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "core/record/Records.h"

namespace corvana {

namespace {

constexpr double kMessageSeconds = 10.0;
constexpr double kBlockSeconds = 15.0;
/// So long one that leaves is there at most.
constexpr double kLeaves = kBlockSeconds + 15.0;

std::string fileName(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

}  // namespace

void InstanceCheck::claim() {
  const std::string path = m.store.folder().dataFolderPathWithFileName(DataFolder::kInstanceLock);
  Processes& processes = m.platform.processes;
  auto lock = ZAN_FileLock::adopt(processes.takeHandedOn(), path);
  if (!lock) lock = ZAN_FileLock::acquire(path, 0, {});
  if (lock) {
    mClaim = Claim::held;
    mLock = std::move(*lock);
    processes.handOn(mLock.descriptor());
  } else if (lock.error().kind == ErrorKind::unavailable) {
    mClaim = Claim::taken;
  } else {
    m.platform.systemLog.write("The data folder cannot be locked: " + lock.error().text);
  }
}

bool InstanceCheck::anotherInstanceRuns() const {
  if (mClaim == Claim::taken) return true;
  const std::string own = fileName(m.platform.machine.bundlePath());
  if (own.empty()) return false;
  const auto running = m.platform.processes.running();
  const auto me = std::ranges::find(running, m.platform.processes.ownPid(), &RunningProcess::pid);
  return std::ranges::any_of(running, [&](const RunningProcess& process) {
    if (fileName(process.bundlePath) != own) return false;
    if (me == running.end())
      return mClaim != Claim::held && process.pid != m.platform.processes.ownPid();
    // One that could not have the lock may still be about to leave.
    if (mClaim == Claim::held) return process.start < me->start - kLeaves;
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
