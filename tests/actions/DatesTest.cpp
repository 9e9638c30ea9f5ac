#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/ActionsTools.h"
#include "actions/ScheduleSentence.h"

namespace corvana {
namespace {

/// A calendar, a now and a record; times are written "2026-11-21 10:31" on the zone's clock.
class Case {
 public:
  Case(std::string zone, std::string_view now, std::string_view region = "C")
      : mCalendar(zone, region), mNow(at(now)) {}

  ReferenceTime at(std::string_view text) const {
    int part[6] = {};
    int count = 0;
    for (std::size_t i = 0; i < text.size() && count < 6; ++count) {
      while (i < text.size() && text[i] >= '0' && text[i] <= '9')
        part[count] = part[count] * 10 + (text[i++] - '0');
      ++i;
    }
    ZAN_DateUtils::Components parts;
    parts.year = part[0];
    parts.month = part[1];
    parts.day = part[2];
    parts.hour = part[3];
    parts.minute = part[4];
    parts.second = part[5];
    return mCalendar.dateForComponents(parts);
  }
  Case& set(std::string_view key, std::int64_t value) {
    mSettings.setValue(key, value);
    return *this;
  }
  Case& setDate(std::string_view key, std::string_view date) {
    mSettings.setValue(key, ZAN_Value::date(at(date)));
    return *this;
  }
  Case& last(std::string_view date) { return setDate("LastScheduleDate", date); }
  Case& entry(std::initializer_list<std::pair<std::string_view, ZAN_Value>> keys,
              std::string_view time) {
    ZAN_Value entry = ZAN_Value::dictionary(keys);
    if (!time.empty()) entry.setValue("TriggerScheduleTime", ZAN_Value::date(at(time)));
    mList.append(entry);
    return *this;
  }

  ActionsTools tools() const { return ActionsTools(mCalendar, mNow); }
  const ZAN_DateUtils& calendar() const { return mCalendar; }
  ZAN_Value settings() const {
    ZAN_Value settings = mSettings;
    settings.setValue("TriggerAutomatic", 1);
    if (!mList.empty()) {
      settings.setValue("TriggerScheduleList",
                        ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(mList)));
    }
    return settings;
  }
  /// The next date on the clock, with " shutdown" behind it when so flagged; "none".
  std::string next(bool firstAfterStartup = false) const {
    bool shutDown = false;
    const auto date =
        tools().getNextScheduleDateForSettings(settings(), firstAfterStartup, &shutDown);
    return (date ? mCalendar.format(*date, "%Y-%m-%d %H:%M:%S") : "none") +
           (shutDown ? " shutdown" : "");
  }

