#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "actions/ActionStore.h"
#include "platform/linux/SystemClock.h"
#include "platform/simulated/SimulatedMachine.h"
#include "tests/real/remote/NetworkMachine.h"

namespace corvana {
namespace {

using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

/// Two machines on one cable: the agent of one, and the command that controls it on the other.
struct RemoteMachinesTest : testing::Test {
  RealLoop real;
  NetworkMachine anna{real, "anna"};
  NetworkMachine berta{real, "berta"};
  std::string agentOutput, secondOutput;
  std::unique_ptr<ChildProcess> agent;
  std::unique_ptr<ChildProcess> second;

  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root for network namespaces";
    if (!anna.start() || !berta.start()) GTEST_SKIP() << "no network namespaces here";
    anna.connectTo(berta);
    for (NetworkMachine* machine : {&anna, &berta}) {
      machine->startBus();
      machine->startAvahi();
    }
  }
  void TearDown() override {
    anna.stop(agent);
    berta.stop(second);
  }

  static std::string program(const NetworkMachine& machine, const std::string& name) {
    return machine.home.at("Corvana 9.app/Contents/Resources/Corvana 9 " + name +
                           ".app/Contents/MacOS/Corvana 9 " + name);
  }
  /// Lets itself be controlled, and writes down which actions it executes. With proofs it permits
  /// to run actions and nothing else.
  std::unique_ptr<ChildProcess> startAgent(NetworkMachine& machine, std::string& output,
                                           bool proven = false,
                                           const std::string& name = "Anna Büro") {
    for (const char* name : {"Scheduler", "Execute"})
      fs::create_directories(fs::path(program(machine, name)).parent_path());
    fs::copy_file(CORVANA_AGENT, program(machine, "Scheduler"));
    fs::copy(CORVANA_RESOURCES,
             fs::path(program(machine, "Scheduler")).parent_path().parent_path() / "Resources",
             fs::copy_options::recursive);
    fs::copy(fs::path(CORVANA_AGENT).parent_path().parent_path() / "PlugIns",
             fs::path(program(machine, "Scheduler")).parent_path().parent_path() / "PlugIns");
    std::ofstream(program(machine, "Execute")) << "#!/bin/sh\necho \"$1\" >> \"$HOME/executed\"\n";
    ::chmod(program(machine, "Execute").c_str(), 0755);
    const SystemClock clock;
    SimulatedMachine described(machine.home.path());
    SimulatedSystemLog log;
    ActionStore store(const_cast<SystemClock&>(clock), described, log);
    const auto action = [](int ref, const char* title, int prevented) {
      return ZAN_Value::dictionary({{"Ref", ref},
                                    {"Title", title},
                                    {"Mode", 2},
                                    {"TriggerAutomatic", 0},
                                    {"TriggerPreventRemoteLaunch", prevented}});
    };
    EXPECT_TRUE(store.tree().saveActionsTree(
        ZAN_Value::array({action(101, "Letters", 0), action(102, "Photos", 1)})));
    EXPECT_TRUE(store.settings().saveSchedulerSettings(
        ZAN_Value::dictionary({{"SchedulerPrefAllowRemoteControl", 1},
                               {"SchedulerPrefRemoteControlLocalName", name},
                               {"SchedulerPrefRemoteControlPassword", "geheim"},
                               {"SchedulerPrefRemoteControlProvenOnly", proven ? 1 : 0},
                               {"SchedulerQuitDate", ZAN_Value::date(clock.now())}})));
    return machine.run(machine.inside({program(machine, "Scheduler"), "--headless"}), output);
  }

