#include <gmock/gmock.h>
#include <signal.h>

#include <map>
#include <random>

#include "actions/ActionLog.h"
#include "tests/real/agent/AgentOnBus.h"

namespace corvana {
namespace {

constexpr std::int64_t kActions = 6;
constexpr int kCrashed = 6;

/// An execute program that notes what it was asked for, and ends.
struct KillsOnBusTest : AgentOnBus {
  void SetUp() override {
    AgentOnBus::SetUp();
    std::ofstream(bundle("Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute"))
        << "#!/bin/sh\necho \"$1\" >> \"$HOME/runs\"\n";
    ZAN_Value actions = ZAN_Value::array();
    for (std::int64_t ref = 1; ref <= kActions; ++ref)
      actions.append(ZAN_Value::dictionary(
          {{"Ref", ref}, {"Title", "Action " + std::to_string(ref)}, {"TriggerAutomatic", 0}}));
    LinuxMachine machine;
    ActionStore store(clock, machine, log);
    ASSERT_TRUE(store.tree().saveActionsTree(actions));
  }
  void killAgent() {
    ASSERT_EQ(::kill(static_cast<pid_t>(agent->pid()), SIGKILL), 0);
    ASSERT_TRUE(real.runUntil([&] { return !agent->isRunning(); }));
  }
  std::map<std::int64_t, int> runs() const {
    std::map<std::int64_t, int> counts;
    std::ifstream file(home.at("runs"));
    for (std::int64_t ref = 0; file >> ref;) ++counts[ref];
    return counts;
  }
  /// How often an execution was told to be cut off.
  std::map<std::int64_t, int> told() {
    LinuxMachine machine;
    ActionStore store(clock, machine, log);
    std::map<std::int64_t, int> counts;
    const ZAN_Value list = ActionLog(store).readLogList();
    for (const ZAN_Value& entry : list.elements())
      if (entry.integer("C") == kCrashed) ++counts[entry.integer("R")];
    return counts;
  }
};

TEST_F(KillsOnBusTest, EveryAcceptedLaunchIsCarriedOutOrTold) {
  const char* const asked = std::getenv("CORVANA9_KILLS");
  const int kills = asked != nullptr ? std::atoi(asked) : 100;
  std::mt19937 chance(static_cast<unsigned>(kills));
  std::map<std::int64_t, int> accepted;
  for (int kill = 0; kill < kills; ++kill) {
    startAgent();
    for (unsigned wishes = chance() % 4; wishes > 0; --wishes) {
      const auto ref = static_cast<std::int64_t>(1 + chance() % kActions);
      const auto said = client->launch(ref);
      ASSERT_TRUE(said);
      if (*said == "queued") ++accepted[ref];
    }
    // Some of the ends hit a launch, some the time after it.
    clock.sleep(static_cast<double>(chance() % 60) / 1000);
    killAgent();
  }
  startAgent();
  const double deadline = clock.monotonic() + 120;
  while (clock.monotonic() < deadline && !until([](const ZAN_Value& status) {
           return status.integer("queueCount") == 0 && !status["executing"].boolValue();
         })) {
  }
  agent->terminate();
  ASSERT_TRUE(real.runUntil([&] { return !agent->isRunning(); }));
  const auto executed = runs();
  const auto cutOff = told();
  for (const auto& [ref, count] : accepted) {
    const int ran = executed.contains(ref) ? executed.at(ref) : 0;
    const int said = cutOff.contains(ref) ? cutOff.at(ref) : 0;
    EXPECT_GE(ran, count) << "action " << ref << " " << agentOutput;
    EXPECT_LE(ran, count + said) << "action " << ref;
  }
}

/// The way to the data folder may be spelled in many ways; there is one agent all the same.
TEST_F(KillsOnBusTest, ADataFolderHasOneAgentHoweverItsHomeIsSpelled) {
  startAgent();
  const std::string spelled =
      home.path() + "/../" + std::filesystem::path(home.path()).filename().string();
  bool ended = false;
  auto second =
      processes.start({"/usr/bin/env", "HOME=" + spelled,
                       "DBUS_SESSION_BUS_ADDRESS=" + bus.address(), program(), "--headless"},
                      false, {[](std::string_view) {}, [] {}, [&] { ended = true; }});
  ASSERT_TRUE(second);
  ASSERT_TRUE(real.runUntil([&] { return ended; }, 40)) << "it leaves after its message";
  EXPECT_TRUE(agent->isRunning());
  EXPECT_TRUE(client->status());
}

}  // namespace
}  // namespace corvana
