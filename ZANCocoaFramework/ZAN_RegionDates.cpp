#include "ZANCocoaFramework/ZAN_RegionDates.h"

#include <absl/strings/string_view.h>
#include <absl/time/time.h>

#include <QLocale>

namespace corvana {

ZAN_RegionDates::ZAN_RegionDates(std::string_view regionName) {
  const std::string_view name = regionName.substr(0, regionName.find_first_of(".@"));
  if (name.empty() || name == "C" || name == "POSIX") return;
  auto locale =
      std::make_unique<QLocale>(QString::fromUtf8(name.data(), static_cast<int>(name.size())));
  if (locale->language() == QLocale::C) return;
  mWeeksBeginOnMonday = locale->firstDayOfWeek() == Qt::Monday;
  mLocale = std::move(locale);
}

ZAN_RegionDates::~ZAN_RegionDates() = default;

std::string ZAN_RegionDates::weekdayName(int weekday) const {
  if (weekday < 1 || weekday > 7) return {};
  const QLocale& locale = mLocale ? *mLocale : QLocale::c();
  return locale.standaloneDayName(weekday == 1 ? 7 : weekday - 1).toStdString();
}

std::string ZAN_RegionDates::monthName(int month) const {
  if (month < 1 || month > 12) return {};
  return (mLocale ? *mLocale : QLocale::c()).standaloneMonthName(month).toStdString();
}

std::string ZAN_RegionDates::format(std::int64_t instant, int utcOffset,
                                    std::string_view pattern) const {
  return absl::FormatTime(absl::string_view(pattern.data(), pattern.size()),
                          absl::FromUnixSeconds(instant), absl::FixedTimeZone(utcOffset));
}

}  // namespace corvana
