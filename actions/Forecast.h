#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "actions/ActionContext.h"
#include "actions/ActionsTools.h"
#include "actions/Schedule.h"

namespace corvana {

/// What keeps an action from running when its date comes.
enum class Hold { none, disabled, otherMachine, otherContext, paused };
/// A short name for programs: "disabled", "paused"; empty for none.
std::string_view nameOf(Hold hold);

/// What holds actions up for as long as it lasts, whatever their schedules say.
struct Circumstances {
  bool disabled = false;      ///< automatic execution is off, or goes off when all is done
  bool otherMachine = false;  ///< the question about the start-up disk is open
  bool paused = false;
  ActionContext context = ActionContext::none;

  /// What is met first by an action of that context.
  Hold holds(ActionContext of) const;
  bool operator==(const Circumstances&) const = default;
};

/// When an action runs by its schedule, found however far away it is, in both directions of time.
///
/// The dates of `ActionsTools` end at a horizon, and hours hide some of them until the day has
/// come. This goes on from day to day as the agent does: a date counts when it would still be found
/// on its own day. What the schedule leaves to an event or a start-up has no date here.
///
/// Thread: any, one at a time.
class Forecast {
 public:
  /// `log` hears of a damaged schedule list, once.
  Forecast(const ZAN_DateUtils& calendar, Schedule schedule, const ActionsTools::Log& log = {});

  struct Run {
    ReferenceTime date = 0;
    bool shutDown = false;  ///< it happens when the machine is shut down
  };
  /// The next run as seen at `now`. Before `now`: it is overdue and may still run today. Null when
  /// there is none within `kYears`.
  std::optional<Run> next(ReferenceTime now) const;
  /// The last run in the span (after, until], had each been carried out in time. Runs at a
  /// shut-down are none. Where dates of the list moved the steps of "every N minutes" meanwhile,
  /// it may be off by less than one step.
  std::optional<ReferenceTime> lastWithin(ReferenceTime after, ReferenceTime until) const;
  /// The series goes on from that run.
  void setLastRun(ReferenceTime date);

  /// 29 February may be eight years away.
  static constexpr int kYears = 9;

  /// Parts of a schedule that never run: of the times that a record asks for those that no day
  /// brings, and why.
  struct Never {
    enum class Why {
      hoursNeverCome,  ///< the allowed hours end before they begin
      outsideHours,    ///< its time of day, or every time it comes to, lies outside of them
      noSuchDay
    };
    Why why = Why::noSuchDay;
    std::optional<int> time;  ///< seconds in day, of a part at a fixed time
  };
  /// Empty when each part of the schedule runs, as seen at `now`, and goes on to when it has missed
  /// some days. An action that is not automatic has no parts.
  static std::vector<Never> partsThatNeverRun(const ZAN_DateUtils& calendar,
                                              const Schedule& schedule, ReferenceTime now);

 private:
  std::optional<ReferenceTime> nextPeriodic(ReferenceTime now) const;
  std::optional<ReferenceTime> nextListed(ReferenceTime now) const;
  bool periodicComes() const;
  bool isInReach(int seconds) const;
  ReferenceTime begin(ReferenceTime now) const;
  void setLastBefore(ReferenceTime dayStart, ReferenceTime seriesStart);

  ZAN_DateUtils mCalendar;
  Schedule mPeriodic;  ///< without its list
  Schedule mList;      ///< the list alone, without what no hour allows
  int mFrom = 0;       ///< allowed hours in seconds in day
  int mTo = 0;
  std::int64_t mStride = 1;  ///< days that one look at the list covers
  bool mPeriodicComes = false;
  bool mHasShutDown = false;
};

/// The runs that lie ahead of many actions, in order, as if each ran at its date: the series of an
/// action goes on from each found date. Thread: any, one at a time.
class ComingRuns {
 public:
  ComingRuns(const ZAN_DateUtils& calendar, ReferenceTime now, const Circumstances& circumstances,
             ActionsTools::Log log = {});

  struct Run {
    ReferenceTime date = 0;  ///< before now for the first run of an action that is overdue
    std::size_t action = 0;  ///< which one, counted from 0 as they were added
    bool shutDown = false;
    Hold hold = Hold::none;  ///< what would keep it from running, were it now
  };

  void add(Schedule schedule, ActionContext context);
  /// The next one of all actions; of equal dates the action that was added first. Null when no
  /// action has any more.
  std::optional<Run> next();

 private:
  struct Action {
    Forecast forecast;
    ReferenceTime now = 0;
    Hold hold = Hold::none;
  };

  void plan(std::size_t action);

  ZAN_DateUtils mCalendar;
  ReferenceTime mNow;
  Circumstances mCircumstances;
  ActionsTools::Log mLog;
  std::vector<Action> mActions;
  std::vector<Run> mPlanned;  ///< a heap, the earliest run on top
};

}  // namespace corvana
