#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/DataFiles.h"
#include "platform/Processes.h"

namespace corvana {

/// When the scheduler, the main application and the execute program were at work during the last 60
/// days. Written without synchronising, so that an idle agent lets disks sleep. Thread: main.
class ActivityRecord {
 public:
  explicit ActivityRecord(DataFiles& files) : mFiles(files) {}

  /// Adds this minute. `status`: 0 execution launched, 1 agent quits, 2 agent started, nothing
  /// otherwise. `setWakeUp`: the date for which a wake-up was programmed. `running`: the running
  /// processes, of which the instances of the execute program are noted. `since`: every minute from
  /// then on was like this one.
  void saveActivity(std::optional<std::int64_t> status, bool mainAppOpened, bool executeAppOpened,
                    std::optional<ReferenceTime> setWakeUp, std::span<const RunningProcess> running,
                    std::optional<ReferenceTime> since = std::nullopt);
  /// The stored dictionary, null when there is none: "SchedulerStatus" (status by the text of its
  /// second), "ProcessActivity" ({"time", "pid"} at each change), and the archived sets of minute
  /// numbers "SchedulerActivity", "MainAppActivity", "ExecuteActivity" and "WakeUpActivity".
  ZAN_Value readActivity();

 private:
  DataFiles& mFiles;
  DataFiles::Object mCached;
};

}  // namespace corvana
