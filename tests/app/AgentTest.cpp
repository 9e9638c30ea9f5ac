#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "platform/linux/LinuxProcesses.h"
#include "platform/simulated/TemporaryFolder.h"
#include "tests/real/RealLoop.h"

namespace corvana {
namespace {

using testing::HasSubstr;

/// The built program in a home of its own.
struct AgentTest : testing::Test {
  RealLoop real;
  TemporaryFolder home;
  LinuxProcesses processes{real.loop, {{"test"}, 0, home.path()}};
  std::string output;
  bool ended = false;
  std::unique_ptr<ChildProcess> agent;

  /// `shell` is a script in which "$0" stands for the program.
  void start(const std::string& shell) {
    ChildObserver observer{[this](std::string_view chunk) { output += chunk; },
                           [this] { ended = true; }};
    auto child = processes.start({"/usr/bin/env", "HOME=" + home.path(),
                                  "XDG_CONFIG_HOME=", "/bin/sh", "-c", shell, CORVANA_AGENT},
                                 false, observer);
    ASSERT_TRUE(child) << child.error().text;
    agent = std::move(child).value();
  }
  void TearDown() override {
    if (agent && agent->isRunning()) processes.kill(agent->pid());
  }
  bool hasStarted() {
    return real.runUntil([&] {
      return !agent->isRunning() ||
             std::filesystem::exists(home.at("Library/Application Support/Corvana 9/"
                                             "Corvana 9 Activity.cva9data"));
    }) && agent->isRunning();
  }
  bool hasEnded() {
    return real.runUntil([&] { return !agent->isRunning(); });
  }
};

TEST_F(AgentTest, AnswersItsArguments) {
  for (const auto& [words, status] :
       {std::pair("--help", 0), std::pair("--version", 0), std::pair("--headless --hepl", 2)}) {
    output.clear();
    start(std::string("\"$0\" ") + words);
    ASSERT_TRUE(hasEnded());
    EXPECT_EQ(agent->terminationStatus(), status) << words;
    EXPECT_FALSE(agent->readAvailable().empty() && output.empty()) << words;
  }
}

TEST_F(AgentTest, EndsInGoodOrderWhenToldTo) {
  start("exec \"$0\" --headless");
  ASSERT_TRUE(hasStarted()) << output;
  agent->terminate();
  ASSERT_TRUE(real.runUntil([&] { return ended && !agent->isRunning(); }));
  EXPECT_EQ(agent->terminationStatus(), 0) << output;
  EXPECT_THAT(output, HasSubstr("Ended by Terminated"));
  struct stat status {};
  ASSERT_EQ(stat(home.at("Library/Application Support/Corvana 9").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST_F(AgentTest, RunsOnWhenTheTerminalGoesUnderNohup) {
  start("trap '' HUP; exec \"$0\" --headless <&- >&- 2>&-");
  ASSERT_TRUE(hasStarted());
  ::kill(static_cast<pid_t>(agent->pid()), SIGHUP);
  bool later = false;
  real.loop.performAfter(0.5, [&] { later = true; });
  ASSERT_TRUE(real.runUntil([&] { return later; }));
  EXPECT_TRUE(agent->isRunning());
  agent->terminate();
  ASSERT_TRUE(hasEnded());
  EXPECT_EQ(agent->terminationStatus(), 0);
}

}  // namespace
}  // namespace corvana
