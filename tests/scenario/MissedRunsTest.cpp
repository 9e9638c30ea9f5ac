#include <gtest/gtest.h>

#include <filesystem>

#include "actions/ActionLog.h"
#include "actions/ProgrammedAction.h"
#include "core/record/Preferences.h"
#include "tests/scenario/Scenario.h"

namespace corvana {
namespace {

/// Every Tuesday at 23:00; 2024-01-02 is one.
ZAN_Value weekly(Scenario& week) {
  ZAN_Value record = scheduled(
      {ZAN_Value::dictionary({{"TriggerScheduleMode", 1},
                              {"TriggerScheduleTuesday", 1},
                              {"TriggerScheduleTime", ZAN_Value::date(week.timeOfDay("23:00"))}})},
      week.machine.clock.now());
  record.setValue("TriggerMakeUpMissed", 1);
  return record;
}

ZAN_Value with(ZAN_Value record, std::string_view key, const ZAN_Value& value) {
  record.setValue(key, value);
  return record;
}

/// The agent is off, from the first afternoon until two days later.
void offOverTheNight(Scenario& week) {
  week.start();
  week.runUntil("2024-01-02 18:20:00");
  week.quit();
  week.machine.clock.setNow(week.at("2024-01-04 10:00:00"));
}

TEST(MissedRuns, TheLastOneIsMadeUpOnceAndSaid) {
  Scenario week;
  week.action("Weekly", weekly(week));
  week.action("Letter", with(weekly(week), "TriggerMakeUpMissed", 0));
  week.action("Often", with(everyMinutes(60, week.machine.clock.now()), "TriggerMakeUpMissed", 1));
  ZAN_Value hours = with(with(weekly(week), "TriggerAllowedHours", 1), "TriggerAllowedHoursFrom",
                         ZAN_Value::date(week.timeOfDay("22:00")));
  hours.setValue("TriggerAllowedHoursTo", ZAN_Value::date(week.timeOfDay("23:30")));
  week.action("Evening", hours);
  week.writeTree();
  offOverTheNight(week);
  const std::size_t often = week.executionsOf("Often");
  week.start();
  week.runUntil("2024-01-04 10:59:00");
  EXPECT_EQ(week.executionsOf("Weekly"), 1U);
  EXPECT_EQ(week.executionsOf("Letter"), 0U) << "as described: lost with its day";
  EXPECT_LE(week.executionsOf("Often"), often + 1) << "not one for each hour";
  EXPECT_EQ(week.executionsOf("Evening"), 0U);
  EXPECT_NE(week.plannedDates().find("2024-01-02 23:00:00"), std::string::npos)
      << "late by a day and a half: " << week.plannedDates();
  bool isSaid = false;
  for (const std::string& line : week.report()) isSaid |= line.find("missed on") != line.npos;
  EXPECT_TRUE(isSaid);
  // The chance of hours comes in the evening, even of an agent that began anew meanwhile.
  week.kill();
  week.start();
  week.runUntil("2024-01-05 12:00:00");
  EXPECT_EQ(week.executionsOf("Evening"), 1U);
  EXPECT_EQ(week.executionsOf("Weekly"), 1U);
}

TEST(MissedRuns, ASleepingMachineMissesNothingEither) {
  Scenario week;
  week.action("Weekly", weekly(week));
  week.writeTree();
  week.start();
  week.runUntil("2024-01-02 18:00:00");
  week.sleepUntil("2024-01-04 10:00:00");
  week.runUntil("2024-01-04 11:00:00");
  EXPECT_EQ(week.executionsOf("Weekly"), 1U);
}

TEST(MissedRuns, WhatTheUserDidNotWantIsNotMadeUp) {
  enum class Wish { off, offMeanwhile, paused, otherContext, edited };
  for (const Wish wish :
       {Wish::off, Wish::offMeanwhile, Wish::paused, Wish::otherContext, Wish::edited}) {
    SCOPED_TRACE(static_cast<int>(wish));
    Scenario week;
    ZAN_Value record = with(weekly(week), "TriggerContextPopup", 1);
    const std::int64_t ref = week.action("Weekly", record);
    week.writeTree();
    week.start();
    week.runFor(120);
    if (wish == Wish::off) week.agent->commands().setSchedulerActive(false);
    if (wish == Wish::paused) week.agent->commands().pauseExecution();
    week.agent->commands().setContext(wish == Wish::otherContext ? 2 : 1);
    week.runUntil("2024-01-02 18:00:00");
    week.quit();
    week.machine.clock.setNow(week.at("2024-01-04 10:00:00"));
    if (wish == Wish::edited) {
      ActionStore& store = week.store();
      ZAN_Value list = store.tree().readActionsList();
      ZAN_Value changed = ZAN_Value::array();
      for (ZAN_Value one : list.elements()) {
        if (one.integer("Ref") == ref)
          one.setValue("LastScheduleDate", ZAN_Value::date(week.at("2024-01-03 09:00:00")));
        changed.append(one);
      }
      ASSERT_TRUE(store.tree().saveActionsTree(changed));
    }
    if (wish == Wish::offMeanwhile) {
      ZAN_Value settings = week.store().settings().schedulerSettings();
      settings.setValue(PreferenceKey::scheduleDisabled, 1);
      ASSERT_TRUE(week.store().settings().saveSchedulerSettings(settings));
    }
    week.start();
    week.runFor(120);
    week.agent->commands().setSchedulerActive(true);
    week.agent->commands().setContext(1);
    week.runUntil("2024-01-04 12:00:00");
    EXPECT_EQ(week.executionsOf("Weekly"), 0U);
  }
}

TEST(MissedRuns, AHomeWithoutALookMissesNothing) {
  Scenario week;
  week.action("Weekly", with(weekly(week), "TriggerAgeAlarm", 1));
  week.writeTree();
  offOverTheNight(week);
  std::filesystem::remove(week.store().folder().pathOf(DataFolder::kLastLook));
  week.start();
  week.runUntil("2024-01-04 12:00:00");
  EXPECT_EQ(week.executions(), "");
}

TEST(AgeAlarms, AreSaidOnceADayAndEndWithASuccess) {
  Scenario month;
  const ReferenceTime begin = month.machine.clock.now();
  ZAN_Value record = with(daily(month.timeOfDay("08:00"), begin), "TriggerAgeAlarm", 1);
  record.setValue("SaveEditDate", ZAN_Value::date(begin));
  record.setValue("OptionsPerformer", "corvana9");
  const std::int64_t photos = month.action("Photos", record);
  // Nobody hears of these: by hand, weekly and so not yet, and one that does not ask for it.
  month.action("Hand", with(with(record, "TriggerAutomatic", 0), "Title", "Hand"));
  month.action("Weekly", with(with(weekly(month), "TriggerAgeAlarm", 1), "SaveEditDate",
                              ZAN_Value::date(begin)));
  month.action("Quiet", with(record, "TriggerAgeAlarm", 0));
  month.writeTree();
  month.start();
  month.runFor(60);
  month.agent->commands().setSchedulerActive(false);
  const auto alarms = [&] {
    const ZAN_Value log = ActionLog(month.store()).readLogList();
    std::size_t count = 0;
    for (const ZAN_Value& entry : log.elements()) {
      const std::string text = entry.string("N");
      if (text.find("successfully") == text.npos) continue;
      EXPECT_NE(text.find("Photos"), text.npos) << text;
      ++count;
    }
    return count;
  };
  month.runUntil("2024-01-05 11:00:00");
  EXPECT_EQ(alarms(), 0U) << "three periods are not over";
  month.runUntil("2024-01-05 14:00:00");
  EXPECT_EQ(alarms(), 1U);
  month.runUntil("2024-01-08 14:00:00");
  EXPECT_EQ(alarms(), 4U) << "once a day, restarts or not";
  const auto noteRun = [&](ZAN_Value success) {
    ProgrammedAction* const action = month.agent->tree().rootItem().actionForReference(photos);
    action->setLastExecutionDate();
    action->setSetting(ActionKey::lastSuccess, std::move(success));
  };
  noteRun(ZAN_Value::date(0));
  month.runUntil("2024-01-10 14:00:00");
  EXPECT_EQ(alarms(), 6U) << "a run with errors is no success";
  noteRun(ZAN_Value::date(month.machine.clock.now()));
  month.runUntil("2024-01-12 14:00:00");
  EXPECT_EQ(alarms(), 6U);
}

}  // namespace
}  // namespace corvana
