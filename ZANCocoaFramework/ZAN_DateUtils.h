#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"

class QLocale;

namespace corvana {

/// When a region's weeks begin and what it calls days and months. Without a region ("", "C",
/// "POSIX", or one that is not known) weeks begin on Sunday and the names are English.
///
/// Immutable once made. Thread: any.
class ZAN_RegionDates {
 public:
  /// POSIX name such as "fr_FR.UTF-8".
  explicit ZAN_RegionDates(std::string_view regionName);
  ~ZAN_RegionDates();
  ZAN_RegionDates(const ZAN_RegionDates&) = delete;
  ZAN_RegionDates& operator=(const ZAN_RegionDates&) = delete;

  bool weeksBeginOnMonday() const { return mWeeksBeginOnMonday; }
  std::string weekdayName(int weekday) const;  ///< 1 = Sunday to 7 = Saturday; empty for others
  std::string monthName(int month) const;      ///< 1 to 12; empty for others
  /// A strftime pattern, in English: an instant in seconds since 1970 at an offset in seconds.
  std::string format(std::int64_t instant, int utcOffset, std::string_view pattern) const;

 private:
  std::unique_ptr<const QLocale> mLocale;  ///< null without a region
  bool mWeeksBeginOnMonday = false;
};

/// The user's calendar: one time zone and one region, and what days, weeks and times of day mean
/// there.
///
/// An instant (`ReferenceTime`) and a time on the clock are two things; the zone leads from one to
/// the other, and not always both ways. Here a time of day that a change of the clocks skips is the
/// same distance after the gap (2:30 becomes 3:30), one that comes twice is the first of the two,
/// and a day without 0:00 begins at its first instant. "Seconds in day" is what the clock shows,
/// hour * 3600 + minute * 60 + second, so 8:00 is 28800 on every day, however long.
///
/// Nothing here fails: an instant that is no number reads as the reference date, one farther away
/// than `kFarthest` as that bound.
///
/// A value: copying costs a reference count. Making one reads the zone's file; the rest touches no
/// file. Thread: any.
class ZAN_DateUtils {
 public:
  static constexpr ReferenceTime kFarthest = 1e12;  ///< seconds; about 31,700 years, either way

  /// `zoneName`: IANA name such as "Europe/Paris"; an unknown one is UTC. `regionName`: POSIX name
  /// such as "fr_FR.UTF-8"; "", "C" and "POSIX" name no region.
  ZAN_DateUtils(std::string_view zoneName, std::string_view regionName);
  ~ZAN_DateUtils();
  ZAN_DateUtils(const ZAN_DateUtils&);
  ZAN_DateUtils& operator=(const ZAN_DateUtils&);

  const std::string& zoneName() const;    ///< as given
  const std::string& regionName() const;  ///< as given
  bool isKnownZone() const;
  /// The name of the process's zone: the variable TZ, else where the link `localTime` leads, else
  /// "UTC".
  static std::string systemZoneName(const std::string& localTime = "/etc/localtime");
  /// The name of the process's region for dates: LC_ALL, LC_TIME, LANG, the first that is not
  /// empty; LC_MESSAGES, in whose language the texts are, where LANG names no region; or "C".
  static std::string systemRegionName();

  // Days as instants.
  ReferenceTime todayAt0h00(ReferenceTime now) const { return dayAt0h00(now); }
  ReferenceTime dayAt0h00(ReferenceTime date) const;
  /// The date with its seconds cut: 10:31:47.5 becomes 10:31:00 of the same minute.
  ReferenceTime dayAt0Seconds(ReferenceTime date) const;
  /// The first instant of the day after the date's. A day that a zone leaves out is never it.
  ReferenceTime nextDay(ReferenceTime date) const;
  /// Seconds in day, fractions cut; 0 to 86399.
  int secondsInDay(ReferenceTime date) const;
  /// That time of day on the date's day; 86400 and more, and negative ones, reach into neighbouring
  /// days.
  ReferenceTime timeOfDay(ReferenceTime day, std::int64_t seconds) const;
  /// The same clock time plus `seconds` on the clock: like elapsed seconds, except across a change.
  ReferenceTime addClockSeconds(ReferenceTime date, std::int64_t seconds) const;
  bool sameDay(ReferenceTime date1, ReferenceTime date2) const;
  int dayForDate(ReferenceTime date) const;      ///< of the month, 1 to 31
  int weekdayForDate(ReferenceTime date) const;  ///< 1 = Sunday to 7 = Saturday
  /// The first instant of that day; null when there is no such day, in general or in this zone.
  std::optional<ReferenceTime> dateForDay(std::int64_t day, std::int64_t month,
                                          std::int64_t year) const;

