#include "actions/Forecast.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace corvana {

namespace {

constexpr double kDay = 86400;
constexpr std::int64_t kDaysToLook = std::int64_t{Forecast::kYears} * 366;
/// Dates so soon after the day's begin are known from the evening before.
constexpr double kKnownBefore = 120;
/// A change of the clocks moves a time by so much at most.
constexpr int kClockChange = 3600;

bool startsWithMachine(ScheduleKind kind) {
  return kind == ScheduleKind::firstStartUpOfDay || kind == ScheduleKind::nextDay;
}

/// In how many days a series of such steps has come to every time of day that it ever comes to, the
/// changes of the clocks included.
std::int64_t daysOfSteps(std::int64_t minutes) {
  constexpr std::int64_t kMinutesADay = 1440;
  constexpr std::int64_t kYear = 370;
  const std::int64_t times = kMinutesADay / std::gcd(minutes, kMinutesADay);
  return minutes > kDaysToLook * kMinutesADay / times
             ? kDaysToLook
             : std::min(kDaysToLook, times * minutes / kMinutesADay + kYear);
}

bool isPeriodic(ScheduleKind kind) {
  return kind == ScheduleKind::daily || kind == ScheduleKind::minutes ||
         kind == ScheduleKind::hourly || kind == ScheduleKind::threeHourly;
}

}  // namespace

std::string_view nameOf(Hold hold) {
  switch (hold) {
    case Hold::none:
      break;
    case Hold::disabled:
      return "disabled";
    case Hold::otherMachine:
      return "other machine";
    case Hold::otherContext:
      return "other context";
    case Hold::paused:
      return "paused";
  }
  return {};
}

Hold Circumstances::holds(ActionContext of) const {
  if (otherMachine) return Hold::otherMachine;
  if (disabled) return Hold::disabled;
  if (isOtherContext(of, context)) return Hold::otherContext;
  return paused ? Hold::paused : Hold::none;
}

Forecast::Forecast(const ZAN_DateUtils& calendar, Schedule schedule, const ActionsTools::Log& log)
    : mCalendar(calendar), mPeriodic(std::move(schedule)) {
  if (!mPeriodic.listDamage.empty()) {
    ActionsTools(mCalendar, 0, log).getNextScheduleProgrammed(mPeriodic);
    mPeriodic.listDamage.clear();
  }
  const auto secondsOf = [&](const std::optional<ReferenceTime>& time) {
    return time ? mCalendar.secondsInDay(*time) : 0;
  };
  mFrom = secondsOf(mPeriodic.allowedFrom);
  mTo = secondsOf(mPeriodic.allowedTo);
  mList = mPeriodic;
  mList.kind = ScheduleKind::listOnly;
  mPeriodic.list.clear();
  mPeriodicComes = periodicComes();

  std::erase_if(mList.list, [&](const ScheduleEntry& entry) {
    return !mList.automatic || !entry.time || ScheduleDays::horizonOf(entry) == 0 ||
           !isInReach(secondsOf(entry.time));
  });
  if (mList.list.empty()) return;
  mHasShutDown = std::ranges::any_of(mList.list, [](const ScheduleEntry& entry) {
    return entry.occasion == ScheduleEntry::Occasion::shutDown;
  });
  // With hours, a change of the clocks hides the first day of an entry and no other.
  if (mList.hasAllowedHours) return;
  mStride = kDaysToLook;
  for (const ScheduleEntry& entry : mList.list)
    mStride = std::min(mStride, ScheduleDays::horizonOf(entry));
}

void Forecast::setLastRun(ReferenceTime date) {
  mPeriodic.lastScheduleDate = date;
  mList.lastScheduleDate = date;
}

bool Forecast::isInReach(int seconds) const {
  return !mPeriodic.hasAllowedHours || (seconds >= mFrom - kClockChange && seconds <= mTo);
}

bool Forecast::periodicComes() const {
  const Schedule& schedule = mPeriodic;
  if (!schedule.automatic || (schedule.hasAllowedHours && mTo < mFrom)) return false;
  switch (schedule.kind) {
    case ScheduleKind::daily:
      return schedule.time && isInReach(mCalendar.secondsInDay(*schedule.time));
    case ScheduleKind::hourly:
    case ScheduleKind::threeHourly:
      return isInReach(mFrom + schedule.hourDelay * 900);
    default:
      return isPeriodic(schedule.kind) || startsWithMachine(schedule.kind);
  }
}

