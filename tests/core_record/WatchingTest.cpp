#include "core/record/Diagnostics.h"
#include "tests/core_record/RecordFixture.h"

namespace corvana {
namespace {

class WatchingTest : public RecordTest {
 protected:
  std::string debugLines(RecordedAgent& agent) {
    std::ifstream file(agent.store.folder().pathOf(DataFolder::kShortLog));
    return {std::istreambuf_iterator<char>(file), {}};
  }
};

TEST_F(WatchingTest, SiblingsAreToldByTheirBundle) {
  RecordedAgent agent(p);
  const InstallPaths& paths = agent.store.installPaths();
  EXPECT_FALSE(agent.watch.isMainAppLaunched());
  p.processes.startApplication(paths.installPathForCode(InstallPaths::executeBundle));
  p.processes.startApplication("/opt/elsewhere/Corvana 9.app");
  EXPECT_FALSE(agent.watch.isMainAppLaunched());
  EXPECT_TRUE(agent.watch.isExecuteAppLaunched());

  agent.channel.postToMainApp("UpdateHistory");
  agent.channel.postToExecute("ActionPause", ZAN_Value::dictionary({{"Pause", true}}));
  ASSERT_EQ(p.notifications.posts.size(), 1U);
  EXPECT_EQ(p.notifications.posts[0].name, "CVA9_ExecuteNotification");
  EXPECT_TRUE(p.notifications.posts[0].userInfo["Pause"].boolValue());

  p.processes.startApplication(paths.installPathForCode(InstallPaths::mainAppBundle));
  agent.channel.postToMainApp("UpdateHistory");
  EXPECT_EQ(p.notifications.count("CVA9_MainAppliNotification", "UpdateHistory"), 1U);

  const auto status = [&](bool disabled, bool byUser, bool paused, bool executing) {
    agent.state.mScheduleDisabled = disabled;
    agent.preferences.mPrefScheduleDisabled = byUser ? 1 : 0;
    agent.state.mPause = paused;
    agent.state.mExecuting = executing;
    agent.channel.sendSchedulerStatusToMainApp();
    return p.notifications.posts.back().userInfo.integer("SchedulerStatus");
  };
  EXPECT_EQ(status(true, true, true, true), 4);
  EXPECT_EQ(status(true, false, true, true), 3) << "off until the user has answered a question";
  EXPECT_EQ(status(false, true, false, true), 2);
  EXPECT_EQ(status(false, false, false, false), 1);
  const auto extra = [&](bool executing, bool endsWhenDone, bool otherMachine) {
    agent.state.mExecuting = executing;
    agent.state.mScheduleDisabledWhenDone = endsWhenDone;
    agent.state.mStartedFromNewMachine = otherMachine;
    agent.channel.sendStatus();
    return p.notifications.posts.back().userInfo.integer("extraStatus");
  };
  EXPECT_EQ(extra(true, false, false), 1);
  EXPECT_EQ(extra(false, true, false), 2);
  EXPECT_EQ(extra(false, false, true), 4);
}

TEST_F(WatchingTest, DebugLinesNeedTheMainApplicationAtStartUp) {
  RecordedAgent agent(p);
  DebugLog silent(p.clock, agent.store.texts(), agent.now(), false);
  silent.logMessage("unheard", true);
  EXPECT_EQ(debugLines(agent), "");

  DebugLog debug(p.clock, agent.store.texts(), agent.now(), true);
  p.clock.sleep(1.25);
  debug.logMessage("early", false);
  p.clock.sleep(60);
  debug.logMessage("late", false);
  debug.logMessage("forced", true);
  const std::string lines = debugLines(agent);
  EXPECT_NE(lines.find("(+1250 ms) - early\n"), std::string::npos) << lines;
  EXPECT_EQ(lines.find("late"), std::string::npos) << lines;
  EXPECT_NE(lines.find("(+61250 ms) - forced\n"), std::string::npos) << lines;
}

TEST_F(WatchingTest, TimingIsMeasuredOnceTheWindowWasShown) {
  RecordedAgent agent(p);
  SurveyExecution& survey = agent.survey;
  const auto work = [&](const char* key, double seconds) {
    const SurveyExecution::Bracket bracket(survey, key);
    p.clock.sleep(seconds);
  };
  work("timerMethod", 1);
  EXPECT_EQ(survey.lines().size(), 1U);

  int updates = 0;
  survey.onUpdated = [&updates] { ++updates; };
  survey.showWindow();
  survey.endExecutionForKey("timerMethod");
  survey.startExecutionForKey("open");
  work("timerMethod", 0.1);
  work("timerMethod", 0.3);
  EXPECT_EQ(survey.title(), "Survey Execution (Corvana 9 Scheduler)");
  EXPECT_EQ(survey.lines(),
            (std::vector<std::string>{
                "Calculating average values over the last 10 seconds", "open: No values",
                "timerMethod: 2 values, average: 200.000 ms (40.000 ms/sec = 4.000 %), "
                "min: 100.000 ms, max: 300.000 ms"}));
  p.runLoop.runFor(11);
  EXPECT_GE(updates, 10);
  EXPECT_EQ(survey.lines().back(), "timerMethod: No values for this duration");
}

}  // namespace
}  // namespace corvana