 private:
  ZAN_DateUtils mCalendar;
  ReferenceTime mNow;
  ZAN_Value mSettings = ZAN_Value::dictionary();
  ZAN_Value mList = ZAN_Value::array();
};

Case paris(std::string_view now = "2026-11-21 10:40") { return Case("Europe/Paris", now); }
Case daily(std::string_view time, std::string_view now = "2026-11-21 10:40") {
  return paris(now).set("TriggerFrequencyPopup", 1).setDate("TriggerScheduleTime", time);
}

TEST(Dates, ADailyTimeKeepsItsDistanceFromTheLastRun) {
  EXPECT_EQ(daily("2026-11-01 08:00").last("2026-11-21 07:57").next(), "2026-11-21 08:00:00");
  EXPECT_EQ(daily("2026-11-01 08:00").last("2026-11-21 07:58").next(), "2026-11-21 08:00:00");
  EXPECT_EQ(daily("2026-11-01 08:00").last("2026-11-21 07:58:01").next(), "2026-11-22 08:00:00");
  EXPECT_EQ(daily("2026-11-01 08:00").last("2026-11-21 08:00").next(), "2026-11-22 08:00:00");
  EXPECT_EQ(daily("2026-11-01 08:00").next(), "2026-11-21 08:00:00")
      << "never ran: today, be it past";
  EXPECT_EQ(daily("2026-11-01 08:00").last("2026-12-25 08:00").next(), "2026-11-22 08:00:00")
      << "a last date more than a day ahead reads as now";
  EXPECT_EQ(paris().set("TriggerFrequencyPopup", 1).next(), "none") << "without a time";
  EXPECT_EQ(daily("2026-11-01 08:00").set("TriggerAutomatic", 0).next(), "2026-11-21 08:00:00");
}

TEST(Dates, ATimeOfDayIsTheOneOnTheClock) {
  // Stored in summer, read in winter; then the nights on which the clocks change.
  EXPECT_EQ(daily("2026-07-01 08:00").next(), "2026-11-21 08:00:00");
  EXPECT_EQ(daily("2026-07-01 08:00", "2026-03-29 12:00").next(), "2026-03-29 08:00:00");
  EXPECT_EQ(daily("2026-07-01 02:30", "2026-03-29 12:00").next(), "2026-03-29 03:30:00");
  EXPECT_EQ(daily("2026-07-01 02:30", "2026-03-29 12:00").last("2026-03-29 03:30").next(),
            "2026-03-30 02:30:00");
  const Case autumn = daily("2026-07-01 02:30", "2026-10-25 12:00");
  EXPECT_EQ(*autumn.tools().getNextScheduleDateForSettings(autumn.settings(), false),
            autumn.at("2026-10-25 00:00") + 2.5 * 3600)
      << "the first of the two";
  Case saoPaulo("America/Sao_Paulo", "2018-11-04 12:00");
  saoPaulo.set("TriggerFrequencyPopup", 1).setDate("TriggerScheduleTime", "2018-07-01 00:00");
  EXPECT_EQ(saoPaulo.next(), "2018-11-04 01:00:00") << "the day began at 1:00";
}

TEST(Dates, HoursCountFromTheBeginningOfTheDay) {
  Case hourly = paris().set("TriggerFrequencyPopup", 21);
  EXPECT_EQ(hourly.set("TriggerHourDelay", 2).last("2026-11-21 10:31").next(),
            "2026-11-21 11:30:00");
  EXPECT_EQ(hourly.last("2026-11-21 09:58").next(), "2026-11-21 10:30:00");
  EXPECT_EQ(hourly.last("2026-11-21 09:58:01").next(), "2026-11-21 11:30:00")
      << "the offset comes after the test";
  EXPECT_EQ(hourly.set("TriggerHourDelay", 4).last("2026-11-21 10:31").next(),
            "2026-11-21 11:00:00");
  Case threeHourly = paris().set("TriggerFrequencyPopup", 22).set("TriggerAllowedHours", 1);
  threeHourly.setDate("TriggerAllowedHoursFrom", "2026-01-01 08:30")
      .setDate("TriggerAllowedHoursTo", "2026-01-01 18:00");
  EXPECT_EQ(threeHourly.last("2026-11-21 11:30").next(), "2026-11-21 14:30:00");
  EXPECT_EQ(threeHourly.last("2026-11-21 17:30").next(), "none")
      << "20:30 is behind the allowed hours";
}

TEST(Dates, MinutesCountFromTheLastRun) {
  Case minutes = paris().set("TriggerFrequencyPopup", 20).set("TriggerScheduleMinutes", 15);
  EXPECT_EQ(minutes.last("2026-11-21 10:31:47").next(), "2026-11-21 10:46:00");
  EXPECT_EQ(minutes.last("2026-11-20 23:50").next(), "2026-11-21 00:05:00")
      << "the first that reaches today + 120 s";
  EXPECT_EQ(minutes.last("2026-11-20 23:46").next(), "2026-11-21 00:16:00");
  EXPECT_EQ(Case(minutes).set("TriggerScheduleMinutes", 0).last("2026-11-21 10:31:47").next(),
            "2026-11-21 10:32:00");
  EXPECT_EQ(paris().set("TriggerFrequencyPopup", 20).set("TriggerScheduleMinutes", 15).next(),
            "2026-11-21 00:15:00");
  EXPECT_EQ(minutes.set("TriggerScheduleMinutes", 7).last("1996-11-21 10:31").next(),
            "2026-11-21 00:05:00")
      << "thirty years of sevens";
  EXPECT_EQ(minutes.set("TriggerScheduleMinutes", 1440).last("2026-11-20 10:31").next(),
            "2026-11-21 10:31:00");
  EXPECT_EQ(minutes.last("2026-11-17 10:31").next(), "2026-11-22 00:00:00")
      << "a day's step, then a day's minutes";
}

TEST(Dates, StepsOfADayGoAroundADayThatWasLeftOut) {
  // After the first one they come every second midnight, so the day that the zone left out, the
  // 30th, shifts them all.
  for (const auto& [last, next] : {std::pair{"2011-12-19 05:06", "2026-11-24"},
                                   {"2011-12-20 17:13", "2026-11-23"},
                                   {"2011-12-28 05:46", "2026-11-23"},
                                   {"2011-12-29 17:53", "2026-11-24"},
                                   {"2012-01-01 06:00", "2026-11-24"},
                                   {"2012-01-02 18:06", "2026-11-23"}}) {
    Case steps("Pacific/Apia", "2026-11-22 22:32:54");
    steps.set("TriggerFrequencyPopup", 20).set("TriggerScheduleMinutes", 1440).last(last);
    EXPECT_EQ(steps.next(), std::string(next) + " 00:00:00") << last;
  }
}

TEST(Dates, StartUpFrequenciesAreDueNowOrTomorrow) {
  for (const std::int64_t frequency : {30, 31}) {
    Case startUp = paris().set("TriggerFrequencyPopup", frequency);
    EXPECT_EQ(startUp.next(true), "2026-11-21 10:40:00");
    EXPECT_EQ(startUp.next(false), "none");
    EXPECT_EQ(startUp.last("2026-11-20 23:58:59").next(true), "2026-11-21 10:40:00");
  }
  Case once = paris().set("TriggerFrequencyPopup", 30).set("TriggerAllowedHours", 1);
  once.setDate("TriggerAllowedHoursFrom", "2026-01-01 09:00")
      .setDate("TriggerAllowedHoursTo", "2026-01-01 10:00");
  EXPECT_EQ(once.next(true), "none") << "now is out of hours";
  EXPECT_EQ(once.last("2026-11-20 23:59").next(true), "2026-11-22 09:00:00");
  Case today = paris().set("TriggerFrequencyPopup", 32);
  EXPECT_EQ(today.next(true), "none");
  EXPECT_EQ(today.last("2026-11-20 23:59:59").next(true), "none");
  EXPECT_EQ(today.last("2026-11-21 00:00").next(false), "2026-11-22 00:00:00");
}

TEST(Dates, AWindowThatEndsBeforeItBeginsNeverMatches) {
  Case night = daily("2026-01-01 23:00").set("TriggerAllowedHours", 1);
  night.setDate("TriggerAllowedHoursFrom", "2026-01-01 22:00")
      .setDate("TriggerAllowedHoursTo", "2026-01-01 06:00");
  EXPECT_EQ(night.next(), "none");
  Case open = daily("2026-01-01 08:00").set("TriggerAllowedHours", 1);
  open.setDate("TriggerAllowedHoursTo", "2026-01-01 08:00");
  EXPECT_EQ(open.next(), "2026-11-21 08:00:00") << "from 0:00, both bounds allowed";
}

TEST(Dates, AListGivesItsEarliestEntryAndEveryFlagItMet) {
  const ZAN_Value shutDown = 21;
  Case list = paris().last("2026-11-21 10:00");
  list.entry({{"TriggerFrequencyPopup", shutDown}}, "2026-01-01 18:30")
      .entry({}, "2026-01-01 12:00");
  EXPECT_EQ(list.next(), "2026-11-21 12:00:00 shutdown") << "the first entry was best for a while";
  Case tie = paris().last("2026-11-21 10:00").entry({}, "2026-01-01 12:00");
  tie.entry({{"TriggerFrequencyPopup", shutDown}}, "2026-01-01 12:00");
  EXPECT_EQ(tie.next(), "2026-11-21 12:00:00") << "the first of equal dates";
  Case both = daily("2026-01-01 11:00").last("2026-11-21 10:00");
  both.entry({{"TriggerFrequencyPopup", shutDown}}, "2026-01-01 18:30");
  EXPECT_EQ(both.next(), "2026-11-21 11:00:00 shutdown") << "the flag is the list's, whoever wins";
  EXPECT_EQ(paris().entry({{"TriggerScheduleMode", 1}}, "2026-01-01 12:00").next(), "none")
      << "no weekday";
  EXPECT_EQ(paris().entry({}, "").next(), "none") << "no time";
}

TEST(Dates, YearlyAndMonthlyDaysAreThoseThatExist) {
  const auto yearly = [](std::string_view now, int day, int month) {
    return paris(now)
        .entry({{"TriggerScheduleMode", 3},
                {"TriggerScheduleDay", day},
                {"TriggerScheduleMonth", month}},
               "2020-01-01 09:00")
        .next();
  };
  EXPECT_EQ(yearly("2027-06-01 12:00", 29, 2), "2028-02-29 09:00:00");
  EXPECT_EQ(yearly("2026-01-01 12:00", 29, 2), "none") << "neither this year nor the next";
  EXPECT_EQ(yearly("2026-11-21 12:00", 20, 11), "2027-11-20 09:00:00");
  EXPECT_EQ(yearly("2026-11-21 12:00", 31, 4), "none");
  const auto monthly = [](std::string_view now, int mode, int weekday, const char* days) {
    return paris(now)
        .entry({{"TriggerScheduleMode", 2},
                {"TriggerScheduleMonthMode", mode},
                {"TriggerScheduleMonthWeekDay", weekday},
                {"TriggerScheduleMonthDays", days}},
               "2020-01-01 09:00")
        .next();
  };
  EXPECT_EQ(monthly("2026-11-21 12:00", 1, 0, "5, 31 ,x,22x,30"), "2026-11-30 09:00:00");
  EXPECT_EQ(monthly("2027-01-31 12:00", 1, 0, "30"), "none") << "32 days end on 3 March";
  EXPECT_EQ(monthly("2026-10-21 12:00", 13, 0, ""), "2026-10-30 09:00:00");
  EXPECT_EQ(monthly("2026-11-21 12:00", 16, 6, ""), "2026-12-11 09:00:00") << "second Friday";
  EXPECT_EQ(monthly("2026-11-21 12:00", 5, 0, "1,2,3"), "none");
}

TEST(Dates, DaysOfMonthsFollowTheirWeekdays) {
  // August 2026 begins on a Saturday, February and March 2026 on a Sunday; May ends on a Sunday,
  // October on a Saturday.
  const auto next = [](std::string_view now, int mode, int weekday = 0, int parity = 0) {
    const std::string date = paris(now)
                                 .entry({{"TriggerScheduleMode", 2},
                                         {"TriggerScheduleMonthMode", mode},
                                         {"TriggerScheduleEvenOdd", parity},
                                         {"TriggerScheduleMonthWeekDay", weekday}},
                                        "2020-01-01 09:00")
                                 .next();
    return date == "none" ? date : date.substr(0, 10);
  };
  constexpr int kFirstDay = 10, kFirstWorkingDay = 11, kLastDay = 12, kLastWorkingDay = 13,
                kFirst = 14, kLast = 15, kSecond = 16;
  EXPECT_EQ(next("2026-07-31 12:00", kFirstDay), "2026-08-01");
  EXPECT_EQ(next("2026-07-31 12:00", kFirstWorkingDay), "2026-08-03");
  EXPECT_EQ(next("2026-02-01 12:00", kFirstWorkingDay), "2026-02-02");
  EXPECT_EQ(next("2026-03-31 12:00", kFirstWorkingDay), "2026-04-01");
  EXPECT_EQ(next("2028-02-10 12:00", kLastDay), "2028-02-29");
  EXPECT_EQ(next("2026-05-10 12:00", kLastWorkingDay), "2026-05-29");
  EXPECT_EQ(next("2026-10-10 12:00", kLastWorkingDay), "2026-10-30");
  EXPECT_EQ(next("2026-09-10 12:00", kLastWorkingDay), "2026-09-30");
  EXPECT_EQ(next("2026-07-31 12:00", kFirst, 7), "2026-08-01") << "a Saturday";
  EXPECT_EQ(next("2026-07-31 12:00", kFirst, 6), "2026-08-07");
  EXPECT_EQ(next("2026-07-31 12:00", kFirst, 1), "2026-08-02");
  EXPECT_EQ(next("2026-05-10 12:00", kLast, 1), "2026-05-31") << "a Sunday";
  EXPECT_EQ(next("2026-05-10 12:00", kLast, 2), "2026-05-25");
  EXPECT_EQ(next("2026-07-31 12:00", kSecond, 7), "2026-08-08");
  for (const int none : {0, 8, -1}) {
    for (const int mode : {kFirst, kLast, kSecond})
      EXPECT_EQ(next("2026-07-31 12:00", mode, none), "none");
  }
  for (const int mode : {9, 17}) EXPECT_EQ(next("2026-07-31 12:00", mode, 2), "none");
  EXPECT_EQ(next("2026-07-31 12:00", kFirstDay, 0, 1), "2026-09-01") << "of odd months";
  EXPECT_EQ(next("2026-07-31 12:00", kFirstDay, 0, 2), "2026-08-01");
  EXPECT_EQ(next("2026-12-10 12:00", kFirstDay, 0, 2), "2027-02-01");
  const auto yearly = [](int day, int month) {
    return paris()
        .entry({{"TriggerScheduleMode", 3},
                {"TriggerScheduleDay", day},
                {"TriggerScheduleMonth", month}},
               "2020-01-01 09:00")
        .next();
  };
  EXPECT_EQ(yearly(31, 12), "2026-12-31 09:00:00");
  EXPECT_EQ(yearly(1, 1), "2027-01-01 09:00:00");
  for (const auto& [day, month] : {std::pair{0, 1}, {1, 0}, {32, 12}, {1, 13}})
    EXPECT_EQ(yearly(day, month), "none");
  const auto everyDay = [](std::string_view now, int parity) {
    return paris(now).entry({{"TriggerScheduleEvenOdd", parity}}, "2020-01-01 09:00").next();
  };
  EXPECT_EQ(everyDay("2026-08-31 08:00", 2), "2026-09-02 09:00:00");
  EXPECT_EQ(everyDay("2026-08-31 09:30", 1), "2026-08-31 09:00:00");
  EXPECT_EQ(everyDay("2026-08-30 12:00", 1), "2026-08-31 09:00:00");
}

TEST(Dates, OddAndEvenWeeksAreTheRegions) {
  const auto evenSundays = [](std::string_view region) {
    return Case("Europe/Paris", "2026-11-19 12:00", region)
        .entry({{"TriggerScheduleMode", 1},
                {"TriggerScheduleSunday", 1},
                {"TriggerScheduleEvenOdd", 2}},
               "2020-01-01 09:00")
        .next();
  };
  EXPECT_EQ(evenSundays("fr_FR.UTF-8"), "2026-11-29 09:00:00");
  EXPECT_EQ(evenSundays("en_US.UTF-8"), "2026-11-22 09:00:00");
  EXPECT_EQ(evenSundays("C"), "2026-11-22 09:00:00");
}

TEST(Dates, ATimeThatFallsIntoTheNextDayIsNotThatDays) {
  // The clocks went from 23:30 to 0:30; 23:45 became 0:45 of the next day.
  Case toronto = Case("America/Toronto", "1919-03-30 12:00").entry({}, "1919-01-01 23:45");
  EXPECT_EQ(toronto.next(), "1919-03-31 23:45:00");
}

TEST(Dates, NothingThatARecordHoldsIsTooMuch) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  constexpr std::int64_t huge = std::int64_t{1} << 62;
  for (const double date : {std::nan(""), infinity, -infinity, 3e19, -3e19, 1e12, -1e12, 1e300}) {
    for (const std::int64_t number : {huge, -huge, std::int64_t{99}, std::int64_t{-1}}) {
      for (const std::int64_t frequency :
           {std::int64_t{1}, std::int64_t{20}, std::int64_t{22}, std::int64_t{30}, number}) {
        ZAN_Value entry = ZAN_Value::dictionary(
            {{"TriggerScheduleMonthMode", 14}, {"TriggerScheduleMonthDays", "99999999999,-1,,"}});
        for (const char* key :
             {"TriggerScheduleMode", "TriggerScheduleEvenOdd", "TriggerScheduleMonthWeekDay",
              "TriggerScheduleDay", "TriggerScheduleMonth"}) {
          entry.setValue(key, number);
        }
        Case wrong = paris();
        ZAN_Value settings = wrong.set("TriggerFrequencyPopup", frequency)
                                 .set("TriggerScheduleMinutes", number)
                                 .set("TriggerAllowedHours", number)
                                 .set("TriggerHourDelay", number)
                                 .settings();
        for (const char* key :
             {"TriggerScheduleTime", "TriggerAllowedHoursFrom", "LastScheduleDate"}) {
          settings.setValue(key, ZAN_Value::date(date));
          entry.setValue(key, ZAN_Value::date(date));
        }
        Schedule schedule(settings);
        for (int mode = 0; mode < 4; ++mode) {
          entry.setValue("TriggerScheduleMode", mode);
          schedule.list.emplace_back(entry);
        }
        for (const double now : {817032774.0, date}) {
          const ActionsTools tools(wrong.calendar(), now);
          const auto next = tools.getNextScheduleDateForSettings(schedule, true);
          EXPECT_TRUE(!next || std::isfinite(*next));
          EXPECT_TRUE(std::isfinite(tools.getNextSchedule(date, -date, number, number, number)));
          EXPECT_TRUE(std::isfinite(tools.getNextSchedule(date, now, 0, number, 86400)));
        }
      }
    }
  }
}

