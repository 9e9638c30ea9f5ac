#include <QProcess>

#include "tests/application/ApplicationTest.h"

namespace corvana {
namespace {

class HouseholdTest : public ApplicationTest {};

TEST_F(HouseholdTest, SaysWhoItIsAndMergesWhatOthersChanged) {
  household->begin();
  ASSERT_TRUE(eventually([&] { return agent->hasHeard("ApplicationIsLaunched"); }));
  ASSERT_TRUE(eventually([&] { return household->agent() == Household::Agent::answers; }));
  const std::int64_t reference =
      add(ZAN_Value::dictionary({{"Title", "Letters"}, {"Odd", "kept"}}));
  EXPECT_TRUE(eventually([&] { return agent->hasHeard("ActionListChanged"); }));

  // Another program, as the agent and the execute program do it.
  ActionTree& others = household->tree();
  others.addInChangesList(*others.rootItem().actionForReference(reference), 7, "ExecCounter");
  ASSERT_TRUE(eventually([&] { return household->store().tree().readChangesList().empty(); }));
  EXPECT_EQ(recordOf(reference).integer("ExecCounter"), 7);
  EXPECT_EQ(recordOf(reference).string("Odd"), "kept");

  household->end();
  EXPECT_TRUE(eventually([&] { return agent->hasHeard("ApplicationWillQuit"); }));
}

TEST_F(HouseholdTest, LosesNothingWhileTwoOtherProgramsWrite) {
  constexpr int kRounds = 60;
  household->begin();
  const std::int64_t edited = add(ZAN_Value::dictionary({{"Title", "0"}, {"TriggerAutomatic", 0}}));
  const std::int64_t counted = add(ZAN_Value::dictionary({{"Title", "Counted"}}));

  // `corvana9 edit` again and again, each a process of its own.
  QProcess editing;
  editing.start("/bin/sh",
                {"-c", QString("i=0; while [ $i -lt %1 ]; do i=$((i+1)); \"%2\" edit %3 --title $i "
                               "> /dev/null || exit 1; done")
                           .arg(kRounds)
                           .arg(CORVANA_COMMAND)
                           .arg(edited)});
  // Meanwhile changes come as the agent makes them, from a view of its own.
  const auto other = makeHousehold();
  for (int round = 1; round <= kRounds; ++round) {
    ProgrammedAction* node = other->actions().actionForReference(counted);
    ASSERT_NE(node, nullptr) << round;
    other->tree().addInChangesList(*node, round, "Round " + std::to_string(round));
    QTest::qWait(1);
  }
  ASSERT_TRUE(QTest::qWaitFor([&] { return editing.state() == QProcess::NotRunning; }, 120'000));
  EXPECT_EQ(editing.exitCode(), 0);
  ASSERT_TRUE(eventually([&] { return household->store().tree().readChangesList().empty(); }));
  EXPECT_EQ(recordOf(edited).string("Title"), std::to_string(kRounds));
  for (int round = 1; round <= kRounds; ++round)
    EXPECT_EQ(recordOf(counted).integer("Round " + std::to_string(round)), round);
}

TEST_F(HouseholdTest, ASecondStartAsksForTheFirst) {
  ASSERT_TRUE(household->claim());
  household->begin();
  int raised = 0;
  household->onRaise = [&](const std::string&) { ++raised; };
  EXPECT_FALSE(makeHousehold()->claim());
  EXPECT_TRUE(eventually([&] { return raised == 1; }));
  household.reset();
  EXPECT_TRUE(makeHousehold()->claim()) << "it has gone";
}

TEST_F(HouseholdTest, ToldOfAnotherHomeItKeepsToItself) {
  agent->answer.setValue("home", "/somewhere/else");
  household->begin();
  ASSERT_TRUE(eventually([&] { return household->agent() == Household::Agent::elsewhere; }));
  agent->heard.clear();
  household->tellAgent("ActivateExecution");
  add(ZAN_Value::dictionary({{"Title", "Mine"}}));
  QCoreApplication::processEvents();
  agent->answer.setValue("home", home);
  agent->tellChanged();
  ASSERT_TRUE(eventually([&] { return household->agent() == Household::Agent::answers; }));
  EXPECT_FALSE(agent->hasHeard("ActivateExecution"));
  EXPECT_FALSE(agent->hasHeard("ActionListChanged"));
}

}  // namespace
}  // namespace corvana
