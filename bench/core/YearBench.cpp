// A year of an office of 100 actions in virtual time: all evaluations, executions, records and
// restarts of the agent; ticks in which nothing is due are left out.
#include <benchmark/benchmark.h>

#include <string>

#include "tests/scenario/Scenario.h"

namespace corvana {
namespace {

constexpr int kActions = 100;

/// A fifth daily, the others weekly.
void addOffice(Scenario& office) {
  const ReferenceTime now = office.machine.clock.now();
  static constexpr const char* kDays[] = {"TriggerScheduleMonday", "TriggerScheduleTuesday",
                                          "TriggerScheduleWednesday", "TriggerScheduleThursday",
                                          "TriggerScheduleFriday"};
  for (int i = 0; i < kActions; ++i) {
    const std::string title = "Action " + std::to_string(i);
    const ReferenceTime time = office.timeOfDay("00:00") + 780.0 * (i * 37 % 100);
    if (i % 5 == 0) {
      office.action(title, daily(time, now));
    } else {
      office.action(
          title, scheduled({ZAN_Value::dictionary({{"TriggerScheduleMode", 1},
                                                   {"TriggerScheduleTime", ZAN_Value::date(time)},
                                                   {kDays[i % 5], 1}})},
                           now));
    }
    office.scripts[title] = {.seconds = 1};
  }
  office.writeTree();
}

void virtualTime(benchmark::State& state) {
  std::size_t executions = 0;
  for (auto _ : state) {
    Scenario office("2024-01-01 12:00:00");
    addOffice(office);
    office.machine.volumes.hang("/");
    office.start(true);
    for (std::int64_t day = 0; day < state.range(0); ++day) office.runFor(86400);
    executions = office.machine.processes.starts.size();
    office.kill();
  }
  state.counters["executions"] = static_cast<double>(executions);
}
BENCHMARK(virtualTime)->ArgName("days")->Arg(30)->Arg(366)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
}  // namespace corvana
