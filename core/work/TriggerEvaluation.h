#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/record/Deadline.h"
#include "core/work/ActionQueue.h"
#include "core/work/ComingActions.h"
#include "core/work/MissedRuns.h"

namespace corvana {

class ProgrammedAction;
class VolumeIdentity;
struct Records;
struct TriggerSettings;

/// Walks the tree and decides for each automatic action whether it is due now, when it is next due,
/// or whether the volume just mounted starts it. Due actions go to the queue two seconds ahead, in
/// the order of their dates; all are listed with their next date. Thread: main.
class TriggerEvaluation {
 public:
  /// So many days without an execution are told of where the action does not say how many.
  static constexpr std::int64_t kUsualLimitInDays = 7;

  TriggerEvaluation(Records& records, VolumeIdentity& volumes, ActionQueue& queue);

  /// Evaluates the whole tree, for the mounting of the volume at `mountedDevice` when there is one.
  /// Brings the next check closer, enqueues what is due and builds the list of next actions.
  /// Nothing but a later check while the question about the start-up disk is open or execution is
  /// to end when all is done; the first evaluation of a disabled agent waits for the main
  /// application.
  void checkActionsToLaunch(std::optional<std::string_view> mountedDevice = std::nullopt);

  /// Builds the list of next actions with their dates and sorts it, enqueueing nothing.
  void rebuildActionsList();

  /// The look-ahead: enqueues what is due within a minute and, when something was added, evaluates
  /// again. `startOfNextAction` keeps its value.
  void enqueueActionsDueWithinAMinute();

  /// The list of next actions as last built: sorted, groups among the undated.
  const std::vector<NextAction>& actionsNextList() const { return mActionsNextList; }
  /// The earliest future date found, a year ahead when there is none, 0 while execution is
  /// disabled.
  ReferenceTime startOfNextAction() const { return mStartOfNextAction.at(); }
  /// When the next action of the list really starts by a date of its own: in its allowed hours, and
  /// at their begin where it waits for them. In the past when it is overdue; nothing without one.
  std::optional<ReferenceTime> nextRun() const;
  /// Whether the look-ahead has already handled `startOfNextAction`.
  bool listNextWasUpdated() const { return mListNextWasUpdated; }
  void setListNextWasUpdated(bool updated) { mListNextWasUpdated = updated; }
  /// Whether some action waits for the user to be idle.
  bool idleTimeScheduling() const { return mIdleTimeScheduling; }
  /// Names the earliest future action and its time; empty without one.
  const std::string& nextActionText() const { return mNextActionText; }
  /// Whether records wait for the notice that they were not executed for long.
  bool hasNotExecutedNotices() const { return !mNotificationNotExecutedSince.empty(); }
  /// Gives the settings of the first of them away; null without one.
  ZAN_Value takeNotExecuted();
  /// When an action was last executed, or else edited.
  static std::optional<ReferenceTime> lastSignOfLife(const ZAN_Value& settings);

  /// The user's calendar, as found at the last evaluation.
  const ZAN_DateUtils& calendar() const { return mCalendar; }

  /// Takes in when the user last did anything, as far as the system says so; where nobody can be
  /// seen to be away that is now.
  void followIdleTime();

  /// Compares the running applications with those of the last call.
  void updateAppLists();
  /// Whether the application of this path, by its name, ran at the last comparison.
  bool isApplicationOpened(std::string_view path) const;
  /// Whether it ended between the last two comparisons.
  bool didApplicationQuit(std::string_view path) const;

 private:
  struct Walk;

  void updateCalendar();
  void enqueue(Walk& walk);
  void walkGroup(Walk& walk, const ProgrammedAction& group);
  void walkAction(Walk& walk, ProgrammedAction& action);
  void collectNotExecuted(ReferenceTime now, const ProgrammedAction& action,
                          const TriggerSettings& trigger);
  void nameNextAction(const Walk& walk);
  std::optional<ReferenceTime> nextRunOf(const ProgrammedAction& action) const;
  void listChanged();

  Records& m;
  VolumeIdentity& mVolumes;
  ActionQueue& mQueue;
  ZAN_DateUtils mCalendar;
  std::vector<NextAction> mActionsNextList;
  /// Found when it is first asked for after a change of the list.
  mutable std::optional<std::optional<ReferenceTime>> mNextRun;
  Deadline mStartOfNextAction;
  std::string mNextActionText;
  bool mListNextWasUpdated = false;
  bool mIdleTimeScheduling = false;
  bool mNotificationNotExecutedDone = false;
  std::deque<ZAN_Value> mNotificationNotExecutedSince;
  ApplicationLists mApplications;
  MissedRuns mMissedRuns;
};

}  // namespace corvana
