#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "actions/ActionStore.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/LinuxProcesses.h"
#include "platform/linux/SystemClock.h"
#include "platform/qt/BusAgentClient.h"
#include "platform/qt/BusNotifications.h"
#include "platform/simulated/SimulatedMachine.h"
#include "tests/real/PrivateBus.h"
#include "tests/real/RealLoop.h"

namespace corvana {

inline constexpr std::int64_t kLetters = 101;
inline constexpr std::int64_t kPhotos = 102;

/// The agent in a bundle tree of the test's own, where the execute program is a script that works
/// until the test lets it end.
struct AgentOnBus : testing::Test {
  RealLoop real;
  TemporaryFolder home;
  PrivateBus bus{real};
  SystemClock clock;
  SimulatedSystemLog log;
  LinuxProcesses processes{real.loop, {{"test"}, 0, home.path()}};
  std::unique_ptr<ChildProcess> agent;
  std::string agentOutput;
  std::unique_ptr<BusAgentClient> client;

  std::string bundle(const std::string& rest) const {
    return home.at("Applications/Corvana 9.app/Contents/Resources/" + rest);
  }
  std::string program() const {
    return bundle("Corvana 9 Scheduler.app/Contents/MacOS/Corvana 9 Scheduler");
  }

  void SetUp() override {
    bus.start();
    std::filesystem::create_directories(std::filesystem::path(program()).parent_path());
    std::filesystem::create_directories(bundle("Corvana 9 Execute.app/Contents/MacOS"));
    std::filesystem::copy_file(CORVANA_AGENT, program());
    std::filesystem::copy(CORVANA_RESOURCES, bundle("Corvana 9 Scheduler.app/Contents/Resources"),
                          std::filesystem::copy_options::recursive);
    const std::string execute = bundle("Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute");
    std::ofstream(execute) << "#!/bin/sh\nread end < \"$HOME/end\"\nexit $end\n";
    ::chmod(execute.c_str(), 0755);
    ASSERT_EQ(::mkfifo(home.at("end").c_str(), 0600), 0);
    ::setenv("HOME", home.path().c_str(), 1);
    LinuxMachine machine;
    ActionStore store(clock, machine, log);
    const auto action = [&](std::int64_t ref, const char* title) {
      return ZAN_Value::dictionary(
          {{"Ref", static_cast<long long>(ref)}, {"Title", title}, {"TriggerAutomatic", 0}});
    };
    ASSERT_TRUE(store.tree().saveActionsTree(
        ZAN_Value::array({action(kLetters, "Letters"), action(kPhotos, "Photos")})));
  }
  void TearDown() override {
    client.reset();
    // What still waits to be ended finds nobody at the other end any more.
    if (const int end = ::open(home.at("end").c_str(), O_WRONLY | O_NONBLOCK); end >= 0)
      ::close(end);
    if (agent && agent->isRunning()) {
      agent->terminate();
      EXPECT_TRUE(real.runUntil([&] { return !agent->isRunning(); }));
    }
  }

  std::vector<std::string> environment(std::vector<std::string> words) const {
    std::vector<std::string> all{"/usr/bin/env",
                                 "HOME=" + home.path(),
                                 "TZ=UTC",
                                 "XDG_CONFIG_HOME=",
                                 "DBUS_SESSION_BUS_ADDRESS=" + bus.address(),
                                 "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent"};
    all.insert(all.end(), words.begin(), words.end());
    return all;
  }
  void startAgent() {
    auto child = processes.start(environment({program(), "--headless"}), false,
                                 {[this](std::string_view chunk) { agentOutput += chunk; }, [] {}});
    ASSERT_TRUE(child) << child.error().text;
    agent = std::move(child).value();
    ASSERT_TRUE(agentIsThere()) << agentOutput;
  }
  /// Hears from the bus when the agent comes; asks then, and once before.
  bool agentIsThere() {
    BusConnection connection(real.loop, log, [this] { return bus.address(); });
    bool there = false;
    const BusWatch watch(
        connection, {[](const DistributedNotification&) {}, [] {}, [&](bool on) { there = on; }});
    const auto answers = [&] {
      client = std::make_unique<BusAgentClient>([this] { return bus.address(); });
      return static_cast<bool>(client->status());
    };
    return answers() || (real.runUntil([&] { return there; }) && answers());
  }
  /// Looks whenever the agent says that something has changed.
  bool until(const std::function<bool(const ZAN_Value& status)>& condition) {
    BusConnection connection(real.loop, log, [this] { return bus.address(); });
    bool fulfilled = false;
    const auto look = [&] {
      const auto status = client->status();
      fulfilled = status && condition(*status);
    };
    const BusWatch watch(connection, {[](const DistributedNotification&) {}, look, [](bool) {}});
    // The watch is known to the bus by now, so that nothing passes between.
    EXPECT_TRUE(client->post({"Nobody", "Flush", {}}));
    look();
    return fulfilled || real.runUntil([&] { return fulfilled; });
  }
  /// The execute program, which waits at the other end, ends with that status.
  void endExecution(int status) { std::ofstream(home.at("end")) << status << '\n'; }

  struct Said {
    int code = -1;
    std::string text;
  };
  /// Runs a program to its end.
  Said run(const std::vector<std::string>& words) {
    Said said;
    bool ended = false;
    auto child = processes.start(
        words, false, {[&](std::string_view chunk) { said.text += chunk; }, [&] { ended = true; }});
    EXPECT_TRUE(child);
    EXPECT_TRUE(real.runUntil([&] { return ended && !(*child)->isRunning(); }));
    said.code = (*child)->terminationStatus();
    return said;
  }
  Said command(const std::vector<std::string>& words) {
    std::vector<std::string> all{CORVANA_COMMAND};
    all.insert(all.end(), words.begin(), words.end());
    return run(environment(all));
  }
};

}  // namespace corvana
