#include "ui/windows/WeekModel.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "core/work/ExecutionWatch.h"
#include "ui/windows/ComingModels.h"
#include "ui/windows/WindowWords.h"

namespace corvana {

namespace {

constexpr double kDaySeconds = 86400;
/// A bar is never thinner than this many seconds on the clock: lanes have to keep it apart.
constexpr double kThinnest = 900;

}  // namespace

WeekTimeline::WeekTimeline(const ZAN_DateUtils& calendar, ReferenceTime now,
                           std::vector<Action> actions, const Circumstances& circumstances)
    : mCalendar(calendar), mNow(now), mActions(std::move(actions)), mNowInDay(partOfDay(now)) {
  ReferenceTime start = mCalendar.dayAt0h00(mNow);
  for (int i = 0; i < kDays; ++i) {
    mDays.push_back({.start = start});
    start = mCalendar.nextDay(start);
  }
  findRuns(start, circumstances);
  findOverlaps();
  makeDays();
}

void WeekTimeline::findRuns(ReferenceTime end, const Circumstances& circumstances) {
  ComingRuns coming(mCalendar, mNow, circumstances);
  for (const Action& action : mActions) coming.add(action.schedule, action.context);
  while (const std::optional<ComingRuns::Run> run = coming.next()) {
    if (run->date >= end) break;
    if (mRuns.size() == kMostRuns) {
      mIsCut = true;
      break;
    }
    const Action& action = mActions[run->action];
    const ReferenceTime date = std::max(run->date, mNow);
    mRuns.push_back({.ref = action.ref,
                     .action = run->action,
                     .start = date,
                     .end = date + std::max(action.seconds, 1.0),
                     .shutDown = run->shutDown,
                     .hold = run->hold});
  }
  std::ranges::stable_sort(mRuns, {}, &Run::start);
}

void WeekTimeline::findOverlaps() {
  std::optional<std::size_t> latest;
  for (std::size_t i = 0; i < mRuns.size(); ++i) {
    if (!mRuns[i].comes()) continue;
    if (latest && mRuns[*latest].end > mRuns[i].start) {
      mRuns[i].waitsFor = latest;
      mRuns[*latest].isMet = true;
    }
    if (!latest || mRuns[i].end > mRuns[*latest].end) latest = i;
  }
}

void WeekTimeline::makeDays() {
  std::size_t first = 0;
  for (std::size_t d = 0; d < mDays.size(); ++d) {
    Day& day = mDays[d];
    const ReferenceTime end = mCalendar.nextDay(day.start);
    for (std::size_t i = first; i < mRuns.size() && mRuns[i].start < end; ++i)
      if (mRuns[i].end > day.start) addBar(day, end, i);
    while (first < mRuns.size() && mRuns[first].end <= end && mRuns[first].start < end) ++first;
    foldIntoBands(day);
    setLanes(day);
    day.change = changeBetween(day.start, end);
  }
}

void WeekTimeline::addBar(Day& day, ReferenceTime dayEnd, std::size_t run) {
  const Run& one = mRuns[run];
  const double from = one.start <= day.start ? partOfDay(day.start) : partOfDay(one.start);
  // A run that ends in an hour that comes twice may end on the clock before it began.
  const double to = one.end >= dayEnd ? 1.0 : std::max(from, partOfDay(one.end));
  day.bars.push_back({.run = run, .from = from, .to = to});
}

void WeekTimeline::foldIntoBands(Day& day) const {
  std::map<std::size_t, std::size_t> counts;
  for (const Bar& bar : day.bars) ++counts[mRuns[bar.run].action];
  std::map<std::size_t, std::size_t> bands;  // by action: where its band is
  std::vector<Bar> bars;
  for (const Bar& bar : day.bars) {
    const std::size_t action = mRuns[bar.run].action;
    if (counts[action] <= kMostBars) {
      bars.push_back(bar);
      continue;
    }
    const auto [at, isNew] = bands.emplace(action, bars.size());
    if (isNew) {
      bars.push_back(bar);
    } else {
      Bar& band = bars[at->second];
      ++band.count;
      band.to = std::max(band.to, bar.to);
    }
  }
  day.bars = std::move(bars);
}

void WeekTimeline::setLanes(Day& day) {
  std::array<double, kMostLanes> ends{};
  for (Bar& bar : day.bars) {
    const auto free = std::ranges::find_if(ends, [&](double end) { return end <= bar.from; });
    bar.lane = free == ends.end() ? kMostLanes - 1 : static_cast<int>(free - ends.begin());
    double& end = ends[static_cast<std::size_t>(bar.lane)];
    end = std::max({end, bar.to, bar.from + kThinnest / kDaySeconds});
    day.lanes = std::max(day.lanes, bar.lane + 1);
  }
}

std::optional<WeekTimeline::ClockChange> WeekTimeline::changeBetween(ReferenceTime start,
                                                                     ReferenceTime end) const {
  const auto offset = [this](ReferenceTime at) { return mCalendar.components(at).utcOffset; };
  // A day may begin with the change, which is then its own.
  ReferenceTime before = start - 1;
  ReferenceTime after = end - 1;
  const int by = offset(after) - offset(before);
  if (by == 0) return std::nullopt;
  while (after - before > 1) {
    const ReferenceTime middle =
        before + static_cast<double>(static_cast<std::int64_t>((after - before) / 2));
    (offset(middle) == offset(before) ? before : after) = middle;
  }
  const double resumes = mCalendar.secondsInDay(after);
  const double length = std::abs(by);
  if (by > 0)
    return ClockChange{true, std::max(0.0, resumes - length) / kDaySeconds, resumes / kDaySeconds};
  return ClockChange{false, resumes / kDaySeconds,
                     std::min(kDaySeconds, resumes + length) / kDaySeconds};
}

double WeekTimeline::partOfDay(ReferenceTime date) const {
  return mCalendar.secondsInDay(date) / kDaySeconds;
}

std::size_t WeekTimeline::overlapping() const {
  return static_cast<std::size_t>(std::ranges::count_if(mRuns, &Run::overlaps));
}

bool WeekModel::show(std::int64_t revision, const Circumstances& circumstances,
                     const std::function<std::vector<WeekTimeline::Action>()>& actions) {
  const ReferenceTime now = m.now();
  const std::pair madeOf{revision, static_cast<std::int64_t>(std::floor(now / 60))};
  const bool isSame = mMadeOf == madeOf && mCircumstances == circumstances;
  if (isSame && mWeek != nullptr) return false;
  mMadeOf = madeOf;
  mCircumstances = circumstances;
  mWeek = std::make_unique<WeekTimeline>(m.calendar(), now, actions(), circumstances);
  return true;
}

std::vector<WeekTimeline::Action> weekActions(ProgrammedAction& root, const ZAN_Value& history,
                                              const std::unordered_set<std::int64_t>* refs) {
  const RunDurations durations(history);
  ProgrammedAction::Nodes nodes;
  root.getListOfAllProgrammedActions(nodes);
  std::vector<WeekTimeline::Action> actions;
  for (const ProgrammedAction* node : nodes) {
    if (refs != nullptr && !refs->contains(node->getReference())) continue;
    actions.push_back({.ref = node->getReference(),
                       .title = node->getTitle(),
                       .schedule = node->schedule(),
                       .seconds = durations.secondsOf(node->getReference()),
                       .context = node->getActionContext()});
  }
  return actions;
}

ShownWeekModel::ShownWeekModel(const UserInterfaceSources& sources)
    : WeekModel({.texts = sources.records.texts,
                 .strings = sources.records.strings,
                 .calendar = [&sources]() -> const ZAN_DateUtils& {
                   return sources.work.evaluation.calendar();
                 },
                 .now = [&sources] { return sources.records.platform.clock.now(); }}),
      mSources(sources) {}

bool ShownWeekModel::refresh(const NextActionsModel& shown) {
  const SchedulerState& state = mSources.records.state;
  const Circumstances circumstances{
      .disabled = state.mScheduleDisabled || state.mScheduleDisabledWhenDone,
      .otherMachine = state.mStartedFromNewMachine,
      .paused = state.mPause,
      .context = static_cast<ActionContext>(state.mContext)};
  return show(shown.revision(), circumstances, [&] {
    std::unordered_set<std::int64_t> refs;
    for (std::size_t row = 0; row < shown.rowCount(); ++row)
      if (!shown.action(row).isGroup) refs.insert(shown.action(row).ref);
    return weekActions(mSources.records.tree.rootItem(),
                       mSources.records.history.getProgrammedHistoryList(), &refs);
  });
}

std::string WeekModel::dayTitle(std::size_t day) const {
  const ZAN_DateUtils& calendar = m.calendar();
  const ReferenceTime start = mWeek->days()[day].start;
  if (day == 0) return m.texts.text("WeekToday");
  return m.texts.text("WeekDay", {calendar.weekdayName(calendar.weekdayForDate(start)),
                                  calendar.dayForDate(start)});
}

std::string WeekModel::hourTitle(int hour) const {
  // A day without a change of the clocks has every hour.
  constexpr ReferenceTime kAnyDay = 0;
  const ZAN_DateUtils& calendar = m.calendar();
  return m.strings.getShortTime(calendar.timeOfDay(kAnyDay, hour % 24 * 3600));
}

std::string WeekModel::changeText(std::size_t day) const {
  const auto& change = mWeek->days()[day].change;
  if (!change) return {};
  const auto clock = [this](double part) {
    const int minutes = static_cast<int>(part * 1440 + 0.5);
    return m.strings.getShortTime(m.calendar().timeOfDay(0, minutes % 1440 * 60));
  };
  return m.texts.text(change->forward ? "WeekClockForward" : "WeekClockBack",
                      {clock(change->from), clock(change->to)});
}

std::string WeekModel::barTitle(const WeekTimeline::Bar& bar) const {
  return mWeek->actionOf(mWeek->runs()[bar.run]).title;
}

bool WeekModel::isHeld(const WeekTimeline::Bar& bar) const {
  return mWeek->runs()[bar.run].hold != Hold::none;
}

std::string WeekModel::heldText(Hold hold) const {
  switch (hold) {
    case Hold::none:
      break;
    case Hold::disabled:
      return m.texts.text("WeekHeldDisabled");
    case Hold::otherMachine:
      return m.texts.text("WeekHeldOtherMachine");
    case Hold::otherContext:
      return m.texts.text("WeekHeldContext", {contextName(mCircumstances.context, m.texts)});
    case Hold::paused:
      return m.texts.text("WeekHeldPaused");
  }
  return {};
}

std::string WeekModel::barText(const WeekTimeline::Bar& bar) const {
  const WeekTimeline::Run& run = mWeek->runs()[bar.run];
  const WeekTimeline::Action& action = mWeek->actionOf(run);
  const ActionsTools tools(m.calendar(), m.now());
  const std::string when = tools.getScheduleStringForDate(run.start, {m.texts, m.strings});
  const std::string held = run.hold == Hold::none ? "" : ' ' + heldText(run.hold);
  if (bar.count > 1) return m.texts.text("WeekBand", {action.title, when, bar.count}) + held;
  const auto seconds = static_cast<std::int64_t>(run.end - run.start);
  std::string text = m.texts.text(run.shutDown ? "WeekRunShutDown" : "WeekRun",
                                  {action.title, when, ZAN_StringUtils::getDuration(seconds)}) +
                     held;
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