  int command(std::vector<std::string> words) {
    words.insert(words.begin(), CORVANA_COMMAND);
    return berta.finish(words);
  }
  ZAN_Value peers() {
    EXPECT_EQ(command({"peers", "--json"}), 0) << berta.said;
    return ZAN_Json::valueWithJson(berta.said).valueOr(ZAN_Value());
  }
  /// Looks again and again: the network takes its time.
  bool sees(const std::function<bool(const ZAN_Value& peers)>& condition) {
    // Each look takes its time; one fails at once while the network is not there yet.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < end)
      if (condition(peers())) return true;
    return false;
  }
};

TEST_F(RemoteMachinesTest, OneControlsTheOther) {
  agent = startAgent(anna, agentOutput);
  const auto one = [](const ZAN_Value& list) { return list.size() == 1; };
  ASSERT_TRUE(sees(one)) << berta.said << agentOutput << anna.output;
  const ZAN_Value list = peers();
  const ZAN_Value& peer = list.at(0);
  EXPECT_EQ(peer.string("name"), "Anna-Buro");
  EXPECT_EQ(peer.string("address"), anna.address);
  EXPECT_TRUE(peer["active"].boolValue());
  EXPECT_TRUE(peer["password"].boolValue());
  ASSERT_EQ(peer["actions"].size(), 1U) << "the other one is not to be launched from afar";
  EXPECT_EQ(peer["actions"].at(0).string("title"), "Letters");

  const std::string right = "--password-file=" + berta.home.write("right", "geheim\n");
  const std::string wrong = "--password-file=" + berta.home.write("wrong", "Geheim\n");
  EXPECT_EQ(command({"peer", "Anna-Buro", "launch", "101", wrong}), 1);
  EXPECT_THAT(berta.said, HasSubstr("password is wrong"));
  EXPECT_EQ(command({"peer", "Berta", "activate", right}), 1);
  EXPECT_EQ(command({"peer", "Anna-Buro", "dance", right}), 2);

  EXPECT_EQ(command({"peer", "Anna-Buro", "launch", "101", "102", right}), 0) << berta.said;
  EXPECT_THAT(berta.said, HasSubstr("102: not among the actions"));
  ASSERT_TRUE(real.runUntil([&] { return fs::exists(anna.home.at("executed")); })) << agentOutput;
  std::string executed;
  std::getline(std::ifstream(anna.home.at("executed")), executed);
  EXPECT_EQ(executed, "101");

  // While a message is shown nothing is launched, so it comes last.
  EXPECT_EQ(command({"peer", "Anna-Buro", "message", "Lunch?", right}), 0) << berta.said;
  ASSERT_TRUE(real.runUntil([&] { return agentOutput.find("Lunch?") != std::string::npos; }));
  EXPECT_THAT(agentOutput, HasSubstr("Message from berta"));

  EXPECT_EQ(command({"peer", "Anna-Buro", "deactivate", right}), 0) << berta.said;
  EXPECT_THAT(berta.said, HasSubstr("is switched off"));
  EXPECT_THAT(agentOutput, HasSubstr("Automatic execution is off"));
  EXPECT_EQ(command({"peer", "Anna-Buro", "activate", right}), 0) << berta.said;
}

TEST_F(RemoteMachinesTest, WhoProvesThePasswordIsAnswered) {
  agent = startAgent(anna, agentOutput, true);
  ASSERT_TRUE(sees([](const ZAN_Value& list) {
    return list.size() == 1 && list.at(0)["proven"].boolValue();
  })) << berta.said
      << agentOutput;
  EXPECT_EQ(peers().at(0).string("permits"), "launch");
  const std::string right = "--password-file=" + berta.home.write("right", "geheim\n");
  const std::string wrong = "--password-file=" + berta.home.write("wrong", "Geheim\n");
  EXPECT_EQ(command({"peer", "Anna-Buro", "launch", "101", wrong}), 1);
  EXPECT_THAT(berta.said, HasSubstr("password is wrong"));
  EXPECT_EQ(command({"peer", "Anna-Buro", "message", "Lunch?", right}), 1);
  EXPECT_THAT(berta.said, HasSubstr("do not permit"));
  EXPECT_EQ(command({"peer", "Anna-Buro", "deactivate", right}), 1);
  EXPECT_FALSE(fs::exists(anna.home.at("executed")));
  EXPECT_EQ(command({"peer", "Anna-Buro", "launch", "101", right}), 0) << berta.said;
  ASSERT_TRUE(real.runUntil([&] { return fs::exists(anna.home.at("executed")); })) << agentOutput;
  EXPECT_THAT(agentOutput, Not(HasSubstr("Lunch?")));
  if (!fs::exists("/usr/bin/faketime")) GTEST_SKIP() << "no faketime for clocks that differ";
  for (const char* difference : {"+1 day", "-1 day"}) {
    // A sanitizer wants to be the first library, which the other clock is.
    EXPECT_EQ(
        berta.finish({"/usr/bin/env", "ASAN_OPTIONS=verify_asan_link_order=0", "/usr/bin/faketime",
                      difference, CORVANA_COMMAND, "peer", "Anna-Buro", "launch", "101", right}),
        0)
        << difference << ": " << berta.said;
  }
}

TEST_F(RemoteMachinesTest, PairedMachinesNeedNoPassword) {
  // They share the identifier of the machine that they are made up on.
  for (NetworkMachine* machine : {&anna, &berta})
    ASSERT_EQ(machine->finish(
                  {"/bin/sh", "-c", "hostname > /run/id && mount --bind /run/id /etc/machine-id"}),
              0);
  std::string acceptor;
  const std::string answers = anna.home.write("yes", "y\n");
  std::unique_ptr<ChildProcess> accepting =
      anna.run(anna.inside({"/bin/sh", "-c", "exec \"$0\" pair --accept < \"$1\"", CORVANA_COMMAND,
                            answers}),
               acceptor);
  ASSERT_TRUE(real.runUntil([&] {
    return acceptor.find("corvana9 pair anna") != std::string::npos;
  })) << acceptor;
  const auto pair = [&](const std::string& word) {
    return berta.finish({"/bin/sh", "-c", "echo " + word + " | \"$0\" pair anna", CORVANA_COMMAND});
  };
  EXPECT_EQ(pair("y"), 0) << berta.said << acceptor;
  ASSERT_TRUE(real.runUntil([&] { return !accepting->isRunning(); })) << acceptor;
  const auto digits = [](const std::string& said) {
    return said.substr(said.find("digits: ") + 8, 7);
  };
  EXPECT_EQ(digits(berta.said), digits(acceptor));
  EXPECT_THAT(acceptor, HasSubstr("Paired with berta"));

  agent = startAgent(anna, agentOutput, true);
  ASSERT_TRUE(sees([](const ZAN_Value& list) { return list.size() == 1; })) << agentOutput;
  EXPECT_EQ(command({"peer", "Anna-Buro", "launch", "101"}), 0) << berta.said;
  ASSERT_TRUE(real.runUntil([&] { return fs::exists(anna.home.at("executed")); })) << agentOutput;
  EXPECT_EQ(command({"peer", "Anna-Buro", "status"}), 0) << berta.said;
  EXPECT_THAT(berta.said, HasSubstr("Letters"));
  EXPECT_THAT(berta.said, HasSubstr("Photos [102]: no success yet, not to be launched from here"));
  EXPECT_EQ(command({"peer", "Anna-Buro", "launch", "101", "--in-clear"}), 0) << berta.said;

  EXPECT_EQ(anna.finish({CORVANA_COMMAND, "pair", "--forget", "berta"}), 0) << anna.said;
  EXPECT_EQ(command({"peer", "Anna-Buro", "launch", "101"}), 1);
  EXPECT_THAT(berta.said, HasSubstr("does not know this machine any more"));
  EXPECT_EQ(command({"peer", "Anna-Buro", "status"}), 1);
  EXPECT_EQ(pair("y"), 1) << "nobody waits there";
  EXPECT_THAT(berta.said, HasSubstr("corvana9 pair --accept"));

  anna.stop(agent);
  second = startAgent(berta, secondOutput, false, "anna");
  ASSERT_TRUE(sees([](const ZAN_Value& list) {
    // Beside the one that is paired and away.
    return list.size() == 2 && list.at(0).string("name") == "anna" &&
           !list.at(0)["absent"].boolValue() && list.at(1)["absent"].boolValue();
  })) << secondOutput;
  EXPECT_EQ(command({"peer", "anna", "launch", "101"}), 1) << "another machine took the name";
  EXPECT_THAT(berta.said, HasSubstr("the machine that this one is paired with does not answer"));
}

struct IPv6MachinesTest : RemoteMachinesTest {
  IPv6MachinesTest() { anna.onlyIPv6 = berta.onlyIPv6 = true; }
};

TEST_F(IPv6MachinesTest, OneControlsTheOther) {
  agent = startAgent(anna, agentOutput, true);
  ASSERT_TRUE(sees([](const ZAN_Value& list) { return list.size() == 1; }))
      << berta.said << agentOutput << anna.output;
  EXPECT_THAT(peers().at(0).string("address"), testing::StartsWith("fe80::"));
  const std::string right = "--password-file=" + berta.home.write("right", "geheim\n");
  EXPECT_EQ(command({"peer", "Anna-Buro", "launch", "101", right}), 0) << berta.said;
  ASSERT_TRUE(real.runUntil([&] { return fs::exists(anna.home.at("executed")); })) << agentOutput;
}

TEST_F(RemoteMachinesTest, TheServiceComesBackAndKeepsApartFromItsTwin) {
  agent = startAgent(anna, agentOutput);
  const auto one = [](const ZAN_Value& list) { return list.size() == 1; };
  const auto none = [](const ZAN_Value& list) { return list.empty(); };
  ASSERT_TRUE(sees(one));
  anna.stop(anna.avahi);
  ASSERT_TRUE(sees(none));
  anna.startAvahi();
  ASSERT_TRUE(sees(one)) << agentOutput;
  anna.stop(anna.avahi);
  anna.stop(anna.bus);
  anna.startBus();
  anna.startAvahi();
  ASSERT_TRUE(sees(one)) << agentOutput;

  // The same name, identifier, user and password: to the network a second service of that name.
  second = startAgent(berta, secondOutput);
  const auto two = [](const ZAN_Value& list) { return list.size() == 2; };
  ASSERT_TRUE(sees(two)) << secondOutput;
  const ZAN_Value list = peers();
  EXPECT_EQ(list.at(0).string("name"), "Anna-Buro");
  EXPECT_EQ(list.at(1).string("name"), "Anna-Buro-2");
  EXPECT_EQ(list.at(0).string("identifier"), list.at(1).string("identifier"));
  berta.stop(second);
  ASSERT_TRUE(sees(one)) << "it is taken back with its agent";
  EXPECT_THAT(agentOutput, Not(HasSubstr("did not publish")));
}

}  // namespace
}  // namespace corvana
