#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "actions/Forecast.h"
#include "actions/Schedule.h"
#include "ui/UserInterfaceSources.h"

namespace corvana {

class NextActionsModel;
class ProgrammedAction;
class ZAN_StringTable;
class ZAN_StringUtils;
class ZAN_Value;

/// The coming week as a picture: a row a day from today on, in it a bar a run, at the time that the
/// clock shows. Runs that would meet stand in lanes below each other; the hour that a change of the
/// clocks skips or repeats is marked. An action that runs too often for single bars on a day has
/// one band there. Pure geometry, made once; the drawing asks for nothing else. Thread: any.
class WeekTimeline {
 public:
  static constexpr int kDays = 7;
  /// More runs than these in a week are not looked at.
  static constexpr std::size_t kMostRuns = 20'000;
  /// More runs than these of one action on a day become a band.
  static constexpr std::size_t kMostBars = 12;
  static constexpr int kMostLanes = 6;

  struct Action {
    std::int64_t ref = 0;
    std::string title;
    Schedule schedule;
    double seconds = 60;  ///< how long it is expected to run
    ActionContext context = ActionContext::none;
  };

  struct Run {
    std::int64_t ref = 0;
    std::size_t action = 0;  ///< of those given
    ReferenceTime start = 0;
    ReferenceTime end = 0;
    bool shutDown = false;
    Hold hold = Hold::none;                    ///< what would keep it from running, were it now
    std::optional<std::size_t> waitsFor = {};  ///< the run that is expected to be under way then
    bool isMet = false;                        ///< another run waits for it
    bool comes() const { return hold == Hold::none || hold == Hold::paused; }
    bool overlaps() const { return waitsFor.has_value() || isMet; }
  };
  struct Bar {
    std::size_t run = 0;      ///< of `runs`; of a band its first
    std::size_t count = 1;    ///< runs of a band
    double from = 0, to = 0;  ///< parts of the day on the clock, 0 to 1
    int lane = 0;             ///< from 0; `kMostLanes` - 1 holds what has no lane of its own
  };
  /// Where the clocks change: the time on the clock that is skipped or comes twice.
  struct ClockChange {
    bool forward = false;  ///< skipped
    double from = 0, to = 0;
  };
  struct Day {
    ReferenceTime start = 0;  ///< its first instant
    int lanes = 1;
    std::vector<Bar> bars = {};  ///< by their begin
    std::optional<ClockChange> change = {};
  };

  WeekTimeline(const ZAN_DateUtils& calendar, ReferenceTime now, std::vector<Action> actions,
               const Circumstances& circumstances = {});

  const std::vector<Day>& days() const { return mDays; }
  const std::vector<Run>& runs() const { return mRuns; }  ///< by their begin
  const Action& actionOf(const Run& run) const { return mActions[run.action]; }
  /// Not all runs of the week are here.
  bool isCut() const { return mIsCut; }
  std::size_t overlapping() const;
  /// Now as a part of today's clock.
  double nowInDay() const { return mNowInDay; }

 private:
  void findRuns(ReferenceTime end, const Circumstances& circumstances);
  void findOverlaps();
  void makeDays();
  void addBar(Day& day, ReferenceTime dayEnd, std::size_t run);
  void foldIntoBands(Day& day) const;
  static void setLanes(Day& day);
  std::optional<ClockChange> changeBetween(ReferenceTime start, ReferenceTime end) const;
  double partOfDay(ReferenceTime date) const;

  ZAN_DateUtils mCalendar;
  ReferenceTime mNow;
  std::vector<Action> mActions;
  std::vector<Run> mRuns;
  std::vector<Day> mDays;
  double mNowInDay = 0;
  bool mIsCut = false;
};

/// The coming week with its words. Thread: main.
class WeekModel {
 public:
  struct Words {
    const ZAN_StringTable& texts;
    const ZAN_StringUtils& strings;
    std::function<const ZAN_DateUtils&()> calendar;  ///< it may become another
    std::function<ReferenceTime()> now;
  };
  explicit WeekModel(Words words) : m(std::move(words)) {}

  /// Computed anew for the actions that `actions` gives, unless nothing has changed within this
  /// minute: `revision` is another when they may have. Whether it was.
  bool show(std::int64_t revision, const Circumstances& circumstances,
            const std::function<std::vector<WeekTimeline::Action>()>& actions);
  bool isEmpty() const { return mWeek == nullptr || mWeek->runs().empty(); }
  /// After the first `refresh`.
  const WeekTimeline& week() const { return *mWeek; }

  std::string dayTitle(std::size_t day) const;    ///< "Tuesday 24"
  std::string hourTitle(int hour) const;          ///< 0 to 24, as the region writes it
  std::string changeText(std::size_t day) const;  ///< of the clocks; empty on other days
  std::string barTitle(const WeekTimeline::Bar& bar) const;
  bool isHeld(const WeekTimeline::Bar& bar) const;
  /// When, what, how long and what it meets or what holds it up, in a line.
  std::string barText(const WeekTimeline::Bar& bar) const;
  std::string summary() const;

 private:
  std::string heldText(Hold hold) const;

  Words m;
  std::unique_ptr<WeekTimeline> mWeek;
  std::pair<std::int64_t, std::int64_t> mMadeOf;  ///< revision of the list, and the minute
  Circumstances mCircumstances;
};

/// What of a tree of actions goes into the week: those of `refs`, or without it all.
std::vector<WeekTimeline::Action> weekActions(ProgrammedAction& root, const ZAN_Value& history,
                                              const std::unordered_set<std::int64_t>* refs);

/// The week of the actions that a list shows. Thread: main.
class ShownWeekModel final : public WeekModel {
 public:
  explicit ShownWeekModel(const UserInterfaceSources& sources);
  /// Computed anew for the actions that are shown now. Whether it was.
  bool refresh(const NextActionsModel& shown);

 private:
  const UserInterfaceSources& mSources;
};

}  // namespace corvana
