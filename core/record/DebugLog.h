#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

class Clock;
class TextFiles;

/// The agent's diary for the people who look for a fault: lines with the time since its start, and
/// sums of the time that its regular work takes. Thread: main.
class DebugLog {
 public:
  enum class Timer : std::size_t { timer, notifications, mountedVolumes };

  /// `startOfScheduler` is the launch date of this process. Lines are written only when the main
  /// application ran at start-up.
  DebugLog(const Clock& clock, TextFiles& files, ReferenceTime startOfScheduler,
           bool mainAppRanAtStartup);

  /// Writes "(+%d ms) - %@" into the short log; without `always` only during the first 60 s.
  void logMessage(std::string_view text, bool always);

  ReferenceTime startOfScheduler() const { return mStartOfScheduler; }
  void addToTimer(Timer timer, double seconds) {
    mDebugTimers[static_cast<std::size_t>(timer)] += seconds;
  }
  double timer(Timer timer) const { return mDebugTimers[static_cast<std::size_t>(timer)]; }

 private:
  const Clock& mClock;
  TextFiles& mFiles;
  ReferenceTime mStartOfScheduler;
  bool mMainAppRanAtStartup;
  std::array<double, 3> mDebugTimers{};
};

}  // namespace corvana
