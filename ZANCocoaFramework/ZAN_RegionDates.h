#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

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

}  // namespace corvana
