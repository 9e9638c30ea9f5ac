#include "platform/simulated/SimulatedProcesses.h"

#include <gmock/gmock.h>

#include <csignal>

#include "platform/Processes.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace corvana {
namespace {

using testing::ElementsAre;

struct SimulatedProcessesTest : testing::Test {
  SimulatedPlatform machine;
  std::string output;
  bool outputEnded = false;
  bool ended = false;

  std::unique_ptr<ChildProcess> start(ChildScript script) {
    machine.processes.next(std::move(script));
    ChildObserver observer{[this](std::string_view chunk) { output += chunk; },
                           [this] { outputEnded = true; }, [this] { ended = true; }};
    return std::move(machine.processes.start({"/A.app/Contents/MacOS/A", "1"}, true, observer))
        .value();
  }
};

TEST_F(SimulatedProcessesTest, AChildRunsItsScript) {
  auto child = start({.seconds = 3,
                      .status = 5,
                      .output = "begin ",
                      .farewell = "end",
                      .steps = {{1, [this](StartedChild&) { machine.folder.write("f", "x"); }}}});
  EXPECT_TRUE(child->isRunning());
  EXPECT_TRUE(machine.processes.isRunning("/A.app"));
  EXPECT_EQ(output, "") << "output comes through the loop only";
  machine.runLoop.runFor(2.9);
  EXPECT_EQ(output, "begin ");
  EXPECT_TRUE(child->isRunning());
  machine.clock.sleep(0.1);
  EXPECT_FALSE(child->isRunning());
  EXPECT_EQ(child->terminationStatus(), 5);
  EXPECT_FALSE(outputEnded || ended);
  EXPECT_EQ(child->readAvailable(), "end");
  machine.runLoop.runFor(0);
  EXPECT_TRUE(outputEnded && ended);
  EXPECT_EQ(output, "begin ");
  EXPECT_FALSE(machine.processes.isRunning("/A.app"));
}

TEST_F(SimulatedProcessesTest, AChildIsStoppedUnlessItIsDeaf) {
  auto child = start({.seconds = ChildScript::kUntilStopped});
  child->write("hello");
  child->terminate();
  EXPECT_EQ(child->terminationStatus(), SIGTERM);
  EXPECT_EQ(machine.processes.starts.back()->input, "hello");

  auto deaf = start({.seconds = ChildScript::kUntilStopped, .ignoresTerminate = true});
  deaf->terminate();
  EXPECT_TRUE(deaf->isRunning());
  machine.processes.kill(deaf->pid());
  EXPECT_EQ(deaf->terminationStatus(), SIGKILL);
}

TEST_F(SimulatedProcessesTest, TheComingAndGoingOfCertainProgramsIsTold) {
  int told = 0;
  machine.processes.observe({"/A.app", "/B.app"}, [&] { ++told; });
  const auto child = start({.seconds = 3});
  machine.processes.startApplication("/B.app");
  machine.processes.startApplication("/C.app");
  EXPECT_EQ(told, 0) << "through the loop only";
  machine.runLoop.runFor(1);
  EXPECT_EQ(told, 2);
  machine.processes.quitApplication("/B.app");
  machine.runLoop.runFor(1);
  EXPECT_EQ(told, 3);
  machine.runLoop.runFor(1);
  EXPECT_EQ(told, 4) << "the child has ended";
}

TEST_F(SimulatedProcessesTest, ANewRunOfTheProgramHasNothingOfTheOld) {
  bool unwound = false;
  bool oldTimer = false;
  struct Sentinel {
    bool& flag;
    ~Sentinel() { flag = true; }
  };
  machine.runLoop.repeat(0.25, [&] { oldTimer = true; });
  machine.runLoop.performAfter(0.1, [&] {
    const Sentinel sentinel{unwound};
    const Error error = machine.processes.relaunch("/new");
    FAIL() << "came back: " << error.text;
  });
  machine.runLoop.runFor(10);
  EXPECT_TRUE(unwound);
  machine.runLoop.runFor(10);
  EXPECT_FALSE(oldTimer);
  EXPECT_THAT(machine.processes.relaunches, ElementsAre("/new"));
  EXPECT_EQ(machine.processes.ownStart(), SimulatedPlatform::kFirstDate + 0.1);
}

TEST_F(SimulatedProcessesTest, ThePathOfAProgramNamesItsInnermostBundle) {
  EXPECT_EQ(bundlePathOfExecutable("/x/A.app/Contents/Resources/B.app/Contents/MacOS/B"),
            "/x/A.app/Contents/Resources/B.app");
  EXPECT_EQ(bundlePathOfExecutable("/x/A.app/Contents/MacOS/deep/er"), "/x/A.app");
  EXPECT_EQ(bundlePathOfExecutable("/usr/bin/a.app"), "");
  EXPECT_EQ(bundlePathOfExecutable("/x/.app/Contents/MacOS/a"), "");
  EXPECT_EQ(withoutDeletedMark("/x/a (deleted)"), "/x/a");
}

}  // namespace
}  // namespace corvana
