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

std::vector<std::size_t> VersionsKept::superfluous(const std::vector<ReferenceTime>& dates,
                                                   ReferenceTime now) const {
  std::vector<std::size_t> found;
  for (std::size_t i = 0; i + 1 < dates.size(); ++i) {
    const auto period = periodOf(dates[i], now);
    const bool isTooOld = seconds > 0 && now - dates[i] > seconds;
    if (none || isTooOld || (period && period == periodOf(dates[i + 1], now))) found.push_back(i);
  }
  return found;
}

}  // namespace corvana