TEST(Dates, ADamagedListCostsItsDatesAndIsTold) {
  std::vector<std::string> lines;
  const Case clock = daily("2026-01-01 11:00").last("2026-11-21 10:00");
  const ActionsTools tools(clock.calendar(), clock.at("2026-11-21 10:40"),
                           [&](const std::string& line) { lines.push_back(line); });
  for (const ZAN_Value& list :
       {ZAN_Value::data("no archive"), ZAN_Value(7), ZAN_Value("text"),
        ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(ZAN_Value("text"))),
        ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::array(
            {ZAN_Value::dictionary({{"TriggerFrequencyPopup", 21}}), ZAN_Value(3)})))}) {
    lines.clear();
    ZAN_Value settings = clock.settings();
    settings.setValue("TriggerScheduleList", list);
    bool shutDown = true;
    EXPECT_EQ(tools.getNextScheduleDateForSettings(settings, false, &shutDown),
              clock.at("2026-11-21 11:00"));
    EXPECT_FALSE(shutDown);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_TRUE(lines[0].starts_with("Exception in getNextScheduleProgrammed: ")) << lines[0];
  }
}

TEST(ScheduleTexts, SayWhatMakesAnActionRunAndWhen) {
  ZAN_StringTable table;
  ASSERT_TRUE(table.load(CORVANA_SOURCE_FOLDER "/resources", {"en"}));
  const ZAN_StringUtils strings("C", "Europe/Paris");
  const auto summary = [&](const Case& action) {
    return action.tools().getNextScheduleSummaryForSettings(action.settings(), {table, strings});
  };
  EXPECT_EQ(summary(daily("2026-07-01 08:00").last("2026-11-21 08:00")),
            "Every day at 08:00; next: Tomorrow at 08:00");
  EXPECT_EQ(summary(daily("2026-07-01 08:00").last("2026-11-20 08:00")),
            "Every day at 08:00; next: Now");
  EXPECT_EQ(summary(paris()
                        .set("TriggerFrequencyPopup", 22)
                        .set("TriggerHourDelay", 1)
                        .last("2026-11-21 10:00")),
            "Every 3 hours at 15 past; next: Today at 12:15");
  EXPECT_EQ(summary(paris().set("TriggerFrequencyPopup", 40)), "After 10 minutes without use");
  const auto friday = [](int popup) {
    return paris().entry({{"TriggerScheduleMode", 1},
                          {"TriggerScheduleFriday", 1},
                          {"TriggerFrequencyPopup", popup}},
                         "2026-01-01 18:30");
  };
  EXPECT_EQ(summary(friday(0)), "Every Friday at 18:30; next: Friday at 18:30");
  EXPECT_EQ(summary(friday(20)), "Every Friday at 18:30; next: At start-up: Friday at 18:30");
  EXPECT_EQ(summary(friday(21)), "At shut-down every Friday; next: At shutdown: Friday at 18:30");
}

