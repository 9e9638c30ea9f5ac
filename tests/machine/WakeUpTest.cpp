#include "core/machine/PowerDuties.h"

#include <gmock/gmock.h>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "tests/core_work/WorkWorld.h"

namespace corvana::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct WakeUpTest : testing::Test, WorkWorld {
  WakeUpTest() {
    preferences.mCheckWakeupMachine = true;
    evaluation.rebuildActionsList();
  }
  WakeUp wakeUp{records, evaluation};
  SimulatedPower& power = machine.power;

  /// The first dated action is due then; one without a date stands beside it.
  void dueAt(ReferenceTime date) {
    setActions({action(2), automatic(1, 1,
                                     {{"TriggerScheduleTime", ZAN_Value::date(date)},
                                      {"LastScheduleDate", ZAN_Value::date(now())}})});
    evaluation.rebuildActionsList();
  }
  std::int64_t stored() {
    return store.settings().schedulerSettings().integer("SchedulerLastWakeupTime");
  }
  std::vector<std::string> eventsAfter() {
    power.events.clear();
    wakeUp.doSetWakeup();
    return power.events;
  }
};

std::string scheduled(ReferenceTime time) {
  return "schedule " + std::to_string(static_cast<std::int64_t>(time));
}
std::string cancelled(ReferenceTime time) {
  return "cancel " + std::to_string(static_cast<std::int64_t>(time));
}

TEST_F(WakeUpTest, WakesTenSecondsBeforeWhatIsDueInAMinuteOrMore) {
  EXPECT_THAT(eventsAfter(), IsEmpty()) << "nothing has a date";
  dueAt(now() + 700);
  advance(700 - 59);
  EXPECT_THAT(eventsAfter(), IsEmpty());
  machine.clock.setNow(now() - 2);
  const double wake = now() + 51;
  EXPECT_EQ(wakeUp.nextWork(), kAtOnce);
  EXPECT_THAT(eventsAfter(), ElementsAre(scheduled(wake)));
  EXPECT_EQ(power.identifier, "com.zan.corvana9");
  EXPECT_EQ(stored(), static_cast<std::int64_t>(wake));
  const auto minutes = ZAN_Unarchiver::unarchiveObjectWithData(
      store.activity().readActivity()["WakeUpActivity"].bytes());
  ASSERT_TRUE(minutes);
  EXPECT_TRUE(minutes->containsIndex(static_cast<std::uint64_t>(wake / 60)));
  EXPECT_EQ(wakeUp.nextWork(), kNever);

  preferences.mCheckWakeupMachine = false;
  dueAt(now() + 4000);
  EXPECT_THAT(eventsAfter(), IsEmpty());
}

TEST_F(WakeUpTest, ADateThatMovesALittleKeepsTheEarlierWakeUp) {
  const ReferenceTime first = now() + 3600;
  dueAt(first);
  ASSERT_THAT(eventsAfter(), ElementsAre(scheduled(first - 10)));
  for (const double move : {240.0, 299.0, -299.0}) {
    dueAt(first + move);
    EXPECT_THAT(eventsAfter(), IsEmpty()) << move;
  }
  dueAt(first + 300);
  EXPECT_THAT(eventsAfter(), ElementsAre(cancelled(first - 10), scheduled(first + 290)));
  dueAt(first);
  EXPECT_THAT(eventsAfter(), ElementsAre(cancelled(first + 290), scheduled(first - 10)));
  EXPECT_THAT(power.wakes, ElementsAre(static_cast<std::int64_t>(first - 10)));
}

TEST_F(WakeUpTest, WhileAnActionRunsEachWakeUpFollowsTheLast) {
  installExecute();
  machine.processes.next({.seconds = ChildScript::kUntilStopped});
  const ReferenceTime due = now() + 3600;
  dueAt(due);
  wakeUp.doSetWakeup();
  enqueue({2});
  ASSERT_EQ(supervisor.launchNextAction(), LaunchResult::launched);
  EXPECT_THAT(eventsAfter(), IsEmpty()) << "the one programmed is still to come";
  machine.clock.setNow(due - 10);
  EXPECT_THAT(eventsAfter(), IsEmpty());
  machine.clock.setNow(due - 9);
  EXPECT_THAT(eventsAfter(), IsEmpty()) << "less than 300 s later than the last";
  machine.clock.setNow(due + 1);
  EXPECT_THAT(eventsAfter(), ElementsAre(cancelled(due - 10), scheduled(due + 291)));
}

TEST_F(WakeUpTest, ARestartTakesOverWhatWasProgrammed) {
  const ReferenceTime first = now() + 3600;
  dueAt(first);
  wakeUp.doSetWakeup();
  // The machine was restarted, and what it knew is gone.
  power.wakes.clear();
  preferences.loadPrefs();
  preferences.mCheckWakeupMachine = true;
  WakeUp next{records, evaluation};
  next.restoreWakeup();
  EXPECT_THAT(power.wakes, ElementsAre(static_cast<std::int64_t>(first - 10)));
  dueAt(first + 900);
  power.events.clear();
  next.doSetWakeup();
  EXPECT_THAT(power.events, ElementsAre(cancelled(first - 10), scheduled(first + 890)));
  machine.clock.setNow(first + 900);
  power.wakes.clear();
  next.restoreWakeup();
  EXPECT_THAT(power.wakes, IsEmpty()) << "it has passed";
}

