#include <gmock/gmock.h>

#include <algorithm>

#include "tests/real/agent/AgentOnBus.h"

namespace corvana {
namespace {

using testing::HasSubstr;

using AgentOnBusTest = AgentOnBus;

TEST_F(AgentOnBusTest, IsDrivenByTheCommand) {
  startAgent();
  const std::string letters = std::to_string(kLetters);
  Said said = command({"launch", "7"});
  EXPECT_EQ(said.code, 1);
  EXPECT_THAT(said.text, HasSubstr("action 7: there is no such action"));

  said = command({"pause"});
  EXPECT_EQ(said.code, 0) << said.text;
  EXPECT_TRUE(client->status()->value("paused").boolValue());
  said = command({"launch", letters});
  EXPECT_EQ(said.code, 0);
  EXPECT_EQ(said.text, "queued 101: Letters\nThe execution is paused\n");
  said = command({"launch", letters});
  EXPECT_EQ(said.code, 1);
  EXPECT_THAT(said.text, HasSubstr("already waits in the queue"));
  EXPECT_THAT(command({"queue"}).text, HasSubstr("1. Letters [101], waiting since"));
  EXPECT_THAT(command({"why", letters}).text, HasSubstr("paused"));
  EXPECT_EQ(command({"stop"}).code, 1) << "nothing is being executed";

  EXPECT_EQ(command({"continue"}).code, 0);
  ASSERT_TRUE(until([](const ZAN_Value& status) { return status["executing"].boolValue(); }))
      << agentOutput;
  EXPECT_EQ(client->status()->value("current").integer("ref"), kLetters);
  EXPECT_THAT(command({"queue"}).text, HasSubstr("1. Letters [101], running"));
  EXPECT_EQ(command({"launch", std::to_string(kPhotos)}).code, 0);
  EXPECT_THAT(command({"status"}).text, HasSubstr("Executing: Letters [101]"));
  EXPECT_EQ(command({"stop"}).code, 0);

  endExecution(0);
  ASSERT_TRUE(
      until([](const ZAN_Value& status) { return status["current"].integer("ref") == kPhotos; }));
  endExecution(0);
  ASSERT_TRUE(until([](const ZAN_Value& status) { return status.integer("queueCount") == 0; }));
  EXPECT_THAT(command({"log"}).text, HasSubstr("Start execution of action \"Photos\""));
  EXPECT_THAT(command({"report"}).text, HasSubstr("Letters"));
}

TEST_F(AgentOnBusTest, IsSwitchedOffAndOnAndKeepsItOverARestart) {
  startAgent();
  EXPECT_EQ(command({"disable"}).code, 0);
  EXPECT_FALSE(client->status()->value("enabled").boolValue());
  agent->terminate();
  ASSERT_TRUE(real.runUntil([&] { return !agent->isRunning(); }));
  Said said = command({"status"});
  EXPECT_EQ(said.code, 0);
  EXPECT_THAT(said.text, HasSubstr("The agent is not running"));
  EXPECT_THAT(said.text, HasSubstr("Automatic execution: off"));
  said = command({"launch", "101"});
  EXPECT_EQ(said.code, 1);
  EXPECT_THAT(said.text, HasSubstr("Start it: corvana9-scheduler"));

  startAgent();
  EXPECT_FALSE(client->status()->value("enabled").boolValue());
  agent->terminate();
  ASSERT_TRUE(real.runUntil([&] { return !agent->isRunning(); }));
  EXPECT_EQ(command({"enable"}).code, 0) << "stored for the next start";
  startAgent();
  ASSERT_TRUE(until([](const ZAN_Value& status) { return status["enabled"].boolValue(); }));
}

TEST_F(AgentOnBusTest, GoesOnWhileTheBusIsGone) {
  startAgent();
  const std::int64_t pid = client->status()->integer("pid");
  bus.stop();
  Said said = command({"status"});
  EXPECT_EQ(said.code, 0);
  EXPECT_THAT(said.text, HasSubstr("The agent runs, but cannot be asked"));
  EXPECT_EQ(command({"disable"}).code, 1) << "it would write its own preferences over it";
  bus.start();
  ASSERT_TRUE(agentIsThere());
  EXPECT_EQ(client->status()->integer("pid"), pid);
  EXPECT_EQ(command({"launch", "101"}).code, 0);
}

TEST_F(AgentOnBusTest, BearsAFloodOfMessagesAndNonsense) {
  startAgent();
  BusNotifications sender(real.loop, log, [this] { return bus.address(); });
  ZAN_Value deep = 1;
  for (int i = 0; i < 12; ++i) deep = ZAN_Value::array({deep});
  const std::vector<DistributedNotification> nonsense{
      {"CVA9_SchedulerNotification", std::string(100'000, 'x'), {}},
      {"CVA9_SchedulerNotification", "ActionPause", ZAN_Value::dictionary({{"Pause", deep}})},
      {"CVA9_SchedulerNotification", "LaunchAction", ZAN_Value::dictionary({{"Ref", "Letters"}})},
      {"CVA9_SchedulerNotification", "AddToLog",
       ZAN_Value::dictionary({{"C", ZAN_Value::array()}})},
      {"CVA9_SchedulerNotification", "Message", ZAN_Value::dictionary({{"Seconds", "long"}})},
      {"CVA9_SchedulerNotification", "ExecuteProgress", {}}};
  for (int i = 0; i < 10'000; ++i) {
    sender.post({"CVA9_SchedulerNotification", "ExecuteProgress",
                 ZAN_Value::dictionary({{"CurrentPath", "/a"}, {"ProgressValue", i / 100.0}})});
    if (i % 2000 == 0)
      std::for_each(nonsense.begin(), nonsense.end(), [&](const auto& one) { sender.post(one); });
  }
  sender.post(
      {"CVA9_SchedulerNotification", "ActionPause", ZAN_Value::dictionary({{"Pause", true}})});
  ASSERT_TRUE(until([](const ZAN_Value& status) { return status["paused"].boolValue(); }))
      << agentOutput;
  EXPECT_TRUE(agent->isRunning());
  EXPECT_TRUE(client->queue()->empty());
  EXPECT_EQ(client->next()->size(), 2U);
}

TEST_F(AgentOnBusTest, IsNotTheAgentOfAnotherHome) {
  startAgent();
  const TemporaryFolder other;
  const Said said = command({"status", "--home", other.path()});
  EXPECT_EQ(said.code, 0);
  EXPECT_THAT(said.text, HasSubstr("The agent is not running"));
  EXPECT_EQ(command({"launch", "101", "--home", other.path()}).code, 1);
  EXPECT_TRUE(client->queue()->empty());
}

/// Whatever the execution still writes, there is nobody any more who reads it.
TEST_F(AgentOnBusTest, AnExecutionOutlivesTheKilledAgent) {
  std::ofstream(bundle("Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute"))
      << "#!/bin/sh\nread end < \"$HOME/end\"\nhead -c 300000 /dev/zero && echo $1 > "
         "\"$HOME/all\"\n";
  startAgent();
  ASSERT_EQ(client->launch(kLetters).value(), "queued");
  ASSERT_TRUE(until([](const ZAN_Value& status) { return status["executing"].boolValue(); }));
  ASSERT_EQ(::kill(static_cast<pid_t>(agent->pid()), SIGKILL), 0);
  ASSERT_TRUE(real.runUntil([&] { return !agent->isRunning(); }));
  endExecution(0);
  ASSERT_TRUE(real.runUntil([&] { return std::filesystem::exists(home.at("all")); }));
}

TEST_F(AgentOnBusTest, IsWatched) {
  startAgent();
  std::string heard;
  bool ended = false;
  auto watch =
      processes.start(environment({CORVANA_COMMAND, "watch"}), false,
                      {[&](std::string_view chunk) { heard += chunk; }, [&] { ended = true; }});
  ASSERT_TRUE(watch);
  ASSERT_TRUE(real.runUntil([&] { return heard.find("nothing to do") != std::string::npos; }));
  EXPECT_EQ(command({"post", "main", "Hello", "{\"a\": [1, \"b\"]}"}).code, 0);
  ASSERT_TRUE(real.runUntil([&] {
    return heard.find("CVA9_MainAppliNotification Hello {\"a\": [1, \"b\"]}") != std::string::npos;
  })) << heard;
  EXPECT_EQ(command({"pause"}).code, 0);
  ASSERT_TRUE(real.runUntil([&] { return heard.find("agent: on, paused") != std::string::npos; }));
  agent->terminate();
  ASSERT_TRUE(real.runUntil([&] { return heard.find("the agent has left") != std::string::npos; }));
  (*watch)->terminate();
  ASSERT_TRUE(real.runUntil([&] { return ended && !(*watch)->isRunning(); }));
  EXPECT_EQ((*watch)->terminationStatus(), 0);
}

}  // namespace
}  // namespace corvana
