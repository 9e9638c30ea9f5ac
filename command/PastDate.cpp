#include "command/PastDate.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>
#include <string_view>

namespace corvana {

namespace {

/// A date as it is shown begins with its day of the week.
std::string withoutWeekday(const std::string& words) {
  constexpr std::array<std::string_view, 7> kDays{"Mon ", "Tue ", "Wed ", "Thu ",
                                                  "Fri ", "Sat ", "Sun "};
  const bool hasDay =
      std::ranges::any_of(kDays, [&](std::string_view day) { return words.starts_with(day); });
  return hasDay ? words.substr(kDays.front().size()) : words;
}

}  // namespace

Result<ReferenceTime> pastDate(const std::string& given, ReferenceTime now,
                               const ZAN_DateUtils& calendar) {
  const std::string words = withoutWeekday(given);
  const Error refused{ErrorKind::refused, "\"" + words +
                                              "\" is no date; for instance yesterday, 2026-11-14, "
                                              "\"2026-11-14 18:30\", \"3 days ago\""};
  // Whatever was made within the second belongs to it.
  constexpr double kNearlyASecond = 0.999;
  if (words == "now" || words == "today") return now;
  if (words == "yesterday") return calendar.dayAt0h00(now) - 1 + kNearlyASecond;
  int year = 0;
  int month = 0;
  int day = 0;
  int length = 0;
  if (std::sscanf(words.c_str(), "%4d-%2d-%2d%n", &year, &month, &day, &length) == 3) {
    const auto number = calendar.dayNumberForDay(day, month, year);
    if (!number) return refused;
    const std::string rest = words.substr(static_cast<std::size_t>(length));
    if (rest.empty()) return calendar.firstInstantOfDay(*number + 1) - 1 + kNearlyASecond;
    int hour = 0;
    int minute = 0;
    int second = 59;
    int end = 0;
    char between = ' ';
    const bool isMinute =
        std::sscanf(rest.c_str(), "%c%2d:%2d%n", &between, &hour, &minute, &end) == 3;
    std::string_view behind = isMinute
                                  ? std::string_view(rest).substr(static_cast<std::size_t>(end))
                                  : std::string_view();
    if (isMinute && !behind.empty()) {
      int more = 0;
      if (std::sscanf(std::string(behind).c_str(), ":%2d%n", &second, &more) != 1 ||
          static_cast<std::size_t>(more) != behind.size())
        return refused;
    }
    if (!isMinute || (between != ' ' && between != 'T') || hour < 0 || hour > 23 || minute < 0 ||
        minute > 59 || second < 0 || second > 59)
      return refused;
    return calendar.timeOnDay(*number, hour * 3600 + minute * 60 + second) + kNearlyASecond;
  }
  std::istringstream stream(words);
  int count = 0;
  std::string unit;
  std::string ago;
  std::string more;
  if (!(stream >> count >> unit >> ago) || ago != "ago" || stream >> more || count < 0)
    return refused;
  if (unit.ends_with('s')) unit.pop_back();
  if (unit == "minute") return now - count * 60.0;
  if (unit == "hour") return now - count * 3600.0;
  if (unit == "day") return calendar.addClockSeconds(now, -std::int64_t{count} * 86400);
  if (unit == "week") return calendar.addClockSeconds(now, -std::int64_t{count} * 7 * 86400);
  if (unit != "month" && unit != "year") return refused;
  auto parts = calendar.components(now);
  (unit == "month" ? parts.month : parts.year) -= count;
  return calendar.dateForComponents(parts);
}

}  // namespace corvana
