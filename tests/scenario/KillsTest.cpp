#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>

#include "tests/scenario/Scenario.h"

namespace {

/// Called after each file that takes its place.
std::function<void()>& whenWritten() {
  static std::function<void()> observer;
  return observer;
}

/// Device and number of a file, and its bytes when it was synchronised last.
std::map<std::pair<dev_t, ino_t>, std::string>& synchronised() {
  static std::map<std::pair<dev_t, ino_t>, std::string> files;
  return files;
}

}  // namespace

extern "C" int fsync(int file) {
  struct stat status = {};
  if (whenWritten() && ::fstat(file, &status) == 0 && S_ISREG(status.st_mode)) {
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    std::ifstream stream(path, std::ios::binary);
    synchronised()[{status.st_dev, status.st_ino}] =
        std::string(std::istreambuf_iterator<char>(stream), {});
  }
  return static_cast<int>(::syscall(SYS_fsync, file));
}

extern "C" int rename(const char* from, const char* to) noexcept {
  const auto result = static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
  if (result == 0 && whenWritten()) whenWritten()();
  return result;
}

namespace corvana {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using Counts = std::map<std::string, std::size_t>;
using Files = std::map<std::string, std::string>;

constexpr double kExecution = 20;

/// Five actions, four times each from 12:30 to 14:00.
struct BusyDay : Scenario {
  explicit BusyDay(std::string_view begin) : Scenario(begin) {
    executionsAreRecorded = true;
    for (const char* const title : {"A", "B", "C", "D", "E"}) {
      action(title, everyMinutes(30, timeOfDay("12:00:00")));
      titles.emplace_back(title);
    }
    writeTree();
  }
  std::string data() { return store().folder().dataFolderPathWithFileName(); }
  /// Executions that began before `end`.
  Counts executed(ReferenceTime end = 1e12) const {
    Counts counts;
    for (const auto& title : titles) counts[title] = 0;
    for (const auto& start : machine.processes.starts)
      if (start->date < end) ++counts[titles.at(std::stoul(start->arguments.at(1)) - 101)];
    return counts;
  }
  std::vector<std::string> titles;
};

/// The machine at one moment.
struct Cut {
  ReferenceTime date = 0;
  Files files;
  Counts executed;
  std::string running;  ///< what had not ended; empty for nothing
};

/// A day without a cut, and the disk after each of its writes as a power cut may leave it: names
/// are as they were given last, of the bytes only what was synchronised is sure to be there.
struct WholeDay : BusyDay {
  WholeDay() : BusyDay("2024-01-02 12:00:00") {
    whenWritten() = [] {};
    writeTree();
    // What the test itself has written counts as being there.
    for (const auto& entry : fs::recursive_directory_iterator(data())) {
      const auto file = ZAN_FilesUtils::readFile(entry.path().string());
      if (file) synchronised()[{file->identity.device, file->identity.inode}] = file->bytes;
    }
    whenWritten() = [this] { cuts.push_back(now()); };
    start();
    runUntil("2024-01-02 14:20:00");
    whenWritten() = {};
    synchronised().clear();
  }
  Cut now() {
    Cut cut{.date = machine.clock.now(), .files = {}, .executed = executed(), .running = {}};
    for (const auto& entry : fs::recursive_directory_iterator(data())) {
      if (!entry.is_regular_file()) continue;
      const auto file = ZAN_FilesUtils::readFile(entry.path().string());
      if (!file) continue;
      const auto sure = synchronised().find({file->identity.device, file->identity.inode});
      const std::string name = fs::relative(entry.path(), data()).string();
      cut.files[name] = sure != synchronised().end() ? sure->second : "";
      if (name.ends_with(".cva9data") && cut.files[name] != file->bytes) unsure.insert(name);
    }
    const auto& starts = machine.processes.starts;
    if (!starts.empty() && starts.back()->running && cut.date < starts.back()->date + kExecution)
      cut.running = titles.at(std::stoul(starts.back()->arguments.at(1)) - 101);
    return cut;
  }
  std::vector<Cut> cuts;
  std::set<std::string> unsure;  ///< data files that a cut could have torn
};

Files decisiveOf(const Files& files) {
  Files decisive;
  for (const std::string_view name :
       {DataFolder::kOccasions, DataFolder::kActions, DataFolder::kChanges,
        DataFolder::kSchedulerSettings, DataFolder::kHistory})
    if (const auto found = files.find(std::string(name)); found != files.end())
      decisive.insert(*found);
  return decisive;
}

/// The quarter of an hour past a cut when nothing has been due for a while.
ReferenceTime quietAfter(const Scenario& day, ReferenceTime cut) {
  const ReferenceTime noon = day.at("2024-01-02 12:00:00");
  return noon + (std::ceil((cut - noon) / 1800) + 0.5) * 1800;
}

TEST(KillsTest, ACutAfterAnyWriteOfADayLosesNothingAndDoublesNothingInSilence) {
  WholeDay whole;
  ASSERT_EQ(whole.machine.processes.starts.size(), 20U) << whole.executions();
  ASSERT_GT(whole.cuts.size(), 100U);
  EXPECT_THAT(whole.unsure, testing::IsEmpty());
  Files last;
  for (const Cut& cut : whole.cuts) {
    const ReferenceTime quiet = quietAfter(whole, cut.date);
    if (quiet > whole.at("2024-01-02 14:20:00")) break;
    // What is only for people to read decides nothing.
    if (Files decisive = decisiveOf(cut.files); std::exchange(last, decisive) == decisive) continue;
    BusyDay day(whole.civil(cut.date));
    day.machine.clock.setNow(cut.date);
    fs::remove_all(day.data());
    for (const auto& [name, bytes] : cut.files) {
      const fs::path path = fs::path(day.data()) / name;
      fs::create_directories(path.parent_path());
      ASSERT_TRUE(ZAN_FilesUtils::appendToFile(path.string(), bytes, false));
    }
    day.start();
    day.runFor(quiet - cut.date);
    Counts total = day.executed();
    for (const auto& [title, count] : cut.executed) total[title] += count;
    Counts expected = whole.executed(quiet);
    // What was cut off is run once more, and that is told.
    if (!cut.running.empty()) {
      ++expected[cut.running];
      EXPECT_THAT(day.logCodes(), Contains(LogCode::crashed));
    }
    ASSERT_EQ(total, expected) << whole.civil(cut.date) << " running: " << cut.running << "\n"
                               << day.executions();
  }
}

/// Four occasions a day, around which machine, session, agent and execute program end as chance
/// wants it.
TEST(KillsTest, AMonthOfEndsLosesNoOccasion) {
  std::mt19937 chance(20240102);
  const auto dice = [&](unsigned sides) { return static_cast<int>(chance() % sides); };
  Scenario day("2024-01-02 01:00:00");
  const std::vector<std::string> times{"02:00:00", "08:00:00", "14:00:00", "20:00:00"};
  for (const auto& time : times)
    day.action(time, daily(day.timeOfDay(time), day.timeOfDay("01:00:00")));
  day.executionsAreRecorded = true;
  day.writeTree();
  day.start();
  std::size_t cutOff = 0;
  const auto cutChildren = [&] {
    for (const auto& child : day.machine.processes.starts) {
      if (!child->running) continue;
      day.machine.processes.endChild(child->pid, 9);
      ++cutOff;
    }
  };
  const ReferenceTime first = day.timeOfDay("02:00:00");
  constexpr int kDays = 30;
  for (int occasion = 0; occasion < 4 * kDays; ++occasion) {
    const ReferenceTime due = first + occasion * 6 * 3600.0;
    day.sleepUntil(day.civil(due - 300));
    for (int ends = 0; ends < 2; ++ends) {
      day.runUntil(day.civil(std::max(day.machine.clock.now(), due - 20) + dice(60)));
      switch (dice(5)) {
        case 0:  // a power cut
          day.kill();
          cutChildren();
          day.start();
          break;
        case 1:  // the agent dies alone
          day.kill();
          day.start();
          break;
        case 2:  // a crash of the execute program
          cutChildren();
          break;
        case 3:  // switched off for some minutes
          day.kill();
          cutChildren();
          day.sleepUntil(day.civil(day.machine.clock.now() + 60 + dice(300)));
          day.start();
          break;
        default:  // asleep for some minutes
          day.sleepUntil(day.civil(day.machine.clock.now() + 60 + dice(300)));
          day.agent->machineWillSleep();
          break;
      }
    }
    day.runFor(300);
    EXPECT_TRUE(day.agent->queue().empty()) << day.civil(due);
  }
  std::size_t executed = 0;
  for (const auto& time : times) {
    EXPECT_GE(day.executionsOf(time), static_cast<std::size_t>(kDays)) << time;
    executed += day.executionsOf(time);
  }
  EXPECT_LE(executed, 4U * kDays + cutOff) << "only what was cut off comes again";
  EXPECT_GT(cutOff, 20U) << "chance has hit something";
  const auto codes = day.logCodes();
  EXPECT_EQ(static_cast<std::size_t>(std::ranges::count(codes, LogCode::crashed)), cutOff)
      << "each that was cut off is told";
}

/// Minutes of a machine on which nothing happens, and at which of them something was written.
TEST(IdleTest, AnIdleAgentWritesNothingForHalfAnHour) {
  Scenario day("2024-01-02 12:00:00");
  day.action("Evening", daily(day.timeOfDay("20:00:00"), day.timeOfDay("11:00:00")));
  day.machine.volumes.mount({.name = "USB", .free = 500});
  day.writeTree();
  day.start();
  // What the start itself writes, in a home that was never used.
  day.runFor(60);
  const std::string home = day.machine.folder.path();
  const auto disk = [&] {
    std::map<std::string, std::pair<fs::file_time_type, std::uintmax_t>> files;
    for (const auto& entry : fs::recursive_directory_iterator(home))
      files[entry.path().string()] = {fs::last_write_time(entry.path()),
                                      entry.is_regular_file() ? fs::file_size(entry.path()) : 0};
    return files;
  };
  std::vector<int> written;
  std::string names;
  auto before = disk();
  for (int minute = 1; minute <= 100; ++minute) {
    day.runFor(60);
    auto after = disk();
    if (after != before) written.push_back(minute);
    for (const auto& [path, state] : after)
      if (before[path] != state) names += std::to_string(minute) + " " + path + "\n";
    before = std::move(after);
  }
  ASSERT_LE(written.size(), 3U) << names;
  // Whatever is kept first is kept for half an hour, so what comes a little later goes with it.
  int last = -1;
  for (const int minute : written) EXPECT_GE(minute - std::exchange(last, minute), 30) << names;
  EXPECT_GE(written.size(), 2U) << "it is written at last: " << names;
  EXPECT_EQ(names.find("Scheduler Settings"), std::string::npos)
      << "the clock alone writes no settings: " << names;
}

}  // namespace
}  // namespace corvana
