#include "command/ScheduleWords.h"

#include <gtest/gtest.h>

namespace corvana {
namespace {

TEST(PastDate, ReadsWhatAUserSays) {
  const ZAN_DateUtils calendar("Europe/Berlin", "C");
  const ReferenceTime now = calendar.dateForComponents({2026, 11, 22, 8, 30, 15});
  const auto said = [&](const std::string& words) {
    const auto date = pastDate(words, now, calendar);
    return date ? calendar.format(*date, "%Y-%m-%d %H:%M:%S") : "refused";
  };
  EXPECT_EQ(said("yesterday"), "2026-11-21 23:59:59");
  EXPECT_EQ(said("2026-11-14"), "2026-11-14 23:59:59");
  EXPECT_EQ(said("2026-11-14 18:30"), "2026-11-14 18:30:59");
  EXPECT_EQ(said("2026-11-14T18:30:05"), "2026-11-14 18:30:05");
  EXPECT_EQ(said("3 days ago"), "2026-11-19 08:30:15");
  EXPECT_EQ(said("1 hour ago"), "2026-11-22 07:30:15");
  EXPECT_EQ(said("2 months ago"), "2026-09-22 08:30:15");
  EXPECT_EQ(said("now"), "2026-11-22 08:30:15");
  // The day that is an hour longer ends an hour later, by the clock at the same time.
  EXPECT_EQ(said("2026-10-25"), "2026-10-25 23:59:59");
  EXPECT_EQ(said("5 weeks ago"), "2026-10-18 08:30:15");
  for (const char* wrong :
       {"", "soon", "2026-02-30", "2026-11-14 25:00", "2026-11-14 18:30x", "2026-11-14 18:30:61",
        "3 days", "-1 days ago", "3 days ago or so", "2026-11-14 noon"})
    EXPECT_EQ(said(wrong), "refused") << wrong;
}

}  // namespace
}  // namespace corvana
