#include "ZANCocoaFramework/ZAN_DateUtils.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>

#include "tests/support/ModelZone.h"

namespace corvana {
namespace {

constexpr std::int64_t kUnixTime = 978307200;

TEST(DateUtils, EveryInstantAroundEveryChangeReadsAsTheZonesFileSays) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (const char* name :
       {"Europe/Paris", "America/New_York", "Australia/Lord_Howe", "Africa/Cairo",
        "America/Sao_Paulo", "Asia/Kolkata", "Pacific/Apia", "America/St_Johns", "Asia/Tehran",
        "UTC", "America/Toronto", "Pacific/Kwajalein"}) {
    const ZAN_DateUtils calendar(name, "fr_FR");
    const model::Zone zone(name);
    std::vector<std::int64_t> moments{0, 1763719200};
    for (const std::int64_t change : zone.changes()) {
      if (change > -3000000000 && change < 2114380800) moments.push_back(change);  // to 2036
    }
    for (const std::int64_t moment : moments) {
      for (const std::int64_t shift :
           {std::int64_t{-1}, std::int64_t{0},
            std::uniform_int_distribution<std::int64_t>(-90000, 90000)(random)}) {
        const double date = static_cast<double>(moment + shift - kUnixTime) + 0.25;
        SCOPED_TRACE(std::string(name) + " " + std::to_string(date));
        const std::int64_t day = zone.dayNumber(date);
        ASSERT_EQ(calendar.dayNumber(date), day);
        ASSERT_EQ(calendar.secondsInDay(date), zone.secondsInDay(date));
        ASSERT_EQ(calendar.dayAt0h00(date), zone.firstInstantOfDay(day));
        ASSERT_EQ(calendar.nextDay(date), zone.nextDay(date));
        ASSERT_EQ(calendar.weekOfDay(day), model::weekOf(day, true));
        for (const std::int64_t seconds :
             {std::int64_t{0}, std::int64_t{9000}, std::int64_t{86100},
              std::uniform_int_distribution<std::int64_t>(-86400, 2 * 86400)(random)}) {
          ASSERT_EQ(calendar.timeOfDay(date, seconds), zone.timeOnDay(day, seconds)) << seconds;
        }
      }
    }
  }
}

/// A calendar whose zone has no changes, and dates in it.
class Utc : public testing::Test {
 protected:
  ReferenceTime day(int day, int month, int year) const {
    return mCalendar.dateForDay(day, month, year).value();
  }
  const ZAN_DateUtils mCalendar{"UTC", "C"};
};

TEST_F(Utc, DaysAndMonths) {
  EXPECT_EQ(day(1, 1, 2001), 0.0);
  EXPECT_EQ(mCalendar.weekdayForDate(day(21, 11, 2026)), 7);
  EXPECT_FALSE(mCalendar.dateForDay(29, 2, 2100));
  EXPECT_FALSE(mCalendar.dateForDay(0, 1, 2000));
  EXPECT_FALSE(mCalendar.dateForDay(1, 13, 2000));
  EXPECT_FALSE(mCalendar.dateForDay(1, 1, std::numeric_limits<std::int64_t>::min()));
  EXPECT_TRUE(mCalendar.sameDay(day(1, 3, 2028), day(1, 3, 2028) + 86399.9));
  EXPECT_EQ(mCalendar.dayAt0Seconds(day(1, 3, 2028) + 119.5), day(1, 3, 2028) + 60);
  EXPECT_EQ(mCalendar.dayAt0Seconds(-0.5), -60.0);
}

TEST_F(Utc, WeeksOfTheRegion) {
  const ZAN_DateUtils iso("UTC", "de_DE.UTF-8");
  const auto weeks = [&](int d, int month, int year) {
    return std::to_string(iso.weekOfDay(iso.dayNumber(day(d, month, year)))) + " " +
           std::to_string(mCalendar.weekOfDay(mCalendar.dayNumber(day(d, month, year))));
  };
  EXPECT_EQ(weeks(31, 12, 2024), "1 1");
  EXPECT_EQ(weeks(28, 12, 2024), "52 52");
  EXPECT_EQ(weeks(1, 1, 2021), "53 1");
  EXPECT_EQ(weeks(31, 12, 2020), "53 1");
  EXPECT_EQ(weeks(3, 1, 2021), "53 2");
  EXPECT_TRUE(ZAN_DateUtils("UTC", "en_GB").weeksBeginOnMonday());
  for (const char* region : {"", "C", "C.UTF-8", "POSIX", "en_US.UTF-8", "ar_EG", "nonsense"}) {
    EXPECT_FALSE(ZAN_DateUtils("UTC", region).weeksBeginOnMonday()) << region;
  }
}

TEST_F(Utc, TextsAndBackFromComponents) {
  const ZAN_DateUtils paris("Europe/Paris", "fr_FR.UTF-8");
  EXPECT_EQ(paris.format(817032774.9, "%Y%m%d %y_%m_%d %H_%M_%S %Y-%m-%d %H:%M:%S"),
            "20261122 26_11_22 10_32_54 2026-11-22 10:32:54");
  const ZAN_DateUtils::Components parts = paris.components(817032774.9);
  EXPECT_EQ(parts.utcOffset, 3600);
  EXPECT_EQ(paris.dateForComponents(parts), 817032774.0);
  ZAN_DateUtils::Components over;
  over.year = 2026;
  over.month = 14;
  over.day = 0;
  over.hour = 25;
  EXPECT_EQ(mCalendar.dateForComponents(over), day(1, 2, 2027) + 3600);
}

TEST_F(Utc, AbsurdInstantsReadAsTheNearestBound) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for (const char* zone : {"Europe/Paris", "UTC", "No/Where", "../../../etc/passwd", ""}) {
    const ZAN_DateUtils calendar(zone, "fr_FR");
    for (const double date : {std::nan(""), infinity, -infinity, 1e300, -1e300, 3e19, 4e9, -1e11}) {
      EXPECT_TRUE(std::isfinite(calendar.nextDay(date)));
      EXPECT_TRUE(std::isfinite(calendar.dayAt0Seconds(date)));
      EXPECT_TRUE(
          std::isfinite(calendar.timeOfDay(date, std::numeric_limits<std::int64_t>::min())));
      EXPECT_TRUE(
          std::isfinite(calendar.addClockSeconds(date, std::numeric_limits<std::int64_t>::max())));
      EXPECT_LT(calendar.secondsInDay(date), 86400);
      EXPECT_GE(calendar.weekOfDay(calendar.dayNumber(date)), 1);
      EXPECT_FALSE(calendar.format(date, "%Y-%m-%d").empty());
    }
  }
  EXPECT_EQ(mCalendar.dayAt0h00(std::nan("")), 0.0);
}

