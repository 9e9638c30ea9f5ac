#pragma once

#include <cstdint>
#include <limits>

namespace corvana {

/// An instant: seconds since 2001-01-01 00:00:00 UTC, fractions allowed, negative before.
using ReferenceTime = double;

/// Later than every instant, for what never happens, and earlier, for what is due already.
inline constexpr ReferenceTime kNever = std::numeric_limits<double>::infinity();
inline constexpr ReferenceTime kAtOnce = -kNever;

/// The reference date in seconds since 1970-01-01 00:00:00 UTC.
inline constexpr double kReferenceEpochInUnixTime = 978307200.0;

/// A day of the Gregorian calendar without any zone: plain arithmetic, exact for all years in
/// int32. The day number counts days since 1970-01-01, which is day 0.
struct ZAN_CivilDay {
  std::int32_t year = 1970;
  std::int8_t month = 1;  ///< 1 to 12
  std::int8_t day = 1;    ///< 1 to 31

  bool operator==(const ZAN_CivilDay&) const = default;

  static constexpr bool isLeapYear(std::int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
  }
  static constexpr int daysInMonth(std::int64_t year, int month) {
    return month == 2 ? (isLeapYear(year) ? 29 : 28) : 30 + ((month + (month >> 3)) & 1);
  }

  /// The day with that number. Years are counted from March, so that the leap day is a year's last.
  static constexpr ZAN_CivilDay ofNumber(std::int64_t number) {
    const std::int64_t shifted = number + kDaysFromMarchOfYearZero;
    const std::int64_t era = (shifted >= 0 ? shifted : shifted - (kDaysInEra - 1)) / kDaysInEra;
    const auto inEra = static_cast<std::uint32_t>(shifted - era * kDaysInEra);
    const std::uint32_t yearInEra = (inEra - inEra / 1460 + inEra / 36524 - inEra / 146096) / 365;
    const std::uint32_t inYear = inEra - (365 * yearInEra + yearInEra / 4 - yearInEra / 100);
    const std::uint32_t fromMarch = (5 * inYear + 2) / 153;
    ZAN_CivilDay result;
    result.day = static_cast<std::int8_t>(inYear - (153 * fromMarch + 2) / 5 + 1);
    result.month = static_cast<std::int8_t>(fromMarch < 10 ? fromMarch + 3 : fromMarch - 9);
    result.year = static_cast<std::int32_t>(era * 400 + yearInEra + (result.month <= 2 ? 1 : 0));
    return result;
  }

  constexpr std::int64_t number() const {
    const std::int64_t fromMarch = static_cast<std::int64_t>(year) - (month <= 2 ? 1 : 0);
    const std::int64_t era = (fromMarch >= 0 ? fromMarch : fromMarch - 399) / 400;
    const std::int64_t yearInEra = fromMarch - era * 400;
    const std::int64_t inYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return era * kDaysInEra + yearInEra * 365 + yearInEra / 4 - yearInEra / 100 + inYear -
           kDaysFromMarchOfYearZero;
  }

  /// 1 = Sunday to 7 = Saturday.
  static constexpr int weekdayOfNumber(std::int64_t number) {
    const std::int64_t fromThursday = (number + 4) % 7;
    return static_cast<int>(fromThursday < 0 ? fromThursday + 7 : fromThursday) + 1;
  }

 private:
  static constexpr std::int64_t kDaysInEra = 146097;                ///< 400 years
  static constexpr std::int64_t kDaysFromMarchOfYearZero = 719468;  ///< 0000-03-01 to 1970-01-01
};

}  // namespace corvana