TEST(ScheduleTexts, SpeakTheLanguageOfTheTableInWholeSentences) {
  ZAN_StringTable table;
  ASSERT_TRUE(table.load(CORVANA_SOURCE_FOLDER "/resources", {"de"}));
  const ZAN_StringUtils strings("C", "Asia/Tokyo");
  const auto sentence = [&](const Case& action) {
    return ScheduleSentence(action.calendar(), table, strings).inTerminal(action.settings());
  };
  EXPECT_EQ(sentence(paris()
                         .entry({{"TriggerScheduleMode", 1},
                                 {"TriggerScheduleSunday", 1},
                                 {"TriggerScheduleMonday", 1},
                                 {"TriggerScheduleThursday", 1},
                                 {"TriggerScheduleEvenOdd", 2}},
                                "2026-03-29 02:30")
                         .set("TriggerFrequencyPopup", 20)
                         .set("TriggerScheduleMinutes", 120)
                         .set("TriggerAllowedHours", 1)
                         .set("TriggerContextPopup", 2)),
            "alle 2 Stunden und jeden Montag, Donnerstag und Sonntag in geraden Wochen um 03:30, "
            "zwischen 00:00 und 00:00, nur zu Hause");
  EXPECT_EQ(sentence(paris()
                         .entry({{"TriggerScheduleMode", 2},
                                 {"TriggerScheduleMonthMode", 16},
                                 {"TriggerScheduleMonthWeekDay", 6},
                                 {"TriggerFrequencyPopup", 21}},
                                "2026-01-01 18:30")
                         .set("TriggerFrequencyPopup", 99)),
            "beim Ausschalten am zweiten Freitag des Monats");
  ZAN_Value quits = paris().set("TriggerFrequencyPopup", 11).settings();
  quits.setValue("TriggerAppQuitPath", "/Applications/Mail.app");
  const Case any = paris();
  const ScheduleSentence german(any.calendar(), table, strings);
  EXPECT_EQ(german.inTerminal(quits), "wenn /Applications/Mail.app beendet wird");
  EXPECT_EQ(german.inWindow(quits), "Wenn Mail beendet wird");
}

