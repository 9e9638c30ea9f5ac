#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "actions/History.h"
#include "tests/real/faults/UnderFaults.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// Of the calls of a kind so many are tried, if not all.
constexpr std::size_t kTriedWithAgent = 2;
constexpr std::size_t kTriedWithCommand = 4;

/// Agent and command, each time in the same home.
struct FaultsTest : UnderFaults {
  void SetUp() override {
    AgentOnBus::SetUp();
    const std::string execute = bundle("Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute");
    std::ofstream(execute) << "#!/bin/sh\necho \"$1\" >> \"$HOME/ran\"\n";
    fs::copy(home.at("Library"), home.at("before"), fs::copy_options::recursive);
  }

  void begin() {
    fs::remove_all(home.at("Library"));
    fs::remove(home.at("ran"));
    fs::copy(home.at("before"), home.at("Library"), fs::copy_options::recursive);
    agentOutput.clear();
  }

  std::size_t ran() const {
    std::ifstream file(home.at("ran"));
    return static_cast<std::size_t>(std::count(std::istreambuf_iterator<char>(file), {}, '\n'));
  }
  ZAN_Value actions() {
    LinuxMachine machine;
    ActionStore store(clock, machine, log);
    return store.tree().readActionsList();
  }
  void expectSoundFiles() {
    const ZAN_Value list = actions();
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list.at(0).string("Title"), "Letters");
    for (const auto& entry : fs::recursive_directory_iterator(home.at("Library")))
      EXPECT_EQ(entry.path().string().find("(damaged"), std::string::npos) << entry.path();
  }
  bool isLogged() {
    LinuxMachine machine;
    ActionStore store(clock, machine, log);
    const ZAN_Value entries = History(store).log().readLogList();
    return std::ranges::any_of(
        entries.elements(), [](const ZAN_Value& entry) { return entry.integer("R") == kLetters; });
  }

  void start(const std::vector<std::string>& words) {
    auto child = processes.start(words, false,
                                 {[this](std::string_view chunk) { agentOutput += chunk; }, [] {}});
    ASSERT_TRUE(child) << child.error().text;
    agent = std::move(child).value();
  }
  /// Waits for the agent; whether it can be asked, which one without a bus cannot.
  bool answers() {
    BusConnection connection(real.loop, log, [this] { return bus.address(); });
    bool there = false;
    const BusWatch watch(
        connection, {[](const DistributedNotification&) {}, [] {}, [&](bool on) { there = on; }});
    client = std::make_unique<BusAgentClient>([this] { return bus.address(); });
    if (!client->status())
      real.runUntil([&] { return there || !agent->isRunning(); }, kUntilItAnswers);
    return static_cast<bool>(client->status());
  }
  void end() {
    agent->terminate();
    EXPECT_TRUE(real.runUntil([&] { return !agent->isRunning(); })) << agentOutput;
    if (agent->isRunning()) agent->kill();
  }
  /// A short life of an agent.
  void live(const std::string& fault) {
    begin();
    start(under(fault, {program(), "--headless"}));
    const bool isAsked = answers();
    const auto launched =
        isAsked ? client->launch(kLetters) : Result<std::string>(Error{ErrorKind::absent, ""});
    const bool isQueued = launched && *launched == "queued";
    if (isQueued) real.runUntil([&] { return ran() > 0 || !agent->isRunning(); }, kUntilItRuns);
    if (isAsked && !isQueued) {
      EXPECT_FALSE(launched ? launched->empty() : launched.error().text.empty());
    }
    EXPECT_TRUE(agent->isRunning()) << agent->terminationStatus() << '\n' << agentOutput;
    end();
    EXPECT_EQ(agent->terminationStatus(), 0) << agentOutput;
    expectSoundFiles();
    if (!isQueued) return;
    // What it could not carry out the next one does.
    if (ran() == 0) {
      start(environment({program(), "--headless"}));
      EXPECT_TRUE(real.runUntil([&] { return ran() > 0; })) << agentOutput;
      end();
    }
    EXPECT_TRUE(isLogged() || agentOutput.find("Corvana 9 Log.cva9data") != std::string::npos)
        << agentOutput;
  }

  static std::vector<std::string> commandWith(std::vector<std::string> words) {
    words.insert(words.begin(), CORVANA_COMMAND);
    return words;
  }

  static constexpr double kUntilItAnswers = 3;
  static constexpr double kUntilItRuns = 8;
};

TEST_F(FaultsTest, NothingThatTheSystemRefusesEndsTheAgentOrLosesARun) {
  for (const std::string kind : kKinds) {
    const std::size_t count = countOf(kind, [&](const std::string& fault) { live(fault); });
    EXPECT_GT(count, 0U) << kind;
    for (const std::string often : kOften) {
      for (const std::size_t number : numbers(count, kTriedWithAgent)) {
        const std::string fault = kind + ' ' + std::to_string(number) + ' ' + often;
        SCOPED_TRACE(fault);
        live(fault);
      }
    }
  }
}

TEST_F(FaultsTest, ACommandThatSaysDoneHasDoneIt) {
  struct Case {
    std::vector<std::string> words;
    std::string titles;  ///< of the actions when it has done it
    std::string shown = {};
  };
  const std::string source = home.makeFolder("source");
  const Case kCases[] = {
      {{"add", "New", "--source", source, "--destination", home.at("copies"), "--force"},
       "Letters Photos New "},
      {{"edit", std::to_string(kPhotos), "--title", "Pictures"}, "Letters Pictures "},
      {{"remove", std::to_string(kPhotos)}, "Letters "},
      {{"tree"}, "Letters Photos ", "Photos"},
  };
  const auto titles = [&] {
    std::string all;
    const ZAN_Value list = actions();
    for (const ZAN_Value& action : list.elements()) all += action.string("Title") + ' ';
    return all;
  };
  for (const Case& one : kCases) {
    for (const std::string kind : kKinds) {
      const std::size_t count = countOf(kind, [&](const std::string& fault) {
        begin();
        EXPECT_EQ(runUnder(fault, commandWith(one.words)).code, 0);
        EXPECT_EQ(titles(), one.titles);
      });
      for (const std::string often : kOften) {
        for (const std::size_t number : numbers(count, kTriedWithCommand)) {
          const std::string fault = kind + ' ' + std::to_string(number) + ' ' + often;
          SCOPED_TRACE(one.words.front() + " with " + fault);
          begin();
          const Said said = runUnder(fault, commandWith(one.words));
          if (said.code == 0) {
            EXPECT_EQ(titles(), one.titles) << said.text;
            EXPECT_THAT(said.text, HasSubstr(one.shown));
          } else {
            EXPECT_EQ(said.code, 1) << said.text;
            EXPECT_FALSE(said.text.empty());
            const std::string now = titles();
            EXPECT_TRUE(now == one.titles || now == "Letters Photos ") << now;
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace corvana
