#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QTest>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "application/Household.h"
#include "platform/qt/BusAgentObject.h"

namespace corvana {

/// Stands for the agent on the bus of the test: answers what it is told to, and remembers what was
/// asked of it.
class AgentOnBus final : public AgentAnswers {
 public:
  explicit AgentOnBus(const std::string& home)
      : mBus(mLoop, mLog), mObject(mBus, mLoop, mClock), mNotifications(mBus, mLoop, mLog) {
    answer = ZAN_Value::dictionary({{"home", home}, {"enabled", true}});
    mNotifications.observe(
        "CVA9_SchedulerNotification",
        [this](const DistributedNotification& message) { heard.push_back(message.object); });
    mObject.appear(*this);
  }
  ~AgentOnBus() override { mObject.disappear(); }

  ZAN_Value status() override { return answer; }
  ZAN_Value queue() override { return ZAN_Value::array(); }
  ZAN_Value next() override { return ZAN_Value::array(); }
  Result<std::vector<std::string>> why(std::int64_t /*ref*/) override {
    return std::vector<std::string>();
  }
  Outcome launch(std::int64_t ref) override {
    launched.push_back(ref);
    return {};
  }
  bool together(const std::function<bool()>& body) override { return body(); }

  void tellChanged() { mObject.changed(); }
  void post(const std::string& object, const ZAN_Value& userInfo = {}) {
    mNotifications.post({"CVA9_MainAppliNotification", object, userInfo});
  }
  bool hasHeard(const std::string& object) const {
    return std::ranges::find(heard, object) != heard.end();
  }

  ZAN_Value answer;
  std::vector<std::string> heard;
  std::vector<std::int64_t> launched;

 private:
  class SilentLog final : public SystemLog {
   public:
    void write(const std::string&) override {}
  };
  QtRunLoop mLoop;
  SystemClock mClock;
  SilentLog mLog;
  BusConnection mBus;
  BusAgentObject mObject;
  BusNotifications mNotifications;
};

/// A home of its own for each test, with the household of the application in it and an agent on the
/// bus.
class ApplicationTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = std::filesystem::temp_directory_path() / "corvana-application.XXXXXX";
    home = mkdtemp(pattern.data());
    setenv("HOME", home.c_str(), 1);
    for (const char* folder : {"Documents", "Pictures", "elsewhere"})
      std::filesystem::create_directory(at(folder));
    std::ofstream(at("Documents/letter")) << "Dear reader";
    agent = std::make_unique<AgentOnBus>(home);
    household = makeHousehold();
  }
  void TearDown() override {
    household.reset();
    agent.reset();
    std::filesystem::remove_all(home);
  }

  std::unique_ptr<Household> makeHousehold() {
    return std::make_unique<Household>(log, CORVANA_TEXTS);
  }
  std::string at(const std::string& name) const { return home + '/' + name; }
  /// Lets the loop turn until the condition holds; false when it does not within ten seconds.
  template <class Condition>
  static bool eventually(const Condition& condition) {
    return QTest::qWaitFor(condition, 10'000);
  }
  /// Stores a backup, and gives its reference.
  std::int64_t add(ZAN_Value record) {
    std::int64_t reference = 0;
    const Outcome done = household->edit([&](ProgrammedAction& root) -> Outcome {
      root.addActionsFromList(ZAN_Value::array({std::move(record)}), false, std::nullopt);
      reference = root.childAtIndex(root.numberOfChildren() - 1).getReference();
      return {};
    });
    EXPECT_TRUE(done);
    return reference;
  }
  ZAN_Value recordOf(std::int64_t reference) {
    const ProgrammedAction* action = household->actions().actionForReference(reference);
    return action == nullptr ? ZAN_Value() : action->getSettings();
  }

  class Log final : public SystemLog {
   public:
    void write(const std::string& line) override { lines.push_back(line); }
    std::vector<std::string> lines;
  };
  std::string home;
  Log log;
  std::unique_ptr<AgentOnBus> agent;
  std::unique_ptr<Household> household;
};

}  // namespace corvana
