#pragma once

namespace corvana {

/// An instant: seconds since 2001-01-01 00:00:00 UTC, fractions allowed, negative before.
using ReferenceTime = double;

/// The reference date in seconds since 1970-01-01 00:00:00 UTC.
inline constexpr double kReferenceEpochInUnixTime = 978307200.0;

}  // namespace corvana
