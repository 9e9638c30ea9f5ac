#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tests/scenario/Scenario.h"

namespace corvana {

/// An agent whose sibling programs are played by the test, and what it says to them as text. At
/// 12:00:05 it has started and said everything that belongs to that. "Photos" (101) is due at
/// 18:00, "Mail" (102) at no time.
struct Drive : Scenario {
  explicit Drive(bool withMainApp = false);

  void begin();
  void startMainApp();
  /// A preference as it was stored before.
  void prefer(std::string_view key, const ZAN_Value& value);
  /// A sibling says that; it is heard when the loop next runs, or at once.
  void hear(const std::string& object, ZAN_Value userInfo = {});
  void tell(const std::string& object, ZAN_Value userInfo = {});
  void startExecuteApp();
  void quitExecuteApp();

  /// What was said to the siblings since the last call, "main UpdateHistory", details behind.
  std::vector<std::string> said();
  /// What others hear, what the user sees and what is stored because of `does`, within so many
  /// seconds: what was said, then each value that is another one than before and each new line.
  std::string effect(const std::function<void()>& does, double seconds = 1.25);
  /// What the agent answers, without zeros and without where and when it was started.
  std::string status();
  std::string queue();
  std::string next();
  /// Seconds from the beginning of the day's part to the start of the nth execution, -1 without it.
  double launchedAfter(std::size_t n = 0) const;
  /// From now on `launchedAfter` counts.
  void count() { mCountsFrom = machine.clock.now(); }

  /// On one line: "{a=1 b=[x y]}", dates as the time of day, the home folder as "~".
  std::string text(const ZAN_Value& value, bool zerosToo = true) const;

  SchedulerCommands& commands() { return agent->commands(); }
  SimulatedUserInterface& ui = machine.userInterface;

 private:
  /// Everything that `effect` compares, by name.
  std::map<std::string, std::string> values();
  /// Everything that grows: each line with what it tells of.
  std::vector<std::string> lines();
  std::string shortened(const std::string& path) const;

  ReferenceTime mCountsFrom = 0;
  std::size_t mHeard = 0;
};

/// What `does` brings about on a day of its own.
struct Effect {
  const char* name;
  std::function<void(Drive&)> does;
  const char* effect;
  /// Before the agent starts.
  std::function<void(Drive&)> before = {};
  double seconds = 1.25;
};

/// Each on a day with the main application. `begun`: after the beginning of each day.
void expectEffects(std::initializer_list<Effect> effects,
                   const std::function<void(Drive&)>& begun = {});

/// What turning automatic execution off brings about.
inline constexpr const char* kTurnedOff =
    "main LogChanged; main ReturnCVASchedulerStatus {SchedulerStatus=4}; enabled: 0; icon: "
    "disabled; message: Automatic execution was turned off; nextCheck: 12:01:05; schedulerStatus: "
    "4; stored SchedulerPrefLastNotifications: (121 bytes); stored SchedulerPrefScheduleDisabled: "
    "1; title: Automatic execution is off; report: Automatic execution was turned off; log 12";

inline ZAN_Value info(std::string_view key, ZAN_Value value) {
  return ZAN_Value::dictionary({{key, std::move(value)}});
}

}  // namespace corvana
