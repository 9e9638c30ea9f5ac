// One evaluation of a large tree in which nothing is due: what every ten minutes and every event
// cost.
#include <benchmark/benchmark.h>

#include <string>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "tests/core_work/WorkWorld.h"

namespace corvana {
namespace {

ZAN_Value archived(const ZAN_Value& value) {
  return ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(value));
}

/// A record of about 60 keys; every kind of schedule in turn.
ZAN_Value record(int ref, ReferenceTime now) {
  ZAN_Value settings =
      ZAN_Value::dictionary({{"Ref", ref},
                             {"Title", "Backup of folder " + std::to_string(ref * 7919 % 10000)},
                             {"Mode", 2},
                             {"TriggerAutomatic", ref % 10 != 0},
                             {"LastScheduleDate", ZAN_Value::date(now - 30)},
                             {"TriggerScheduleTime", ZAN_Value::date(ref % 86400)},
                             {"TriggerAllowedHours", ref % 7 == 0},
                             {"TriggerAllowedHoursFrom", ZAN_Value::date(6 * 3600)},
                             {"TriggerAllowedHoursTo", ZAN_Value::date(22 * 3600)},
                             {"TriggerScheduleMinutes", 15}});
  constexpr int kFrequencies[] = {1, 20, 21, 22, 0, 10};
  settings.setValue("TriggerFrequencyPopup", kFrequencies[ref % 6]);
  if (ref % 6 == 4) {
    ZAN_Value entry =
        ZAN_Value::dictionary({{"TriggerScheduleMode", ref % 4},
                               {"TriggerScheduleTime", ZAN_Value::date(ref * 60 % 86400)},
                               {"TriggerScheduleMonday", 1},
                               {"TriggerScheduleFriday", 1},
                               {"TriggerScheduleMonthMode", 13},
                               {"TriggerScheduleDay", 1 + ref % 28},
                               {"TriggerScheduleMonth", 1 + ref % 12}});
    settings.setValue("TriggerScheduleList", archived(ZAN_Value::array({entry, entry})));
  }
  for (int option = 0; option < 50; ++option)
    settings.setValue("OptionsOfTheExecuteApplication" + std::to_string(option), option);
  return settings;
}

struct LargeWorld : test::WorkWorld {
  explicit LargeWorld(int actions) {
    std::vector<ZAN_Value> groups;
    for (int first = 0; first < actions; first += 100) {
      std::vector<ZAN_Value> records;
      for (int ref = first; ref < first + 100; ++ref) records.push_back(record(ref + 1, now()));
      groups.push_back(
          ZAN_Value::dictionary({{"Ref", 1000000 + first},
                                 {"Title", "Group " + std::to_string(first)},
                                 {"List", archived(ZAN_Value::array(std::move(records)))}}));
    }
    setActions(std::move(groups));
    evaluation.checkActionsToLaunch();
  }
};

void evaluate(benchmark::State& state) {
  LargeWorld world(static_cast<int>(state.range(0)));
  if (!world.queue.empty()) state.SkipWithError("something is due");
  for (auto _ : state) world.evaluation.checkActionsToLaunch();
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(evaluate)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

/// The same after another program wrote the tree: read, decoded and evaluated.
void readAndEvaluate(benchmark::State& state) {
  LargeWorld world(static_cast<int>(state.range(0)));
  ActionStore other(world.machine.clock, world.machine.machine, world.machine.systemLog);
  const ZAN_Value records = other.tree().readActionsList();
  for (auto _ : state) {
    state.PauseTiming();
    (void)other.tree().saveActionsTree(records);
    world.tree.releaseRootItem();
    state.ResumeTiming();
    world.evaluation.checkActionsToLaunch();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(readAndEvaluate)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace
}  // namespace corvana