TEST(ActionItems, SourcesComeAsOneOrMany) {
  const ZAN_Value one = ZAN_Value::dictionary({{"VolumeFolderPath", "/a"}});
  const ZAN_Value two = ZAN_Value::dictionary({{"VolumeFolderPath", "/b"}});
  const auto paths = [](const ZAN_Value& settings) {
    std::string text;
    for (const FolderDescription& folder : ActionsTools::getSourcesForAction(settings))
      text += folder.path();
    return text.append("|").append(ActionsTools::getDestinationForAction(settings).path());
  };
  EXPECT_EQ(paths(ZAN_Value::dictionary({{"ItemsSource", one}, {"ItemsDestination", two}})),
            "/a|/b");
  EXPECT_EQ(paths(ZAN_Value::dictionary(
                {{"ItemsSource", one}, {"ItemsListOfSourcePath", ZAN_Value::array({two, one})}})),
            "/b/a|");
  EXPECT_EQ(paths(ZAN_Value::dictionary(
                {{"ItemsListOfSourcePath", ZAN_Value::array()}, {"ItemsDestination", "text"}})),
            "|");
  EXPECT_TRUE(ActionsTools::hasSourceList(ZAN_Value::dictionary({{"ItemsSource", one}})));
  EXPECT_TRUE(ActionsTools::hasSourceList(
      ZAN_Value::dictionary({{"ItemsListOfSourcePath", ZAN_Value::array()}})));
  EXPECT_FALSE(ActionsTools::hasSourceList(ZAN_Value::dictionary({{"ItemsSource", "text"}})));
}

