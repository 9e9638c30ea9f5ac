#include "ui/windows/WeekTimeline.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "actions/ComingRuns.h"

namespace corvana {

namespace {

constexpr double kDaySeconds = 86400;
/// A bar is never thinner than this many seconds on the clock: lanes have to keep it apart.
constexpr double kThinnest = 900;

}  // namespace

WeekTimeline::WeekTimeline(const ZAN_DateUtils& calendar, ReferenceTime now,
                           std::vector<Action> actions)
    : mCalendar(calendar), mNow(now), mActions(std::move(actions)), mNowInDay(partOfDay(now)) {
  ReferenceTime start = mCalendar.dayAt0h00(mNow);
  for (int i = 0; i < kDays; ++i) {
    mDays.push_back({.start = start});
    start = mCalendar.nextDay(start);
  }
  findRuns(start);
  findOverlaps();
  makeDays();
}

void WeekTimeline::findRuns(ReferenceTime end) {
  ComingRuns coming(mCalendar, mNow);
  for (const Action& action : mActions) coming.add(action.schedule);
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
                     .shutDown = run->shutDown});
  }
  std::ranges::stable_sort(mRuns, {}, &Run::start);
}

void WeekTimeline::findOverlaps() {
  std::optional<std::size_t> latest;
  for (std::size_t i = 0; i < mRuns.size(); ++i) {
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

}  // namespace corvana
