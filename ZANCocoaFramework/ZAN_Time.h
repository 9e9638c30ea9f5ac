#pragma once

#include <limits>

namespace corvana {

/// An instant: seconds since 2001-01-01 00:00:00 UTC, fractions allowed, negative before.
using ReferenceTime = double;

/// Later than every instant, for what never happens, and earlier, for what is due already.
inline constexpr ReferenceTime kNever = std::numeric_limits<double>::infinity();
inline constexpr ReferenceTime kAtOnce = -kNever;

/// The reference date in seconds since 1970-01-01 00:00:00 UTC.
inline constexpr double kReferenceEpochInUnixTime = 978307200.0;

}  // namespace corvana
