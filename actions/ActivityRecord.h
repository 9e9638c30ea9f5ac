#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "actions/DataFiles.h"
#include "platform/Processes.h"

namespace corvana {

/// When the scheduler, the main application and the execute program were at work during the last 60
/// days. What the clock alone adds is written rarely, what has happened at once. Thread: main.
class ActivityRecord {
 public:
  /// How many changes of the execute processes are kept, however short the time in which they came.
  static constexpr std::size_t kMostProcesses = 20'000;

  explicit ActivityRecord(DataFiles& files) : mFiles(files) {}

  /// Adds this minute. `status`: 0 execution launched, 1 agent quits, 2 agent started, nothing
  /// otherwise. `setWakeUp`: the date for which a wake-up was programmed. `running`: the running
  /// processes, of which the instances of the execute program are noted. A call that changes
  /// nothing writes nothing.
  void saveActivity(std::optional<std::int64_t> status, bool mainAppOpened, bool executeAppOpened,
                    std::optional<ReferenceTime> setWakeUp,
                    std::span<const RunningProcess> running);

  /// A time of which every minute was alike.
  struct Span {
    ReferenceTime from = 0;
    ReferenceTime to = 0;
    bool mainApp = false;     ///< was open
    bool executeApp = false;  ///< was open
  };
  /// Adds the minutes of a time that was left out, with the next saving.
  void noteActivity(const Span& span) { mNoted.push_back(span); }
  /// The stored dictionary, null when there is none: "SchedulerStatus" (status by the text of its
  /// second), "ProcessActivity" ({"time", "pid"} at each change), and the archived sets of minute
  /// numbers "SchedulerActivity", "MainAppActivity", "ExecuteActivity" and "WakeUpActivity".
  ZAN_Value readActivity();

 private:
  void refresh();
  void write();
  bool noteMinutes(std::size_t index, ReferenceTime now, std::optional<ReferenceTime> setWakeUp);

  DataFiles& mFiles;
  bool mIsRead = false;
  DataFiles::Object mCached;          ///< with the minutes that are not in the file yet
  std::array<ZAN_Value, 4> mMinutes;  ///< the sets of `mCached`
  std::vector<Span> mNoted;
};

}  // namespace corvana
