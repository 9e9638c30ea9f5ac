// Reading and writing a tree of many actions, as at each start and after each edit by another
// program.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <string>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "tests/actions/TreeHome.h"

namespace corvana {
namespace {

constexpr int kActions = 10000;

ZAN_Value archived(const ZAN_Value& value) {
  return ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(value));
}

ZAN_Value folder(const std::string& path) {
  return ZAN_Value::dictionary({{"VolumeFolderPath", path},
                                {"VolumeFolderPathLocalized", path},
                                {"VolumeFolderName", "Disk"},
                                {"VolumeFolderVolumeSize", 500000000000},
                                {"VolumeFolderVolumeDate", 600000000},
                                {"uuid", "8F3A1C52-0D6B-4B8E-9E55-1A2B3C4D5E6F"}});
}

/// About 80 keys and 3 KB, with nested lists.
ZAN_Value record(int number, bool hasReference) {
  const std::string title = "Backup of the folder number " + std::to_string(number);
  ZAN_Value settings = ZAN_Value::dictionary(
      {{"Title", title},
       {"Mode", 2},
       {"CreationDate", ZAN_Value::date(700000000.5 + number)},
       {"LastScheduleDate", ZAN_Value::date(720000000.25 + number)},
       {"TriggerAutomatic", 1},
       {"TriggerFrequencyPopup", 23},
       {"ItemsListOfSourcePath",
        ZAN_Value::array({folder("/home/anna/Documents/" + title), folder("/home/anna/Pictures")})},
       {"ItemsDestination", folder("/media/anna/Disk/Backups/" + title)},
       {"ProgrammedActionFiltersList", archived(ZAN_Value::array({"*.o", "*.tmp", "cache"}))},
       {"TriggerScheduleList", archived(ZAN_Value::array({ZAN_Value::dictionary(
                                   {{"TriggerScheduleMode", 1},
                                    {"TriggerScheduleMonday", 1},
                                    {"TriggerScheduleTime", ZAN_Value::date(number * 60)}})}))}});
  if (hasReference) settings.setValue("Ref", 700000000 + number);
  for (int option = 0; option < 65; ++option) {
    settings.setValue("OptionsOfExecution" + std::to_string(option), option % 3);
  }
  return settings;
}

ZAN_Value tree(bool hasReferences) {
  std::vector<ZAN_Value> groups;
  for (int first = 0; first < kActions; first += 100) {
    std::vector<ZAN_Value> records;
    for (int i = first; i < first + 100; ++i) records.push_back(record(i, hasReferences));
    groups.push_back(ZAN_Value::dictionary({{"Title", "Group"},
                                            {"Ref", 600000000 + first},
                                            {"List", archived(ZAN_Value::array(records))}}));
  }
  return ZAN_Value::array(std::move(groups));
}

void load(benchmark::State& state) {
  SimulatedPlatform machine;
  TreeHome writer(machine);
  if (!writer.store.tree().saveActionsTree(tree(state.range(0) != 0))) {
    state.SkipWithError("cannot write");
  }
  const double before = static_cast<double>(mallinfo2().uordblks);
  TreeHome home(machine);
  home.tree.rootItem();
  state.counters["bytes per action"] =
      (static_cast<double>(mallinfo2().uordblks) - before) / kActions;
  for (auto _ : state) {
    TreeHome reader(machine);
    benchmark::DoNotOptimize(reader.tree.rootItem().numberOfChildren());
    state.PauseTiming();
    reader.tree.releaseRootItem();
    state.ResumeTiming();
  }
}
BENCHMARK(load)->ArgName("with references")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

void save(benchmark::State& state) {
  SimulatedPlatform machine;
  TreeHome home(machine);
  home.tree.rootItem().addActionsFromList(tree(true), false, std::nullopt);
  for (auto _ : state) {
    if (!home.tree.saveActionsTree()) state.SkipWithError("cannot write");
  }
}
BENCHMARK(save)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

void repairEqualReferences(benchmark::State& state) {
  SimulatedPlatform machine;
  TreeHome home(machine);
  for (auto _ : state) {
    state.PauseTiming();
    while (home.tree.rootItem().numberOfChildren() > 0) {
      home.tree.rootItem()
          .childAtIndex(home.tree.rootItem().numberOfChildren() - 1)
          .removeFromList();
    }
    std::vector<ZAN_Value> records;
    for (int i = 0; i < kActions; ++i) records.push_back(actionRecord("Same", 5));
    home.tree.rootItem().addActionsFromList(ZAN_Value::array(records), false, std::nullopt);
    state.ResumeTiming();
    home.tree.repairReferencesIfDuplicates();
  }
}
BENCHMARK(repairEqualReferences)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace corvana
