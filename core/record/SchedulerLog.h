#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class Changes;
class Clock;
class History;
class Preferences;
class SiblingChannel;
class UserInterface;
class ZAN_StringTable;
struct Platform;
struct SchedulerState;

/// Codes of the entries under "C".
namespace LogCode {
inline constexpr int launched = 1;
inline constexpr int completed = 2;
inline constexpr int abortedByUser = 3;
inline constexpr int volumeNotFound = 4;
inline constexpr int unexpectedError = 5;
inline constexpr int crashed = 6;
inline constexpr int timeOut = 11;
inline constexpr int schedulerMessage = 12;
inline constexpr int message = 13;
inline constexpr int completedWithErrors = 14;
inline constexpr int volumeGone = 15;
inline constexpr int volumeNotAvailable = 17;
inline constexpr int agentStarted = 20;
inline constexpr int agentTerminates = 21;
}  // namespace LogCode

/// The record of events: what the user sees as the log, and what follows from an event by its code.
/// Thread: main.
class SchedulerLog {
 public:
  SchedulerLog(const Platform& platform, History& history, SiblingChannel& channel,
               Preferences& preferences, SchedulerState& state, Changes& changes,
               const ZAN_StringTable& texts);

  /// Records an event: a dictionary with its code under "C" and optional "N" (title or text), "R"
  /// (reference), "P" (path as shown), "S" (termination status). A copy with "M" = now goes to the
  /// log list, the main application is told, codes of failures become the error state that the
  /// menus show and open the error summary for a user who wants that, and then by code: a missing
  /// volume and a completion with errors are said to the user, errors and crashes are counted; an
  /// interruption by hand is said to the user who wants to hear of it. A success of an action takes
  /// its failure back, and so does a run that only lacks what cannot be copied: that is no failure,
  /// but noted in the state until the user has seen it, once for the same things. Anything but a
  /// dictionary is ignored.
  void addSchedulerLog(const ZAN_Value& entry);
  /// The usual short form {"N": text, "C": code}, without "N" for an empty text.
  void addSchedulerLog(int code, std::string_view text = {});

  /// A failure outside of the actions: what could not be done is in the log already.
  void showErrorState(int code) { addFailure(0, code); }
  /// The user has seen the errors and what is lacking: both go from the state.
  void clearErrorState();
  /// What an action that is gone was lacking goes with it.
  void keepLacking(const std::function<bool(std::int64_t reference)>& isThere);
  /// What an earlier run of the agent left of them.
  void restoreErrorState();

  /// What runs that no agent heard of have left in the log since the last one started: their
  /// failures count as not seen, their successes take failures back. Before this one logs its own
  /// start.
  void takeUpUntold();

  /// Shows a text to the user as a standard message with that log code; set by Messages.
  std::function<void(const std::string& text, int logCode)> showStandardMessage;

 private:
  void tellTask(const ZAN_Value& entry);
  void addFailure(std::int64_t ref, int code);
  /// The action has run well, or so but for what cannot be copied.
  void succeeded(const ZAN_Value& entry);
  void failuresChanged();

  const Clock& mClock;
  UserInterface& mUserInterface;
  History& mHistory;
  SiblingChannel& mChannel;
  Preferences& mPreferences;
  SchedulerState& mState;
  Changes& mChanges;
  const ZAN_StringTable& mTexts;
  std::shared_ptr<int> mHere = std::make_shared<int>();  ///< gone with this object
};

}  // namespace corvana
