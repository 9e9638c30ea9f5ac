#pragma once

#include <cstdint>
#include <string>

#include "platform/Machine.h"

namespace corvana {

class TriggerEvaluation;
struct Records;

/// Notices that the machine was started from another disk than usual, where the actions may point
/// at the wrong volumes. The usual one is kept in the preferences as name, size and creation date;
/// what is not known is no difference. While the question about a difference is open nothing is
/// launched (`SchedulerState::mStartedFromNewMachine`). Thread: main.
class StartupDisk {
 public:
  /// What the window of the question shows.
  struct Change {
    std::string title;
    std::string currentDisk;
    std::string normalDisk;
    std::string differences;
  };

  explicit StartupDisk(Records& records) : m(records) {}

  /// Compares with the usual disk, or takes this one as the usual one when there is none yet. A
  /// difference of size or date has to persist through five looks, for which it blocks for 8 s.
  void checkStartupDisk();
  /// Takes this disk as the usual one, when it can be read; the question is closed in any case.
  void saveStartupDiskReference();
  /// Asks the user, once at a time. Without a difference there is nothing to ask.
  void askAboutStartupDiskChange();
  /// The same in a moment.
  void askSoon();
  /// What follows when the user confirms: this disk is the usual one, and actions that were made
  /// for another one are to be checked in the main application, which may block for 2 s.
  void confirmStartupDisk();
  /// Writes size and date to the system log when they have changed since the last time; only while
  /// a difference was found in this run, or when `always`.
  void logStartupDiskInformation(bool always);
  bool logs() const { return mStartedFromNewMachineShowLogs; }

  const Change& change() const { return mChange; }

 private:
  bool comparedFigures(const StartupVolume& volume);
  void setPending(bool pending);
  void haveActionsChecked();

  Records& m;
  Change mChange;
  bool mStartedFromNewMachineShowLogs = false;
  std::uint64_t mPreviousSize = 0;
  std::uint64_t mPreviousDate = 0;
  bool mAsks = false;
};

/// Reminds a user who has automatic execution off, or has not yet answered the question about the
/// start-up disk, that actions were due and none was executed for days. Thread: main.
class LongDisabledWarning {
 public:
  LongDisabledWarning(Records& records, const TriggerEvaluation& evaluation)
      : m(records), mEvaluation(evaluation) {}

  /// A moment after the start, when the dates of all actions are known.
  void checkIfExecutionIsDisabled();

 private:
  Records& m;
  const TriggerEvaluation& mEvaluation;
};

}  // namespace corvana