/// Where a search begins: what today's hours did not let through is over with them.
ReferenceTime Forecast::begin(ReferenceTime now) const {
  return mPeriodic.hasAllowedHours && mCalendar.secondsInDay(now) > mTo ? mCalendar.nextDay(now)
                                                                        : now;
}

std::optional<Forecast::Run> Forecast::next(ReferenceTime now) const {
  if (mPeriodic.lastScheduleDate && *mPeriodic.lastScheduleDate > now + kDay) {
    Forecast healed(*this);
    healed.setLastRun(now);
    return healed.next(now);
  }
  std::optional<ReferenceTime> date = nextPeriodic(now);
  if (const auto listed = nextListed(now); listed && (!date || *listed < *date)) date = listed;
  if (!date) return std::nullopt;
  Run run{.date = *date};
  if (mHasShutDown) {
    const ReferenceTime then = std::max(begin(now), mCalendar.dayAt0h00(*date));
    run.shutDown = ActionsTools(mCalendar, then).getNextScheduleProgrammed(mList).shutDown;
  }
  return run;
}

std::optional<ReferenceTime> Forecast::nextPeriodic(ReferenceTime now) const {
  if (!mPeriodicComes) return std::nullopt;
  ReferenceTime at = begin(now);
  const std::int64_t end =
      mCalendar.dayNumber(at) +
      (mPeriodic.kind == ScheduleKind::minutes ? daysOfSteps(mPeriodic.minutes) : kDaysToLook);
  while (true) {
    const std::int64_t day = mCalendar.dayNumber(at);
    if (day >= end) return std::nullopt;
    const auto date = ActionsTools(mCalendar, at).getNextScheduleDateForSettings(mPeriodic, false);
    if (!date) {
      if (startsWithMachine(mPeriodic.kind)) return std::nullopt;
      at = mCalendar.nextDay(at);
      continue;
    }
    const std::int64_t dateDay = mCalendar.dayNumber(*date);
    if (dateDay <= day || mPeriodic.kind == ScheduleKind::daily) return date;
    const ReferenceTime thatDay = mCalendar.firstInstantOfDay(dateDay);
    if (!mPeriodic.hasAllowedHours && *date < thatDay + kKnownBefore) return date;
    // Series begin anew with the day, or have to reach its hours: that day itself decides.
    at = thatDay;
  }
}

std::optional<ReferenceTime> Forecast::nextListed(ReferenceTime now) const {
  if (mList.list.empty()) return std::nullopt;
  ReferenceTime at = begin(now);
  const std::int64_t first = mCalendar.dayNumber(at);
  for (std::int64_t day = first; day < first + kDaysToLook; day += mStride) {
    if (day != first) at = mCalendar.firstInstantOfDay(day);
    if (const auto date = ActionsTools(mCalendar, at).getNextScheduleProgrammed(mList).date)
      return date;
  }
  return std::nullopt;
}

/// As if the run before that day had been the last one.
void Forecast::setLastBefore(ReferenceTime dayStart, ReferenceTime seriesStart) {
  ReferenceTime last = dayStart - kDay;
  if (mPeriodic.kind == ScheduleKind::minutes) {
    const double step = static_cast<double>(mPeriodic.minutes) * 60;
    last = step == kDay
               ? mCalendar.timeOfDay(last, mCalendar.secondsInDay(seriesStart))
               : seriesStart + std::max(0.0, std::ceil((dayStart - seriesStart) / step) - 1) * step;
  }
  setLastRun(last);
}