  // By day numbers (`ZAN_CivilDay`), for searches over many days.
  std::int64_t dayNumber(ReferenceTime date) const;
  ReferenceTime firstInstantOfDay(std::int64_t dayNumber) const;
  ReferenceTime timeOnDay(std::int64_t dayNumber, std::int64_t seconds) const;
  /// The number of a day of the calendar; null when there is no such day, in general or in this
  /// zone.
  std::optional<std::int64_t> dayNumberForDay(std::int64_t day, std::int64_t month,
                                              std::int64_t year) const;
  /// The first day from that one on that the zone left out, going from the day before it to the day
  /// after it; `kNoDay` when there is none.
  std::int64_t nextSkippedDay(std::int64_t dayNumber) const;
  static constexpr std::int64_t kNoDay = std::numeric_limits<std::int64_t>::max();
  /// ISO 8601 week where the region's weeks begin on Monday; else weeks begin on Sunday and week 1
  /// is the one that holds 1 January, so that the last days of December may be in week 1.
  int weekOfDay(std::int64_t dayNumber) const;
  bool weeksBeginOnMonday() const;

  struct Components {
    std::int32_t year = 2001;
    int month = 1, day = 1, hour = 0, minute = 0, second = 0;
    int weekday = 2;    ///< 1 = Sunday to 7 = Saturday
    int utcOffset = 0;  ///< seconds east of Greenwich
    bool operator==(const Components&) const = default;
  };
  Components components(ReferenceTime date) const;
  /// The first instant with that clock time, by the rule above; months and so on out of range carry
  /// over.
  ReferenceTime dateForComponents(const Components& parts) const;

  // Texts.
  /// strftime patterns, in English whatever the region: "%Y%m%d", "%Y-%m-%d %H:%M:%S".
  std::string format(ReferenceTime date, std::string_view pattern) const;
  std::string monthName(int month) const;      ///< 1 to 12; empty for others
  std::string weekdayName(int weekday) const;  ///< 1 = Sunday to 7 = Saturday; empty for others

 private:
  struct Calendar;
  std::shared_ptr<const Calendar> mCalendar;
};

/// The offsets of one time zone, laid out for quick answers: its spans of constant offset until the
/// year 2100 in one table, later dates through the time library. All times are whole seconds since
/// 1970-01-01; "civil" ones count as the zone's clock shows them.
///
/// Immutable once made. Thread: any.
class ZAN_ZoneTable {
 public:
  /// An unknown name gives UTC.
  explicit ZAN_ZoneTable(std::string_view name);
  ~ZAN_ZoneTable();
  ZAN_ZoneTable(const ZAN_ZoneTable&) = delete;
  ZAN_ZoneTable& operator=(const ZAN_ZoneTable&) = delete;

  bool isKnown() const { return mIsKnown; }
  /// Seconds east of Greenwich.
  int offsetAt(std::int64_t instant) const {
    return instant < kEnd ? spanAt(instant).offset : laterOffset(instant);
  }
  /// The instant of a clock time: the first of two, and as far after a gap as it is into the gap.
  std::int64_t instantOf(std::int64_t civil) const;
  std::int64_t firstInstantOfDay(std::int64_t dayNumber) const;
  /// The first day from that one on that the clocks went past as a whole; the largest number when
  /// there is none.
  std::int64_t nextSkippedDay(std::int64_t dayNumber) const {
    if (mSkippedDays.empty() || dayNumber > mSkippedDays.back()) return kNever;
    return *std::ranges::lower_bound(mSkippedDays, dayNumber);
  }

 private:
  struct Span {
    std::int64_t end = 0;       ///< the first instant after it
    std::int64_t civilEnd = 0;  ///< the same by the span's own offset
    int offset = 0;
  };
  struct Zone;
  struct Clock {
    std::int64_t instant = 0;
    bool isSkipped = false;
    std::int64_t change = 0;  ///< of a skipped time: when the clocks went past it
  };

  static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
  static constexpr std::int64_t kEnd = 4102444800;  ///< 2100-01-01
  static constexpr std::int64_t kBegin =
      -2208988800;                        ///< 1900-01-01; earlier spans are searched from the first
  static constexpr int kBucketBits = 23;  ///< 97 days
  static constexpr std::size_t kBuckets = ((kEnd - kBegin) >> kBucketBits) + 1;
  /// More than two offsets can differ by.
  static constexpr std::int64_t kOffsetMargin = 2 * 86400;

  void readSpans();
  std::size_t indexFrom(std::int64_t instant) const {
    if (instant < kBegin) return 0;
    const auto bucket = static_cast<std::size_t>((instant - kBegin) >> kBucketBits);
    return mFirstOfBucket[bucket < kBuckets ? bucket : kBuckets - 1];
  }
  const Span& spanAt(std::int64_t instant) const {
    std::size_t i = indexFrom(instant);
    while (instant >= mSpans[i].end) ++i;
    return mSpans[i];
  }
  Clock find(std::int64_t civil) const;
  int laterOffset(std::int64_t instant) const;

  std::unique_ptr<const Zone> mZone;
  bool mIsKnown = false;
  std::vector<Span> mSpans;                              ///< never empty; the last one ends never
  std::array<std::uint16_t, kBuckets> mFirstOfBucket{};  ///< the span in which each bucket begins
  std::vector<std::int64_t> mSkippedDays;
};

}  // namespace corvana
