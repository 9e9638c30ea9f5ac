#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class Clock;

/// How long an action is expected to run: the mean of its last runs that were completed. Thread:
/// any once made.
class RunDurations {
 public:
  /// `history` is the stored array of the programmed history, header first.
  explicit RunDurations(const ZAN_Value& history);

  /// Seconds; nothing for an action that was never completed.
  std::optional<double> knownSecondsOf(std::int64_t ref) const;
  /// The same, a minute for an action that was never completed.
  double secondsOf(std::int64_t ref) const;

 private:
  struct Sum {
    double seconds = 0;
    int runs = 0;
  };
  std::map<std::int64_t, Sum> mSums;
};

/// That a running execution seems to be stuck.
struct Stall {
  enum class Kind {
    noProgress,      ///< nothing has moved for so long
    longerThanUsual  ///< it runs many times as long as it used to
  };
  Kind kind = Kind::noProgress;
  ReferenceTime since = 0;  ///< the last progress, or the launch
  bool operator==(const Stall&) const = default;
};

/// Notices that a running execution is stuck. Only time in which it could work counts: a pause and
/// the sleep of the machine do not. Thread: main.
class ExecutionWatch {
 public:
  explicit ExecutionWatch(const Clock& clock) : mClock(clock) {}

  /// An execution begins. `patience`: so many seconds without progress are too many; 0: nothing is
  /// watched. `tellsProgress`: it is known to tell of its progress; otherwise that shows with its
  /// first report.
  void begin(double patience, bool tellsProgress);
  void end() { mRuns = false; }
  void setPaused(bool paused);
  /// A report of the execution, which counts as progress when it says anything new.
  void takeReport(const ZAN_Value& report);
  /// How long the action usually runs, wanted from `wantsUsual` on; nothing: not known.
  void setUsual(std::optional<double> seconds);
  bool wantsUsual() const;

  std::optional<Stall> stall() const;
  /// When `stall` or `wantsUsual` say something else than now if nothing happens; kNever.
  ReferenceTime nextLook() const;

 private:
  double worked() const;

  const Clock& mClock;
  bool mRuns = false;
  double mPatience = 0;
  bool mTellsProgress = false;
  bool mPaused = false;
  double mWorked = 0;   ///< seconds until the last pause began or ended, which was at
  double mCounted = 0;  ///< this monotonic time
  double mWorkedAtProgress = 0;
  ReferenceTime mStart = 0;
  ReferenceTime mProgressDate = 0;
  ZAN_Value mReport;
  bool mUsualIsSet = false;
  double mLongest = 0;  ///< seconds of work; 0: any
};

/// How somebody's wish to stop an execution is carried through: it is asked, then told by the
/// system to end, then killed, and what even that does not end is given up. Thread: main.
class ExecutionStop {
 public:
  enum class Stage { none, asked, terminated, killed, givenUp };

  explicit ExecutionStop(const Clock& clock) : mClock(clock) {}

  /// Somebody wants the stop. The first time the execution is to be asked; with `goesOn` the later
  /// stages then come by themselves, otherwise with the second wish.
  void want(bool goesOn);
  void forget() { mStage = Stage::none; }
  Stage stage() const { return mStage; }
  bool isWanted() const { return mStage != Stage::none; }
  /// When `takeNext` has something; kAtOnce, kNever.
  ReferenceTime nextStage() const;
  /// The stage whose time has come, once; nothing before.
  std::optional<Stage> takeNext();

 private:
  const Clock& mClock;
  Stage mStage = Stage::none;
  std::optional<double> mNext;  ///< monotonic
};

}  // namespace corvana
