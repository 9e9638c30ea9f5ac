#include <benchmark/benchmark.h>

#include <filesystem>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/ActionStore.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "volumes/VolumesHistory.h"
#include "volumes/ZAN_MountedVolumes.h"

namespace corvana {
namespace {

constexpr int kVolumes = 20;
constexpr int kHours = 5 * 365 * 24;

/// Twenty volumes looked at every hour for five years, pruned or as they came.
struct FiveYears {
  explicit FiveYears(bool pruned) {
    machine.machine.timeZone = "Europe/Paris";
    const auto now = static_cast<std::uint64_t>(machine.clock.now());
    ZAN_Value list = ZAN_Value::array();
    for (std::uint64_t volume = 0; volume < kVolumes; ++volume) {
      ZAN_Value hours = ZAN_Value::array();
      for (std::uint64_t hour = kHours; hour-- > 0;) {
        const auto number = [&](std::uint64_t extra) {
          return ZAN_Value::unsignedInteger(400'000'000'000 + hour * 4096 * (volume + 1) + extra);
        };
        hours.append(ZAN_Value::dictionary({{"D", ZAN_Value::unsignedInteger(now - hour * 3600)},
                                            {"F", number(8192)},
                                            {"E", number(0)},
                                            {"L", number(0)},
                                            {"H", number(8192)}}));
      }
      const SimulatedVolumes::Disk disk{.name = "Disk" + std::to_string(volume)};
      machine.volumes.mount(disk);
      list.append(ZAN_Value::dictionary(
          {{"VolumeFolderName", disk.name},
           {"VolumeFolderVolumeSize", ZAN_Value::unsignedInteger(disk.size)},
           {"VolumeFolderVolumeDate", ZAN_Value::unsignedInteger(disk.creationDate)},
           {"VolumeFreeSizeList",
            ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(hours))}}));
    }
    if (!store.files().writeListToFile(list, DataFolder::kVolumesInfo)) std::abort();
    if (pruned) history.cleanVolumesSurveyorList();
  }
  double fileSize() const {
    return static_cast<double>(
        std::filesystem::file_size(store.folder().pathOf(DataFolder::kVolumesInfo)));
  }

  SimulatedPlatform machine;
  mutable ActionStore store{machine.clock, machine.machine, machine.systemLog};
  ZAN_MountedVolumes mounted{machine.volumes};
  FreeSpaceHistory history{store, mounted};
};

void pruneFiveYears(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    FiveYears years(false);
    state.ResumeTiming();
    years.history.cleanVolumesSurveyorList();
    state.counters["bytes"] = years.fileSize();
  }
}
BENCHMARK(pruneFiveYears)->Unit(benchmark::kMillisecond)->Iterations(2);

void loadFiveYears(benchmark::State& state) {
  FiveYears years(true);
  for (auto _ : state) benchmark::DoNotOptimize(years.history.readVolumesSurveyorList());
}
BENCHMARK(loadFiveYears)->Unit(benchmark::kMillisecond);

/// Every volume is looked at once more.
void sampleTwentyVolumes(benchmark::State& state) {
  FiveYears years(true);
  years.store.files().keepForLater(years.machine.runLoop);
  for (auto _ : state) years.history.addVolumesSurveyorData();
}
BENCHMARK(sampleTwentyVolumes)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace corvana
