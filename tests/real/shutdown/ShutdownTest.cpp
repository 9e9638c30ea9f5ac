#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/ActionStore.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/ProcessTable.h"
#include "platform/qt/BusAgentClient.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/real/LoginManager.h"
#include "tools/ShutdownWatch.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr std::int64_t kLetters = 101;

/// A bundle tree of the test's own, where the execute program works until the test lets it end. One
/// bus serves as that of the session and of the system.
struct ShutdownTest : testing::Test {
  RealLoop real;
  TemporaryFolder home;
  PrivateBus bus{real};
  LoginManager manager{real, bus};
  SimulatedSystemLog log;
  LinuxProcesses processes{real.loop, {{"test"}, 0, home.path()}};
  std::unique_ptr<ChildProcess> agent;
  std::string output;

  std::string bundle(const std::string& name) const {
    return home.at("Applications/Corvana 9.app/Contents/Resources/" + name + ".app/Contents");
  }
  void place(const std::string& name, const std::string& program) const {
    fs::create_directories(bundle(name) + "/MacOS");
    fs::copy_file(program, bundle(name) + "/MacOS/" + name);
  }
  bool runs(const std::string& name) const {
    const auto list = ProcessTable(home.path()).list();
    return std::ranges::any_of(
        list, [&](const RunningProcess& process) { return process.bundleExecutable == name; });
  }
  bool until(const std::function<bool()>& condition) { return real.runUntil(condition); }

  void SetUp() override {
    bus.start();
    manager.start();
    place("Corvana 9 Scheduler", CORVANA_AGENT);
    place("Corvana 9 Shutdown", CORVANA_SHUTDOWN);
    fs::copy(CORVANA_RESOURCES, bundle("Corvana 9 Scheduler") + "/Resources",
             fs::copy_options::recursive);
    place("Corvana 9 Execute", home.write("execute", "#!/bin/sh\nread end < \"$HOME/end\"\n"));
    ::chmod((bundle("Corvana 9 Execute") + "/MacOS/Corvana 9 Execute").c_str(), 0755);
    ASSERT_EQ(::mkfifo(home.at("end").c_str(), 0600), 0);
    ::setenv("HOME", home.path().c_str(), 1);
    LinuxMachine machine;
    ActionStore store(real.clock, machine, log);
    const auto atShutDown = ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::array(
        {ZAN_Value::dictionary({{"TriggerScheduleMode", 0}, {"TriggerFrequencyPopup", 21}})}));
    ASSERT_TRUE(store.tree().saveActionsTree(ZAN_Value::array(
        {ZAN_Value::dictionary({{"Ref", static_cast<long long>(kLetters)},
                                {"Title", "Letters"},
                                {"TriggerAutomatic", 1},
                                {"TriggerScheduleList", ZAN_Value::data(atShutDown)}})})));
    auto child = processes.start(
        {"/usr/bin/env", "HOME=" + home.path(), "TZ=UTC", "XDG_CONFIG_HOME=",
         "DBUS_SESSION_BUS_ADDRESS=" + bus.address(), "DBUS_SYSTEM_BUS_ADDRESS=" + bus.address(),
         bundle("Corvana 9 Scheduler") + "/MacOS/Corvana 9 Scheduler", "--headless"},
        false, {[this](std::string_view chunk) { output += chunk; }, [] {}});
    ASSERT_TRUE(child) << child.error().text;
    agent = std::move(child).value();
    ASSERT_TRUE(until([this] { return manager.inhibitors().size() == 1; })) << output;
  }
  void TearDown() override {
    letExecutionEnd();
    if (agent && agent->isRunning()) agent->terminate();
    for (const RunningProcess& process : ProcessTable(home.path()).list()) {
      if (process.bundleExecutable.starts_with("Corvana 9")) processes.kill(process.pid);
    }
    EXPECT_TRUE(until([this] { return !agent || !agent->isRunning(); }));
  }

  bool isExecuting() {
    const auto status = BusAgentClient([this] { return bus.address(); }).status();
    return status && status->value("executing").boolValue();
  }
  void tell(const char* name, const char* object) {
    EXPECT_TRUE(BusAgentClient([this] { return bus.address(); }).post({name, object, {}}));
  }
  void letExecutionEnd() const {
    if (const int end = ::open(home.at("end").c_str(), O_WRONLY | O_NONBLOCK); end >= 0) {
      [[maybe_unused]] const auto written = ::write(end, "0\n", 2);
      ::close(end);
    }
  }
};