TEST_F(WakeUpTest, ARefusalIsSaidOnceUntilItWorksAgain) {
  power.wakeOutcome = Error{ErrorKind::refused, "Allow it: sudo setcap x"};
  const ReferenceTime first = now() + 3600;
  dueAt(first);
  wakeUp.doSetWakeup();
  dueAt(first + 3600);
  WakeUp{records, evaluation}.doSetWakeup();
  EXPECT_THAT(machine.systemLog.lines, ElementsAre("Allow it: sudo setcap x"));
  EXPECT_THAT(notices(), ElementsAre(HasSubstr("sudo setcap x")));
  EXPECT_EQ(stored(), static_cast<std::int64_t>(first + 3590)) << "whatever came of it";
  EXPECT_EQ(wakeUp.hindrance(), "Allow it: sudo setcap x");
  power.wakeOutcome = {};
  dueAt(first + 7200);
  wakeUp.doSetWakeup();
  EXPECT_EQ(wakeUp.hindrance(), "");
  power.clockWakes = false;
  EXPECT_THAT(wakeUp.hindrance(), HasSubstr("no clock"));
  power.clockWakes = true;
  power.wakeOutcome = Error{ErrorKind::refused, "Allow it: sudo setcap x"};
  dueAt(first);
  wakeUp.doSetWakeup();
  EXPECT_EQ(machine.systemLog.lines.size(), 2U);

  // The right is given: the same wake-up is programmed within minutes.
  power.wakeOutcome = {};
  advance(299);
  EXPECT_THAT(eventsAfter(), IsEmpty());
  advance(2);
  EXPECT_THAT(eventsAfter(), ElementsAre(scheduled(first - 10)));
  advance(400);
  EXPECT_THAT(eventsAfter(), IsEmpty());
}

/// Tuesday noon; hours from 8 to 10.
TEST_F(WakeUpTest, HoursAreWaitedFor) {
  const auto date = [](double hours) { return ZAN_Value::date(hours * 3600); };
  const auto inHours = [&](ZAN_Value record, double from, double to) {
    record.setValue("TriggerAllowedHours", 1);
    record.setValue("TriggerAllowedHoursFrom", date(from));
    record.setValue("TriggerAllowedHoursTo", date(to));
    record.setValue("LastScheduleDate", ZAN_Value::date(now() - 86400));
    return record;
  };
  const ReferenceTime midnight = now() - 12 * 3600;
  const auto wakesAt = [&](std::vector<ZAN_Value> actions) {
    setActions(std::move(actions));
    evaluation.rebuildActionsList();
    power.wakes.clear();
    preferences.mSchedulerLastWakeupTime = 0;
    wakeUp.doSetWakeup();
    return power.wakes;
  };
  const auto hours = [&](double at) {
    return static_cast<std::int64_t>(midnight + at * 3600 - 10);
  };
  const ZAN_Value every = automatic(1, 20, {{"TriggerScheduleMinutes", 30}});
  const ZAN_Value evening = automatic(2, 1, {{"TriggerScheduleTime", date(20)}});
  EXPECT_THAT(wakesAt({inHours(every, 8, 10)}), ElementsAre(hours(24 + 8.5)))
      << "today's hours are over";
  EXPECT_THAT(wakesAt({inHours(every, 14, 16)}), ElementsAre(hours(14.5)));
  EXPECT_THAT(wakesAt({inHours(evening, 8, 10)}), IsEmpty()) << "its hours never let it run";
  EXPECT_THAT(wakesAt({inHours(evening, 18, 22), inHours(every, 8, 10)}), ElementsAre(hours(20)));
}

TEST_F(WakeUpTest, AMissedRunWakesWhenItsHoursBegin) {
  const auto date = [](double hours) { return ZAN_Value::date(hours * 3600); };
  const ReferenceTime midnight = now() - 12 * 3600;
  setActions({automatic(1, 1,
                        {{"TriggerScheduleTime", date(9)},
                         {"TriggerAllowedHours", 1},
                         {"TriggerAllowedHoursFrom", date(8)},
                         {"TriggerAllowedHoursTo", date(10)},
                         {"TriggerMakeUpMissed", 1},
                         {"LastScheduleDate", ZAN_Value::date(midnight - 15 * 3600)}})});
  machine.clock.setNow(midnight + 7 * 3600);
  evaluation.checkActionsToLaunch();
  // Asleep over the hours.
  machine.clock.setNow(midnight + 12 * 3600);
  evaluation.checkActionsToLaunch();
  wakeUp.doSetWakeup();
  EXPECT_THAT(power.wakes, ElementsAre(static_cast<std::int64_t>(midnight + 32 * 3600 - 10)));
}

TEST_F(WakeUpTest, SwitchedOffItIsTakenBack) {
  const ReferenceTime first = now() + 3600;
  dueAt(first);
  wakeUp.doSetWakeup();
  wakeUp.followPreferences();
  EXPECT_THAT(power.wakes, ElementsAre(static_cast<std::int64_t>(first - 10)));
  preferences.mCheckWakeupMachine = false;
  wakeUp.followPreferences();
  EXPECT_THAT(power.wakes, IsEmpty());
  EXPECT_EQ(stored(), 0);
  const std::size_t events = power.events.size();
  wakeUp.followPreferences();
  EXPECT_EQ(power.events.size(), events) << "what was taken back is not taken back again";
}

}  // namespace
}  // namespace corvana::test
