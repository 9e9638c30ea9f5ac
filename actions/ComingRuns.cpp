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
