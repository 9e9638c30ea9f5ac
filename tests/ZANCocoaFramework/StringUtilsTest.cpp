#include "ZANCocoaFramework/ZAN_StringUtils.h"

#include <gtest/gtest.h>

#include <limits>

#include "ZANCocoaFramework/ZAN_Utf8.h"

namespace corvana {
namespace {

TEST(StringUtils, FillsTheUsualPlaceholders) {
  EXPECT_EQ(ZAN_StringUtils::format("(+%d ms) - %@", {1250, "text"}), "(+1250 ms) - text");
  EXPECT_EQ(ZAN_StringUtils::format("%@: %d values, average: %1.3f ms (%1.3f %%)",
                                    {std::string("timer"), 3, 1.23456, 0.05}),
            "timer: 3 values, average: 1.235 ms (0.050 %)");
  EXPECT_EQ(ZAN_StringUtils::format("%2$@ comes before %1$@, %d", {"a", "b"}),
            "b comes before a, a");
  EXPECT_EQ(ZAN_StringUtils::format("%03d|%-4d|%4d", {-7, 7, 7}), "-07|7   |   7");
}

TEST(StringUtils, NoFormatIsWrongEnoughToFail) {
  // Missing, surplus and impossible positions.
  EXPECT_EQ(ZAN_StringUtils::format("%@ and %@", {"one"}), "one and ");
  EXPECT_EQ(ZAN_StringUtils::format("nothing", {"one", 2}), "nothing");
  EXPECT_EQ(ZAN_StringUtils::format("%9$@%0$@%99999999999999999999$@!", {"one"}), "!");
  // Arguments of another kind.
  EXPECT_EQ(ZAN_StringUtils::format("%d %@ %1.1f %d", {"text", 12, 3, 2.9}), "text 12 3.0 2");
  EXPECT_EQ(ZAN_StringUtils::format("%1.2f", {"text"}), "text");
  EXPECT_EQ(ZAN_StringUtils::format("%d", {std::numeric_limits<double>::infinity()}),
            "9223372036854775807");
  // Percent signs of people.
  EXPECT_EQ(ZAN_StringUtils::format("100 % of %@, 5 %", {"it"}), "100 % of it, 5 %");
  EXPECT_EQ(ZAN_StringUtils::format("%n%", {"it"}), "%n%");
  // Widths and precisions without bound stay small.
  EXPECT_LT(ZAN_StringUtils::format("%999999999d", {1}).size(), 100U);
  EXPECT_LT(ZAN_StringUtils::format("%1.999999999f", {1e308}).size(), 400U);
  EXPECT_EQ(ZAN_StringUtils::format(std::string_view("%1$", 3), {"a"}), "%1$");
}

TEST(StringUtils, SizesAreRoundedIntoTheRightUnit) {
  const ZAN_StringUtils english("en_US.UTF-8");
  EXPECT_EQ(english.getShortSizeBytes(0), "0 bytes");
  EXPECT_EQ(english.getShortSizeBytes(999), "999 bytes");
  EXPECT_EQ(english.getShortSizeBytes(34'499), "34 kB");
  EXPECT_EQ(english.getShortSizeBytes(999'499), "999 kB");
  EXPECT_EQ(english.getShortSizeBytes(999'500), "1 MB");
  EXPECT_EQ(english.getShortSizeBytes(1'234'567'890), "1.2 GB");
  EXPECT_EQ(english.getShortSizeBytes(999'960'000'000), "1 TB");
  EXPECT_EQ(english.getShortSizeBytes(std::numeric_limits<std::uint64_t>::max()), "9.2 EB");
  EXPECT_EQ(english.getSizeBytes(1'234'567'890), "1.2 GB (1,234,567,890 bytes)");
  EXPECT_EQ(english.getSizeBytes(12), "12 bytes");
  EXPECT_EQ(ZAN_StringUtils("de_DE").getShortSizeBytes(1'500'000'000), "1,5 GB");
}

TEST(StringUtils, NumbersFollowTheRegion) {
  EXPECT_EQ(ZAN_StringUtils("C").getIntegerWithSeparators(-1234567), "-1,234,567");
  EXPECT_EQ(ZAN_StringUtils("de_CH.UTF-8@euro").getUnsignedWithSeparators(1234567), "1’234’567");
  EXPECT_EQ(ZAN_StringUtils("xx_YY").getUnsignedWithSeparators(18446744073709551615U),
            "18,446,744,073,709,551,615");
}

TEST(StringUtils, DatesFollowRegionAndZone) {
  const ReferenceTime time = 816894309.9;  // 2026-11-20 19:05:09 UTC
  const ZAN_StringUtils plain("C");
  EXPECT_EQ(plain.getShortTimeDate(time), "2026-11-20 19:05");
  EXPECT_EQ(plain.getMediumDateTime(time), "2026-11-20 19:05:09");

  ZAN_StringUtils american("en_US.UTF-8", "America/New_York");
  EXPECT_EQ(american.getShortTimeDate(time), "11/20/26 2:05 PM");
  EXPECT_EQ(american.getShortTimeWithSeconds(time), "2:05:09 PM");
  EXPECT_EQ(american.getMediumDateTime(time), "Nov 20, 2026 2:05:09 PM");
  american.setTimeZone("Asia/Kathmandu");
  EXPECT_EQ(american.getShortTimeDate(time), "11/21/26 12:50 AM");
  american.setTimeZone("Not/AZone");
  EXPECT_EQ(american.getShortTime(time), "7:05 PM");

  american.setDateRegion("de_DE");
  EXPECT_EQ(american.getShortTimeDate(time), "20.11.26 19:05");
  EXPECT_EQ(american.getMediumDateTime(time), "20. Nov. 2026 19:05:09");
  EXPECT_EQ(american.getIntegerWithSeparators(1000), "1,000") << "numbers keep their region";
  american.setDateRegion("");
  EXPECT_EQ(american.getShortDate(time), "11/20/26");
}

TEST(StringUtils, TheOffsetIsThatOfTheInstant) {
  const ZAN_StringUtils paris("C", "Europe/Paris");
  EXPECT_EQ(paris.getShortTimeDate(796438799), "2026-03-29 01:59");  // a second before the change
  EXPECT_EQ(paris.getShortTimeDate(796438800), "2026-03-29 03:00");
  EXPECT_EQ(paris.getShortTimeDate(-1e30), "0001-01-02 00:09");
  EXPECT_EQ(paris.getShortDate(1e30), "9999-12-31");
}

TEST(StringUtils, AsciiKeepsWhatItCan) {
  EXPECT_EQ(asciiWithLoss("Éloïse – “Straße”\u00a05\u00a0€…\n½ ﬁn, e\u0301t\u00e9 й 한 😀\xff"),
            "Eloise - \"Strasse\" 5 EUR...\n1/2 fin, ete ? ? ??");
}

TEST(StringUtils, NoRegionLeavesLooseEndsInItsPatterns) {
  for (const char* region : {"fr_FR", "fr_CA", "ja_JP", "zh_CN", "hu_HU", "es_ES", "sv_SE", "ar_EG",
                             "th_TH", "bg_BG", "ko_KR"}) {
    const std::string text = ZAN_StringUtils(region).getMediumDateTime(816894309);
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(text.find("UTC"), std::string::npos) << region << ": " << text;
    for (const char* loose : {" ", ",", "\u060c"}) {
      EXPECT_FALSE(text.starts_with(loose) || text.ends_with(loose)) << region << ": " << text;
    }
  }
}

}  // namespace
}  // namespace corvana