TEST_F(ShutdownTest, WaitsUntilTheActionsHaveRunAndLeavesTheRestToTheSystem) {
  EXPECT_EQ(manager.inhibitors()[0].substr(0, 18), "shutdown Corvana 9");
  manager.prepareForShutdown(true);
  ASSERT_TRUE(until([this] { return isExecuting(); })) << output;
  EXPECT_EQ(manager.inhibitors().size(), 1U);
  letExecutionEnd();
  ASSERT_TRUE(until([this] { return !agent->isRunning(); })) << output;
  EXPECT_EQ(agent->terminationStatus(), 0);
  EXPECT_TRUE(until([this] { return manager.inhibitors().empty(); }));
  EXPECT_TRUE(until([this] { return !runs("Corvana 9 Shutdown"); }));
  EXPECT_EQ(manager.calls("PowerOff"), 0) << "it may be a restart";
}

TEST_F(ShutdownTest, TheUserSkipsWhatRuns) {
  manager.prepareForShutdown(true);
  ASSERT_TRUE(until([this] { return isExecuting(); })) << output;
  tell("CVA9_ShutDownNotification", "SkipShutDownActions");
  EXPECT_TRUE(until([this] { return manager.inhibitors().empty(); })) << output;
  EXPECT_TRUE(until([this] { return !agent->isRunning() && !runs("Corvana 9 Shutdown"); }));
}

TEST_F(ShutdownTest, APausedAgentHoldsNothingUp) {
  tell("CVA9_SchedulerNotification", "ActionPause");
  EXPECT_TRUE(BusAgentClient([this] { return bus.address(); })
                  .post({"CVA9_SchedulerNotification", "ActionPause",
                         ZAN_Value::dictionary({{"Pause", true}})}));
  ASSERT_TRUE(until([this] {
    const auto status = BusAgentClient([this] { return bus.address(); }).status();
    return status && status->value("paused").boolValue();
  }));
  manager.prepareForShutdown(true);
  EXPECT_TRUE(until([this] { return manager.inhibitors().empty(); }));
  EXPECT_TRUE(agent->isRunning());
}

/// The same without programs: what an agent may do meanwhile.
struct ShutdownWatchTest : testing::Test {
  SimulatedPlatform machine;
  std::vector<std::string> done;
  ZAN_Value status = ZAN_Value::dictionary({{"enabled", true}, {"paused", false}});
  ShutdownWatch watch{
      machine.runLoop,
      machine.systemLog,
      {[this] { return status; }, [this](const std::string& object) { done.push_back(object); },
       [this] { done.push_back("offer"); }, [this] { done.push_back("close"); },
       [this] { done.push_back("leave"); }}};
};

TEST_F(ShutdownWatchTest, AnAgentThatRestartsIsWaitedForAndAMissingOneIsNot) {
  status = {};
  watch.prepareForShutdown(true);
  machine.runLoop.runFor(2);
  status = ZAN_Value::dictionary({{"enabled", true}});
  watch.agentIsOn(true);
  machine.runLoop.runFor(60);
  EXPECT_THAT(done, ElementsAre("offer", "LaunchShutDownActions"));
  status.setValue("enabled", false);
  watch.agentChanged();
  EXPECT_THAT(done, ElementsAre("offer", "LaunchShutDownActions", "close", "leave"))
      << "what waits would never run";
}

TEST_F(ShutdownWatchTest, LeavesWithoutAnAgent) {
  status = {};
  watch.prepareForShutdown(true);
  machine.runLoop.runFor(4);
  EXPECT_THAT(done, ElementsAre("leave"));
}

TEST_F(ShutdownWatchTest, AnAgentThatDoesNotEndIsLeftBehindByTheUser) {
  watch.prepareForShutdown(true);
  watch.skip();
  machine.runLoop.runFor(11);
  EXPECT_THAT(done,
              ElementsAre("offer", "LaunchShutDownActions", "close", "QuitCVAProcess", "leave"));
}

TEST_F(ShutdownWatchTest, AShutDownThatIsTakenBackMayComeAgain) {
  watch.prepareForShutdown(true);
  watch.prepareForShutdown(false);
  watch.agentChanged();
  watch.prepareForShutdown(true);
  EXPECT_THAT(done, ElementsAre("offer", "LaunchShutDownActions", "close", "offer",
                                "LaunchShutDownActions"));
}

}  // namespace
}  // namespace corvana