std::optional<ReferenceTime> Forecast::lastWithin(ReferenceTime after, ReferenceTime until) const {
  std::optional<ReferenceTime> found;
  /// Runs on from `at`; false when so many runs did not lead to the end.
  const auto runOn = [&](Forecast& walk, ReferenceTime& at, int runs) {
    for (; runs > 0; --runs) {
      const auto run = walk.next(at);
      if (!run || run->date > until) return true;
      at = std::max(at, run->date);
      walk.setLastRun(at);
      if (run->date > after && !run->shutDown) found = run->date;
    }
    return false;
  };
  constexpr int kFew = 64;
  constexpr int kRunsADay = 1500;
  Forecast walk(*this);
  ReferenceTime at = after;
  if (runOn(walk, at, kFew)) return found;
  // Many were missed: the last one is looked for from the end, day by day.
  const ReferenceTime seriesStart = mCalendar.dayAt0Seconds(at);
  const auto foundFirst = std::exchange(found, std::nullopt);
  for (std::int64_t day = mCalendar.dayNumber(until); !found; --day) {
    ReferenceTime dayStart = mCalendar.firstInstantOfDay(day);
    if (dayStart <= at) break;
    Forecast thatDay(*this);
    thatDay.setLastBefore(dayStart, seriesStart);
    runOn(thatDay, dayStart, kRunsADay);
  }
  if (found) return found;
  found = foundFirst;
  runOn(walk, at, kRunsADay);
  return found;
}

std::vector<Forecast::Never> Forecast::partsThatNeverRun(const ZAN_DateUtils& calendar,
                                                         const Schedule& schedule,
                                                         ReferenceTime now) {
  using Why = Never::Why;
  if (!schedule.automatic) return {};
  const auto secondsOf = [&](const std::optional<ReferenceTime>& time) {
    return time ? calendar.secondsInDay(*time) : 0;
  };
  const int from = secondsOf(schedule.allowedFrom);
  const int to = secondsOf(schedule.allowedTo);
  if (schedule.hasAllowedHours && to < from) return {{Why::hoursNeverCome, {}}};
  // What has missed some days must find its way back to its hours.
  const auto runs = [&](const Schedule& part) {
    const Forecast forecast(calendar, part);
    return forecast.next(now) && forecast.next(now + 3 * kDay);
  };
  std::vector<Never> never;
  const auto look = [&](Schedule part, const std::optional<ReferenceTime>& time) {
    const std::optional<int> seconds = time ? std::optional(secondsOf(time)) : std::nullopt;
    const bool isOutside = part.hasAllowedHours && seconds && (*seconds < from || *seconds > to);
    if (!isOutside && runs(part)) return;
    const bool hidden = std::exchange(part.hasAllowedHours, false) && runs(part);
    never.push_back({.why = hidden ? Why::outsideHours : Why::noSuchDay, .time = seconds});
  };
  Schedule part = schedule;
  part.list.clear();
  part.listDamage.clear();
  if (isPeriodic(part.kind))
    look(part, part.kind == ScheduleKind::daily ? part.time : std::nullopt);
  part.kind = ScheduleKind::listOnly;
  for (const ScheduleEntry& entry : schedule.list) {
    if (!entry.time) continue;
    part.list = {entry};
    look(part, entry.time);
  }
  return never;
}

namespace {

/// Heaps keep the largest on top, so the later run is the smaller one.
bool comesLater(const ComingRuns::Run& a, const ComingRuns::Run& b) {
  return a.date != b.date ? a.date > b.date : a.action > b.action;
}

}  // namespace

ComingRuns::ComingRuns(const ZAN_DateUtils& calendar, ReferenceTime now,
                       const Circumstances& circumstances, ActionsTools::Log log)
    : mCalendar(calendar), mNow(now), mCircumstances(circumstances), mLog(std::move(log)) {}

void ComingRuns::add(Schedule schedule, ActionContext context) {
  mActions.push_back(
      {Forecast(mCalendar, std::move(schedule), mLog), mNow, mCircumstances.holds(context)});
  plan(mActions.size() - 1);
}

std::optional<ComingRuns::Run> ComingRuns::next() {
  if (mPlanned.empty()) return std::nullopt;
  std::ranges::pop_heap(mPlanned, comesLater);
  const Run run = mPlanned.back();
  mPlanned.pop_back();
  // What is overdue runs now, and its series goes on from now.
  Action& action = mActions[run.action];
  action.now = std::max(run.date, action.now);
  action.forecast.setLastRun(action.now);
  plan(run.action);
  return run;
}

void ComingRuns::plan(std::size_t index) {
  const Action& action = mActions[index];
  const auto run = action.forecast.next(action.now);
  if (!run || (action.now != mNow && run->date <= action.now)) return;
  mPlanned.push_back(
      {.date = run->date, .action = index, .shutDown = run->shutDown, .hold = action.hold});
  std::ranges::push_heap(mPlanned, comesLater);
}

}  // namespace corvana