TEST(DateUtils, TheProcessesZoneIsNamed) {
  const auto nameFor = [](const char* variable) {
    setenv("TZ", variable, 1);
    return ZAN_DateUtils::systemZoneName();
  };
  const char* before = std::getenv("TZ");
  const std::string saved = before != nullptr ? before : "";
  EXPECT_EQ(nameFor("Europe/Paris"), "Europe/Paris");
  EXPECT_EQ(nameFor(":America/New_York"), "America/New_York");
  EXPECT_EQ(nameFor("/usr/share/zoneinfo/Asia/Tehran"), "Asia/Tehran");
  EXPECT_EQ(nameFor(""), "UTC");
  if (before != nullptr) {
    setenv("TZ", saved.c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  EXPECT_TRUE(ZAN_DateUtils("Europe/Paris", "").isKnownZone());
  EXPECT_FALSE(ZAN_DateUtils("No/Where", "").isKnownZone());
}

TEST(DateUtils, DatesAfterTheTableFollowTheLastRule) {
  const ZAN_DateUtils paris("Europe/Paris", "C");
  for (const int year : {2099, 2100, 2101, 2400}) {
    const ReferenceTime summer = *paris.dateForDay(1, 7, year);
    EXPECT_EQ(paris.components(summer).utcOffset, 7200) << year;
    EXPECT_EQ(paris.secondsInDay(paris.timeOfDay(summer, 28800)), 28800) << year;
    EXPECT_EQ(paris.components(*paris.dateForDay(1, 1, year)).utcOffset, 3600) << year;
  }
}

}  // namespace
}  // namespace corvana
