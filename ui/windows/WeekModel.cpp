#include "ui/windows/WeekModel.h"

#include <cmath>
#include <unordered_set>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/ActionTree.h"
#include "actions/History.h"
#include "core/record/SchedulerState.h"
#include "core/work/TriggerEvaluation.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "ui/windows/LaunchByHand.h"
#include "ui/windows/NextActionsModel.h"
#include "ui/windows/RunDurations.h"

namespace corvana {

bool WeekModel::refresh(const NextActionsModel& shown) {
  const ReferenceTime now = m.platform.clock.now();
  const std::pair madeOf{shown.revision(), static_cast<std::int64_t>(std::floor(now / 60))};
  if (std::exchange(mMadeOf, madeOf) == madeOf && mWeek != nullptr) return false;
  const RunDurations durations(m.history.getProgrammedHistoryList());
  std::unordered_set<std::int64_t> refs;
  for (std::size_t row = 0; row < shown.rowCount(); ++row)
    if (shown.action(row).hasDate) refs.insert(shown.action(row).ref);
  ProgrammedAction::Nodes nodes;
  m.tree.rootItem().getListOfAllProgrammedActions(nodes);
  std::vector<WeekTimeline::Action> actions;
  for (const ProgrammedAction* node : nodes) {
    if (!refs.contains(node->getReference())) continue;
    actions.push_back({.ref = node->getReference(),
                       .title = node->getTitle(),
                       .schedule = node->schedule(),
                       .seconds = durations.secondsOf(node->getReference())});
  }
  mWeek = std::make_unique<WeekTimeline>(m.evaluation.calendar(), now, std::move(actions));
  return true;
}

std::string WeekModel::dayTitle(std::size_t day) const {
  const ZAN_DateUtils& calendar = m.evaluation.calendar();
  const ReferenceTime start = mWeek->days()[day].start;
  if (day == 0) return m.texts.text("WeekToday");
  return m.texts.text("WeekDay", {calendar.weekdayName(calendar.weekdayForDate(start)),
                                  calendar.dayForDate(start)});
}

std::string WeekModel::hourTitle(int hour) const {
  // A day without a change of the clocks has every hour.
  constexpr ReferenceTime kAnyDay = 0;
  const ZAN_DateUtils& calendar = m.evaluation.calendar();
  return m.strings.getShortTime(calendar.timeOfDay(kAnyDay, hour % 24 * 3600));
}

std::string WeekModel::changeText(std::size_t day) const {
  const auto& change = mWeek->days()[day].change;
  if (!change) return {};
  const auto clock = [this](double part) {
    const int minutes = static_cast<int>(part * 1440 + 0.5);
    return m.strings.getShortTime(m.evaluation.calendar().timeOfDay(0, minutes % 1440 * 60));
  };
  return m.texts.text(change->forward ? "WeekClockForward" : "WeekClockBack",
                      {clock(change->from), clock(change->to)});
}

std::string WeekModel::barTitle(const WeekTimeline::Bar& bar) const {
  return mWeek->actionOf(mWeek->runs()[bar.run]).title;
}

std::string WeekModel::barText(const WeekTimeline::Bar& bar) const {
  const WeekTimeline::Run& run = mWeek->runs()[bar.run];
  const WeekTimeline::Action& action = mWeek->actionOf(run);
  const ActionsTools tools(m.evaluation.calendar(), m.platform.clock.now());
  const std::string when = tools.getScheduleStringForDate(run.start, {m.texts, m.strings});
  if (bar.count > 1) return m.texts.text("WeekBand", {action.title, when, bar.count});
  std::string text = m.texts.text(run.shutDown ? "WeekRunShutDown" : "WeekRun",
                                  {action.title, when, durationText(run.end - run.start)});
  if (run.waitsFor) {
    text +=
        ' ' + m.texts.text("WeekWaitsFor", {mWeek->actionOf(mWeek->runs()[*run.waitsFor]).title});
  } else if (run.isMet) {
    text += ' ' + m.texts.text("WeekIsMet");
  }
  return text;
}

std::string WeekModel::summary() const {
  if (isEmpty()) return m.texts.text("WeekEmpty");
  const std::size_t overlapping = mWeek->overlapping();
  if (mWeek->isCut()) return m.texts.text("WeekCut", {mWeek->runs().size()});
  return overlapping == 0 ? m.texts.text("WeekCount", {mWeek->runs().size()})
                          : m.texts.text("WeekCountOverlap", {mWeek->runs().size(), overlapping});
}

}  // namespace corvana
