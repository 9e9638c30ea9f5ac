#include "execute/engine/Thinning.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "actions/RecordKeys.h"

namespace corvana {

namespace {

constexpr double kDay = 86400;

/// Of versions with the same answer the newest is kept; nothing: each is.
std::optional<std::pair<int, double>> periodOf(ReferenceTime date, ReferenceTime now) {
  constexpr double kWeek = 7 * kDay;
  const double age = now - date;
  if (age < 2 * kDay) return std::nullopt;
  if (age < 31 * kDay) return std::pair(1, std::floor(date / kDay));
  if (age < 366 * kDay) return std::pair(2, std::floor(date / kWeek));
  const auto day = static_cast<std::int64_t>(std::floor((date + kReferenceEpochInUnixTime) / kDay));
  const auto civil = ZAN_CivilDay::ofNumber(day);
  return std::pair(3, civil.year * 12.0 + civil.month);
}

}  // namespace

VersionsKept VersionsKept::fromSettings(const ZAN_Value& settings) {
  VersionsKept kept;
  kept.none = settings.integer(VersionKey::none) != 0;
  kept.seconds =
      kDay * static_cast<double>(std::max<std::int64_t>(settings.integer(VersionKey::days), 0));
  kept.bytes =
      static_cast<std::uint64_t>(std::max<std::int64_t>(settings.integer(VersionKey::bytes), 0));
  return kept;
}

std::size_t VersionsKept::beforeLeap(const std::vector<ReferenceTime>& dates, ReferenceTime now) {
  constexpr double kMonth = 31 * kDay;
  constexpr double kUsualTimes = 4;
  constexpr double kUntilBelieved = 7 * kDay;
  constexpr std::size_t kRunsLookedAt = 9;
  if (!dates.empty()) now = std::min(now, dates.back());
  for (std::size_t i = dates.size(); i-- > 1;) {
    // The clock may have been set back again.
    if (now - dates[i] >= kUntilBelieved) return 0;
    const double gap = dates[i] - dates[i - 1];
    if (gap <= kMonth) continue;
    std::vector<double> usual;
    for (std::size_t j = i - 1; j > 0 && usual.size() < kRunsLookedAt; --j)
      usual.push_back(dates[j] - dates[j - 1]);
    std::ranges::sort(usual);
    if (usual.empty() || gap > kUsualTimes * usual[usual.size() / 2]) return i;
  }
  return 0;
}

std::vector<std::size_t> VersionsKept::superfluous(const std::vector<ReferenceTime>& dates,
                                                   ReferenceTime now) const {
  std::vector<std::size_t> found;
  if (dates.empty()) return found;
  // A clock that was put forward during the run makes no version older.
  now = std::min(now, dates.back());
  const std::size_t first = none ? 0 : beforeLeap(dates, now);
  for (std::size_t i = first; i + 1 < dates.size(); ++i) {
    const auto period = periodOf(dates[i], now);
    const bool isTooOld = seconds > 0 && now - dates[i] > seconds;
    if (none || isTooOld || (period && period == periodOf(dates[i + 1], now))) found.push_back(i);
  }
  return found;
}

}  // namespace corvana
