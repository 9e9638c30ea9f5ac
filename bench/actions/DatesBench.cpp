#include <absl/time/civil_time.h>
#include <absl/time/time.h>
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <array>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/ActionsTools.h"
#include "actions/Forecast.h"

namespace corvana {
namespace {

constexpr const char* kZone = "Europe/Paris";

struct Moment {
  ReferenceTime now;
  ReferenceTime last;
};

/// Scattered moments between 2020 and 2030, each with a last run up to two days before.
const std::vector<Moment>& moments() {
  static const std::vector<Moment> list = [] {
    std::mt19937 random(20261121);
    std::uniform_real_distribution<double> now(599616000, 915148800);
    std::uniform_real_distribution<double> ago(0, 2 * 86400);
    std::vector<Moment> result(4096);
    for (Moment& moment : result) {
      moment.now = now(random);
      moment.last = moment.now - ago(random);
    }
    return result;
  }();
  return list;
}

const ZAN_DateUtils& calendar() {
  static const ZAN_DateUtils paris(kZone, "fr_FR");
  return paris;
}

using Keys = std::initializer_list<std::pair<std::string_view, ZAN_Value>>;

/// A real record: eighty keys, most of them not of the schedule.
ZAN_Value record(Keys keys) {
  ZAN_Value settings =
      ZAN_Value::dictionary({{"TriggerAutomatic", 1}, {"Title", "Photos"}, {"Ref", 817032774}});
  for (int i = 0; i < 70; ++i) settings.setValue("OptionsOfTheExecution" + std::to_string(i), i);
  settings.setValue("TriggerScheduleTime", ZAN_Value::date(12600));
  settings.setValue("LastScheduleDate", ZAN_Value::date(moments()[0].last));
  for (const auto& [key, value] : keys) settings.setValue(key, value);
  return settings;
}

ZAN_Value recordWithEntry(Keys keys) {
  ZAN_Value entry = ZAN_Value::dictionary({{"TriggerScheduleTime", ZAN_Value::date(12600)}});
  for (const auto& [key, value] : keys) entry.setValue(key, value);
  return record({{"TriggerScheduleList", ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(
                                             ZAN_Value::array({entry})))}});
}

void decoded(benchmark::State& state, const ZAN_Value& settings) {
  Schedule schedule(settings);
  std::size_t i = 0;
  for (auto _ : state) {
    const Moment& moment = moments()[i++ % moments().size()];
    schedule.lastScheduleDate = moment.last;
    benchmark::DoNotOptimize(
        ActionsTools(calendar(), moment.now).getNextScheduleDateForSettings(schedule, false));
  }
  state.SetItemsProcessed(state.iterations());
}

void fromRecord(benchmark::State& state, const ZAN_Value& settings) {
  std::size_t i = 0;
  for (auto _ : state) {
    const Moment& moment = moments()[i++ % moments().size()];
    benchmark::DoNotOptimize(
        ActionsTools(calendar(), moment.now).getNextScheduleDateForSettings(settings, false));
  }
  state.SetItemsProcessed(state.iterations());
}

/// The next 2,000 runs of 1,000 actions of every kind, a tenth of them with hours in which they
/// never run.
void comingRuns(benchmark::State& state, const std::vector<ZAN_Value>& kinds) {
  const ReferenceTime now = moments()[0].now;
  std::vector<Schedule> schedules;
  for (std::size_t i = 0; i < 1000; ++i) {
    ZAN_Value settings = kinds[i % kinds.size()];
    settings.setValue("LastScheduleDate", ZAN_Value::date(now - static_cast<double>(i)));
    schedules.emplace_back(settings);
  }
  for (auto _ : state) {
    ComingRuns runs(calendar(), now, {});
    for (const Schedule& schedule : schedules) runs.add(schedule, ActionContext::none);
    for (int i = 0; i < 2000; ++i) benchmark::DoNotOptimize(runs.next());
  }
}

/// The floor: two conversions by the time library and nothing else.
void directSearch(benchmark::State& state) {
  absl::TimeZone zone;
  absl::LoadTimeZone(kZone, &zone);
  std::size_t i = 0;
  for (auto _ : state) {
    const Moment& moment = moments()[i++ % moments().size()];
    const absl::Time after =
        absl::FromUnixSeconds(static_cast<std::int64_t>(moment.last + kReferenceEpochInUnixTime));
    absl::CivilDay day(absl::ToCivilSecond(after, zone));
    absl::Time next = zone.At(absl::CivilSecond(day) + 12600).pre;
    if (next <= after) next = zone.At(absl::CivilSecond(day + 1) + 12600).pre;
    benchmark::DoNotOptimize(next);
  }
  state.SetItemsProcessed(state.iterations());
}

double childrenSeconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// What another scheduler of the machine answers and prints, one date after the other, by the
/// processor time that it takes.
void systemdCalendar(benchmark::State& state, const char* expression) {
  constexpr int kDates = 20000;
  const std::string command = std::string("TZ=") + kZone +
                              " systemd-analyze calendar --iterations=" + std::to_string(kDates) +
                              " '" + expression + "' 2>&1";
  for (auto _ : state) {
    const double before = childrenSeconds();
    std::FILE* output = popen(command.c_str(), "r");
    std::array<char, 65536> buffer{};
    std::size_t bytes = 0;
    while (output != nullptr) {
      const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), output);
      if (count == 0) break;
      bytes += count;
    }
    const bool done = output != nullptr && pclose(output) == 0 && bytes > kDates;
    state.SetIterationTime(childrenSeconds() - before);
    if (!done) return state.SkipWithError("systemd is not installed");
  }
  state.SetItemsProcessed(state.iterations() * kDates);
}

