#include "ui/windows/WeekModel.h"

#include <gmock/gmock.h>

#include <cmath>

namespace corvana {
namespace {

using testing::ElementsAre;

/// As if nothing had been due before now.
std::vector<WeekTimeline::Action> since(ReferenceTime now,
                                        std::vector<WeekTimeline::Action> actions) {
  for (auto& action : actions) action.schedule.lastScheduleDate = now;
  return actions;
}

class WeekTimelineTest : public testing::Test {
 protected:
  static const ZAN_DateUtils& calendar() {
    static const ZAN_DateUtils paris("Europe/Paris", "fr_FR");
    return paris;
  }
  static ReferenceTime at(int year, int month, int day, int hour = 0, int minute = 0) {
    return calendar().dateForComponents(
        {.year = year, .month = month, .day = day, .hour = hour, .minute = minute});
  }
  static WeekTimeline::Action daily(std::string title, int hour, int minute, double seconds) {
    WeekTimeline::Action action{
        .ref = hour * 100 + minute, .title = std::move(title), .schedule = {}};
    action.schedule.automatic = true;
    action.schedule.kind = ScheduleKind::daily;
    action.schedule.time = at(2026, 7, 1, hour, minute);
    action.seconds = seconds;
    return action;
  }
  static std::vector<std::string> bars(const WeekTimeline& week, std::size_t day) {
    std::vector<std::string> texts;
    for (const auto& bar : week.days()[day].bars) {
      texts.push_back(week.actionOf(week.runs()[bar.run]).title + " " +
                      std::to_string(std::lround(bar.from * 1440)) + "-" +
                      std::to_string(std::lround(bar.to * 1440)) + " lane " +
                      std::to_string(bar.lane));
    }
    return texts;
  }
};

TEST_F(WeekTimelineTest, RunsThatMeetAreToldAndStandInLanes) {
  const WeekTimeline week(
      calendar(), at(2026, 11, 21, 12),
      since(at(2026, 11, 21, 12), {daily("Photos", 23, 0, 2 * 3600), daily("Mail", 23, 30, 600),
                                   daily("Early", 0, 30, 600), daily("Noon", 11, 0, 600)}));
  ASSERT_EQ(week.days().size(), 7u);
  EXPECT_THAT(bars(week, 0), ElementsAre("Photos 1380-1440 lane 0", "Mail 1410-1420 lane 1"));
  EXPECT_THAT(bars(week, 1),
              ElementsAre("Photos 0-60 lane 0", "Early 30-40 lane 1", "Noon 660-670 lane 0",
                          "Photos 1380-1440 lane 0", "Mail 1410-1420 lane 1"))
      << "a run over midnight is in both days";
  EXPECT_DOUBLE_EQ(week.nowInDay(), 0.5);
  const auto& mail = week.runs()[1];
  ASSERT_TRUE(mail.waitsFor);
  EXPECT_EQ(week.actionOf(week.runs()[*mail.waitsFor]).title, "Photos");
  EXPECT_TRUE(week.runs()[0].isMet);
  EXPECT_FALSE(week.runs()[3].overlaps()) << week.actionOf(week.runs()[3]).title;
}

TEST_F(WeekTimelineTest, TheHourThatAChangeOfTheClocksSkipsOrRepeatsIsMarked) {
  const WeekTimeline spring(calendar(), at(2026, 3, 26),
                            since(at(2026, 3, 26), {daily("Night", 2, 30, 60)}));
  for (std::size_t day = 0; day < 7; ++day)
    EXPECT_EQ(spring.days()[day].change.has_value(), day == 3) << day;
  EXPECT_TRUE(spring.days()[3].change->forward);
  EXPECT_DOUBLE_EQ(spring.days()[3].change->from * 24, 2);
  EXPECT_DOUBLE_EQ(spring.days()[3].change->to * 24, 3);
  EXPECT_THAT(bars(spring, 3), ElementsAre("Night 210-211 lane 0")) << "the same distance after it";

  const WeekTimeline autumn(calendar(), at(2026, 10, 24, 12),
                            since(at(2026, 10, 24, 12), {daily("Night", 2, 30, 3600)}));
  const auto& back = autumn.days()[1].change;
  ASSERT_TRUE(back);
  EXPECT_FALSE(back->forward);
  EXPECT_DOUBLE_EQ(back->from * 24, 2);
  EXPECT_DOUBLE_EQ(back->to * 24, 3);
  EXPECT_THAT(bars(autumn, 1), ElementsAre("Night 150-150 lane 0")) << "2:30 to the second 2:30";

  // Days that begin with the change, and that end with it.
  const ZAN_DateUtils beirut("Asia/Beirut", "C");
  const auto inBeirut = [&](int month, int day) {
    return beirut.dateForComponents({.year = 2024, .month = month, .day = day, .hour = 12});
  };
  const WeekTimeline midnight(beirut, inBeirut(3, 29), {});
  ASSERT_TRUE(midnight.days()[2].change);
  EXPECT_DOUBLE_EQ(midnight.days()[2].change->from, 0);
  EXPECT_DOUBLE_EQ(midnight.days()[2].change->to * 24, 1);
  const WeekTimeline late(beirut, inBeirut(10, 26), {});
  ASSERT_TRUE(late.days()[0].change) << "23:00 comes twice on the evening before";
  EXPECT_DOUBLE_EQ(late.days()[0].change->from * 24, 23);
  EXPECT_DOUBLE_EQ(late.days()[0].change->to, 1);
  EXPECT_FALSE(late.days()[1].change);
}

TEST_F(WeekTimelineTest, WhatWillNotRunWaitsForNothing) {
  auto actions =
      since(at(2026, 11, 21, 12), {daily("Photos", 23, 0, 7200), daily("Mail", 23, 30, 600)});
  actions[0].context = ActionContext::office;
  const WeekTimeline week(calendar(), at(2026, 11, 21, 12), actions,
                          {.context = ActionContext::home});
  EXPECT_EQ(week.runs()[0].hold, Hold::otherContext);
  EXPECT_EQ(week.runs()[1].hold, Hold::none);
  EXPECT_EQ(week.overlapping(), 0U);
  actions[0].context = ActionContext::none;
  EXPECT_GT(WeekTimeline(calendar(), at(2026, 11, 21, 12), actions, {.paused = true}).overlapping(),
            0U)
      << "what is paused comes all the same";
}

TEST_F(WeekTimelineTest, WhatRunsAllDayIsABandAndTooMuchIsCut) {
  WeekTimeline::Action often{.ref = 1, .title = "Often", .schedule = {}};
  often.schedule.automatic = true;
  often.schedule.kind = ScheduleKind::minutes;
  often.schedule.minutes = 15;
  often.schedule.lastScheduleDate = at(2026, 11, 21);
  const WeekTimeline week(calendar(), at(2026, 11, 21),
                          since(at(2026, 11, 21), {often, daily("Noon", 12, 0, 60)}));
  ASSERT_EQ(week.days()[1].bars.size(), 2u);
  EXPECT_EQ(week.days()[1].bars[0].count, 96u);
  EXPECT_EQ(week.days()[1].bars[0].to, 1.0 - 14.0 / 1440) << "to the end of its last run";
  EXPECT_EQ(week.days()[1].bars[1].lane, 1) << "the band covers the day";
  EXPECT_FALSE(week.isCut());

  often.schedule.minutes = 1;
  EXPECT_TRUE(WeekTimeline(calendar(), at(2026, 11, 21), std::vector(10, often)).isCut());
}

}  // namespace
}  // namespace corvana
