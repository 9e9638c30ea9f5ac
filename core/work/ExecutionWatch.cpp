#include "core/work/ExecutionWatch.h"

#include <algorithm>

#include "actions/TaskRequest.h"
#include "core/record/SchedulerLog.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

/// Of so many runs the mean is taken.
constexpr int kRuns = 5;
constexpr double kUnknown = 60;

constexpr double kTimesUsual = 5;
constexpr double kShortestLong = 30 * 60.0;

constexpr double kUntilTerminated = 10;
constexpr double kUntilKilled = 20;
/// The kernel needs a moment to clear away what it has killed.
constexpr double kUntilGivenUp = 5;

}  // namespace

RunDurations::RunDurations(const ZAN_Value& history) {
  const auto entries = history.elements();
  for (std::size_t i = entries.size(); i-- > 1;) {
    const ZAN_Value& entry = entries[i];
    const std::int64_t code = entry.integer("C");
    if (code != LogCode::completed && code != LogCode::completedWithErrors) continue;
    if (entry.contains(TaskRequest::kTaskKey)) continue;
    const auto start = entry["Date"].asDate();
    const auto end = entry["EndDate"].asDate();
    if (!start || !end || *end < *start) continue;
    Sum& sum = mSums[entry.integer("Ref")];
    if (sum.runs == kRuns) continue;
    sum.seconds += *end - *start;
    ++sum.runs;
  }
}

std::optional<double> RunDurations::knownSecondsOf(std::int64_t ref) const {
  const auto found = mSums.find(ref);
  if (found == mSums.end()) return std::nullopt;
  return found->second.seconds / found->second.runs;
}

double RunDurations::secondsOf(std::int64_t ref) const {
  return knownSecondsOf(ref).value_or(kUnknown);
}

void ExecutionWatch::begin(double patience, bool tellsProgress) {
  mRuns = true;
  mPatience = patience;
  mTellsProgress = tellsProgress;
  mPaused = false;
  mWorked = mWorkedAtProgress = 0;
  mCounted = mClock.monotonic();
  mStart = mProgressDate = mClock.now();
  mReport = {};
  mUsualIsSet = false;
  mLongest = 0;
}

double ExecutionWatch::worked() const {
  return mPaused ? mWorked : mWorked + (mClock.monotonic() - mCounted);
}

void ExecutionWatch::setPaused(bool paused) {
  mWorked = worked();
  mCounted = mClock.monotonic();
  mPaused = paused;
}

void ExecutionWatch::takeReport(const ZAN_Value& report) {
  if (!mRuns) return;
  mTellsProgress = true;
  if (report == mReport) return;
  mReport = report;
  mWorkedAtProgress = worked();
  mProgressDate = mClock.now();
}

bool ExecutionWatch::wantsUsual() const {
  return mRuns && mPatience > 0 && !mUsualIsSet && worked() >= kShortestLong;
}

void ExecutionWatch::setUsual(std::optional<double> seconds) {
  mUsualIsSet = true;
  mLongest = seconds ? std::max(kShortestLong, kTimesUsual * *seconds) : 0;
}

std::optional<Stall> ExecutionWatch::stall() const {
  if (!mRuns || mPatience <= 0) return std::nullopt;
  // A clock that was set back meanwhile would put them into the future.
  const ReferenceTime now = mClock.now();
  if (mTellsProgress && worked() - mWorkedAtProgress >= mPatience)
    return Stall{Stall::Kind::noProgress, std::min(mProgressDate, now)};
  if (mLongest > 0 && worked() >= mLongest)
    return Stall{Stall::Kind::longerThanUsual, std::min(mStart, now)};
  return std::nullopt;
}

ReferenceTime ExecutionWatch::nextLook() const {
  if (!mRuns || mPatience <= 0 || mPaused) return kNever;
  const double done = worked();
  double left = kNever;
  const auto at = [&](double wanted) {
    if (wanted > done) left = std::min(left, wanted - done);
  };
  if (mTellsProgress) at(mWorkedAtProgress + mPatience);
  if (!mUsualIsSet) at(kShortestLong);
  if (mLongest > 0) at(mLongest);
  return mClock.now() + left;
}

void ExecutionStop::want(bool goesOn) {
  if (mStage == Stage::none) {
    mStage = Stage::asked;
    mNext = goesOn ? std::optional(mClock.monotonic() + kUntilTerminated) : std::nullopt;
  } else if (mStage == Stage::asked && !mNext) {
    mNext = mClock.monotonic();
  }
}

ReferenceTime ExecutionStop::nextStage() const {
  if (mStage == Stage::none || !mNext) return kNever;
  const double left = *mNext - mClock.monotonic();
  // Not now, which is later than the now of whoever compares.
  return left <= 0 ? kAtOnce : mClock.now() + left;
}

std::optional<ExecutionStop::Stage> ExecutionStop::takeNext() {
  const double now = mClock.monotonic();
  if (mStage == Stage::none || !mNext || *mNext > now) return std::nullopt;
  switch (mStage) {
    case Stage::asked:
      mStage = Stage::terminated;
      mNext = now + kUntilKilled;
      break;
    case Stage::terminated:
      mStage = Stage::killed;
      mNext = now + kUntilGivenUp;
      break;
    default:
      mStage = Stage::givenUp;
      mNext.reset();
  }
  return mStage;
}

}  // namespace corvana