void add(const std::string& name, const ZAN_Value& settings) {
  benchmark::RegisterBenchmark(("decoded/" + name).c_str(), decoded, settings);
  // With a list its archive is decoded at every question.
  const std::string from = settings.contains("TriggerScheduleList") ? "cold/" : "record/";
  benchmark::RegisterBenchmark((from + name).c_str(), fromRecord, settings);
}

}  // namespace
}  // namespace corvana

int main(int argc, char** argv) {
  using namespace corvana;
  benchmark::Initialize(&argc, argv);
  add("daily", record({{"TriggerFrequencyPopup", 1}}));
  add("every 15 minutes", record({{"TriggerFrequencyPopup", 20}, {"TriggerScheduleMinutes", 15}}));
  add("hourly", record({{"TriggerFrequencyPopup", 21}, {"TriggerHourDelay", 2}}));
  add("hourly in allowed hours", record({{"TriggerFrequencyPopup", 21},
                                         {"TriggerAllowedHours", 1},
                                         {"TriggerAllowedHoursFrom", ZAN_Value::date(21600)},
                                         {"TriggerAllowedHoursTo", ZAN_Value::date(68400)}}));
  add("first start-up", record({{"TriggerFrequencyPopup", 30}}));
  add("list, odd days", recordWithEntry({{"TriggerScheduleEvenOdd", 1}}));
  add("list, Mondays", recordWithEntry({{"TriggerScheduleMode", 1}, {"TriggerScheduleMonday", 1}}));
  add("list, even Mondays", recordWithEntry({{"TriggerScheduleMode", 1},
                                             {"TriggerScheduleMonday", 1},
                                             {"TriggerScheduleEvenOdd", 2}}));
  add("list, last working day",
      recordWithEntry({{"TriggerScheduleMode", 2}, {"TriggerScheduleMonthMode", 13}}));
  add("list, 31st of even months", recordWithEntry({{"TriggerScheduleMode", 2},
                                                    {"TriggerScheduleMonthMode", 1},
                                                    {"TriggerScheduleMonthDays", "31"},
                                                    {"TriggerScheduleEvenOdd", 2}}));
  add("list, 29 February",
      recordWithEntry(
          {{"TriggerScheduleMode", 3}, {"TriggerScheduleDay", 29}, {"TriggerScheduleMonth", 2}}));
  const std::vector<ZAN_Value> kinds{
      record({{"TriggerFrequencyPopup", 1}}),
      record({{"TriggerFrequencyPopup", 1}}),
      recordWithEntry({}),
      recordWithEntry({{"TriggerScheduleMode", 1}, {"TriggerScheduleMonday", 1}}),
      recordWithEntry({{"TriggerScheduleMode", 1}, {"TriggerScheduleFriday", 1}}),
      recordWithEntry({{"TriggerScheduleMode", 2},
                       {"TriggerScheduleMonthMode", 1},
                       {"TriggerScheduleMonthDays", "31"}}),
      recordWithEntry(
          {{"TriggerScheduleMode", 3}, {"TriggerScheduleDay", 29}, {"TriggerScheduleMonth", 2}}),
      record({{"TriggerFrequencyPopup", 22},
              {"TriggerAllowedHours", 1},
              {"TriggerAllowedHoursFrom", ZAN_Value::date(21600)},
              {"TriggerAllowedHoursTo", ZAN_Value::date(68400)}}),
      record({{"TriggerFrequencyPopup", 10}}),
      record({{"TriggerFrequencyPopup", 20},
              {"TriggerScheduleMinutes", 1440},
              {"TriggerAllowedHours", 1},
              {"TriggerAllowedHoursFrom", ZAN_Value::date(21600)},
              {"TriggerAllowedHoursTo", ZAN_Value::date(21660)}})};
  benchmark::RegisterBenchmark("coming/2000 runs of 1000 actions", comingRuns, kinds)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("peer/Abseil, daily", directSearch);
  benchmark::RegisterBenchmark("peer/systemd-analyze, daily", systemdCalendar, "*-*-* 03:30:00")
      ->UseManualTime();
  benchmark::RegisterBenchmark("peer/systemd-analyze, Mondays", systemdCalendar, "Mon 03:30:00")
      ->UseManualTime();
  benchmark::RunSpecifiedBenchmarks();
}
