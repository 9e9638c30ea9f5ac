#include <benchmark/benchmark.h>

#include "actions/ActionStore.h"
#include "actions/History.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace corvana {
namespace {

ZAN_Value event(int number) {
  return ZAN_Value::dictionary({{"C", number % 2 + 1},
                                {"N", "Backup of the photos " + std::to_string(number % 40)},
                                {"R", 700000000 + number % 40},
                                {"M", ZAN_Value::date(700000000.0 + 60 * number)}});
}

/// One more event in a full log: what the main thread does for it, the disk's part left out.
void addLogToFullList(benchmark::State& state) {
  SimulatedPlatform machine;
  machine.machine.timeZone = "Europe/Paris";
  ActionStore store(machine.clock, machine.machine, machine.systemLog);
  History history(store);
  ZAN_Value list = ZAN_Value::array();
  for (int i = 0; i < 5000; ++i) list.append(event(i));
  history.log().saveLogList(list);
  int number = 5000;
  for (auto _ : state) history.log().addLog(event(number++));
}
BENCHMARK(addLogToFullList)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

void addHistoryEntryToFullList(benchmark::State& state) {
  SimulatedPlatform machine;
  machine.machine.timeZone = "Europe/Paris";
  ActionStore store(machine.clock, machine.machine, machine.systemLog);
  History history(store);
  int number = 0;
  const auto add = [&] {
    const ReferenceTime start = 700000000.0 + 60 * number;
    history.addHistoryEntry(ZAN_Value::dictionary({{"Date", ZAN_Value::date(start)},
                                                   {"EndDate", ZAN_Value::date(start + 30)},
                                                   {"Title", "Backup of the photos"},
                                                   {"C", 2},
                                                   {"ActionErrors", 0},
                                                   {"Ref", 700000000 + number++}}));
  };
  for (int i = 0; i < 5000; ++i) add();
  for (auto _ : state) add();
}
BENCHMARK(addHistoryEntryToFullList)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

/// What the main thread does for an entry when another one saves: the disk's time does not count.
void addLogToFullListWithSaver(benchmark::State& state) {
  SimulatedPlatform machine;
  machine.machine.timeZone = "Europe/Paris";
  ActionStore store(machine.clock, machine.machine, machine.systemLog);
  History history(store);
  ZAN_Value list = ZAN_Value::array();
  for (int i = 0; i < 5000; ++i) list.append(event(i));
  history.log().saveLogList(list);
  store.saveInBackground(machine.runLoop);
  int number = 5000;
  for (auto _ : state) {
    history.log().addLog(event(number++));
    state.PauseTiming();
    machine.runLoop.runFor(1);
    state.ResumeTiming();
  }
}
BENCHMARK(addLogToFullListWithSaver)->Unit(benchmark::kMicrosecond)->Iterations(300);

}  // namespace
}  // namespace corvana
