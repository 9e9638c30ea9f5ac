#include "actions/ComingRuns.h"

#include <algorithm>
#include <utility>

namespace corvana {

namespace {

/// Heaps keep the largest on top, so the later run is the smaller one.
bool comesLater(const ComingRuns::Run& a, const ComingRuns::Run& b) {
  return a.date != b.date ? a.date > b.date : a.action > b.action;
}

}  // namespace

ComingRuns::ComingRuns(const ZAN_DateUtils& calendar, ReferenceTime now, ActionsTools::Log log)
    : mCalendar(calendar), mNow(now), mLog(std::move(log)) {}

void ComingRuns::add(Schedule schedule) {
  if (!schedule.listDamage.empty()) {
    // Tells the damage once; without it the schedule goes on with its periodic dates.
    ActionsTools(mCalendar, mNow, mLog).getNextScheduleProgrammed(schedule);
    schedule.listDamage.clear();
  }
  mActions.push_back({std::move(schedule), mNow});
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
  action.schedule.lastScheduleDate = action.now;
  plan(run.action);
  return run;
}

void ComingRuns::plan(std::size_t index) {
  Action& action = mActions[index];
  // Allowed hours hide a date on the days on which the series passes them; a later day shows it
  // again.
  constexpr int kDaysToTry = 8;
  const int days = action.schedule.hasAllowedHours ? kDaysToTry : 1;
  ReferenceTime now = action.now;
  for (int day = 0; day < days; ++day, now = mCalendar.nextDay(now)) {
    Run run{.action = index};
    const auto date = ActionsTools(mCalendar, now)
                          .getNextScheduleDateForSettings(action.schedule, false, &run.shutDown);
    if (!date) continue;
    if (action.now != mNow && *date <= action.now) return;
    run.date = *date;
    mPlanned.push_back(run);
    std::ranges::push_heap(mPlanned, comesLater);
    return;
  }
}

}  // namespace corvana
