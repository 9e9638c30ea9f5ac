#include "ZANCocoaFramework/ZAN_XmlDate.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace corvana {

namespace {

using std::chrono::sys_days;

constexpr sys_days kReferenceDay = std::chrono::year(2001) / 1 / 1;
constexpr double kSecondsPerDay = 86400;

std::optional<int> digits(std::string_view text) {
  int value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || stop != text.data() + text.size() || value < 0) return std::nullopt;
  return value;
}

}  // namespace

std::optional<ReferenceTime> timeOfXmlDate(std::string_view text) {
  constexpr std::string_view kForm = "yyyy-mm-ddThh:mm:ssZ";
  if (text.size() != kForm.size()) return std::nullopt;
  for (std::size_t i = 0; i < kForm.size(); ++i) {
    const bool separator = kForm[i] < 'a';
    if (separator && text[i] != kForm[i]) return std::nullopt;
  }
  const auto year = digits(text.substr(0, 4));
  const auto month = digits(text.substr(5, 2));
  const auto day = digits(text.substr(8, 2));
  const auto hour = digits(text.substr(11, 2));
  const auto minute = digits(text.substr(14, 2));
  const auto second = digits(text.substr(17, 2));
  if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok() || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
  const auto days = (sys_days(date) - kReferenceDay).count();
  return static_cast<double>(days) * kSecondsPerDay + *hour * 3600 + *minute * 60 + *second;
}

std::string xmlDateOfTime(ReferenceTime time) {
  constexpr sys_days kFirst = std::chrono::year(1) / 1 / 1;
  constexpr sys_days kLast = std::chrono::year(9999) / 12 / 31;
  const double least = static_cast<double>((kFirst - kReferenceDay).count()) * kSecondsPerDay;
  const double most = static_cast<double>((kLast - kReferenceDay).count() + 1) * kSecondsPerDay - 1;
  time = std::isnan(time) ? 0 : std::floor(std::clamp(time, least, most));
  const double wholeDays = std::floor(time / kSecondsPerDay);
  const std::chrono::year_month_day date(kReferenceDay +
                                         std::chrono::days(static_cast<int>(wholeDays)));
  const int seconds = static_cast<int>(time - wholeDays * kSecondsPerDay);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                seconds / 3600, seconds / 60 % 60, seconds % 60);
  return text;
}

}  // namespace corvana