TEST(ActionItems, TwoActionsMayNotFillOneCopy) {
  const auto folder = [](const char* path, const char* uuid = "") {
    ZAN_Value value = ZAN_Value::dictionary({{"VolumeFolderPath", path}});
    if (*uuid != '\0') value.setValue("uuid", uuid);
    return value;
  };
  const auto action = [&](const ZAN_Value& source, const ZAN_Value& destination, int mode = 2) {
    return ZAN_Value::dictionary({{"Mode", mode},
                                  {"OptionsPerformer", "corvana9"},
                                  {"ItemsSource", source},
                                  {"ItemsDestination", destination}});
  };
  const auto dispute = [](const ZAN_Value& one, const ZAN_Value& other) {
    return ActionsTools::copyInDispute(one, other).value_or("none");
  };
  const ZAN_Value mine = action(folder("/a/x"), folder("/d"));
  EXPECT_EQ(dispute(mine, action(folder("/b/x"), folder("/d"))), "/d/x");
  EXPECT_EQ(dispute(mine, mine), "none") << "the same source";
  EXPECT_EQ(
      dispute(action(folder("/a/x", "1"), folder("/d")), action(folder("/a/x", "2"), folder("/d"))),
      "/d/x")
      << "of another volume at that place";
  EXPECT_EQ(dispute(mine, action(folder("/b/x"), folder("/d/x"))), "none");
  EXPECT_EQ(
      dispute(action(folder("/a/x"), folder("/d"), 3), action(folder("/b/y"), folder("/d/x"))),
      "/d/x/y")
      << "what synchronises deletes what is not its own";
  EXPECT_EQ(
      dispute(action(folder("/b/y"), folder("/d/x")), action(folder("/a/x"), folder("/d"), 3)),
      "/d/x/y");
  EXPECT_EQ(
      dispute(action(folder("/a/x"), folder("/d", "1")), action(folder("/b/x"), folder("/d", "2"))),
      "none")
      << "disks that take turns";
  EXPECT_EQ(dispute(action(folder("/a/x"), folder("")), action(folder("/b/x"), folder(""))),
            "none");
}

