#include "core/record/Diagnostics.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/TextFiles.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr double kTalkativeSeconds = 60;

}  // namespace

DebugLog::DebugLog(const Clock& clock, TextFiles& files, ReferenceTime startOfScheduler,
                   bool mainAppRanAtStartup)
    : mClock(clock),
      mFiles(files),
      mStartOfScheduler(startOfScheduler),
      mMainAppRanAtStartup(mainAppRanAtStartup) {}

void DebugLog::logMessage(std::string_view text, bool always) {
  if (!mMainAppRanAtStartup) return;
  const double elapsed = mClock.now() - mStartOfScheduler;
  if (!always && elapsed >= kTalkativeSeconds) return;
  // Kept to 32 bits as readers of the file expect: after 24 days it begins anew.
  const auto milliseconds = static_cast<std::int32_t>(static_cast<std::int64_t>(elapsed * 1000));
  mFiles.addToLogFile(ZAN_StringUtils::format("(+%d ms) - %@", {milliseconds, text}));
}

namespace {

constexpr int kAveragingSeconds = 10;

}  // namespace

SurveyExecution::SurveyExecution(const Clock& clock, RunLoop& runLoop, std::string bundleName)
    : mClock(clock), mRunLoop(runLoop), mBundleName(std::move(bundleName)) {}

SurveyExecution::~SurveyExecution() { mRunLoop.cancel(mTimer); }

void SurveyExecution::showWindow() {
  mMeasuring = true;
  if (mTimer != 0) return;
  mTimer = mRunLoop.repeat(1.0, [this] {
    if (onUpdated) onUpdated();
  });
}

void SurveyExecution::closeWindow() { mRunLoop.cancel(std::exchange(mTimer, 0)); }

void SurveyExecution::startExecutionForKey(std::string_view key) {
  if (!isMeasuring()) return;
  auto found = mSurveyExecutionValues.find(key);
  if (found == mSurveyExecutionValues.end()) {
    found = mSurveyExecutionValues.emplace(std::string(key), Values{}).first;
  }
  found->second.start = mClock.monotonic();
}

void SurveyExecution::endExecutionForKey(std::string_view key) {
  if (!isMeasuring()) return;
  const auto found = mSurveyExecutionValues.find(key);
  if (found == mSurveyExecutionValues.end() || found->second.start < 0) return;
  Values& values = found->second;
  const double now = mClock.monotonic();
  values.list.push_back({now, now - std::exchange(values.start, -1)});
  values.hadValues = true;
  dropOld(values);
}

void SurveyExecution::dropOld(Values& values) const {
  const double oldest = mClock.monotonic() - kAveragingSeconds;
  while (!values.list.empty() && values.list.front().date < oldest) values.list.pop_front();
}

std::string SurveyExecution::title() const {
  return ZAN_StringUtils::format("Survey Execution (%@)", {mBundleName});
}

std::vector<std::string> SurveyExecution::lines() {
  std::vector<std::string> result{ZAN_StringUtils::format(
      "Calculating average values over the last %d seconds", {kAveragingSeconds})};
  for (auto& [key, values] : mSurveyExecutionValues) {
    dropOld(values);
    if (values.list.empty()) {
      result.push_back(ZAN_StringUtils::format(
          values.hadValues ? "%@: No values for this duration" : "%@: No values", {key}));
      continue;
    }
    double sum = 0;
    double shortest = std::numeric_limits<double>::max();
    double longest = 0;
    for (const Entry& entry : values.list) {
      sum += entry.delay;
      shortest = std::min(shortest, entry.delay);
      longest = std::max(longest, entry.delay);
    }
    const double average = sum / static_cast<double>(values.list.size());
    const double share = sum / kAveragingSeconds;
    result.push_back(ZAN_StringUtils::format(
        "%@: %d values, average: %1.3f ms (%1.3f ms/sec = %1.3f %%), min: %1.3f ms, max: %1.3f ms",
        {key, values.list.size(), average * 1000, share * 1000, share * 100, shortest * 1000,
         longest * 1000}));
  }
  return result;
}

}  // namespace corvana
