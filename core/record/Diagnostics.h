#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "platform/RunLoop.h"

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

/// Timing monitor: how long and how often the work bracketed by a key takes, as averages over the
/// last ten seconds. It costs nothing before its window was shown for the first time. Thread: main.
class SurveyExecution {
 public:
  /// `bundleName` is the agent's bundle name without extension, for the title.
  SurveyExecution(const Clock& clock, RunLoop& runLoop, std::string bundleName);
  ~SurveyExecution();
  SurveyExecution(const SurveyExecution&) = delete;
  SurveyExecution& operator=(const SurveyExecution&) = delete;

  /// Begins to measure and to refresh the lines every second.
  void showWindow();
  /// Nobody looks at the lines: they are no longer refreshed. Measuring goes on.
  void closeWindow();
  bool isMeasuring() const { return mMeasuring; }

  void startExecutionForKey(std::string_view key);
  /// Without a start it is ignored.
  void endExecutionForKey(std::string_view key);

  /// Brackets the work of a scope.
  class Bracket {
   public:
    Bracket(SurveyExecution& survey, std::string_view key) : mSurvey(survey), mKey(key) {
      mSurvey.startExecutionForKey(mKey);
    }
    ~Bracket() { mSurvey.endExecutionForKey(mKey); }
    Bracket(const Bracket&) = delete;
    Bracket& operator=(const Bracket&) = delete;

   private:
    SurveyExecution& mSurvey;
    std::string_view mKey;
  };

  std::string title() const;
  /// What the window shows: a heading, then one line a key in the order of keys. Computed at the
  /// call.
  std::vector<std::string> lines();

  /// Set by the owner of the window: the lines have changed.
  std::function<void()> onUpdated;

 private:
  struct Entry {
    double date = 0;   ///< monotonic seconds of the end
    double delay = 0;  ///< seconds it took
  };
  struct Values {
    double start = -1;  ///< monotonic; negative: not begun
    bool hadValues = false;
    std::deque<Entry> list;
  };
  void dropOld(Values& values) const;

  const Clock& mClock;
  RunLoop& mRunLoop;
  std::string mBundleName;
  RunLoop::TimerId mTimer = 0;
  bool mMeasuring = false;
  std::map<std::string, Values, std::less<>> mSurveyExecutionValues;
};

}  // namespace corvana