TEST(ActionItems, DescriptionsKeepWhatTheyDoNotKnow) {
  const ZAN_Value stored =
      ZAN_Value::dictionary({{"Bookmark", "b"},
                             {"VolumeFolderPath", "/Volumes/Disk/a"},
                             {"VolumeFolderVolumeSize", ZAN_Value::integer(7, 'i')}});
  EXPECT_EQ(FolderDescription(stored).toValue(), stored);
  const FolderDescription moved = FolderDescription(stored)
                                      .setPath("/b")
                                      .setVolumeDate(ZAN_Value::unsignedInteger(5))
                                      .setUuid("mine");
  EXPECT_EQ(moved.toValue(),
            ZAN_Value::dictionary({{"Bookmark", "b"},
                                   {"VolumeFolderPath", "/b"},
                                   {"VolumeFolderVolumeSize", ZAN_Value::integer(7, 'i')},
                                   {"VolumeFolderVolumeDate", ZAN_Value::unsignedInteger(5)},
                                   {"uuid", "mine"}}));
  EXPECT_FALSE(moved.hasOtherFigures(FolderDescription(stored))) << "a missing date is not another";
  EXPECT_FALSE(moved.isSameVolume(FolderDescription(stored)));
  EXPECT_TRUE(FolderDescription("text").isNull());
  EXPECT_TRUE(FolderDescription(ZAN_Value::dictionary()).isDamaged());
  EXPECT_FALSE(FolderDescription().isDamaged());
}

}  // namespace
}  // namespace corvana
