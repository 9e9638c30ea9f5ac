#include "ui/windows/RunDurations.h"

#include "ZANCocoaFramework/ZAN_Value.h"
#include "core/record/SchedulerLog.h"

namespace corvana {

namespace {

constexpr int kRuns = 5;
constexpr double kUnknown = 60;

}  // namespace

RunDurations::RunDurations(const ZAN_Value& history) {
  const auto entries = history.elements();
  for (std::size_t i = entries.size(); i-- > 1;) {
    const ZAN_Value& entry = entries[i];
    const std::int64_t code = entry.integer("C");
    if (code != LogCode::completed && code != LogCode::completedWithErrors) continue;
    const auto start = entry["Date"].asDate();
    const auto end = entry["EndDate"].asDate();
    if (!start || !end || *end < *start) continue;
    Sum& sum = mSums[entry.integer("Ref")];
    if (sum.runs == kRuns) continue;
    sum.seconds += *end - *start;
    ++sum.runs;
  }
}

double RunDurations::secondsOf(std::int64_t ref) const {
  const auto found = mSums.find(ref);
  return found == mSums.end() ? kUnknown : found->second.seconds / found->second.runs;
}

}  // namespace corvana
