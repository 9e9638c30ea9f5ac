#include <benchmark/benchmark.h>

#include "ZANCocoaFramework/ZAN_Archiver.h"

namespace corvana {
namespace {

ZAN_Value volume(int i) {
  return ZAN_Value::dictionary({{"Path", "/media/user/Backup disk " + std::to_string(i)},
                                {"Name", "Backup disk " + std::to_string(i)},
                                {"Size", ZAN_Value::integer(500107862016 + i, 'q')},
                                {"Date", ZAN_Value::date(700000000.5 + i)},
                                {"UUID", "0FC63DAF-8483-4772-8E79-3D69D8477DE4"}});
}

/// A settings record as the agent keeps it: about 80 keys and 3 KB, two lists of volumes, an
/// archive of its own, and a few objects that stand in several places.
ZAN_Value record(int i) {
  const ZAN_Value on = ZAN_Value("on");
  const ZAN_Value place = volume(i % 7);
  ZAN_Value value = ZAN_Value::dictionary(
      {{"Ref", i},
       {"Title", "Documents of the year " + std::to_string(i)},
       {"CreationDate", ZAN_Value::date(690000000.25 + i)},
       {"LastScheduleDate", ZAN_Value::date(690050000.25 + i)},
       {"Sources", ZAN_Value::array({place, volume(i % 5)})},
       {"Destination", place},
       {"TriggerScheduleList",
        ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::array(
            {ZAN_Value::dictionary({{"TriggerFrequencyPopup", 3}, {"TriggerHourDelay", 2}})})))}});
  for (int k = 0; k < 62; ++k) {
    value.setValue("TriggerOption" + std::to_string(k), k % 6 == 0 ? on : ZAN_Value(k % 3));
  }
  return value;
}

std::vector<std::byte> archive(int count) {
  std::vector<ZAN_Value> records;
  for (int i = 0; i < count; ++i) records.push_back(record(i));
  return ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::array(std::move(records)));
}

/// The same with keys that are one object in all records, as in files whose writer had them as
/// constants.
std::vector<std::byte> archiveOfSharedKeys(int count) {
  std::vector<ZAN_Value> records;
  const ZAN_Value first = record(0);
  for (int i = 0; i < count; ++i) {
    const ZAN_Value fresh = record(i);
    std::vector<ZAN_Value::Entry> entries;
    for (const auto& entry : first.entries()) {
      entries.push_back({entry.key, fresh[entry.key.stringView()]});
    }
    records.push_back(ZAN_Value::dictionaryOf(std::move(entries)));
  }
  return ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::array(std::move(records)));
}

void report(benchmark::State& state, std::size_t bytes, int records) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(bytes));
  state.counters["bytes/record"] = static_cast<double>(bytes) / records;
}

void decode(benchmark::State& state, const std::vector<std::byte>& bytes) {
  const auto records = static_cast<int>(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(ZAN_Unarchiver::unarchiveObjectWithData(bytes));
  report(state, bytes.size(), records);
  const ZAN_Value list = *ZAN_Unarchiver::unarchiveObjectWithData(bytes);
  state.counters["memory/record"] = static_cast<double>(list.footprint()) / records;
}

void encode(benchmark::State& state, const std::vector<std::byte>& bytes) {
  const ZAN_Value list = *ZAN_Unarchiver::unarchiveObjectWithData(bytes);
  for (auto _ : state) benchmark::DoNotOptimize(ZAN_Archiver::archivedDataWithRootObject(list));
  report(state, bytes.size(), static_cast<int>(state.range(0)));
}

void BM_Decode(benchmark::State& state) {
  decode(state, archive(static_cast<int>(state.range(0))));
}
void BM_Encode(benchmark::State& state) {
  encode(state, archive(static_cast<int>(state.range(0))));
}
void BM_DecodeSharedKeys(benchmark::State& state) {
  decode(state, archiveOfSharedKeys(static_cast<int>(state.range(0))));
}
void BM_EncodeSharedKeys(benchmark::State& state) {
  encode(state, archiveOfSharedKeys(static_cast<int>(state.range(0))));
}

void BM_LookUp(benchmark::State& state) {
  const ZAN_Value list = *ZAN_Unarchiver::unarchiveObjectWithData(archive(1));
  const ZAN_Value& action = list.at(0);
  for (auto _ : state) benchmark::DoNotOptimize(action.integer("TriggerOption30"));
}

BENCHMARK(BM_Decode)->Arg(1)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Encode)->Arg(1)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DecodeSharedKeys)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EncodeSharedKeys)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LookUp);

}  // namespace
}  // namespace corvana
