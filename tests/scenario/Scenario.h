#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "app/MainScheduler.h"
#include "platform/DistributedNotifications.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace corvana {

/// The place where other programs ask the agent; the test asks here.
struct SimulatedAgentObject final : AgentObject {
  void appear(AgentAnswers& given) override { answers = &given; }
  void disappear() override { answers = nullptr; }
  void changed() override { ++changes; }

  AgentAnswers* answers = nullptr;  ///< null: no agent is there
  int changes = 0;
};

/// The whole agent on a simulated machine: a tree of actions is written, time passes, and what was
/// executed is read back as text.
class Scenario {
 public:
  /// Civil time "2024-01-02 12:00:00" in the zone.
  explicit Scenario(std::string_view begin = "2024-01-02 12:00:00",
                    const std::string& zone = "Europe/Paris");
  ~Scenario();

  SimulatedPlatform machine;
  SimulatedAgentObject agentObject;
  std::unique_ptr<MainScheduler> agent;

  /// How long an execution takes and how it ends, by title; 20 s and 0 without one.
  std::map<std::string, ChildScript> scripts;

  /// Whether an execution that ends with 0 notes its date, as the execute program does.
  bool executionsAreRecorded = false;

  /// Adds an action to the stored tree and gives its reference. Keys of `record` go over the
  /// defaults: automatic, last scheduled at the beginning.
  std::int64_t action(const std::string& title, const ZAN_Value& record);
  void writeTree();
  /// Changes the stored tree as the main application does, without telling anybody.
  void removeAction(std::int64_t ref);

  ReferenceTime at(std::string_view civil) const;
  ReferenceTime timeOfDay(std::string_view clock) const;  ///< "08:00" on the first day
  std::string civil(ReferenceTime time) const;

  /// Starts the agent; `relaunched` as if it had quit a moment ago, so that it begins within 2 s.
  void start(bool relaunched = false);
  void quit();
  /// The process is gone without a word; its child goes on.
  void kill();
  /// Runs the agent, starting it again when it restarts itself.
  void runUntil(std::string_view civil);
  void runFor(double seconds);
  /// The machine sleeps from now on: nothing runs, the clock goes on.
  void sleepUntil(std::string_view civil);
  /// The timer comes at every quarter of a second, whether there is something to do or not.
  void stayAwake();

  /// Executions so far, "2024-01-03 08:00:00 Photos" a line, in order of start.
  std::string executions() const;
  /// The dates for which the executions of the log were planned, one a line.
  std::string plannedDates();
  std::size_t executionsOf(const std::string& title) const;
  /// The report of the running day without dates, one line each.
  std::vector<std::string> report();
  std::vector<std::int64_t> logCodes();

  ActionStore& store() { return mStore; }
  const ZAN_DateUtils& calendar() const { return mCalendar; }

 private:
  void end();
  void continueAfterRelaunch();
  void finishSaving();

  ZAN_DateUtils mCalendar;
  ActionStore mStore;
  ZAN_Value mRecords = ZAN_Value::array();
  std::map<std::int64_t, std::string> mTitles;
  std::int64_t mLastRef = 100;
  bool mStaysAwake = false;
};

// Records, in the words of the user.
ZAN_Value everyMinutes(int minutes, ReferenceTime last);
ZAN_Value hourly(ReferenceTime last);
ZAN_Value daily(ReferenceTime time, ReferenceTime last);
/// One entry of a schedule list.
ZAN_Value scheduled(std::vector<ZAN_Value> entries, ReferenceTime last);

}  // namespace corvana
