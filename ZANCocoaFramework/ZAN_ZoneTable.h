#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <string_view>
#include <vector>

namespace corvana {

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
