#pragma once

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana::model {

/// A second, slow way to know the calendar of a zone, to hold the program's own against: it reads
/// the zone's file itself, steps through days one by one and tries every offset. Right until 2037,
/// where the files' lists of changes end.

struct Day {
  int year = 1970, month = 1, day = 1;
  bool operator==(const Day&) const = default;
};

inline int daysInMonth(int year, int month) {
  constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return days[month - 1] + (month == 2 && leap ? 1 : 0);
}

/// Every day from 1850 to 2100, by stepping; index 0 is 1850-01-01.
inline const std::vector<Day>& allDays() {
  static const std::vector<Day> days = [] {
    std::vector<Day> list;
    for (Day day{1850, 1, 1}; day.year < 2100;) {
      list.push_back(day);
      if (++day.day > daysInMonth(day.year, day.month)) {
        day.day = 1;
        if (++day.month > 12) {
          day.month = 1;
          ++day.year;
        }
      }
    }
    return list;
  }();
  return days;
}
inline std::int64_t indexOf1970() {
  static const std::int64_t index = std::ranges::find(allDays(), Day{}) - allDays().begin();
  return index;
}
inline const Day& dayOf(std::int64_t number) {
  return allDays().at(static_cast<std::size_t>(number + indexOf1970()));
}
/// Null when there is no such day.
inline std::optional<std::int64_t> numberOf(Day day) {
  if (day.month < 1 || day.month > 12 || day.day < 1 || day.day > daysInMonth(day.year, day.month))
    return {};
  std::int64_t low = 0;
  for (int year = 1850; year < day.year; ++year) low += daysInMonth(year, 2) == 29 ? 366 : 365;
  while (!(allDays().at(static_cast<std::size_t>(low)) == day)) ++low;
  return low - indexOf1970();
}
/// 1 = Sunday; 1970-01-01 was a Thursday.
inline int weekdayOf(std::int64_t number) {
  return static_cast<int>(((number + 4) % 7 + 7) % 7) + 1;
}

inline int weekOf(std::int64_t number, bool beginsOnMonday) {
  const auto beginOfWeek = [&](std::int64_t day) {
    while (weekdayOf(day) != (beginsOnMonday ? 2 : 1)) --day;
    return day;
  };
  const int year = dayOf(number).year;
  for (const int weekYear : {year + 1, year, year - 1}) {
    const std::int64_t first = beginOfWeek(*numberOf({weekYear, 1, beginsOnMonday ? 4 : 1}));
    if (number >= first) return static_cast<int>((number - first) / 7) + 1;
  }
  throw std::logic_error("a day before last year's first week");
}

class Zone {
 public:
  explicit Zone(const std::string& name) {
    std::ifstream file("/usr/share/zoneinfo/" + name, std::ios::binary);
    mBytes.assign(std::istreambuf_iterator<char>(file), {});
    if (mBytes.substr(0, 4) != "TZif") throw std::runtime_error("no zone " + name);
    const std::size_t second = 44 + blockSize(0, 4);  // the first block has 32-bit times
    readBlock(second);
  }

  const std::vector<std::int64_t>& changes() const { return mChanges; }

  int offsetAt(std::int64_t instant) const {
    const auto after = std::ranges::upper_bound(mChanges, instant) - mChanges.begin();
    return after == 0 ? mFirstOffset : mOffsets[static_cast<std::size_t>(after - 1)];
  }
  std::int64_t civil(ReferenceTime date) const {
    std::int64_t seconds = static_cast<std::int64_t>(date);
    if (static_cast<double>(seconds) > date) --seconds;
    seconds += kEpoch;
    return seconds + offsetAt(seconds);
  }
  std::int64_t dayNumber(ReferenceTime date) const { return floorDivide(civil(date)); }
  int secondsInDay(ReferenceTime date) const {
    return static_cast<int>(civil(date) - dayNumber(date) * 86400);
  }
  ReferenceTime instantOf(std::int64_t civil) const {
    std::optional<std::int64_t> earliest;
    for (const int offset : mAllOffsets) {
      const std::int64_t instant = civil - offset;
      if (offsetAt(instant) == offset && (!earliest || instant < *earliest)) earliest = instant;
    }
    for (const std::int64_t change : mChanges) {
      if (earliest) break;
      const std::int64_t gapBegin = change + offsetAt(change - 1);
      if (civil >= gapBegin && civil < change + offsetAt(change))
        earliest = change + (civil - gapBegin);
    }
    return static_cast<double>(earliest.value() - kEpoch);
  }
  /// Null for a day that the zone left out.
  std::optional<ReferenceTime> firstInstantOfDay(std::int64_t day) const {
    std::optional<std::int64_t> first;
    const auto offer = [&](std::int64_t instant) {
      if (floorDivide(instant + offsetAt(instant)) == day && (!first || instant < *first))
        first = instant;
    };
    for (const int offset : mAllOffsets) offer(day * 86400 - offset);
    for (auto change = std::ranges::lower_bound(mChanges, (day - 2) * 86400);
         change != mChanges.end() && *change < (day + 3) * 86400; ++change) {
      offer(*change);
    }
    if (!first) return {};
    return static_cast<double>(*first - kEpoch);
  }
  ReferenceTime timeOnDay(std::int64_t day, std::int64_t seconds) const {
    const auto begin = firstInstantOfDay(day);
    return seconds == 0 && begin ? *begin : instantOf(day * 86400 + seconds);
  }
  ReferenceTime nextDay(ReferenceTime date) const {
    for (std::int64_t day = dayNumber(date) + 1;; ++day) {
      if (const auto begin = firstInstantOfDay(day)) return *begin;
    }
  }

 private:
  static constexpr std::int64_t kEpoch = 978307200;
  static std::int64_t floorDivide(std::int64_t civil) {
    std::int64_t day = civil / 86400;
    if (day * 86400 > civil) --day;
    return day;
  }
  std::int64_t number(std::size_t at, std::size_t size) const {
    std::uint64_t value = (mBytes.at(at) & 0x80) != 0 ? ~std::uint64_t{0} : 0;
    for (std::size_t i = 0; i < size; ++i)
      value = value << 8 | static_cast<unsigned char>(mBytes.at(at + i));
    return static_cast<std::int64_t>(value);
  }
  /// Of the block whose header begins there: six counts lie at 20.
  std::size_t count(std::size_t header, std::size_t which) const {
    return static_cast<std::size_t>(number(header + 20 + which * 4, 4));
  }
  std::size_t blockSize(std::size_t header, std::size_t timeSize) const {
    return count(header, 3) * (timeSize + 1) + count(header, 4) * 6 + count(header, 5) +
           count(header, 2) * (timeSize + 4) + count(header, 1) + count(header, 0);
  }
  void readBlock(std::size_t header) {
    const std::size_t changes = count(header, 3);
    const std::size_t times = header + 44;
    const std::size_t types = times + changes * 8;
    const std::size_t offsets = types + changes;
    mFirstOffset = static_cast<int>(number(offsets, 4));
    mAllOffsets.insert(mFirstOffset);
    int before = mFirstOffset;
    for (std::size_t i = 0; i < changes; ++i) {
      const auto type = static_cast<std::size_t>(number(types + i, 1));
      const int offset = static_cast<int>(number(offsets + type * 6, 4));
      if (offset == before) continue;
      before = offset;
      mChanges.push_back(number(times + i * 8, 8));
      mOffsets.push_back(offset);
      mAllOffsets.insert(offset);
    }
  }

  std::string mBytes;
  std::vector<std::int64_t> mChanges;
  std::vector<int> mOffsets;  ///< after each change
  std::set<int> mAllOffsets;
  int mFirstOffset = 0;
};

}  // namespace corvana::model
