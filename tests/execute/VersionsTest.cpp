// Versions of plain folders: whatever happens, each that is listed is what the source was.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <thread>

#include "execute/engine/Restoration.h"
#include "execute/plain/CopyRun.h"
#include "execute/plain/Verification.h"
#include "execute/plain/VersionMerge.h"
#include "platform/linux/LinuxVolumes.h"
#include "tests/execute/RandomTree.h"
#include "tests/execute/ScratchFolder.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class VersionsTest : public testing::Test {
 protected:
  VersionsTest() {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    fs::create_directory(scratch / "source");
    fs::create_directory(scratch / "disk");
  }

  ExecuteEnd run() {
    ZAN_Value list =
        ZAN_Value::array({ZAN_Value::dictionary({{"VolumeFolderPath", scratch / "source"}})});
    const auto settings = ZAN_Value::dictionary(
        {{"OptionsPerformer", "corvana9"},
         {"Mode", CopyPlan::kSynchronise},
         {"ItemsListOfSourcePath", list},
         {"ItemsDestination", ZAN_Value::dictionary({{"VolumeFolderPath", scratch / "disk"}})}});
    LinuxVolumes volumes{"nobody", "/"};
    const auto plan = CopyPlan::fromSettings(settings, VolumeGuard(volumes, false));
    if (!plan) return {.code = ExecuteCode::volumeNotFound, .reason = plan.error().text};
    ExecuteControl control;
    CopyOwner owner{.mark = mark};
    ExecuteEnd end =
        CopyRun(*plan, owner, {.share = 1},
                {.control = control, .clock = clock, .rsync = "/usr/bin/rsync", .tell = {}}, kept)
            .perform();
    const auto disk = HeldFolder::open(scratch / "disk");
    if (auto versions = Versions::open(*disk, own()); versions && end.isExecuted()) {
      EXPECT_TRUE(versions->thin(clock.time, kept));
    }
    return end;
  }

  /// Runs in a process that is killed after so many microseconds; whether it was.
  bool runAndKill(int microseconds) {
    const pid_t child = ::fork();
    if (child == 0) {
      run();
      ::_exit(0);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    // rsync is told by the system, and ends a little later as a child of this process.
    while (::waitpid(-1, nullptr, 0) > 0) {
    }
    return WIFSIGNALED(status);
  }

  VersionHeader own() const {
    return {.machine = mark.machine, .home = mark.home, .reference = mark.reference};
  }

  /// Restores each version that is listed, and compares it with what the source was at its date.
  /// How many there were.
  std::size_t checkAll(const std::map<std::string, Manifest>& states) {
    const auto disk = HeldFolder::open(scratch / "disk");
    auto versions = Versions::open(*disk, own());
    EXPECT_TRUE(versions) << versions.error().text;
    if (!versions || !versions->folder()) return 0;
    const Outcome ended = versions->endCut();
    EXPECT_TRUE(ended) << ended.error().text;
    const auto chain = versions->chain();
    EXPECT_EQ(VersionFolder::firstKnown(chain, {}), 0u);
    std::size_t count = 0;
    for (std::size_t index = 0; index < chain.size(); ++index) {
      if (chain[index].header->isUnfinished) continue;
      ++count;
      const std::string date = versionDateText(chain[index].date);
      SCOPED_TRACE("version of " + date + ", " + std::to_string(index + 1) + " of " +
                   std::to_string(chain.size()));
      const auto state = states.find(date);
      EXPECT_NE(state, states.end());
      if (state == states.end()) continue;
      const auto view = VersionView::open(*disk, *versions->folder(), chain, index);
      EXPECT_TRUE(view);
      const std::string place = scratch.makeFolder("restored");
      const auto target = HeldFolder::open(place);
      Restoration restoration(*view, *target, {},
                              {.goesOn = {},
                               .failed = [](const std::string& text) { ADD_FAILURE() << text; },
                               .done = {}});
      const Outcome done = restoration.perform({});
      EXPECT_TRUE(done) << done.error().text;
      EXPECT_EQ(difference(manifestOf(place + "/source"), state->second), "");
      fs::remove_all(place);
    }
    return count;
  }

  ScratchFolder scratch;
  SetClock clock;
  CopyMark mark{.machine = "m", .home = "/home/me", .reference = 7, .title = "Mine"};
  VersionsKept kept;
};

TEST_F(VersionsTest, EachIsWhatTheSourceWas) {
  for (const unsigned seed : wantedSeeds(2)) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    for (const auto* name : {"source", "disk"}) {
      fs::remove_all(scratch / name);
      fs::create_directory(scratch / name);
    }
    Editor editor(scratch / "source", seed);
    std::map<std::string, Manifest> states;
    std::size_t checked = 0;
    int lastRun = 500'000;  // microseconds
    for (int day = 0; day < 24; ++day) {
      for (int edits = editor.roll(14); edits > 0; --edits) editor.edit();
      // From hours to weeks, so that thinning finds something.
      clock.time += (1 + editor.roll(40)) * (editor.roll(3) == 0 ? kDay / 2 : kHour);
      states[versionDateText(clock.time)] = manifestOf(scratch / "source");
      if (editor.roll(3) == 0) {
        runAndKill(editor.roll(lastRun));
      } else {
        const auto start = std::chrono::steady_clock::now();
        const ExecuteEnd end = run();
        lastRun = static_cast<int>(std::chrono::duration_cast<std::chrono::microseconds>(
                                       std::chrono::steady_clock::now() - start)
                                       .count());
        EXPECT_EQ(end.code, ExecuteCode::completed)
            << end.reason << (end.errorTexts.empty() ? "" : end.errorTexts.front());
      }
      if (day % 6 == 5) checked += checkAll(states);
      if (HasFailure()) return;
    }
    EXPECT_GT(checked, 8u) << "there is something to be checked";
  }
}

TEST_F(VersionsTest, AreThinnedByAge) {
  const auto disk = HeldFolder::open(scratch / "disk");
  const auto begun = clock.time;
  std::size_t most = 0;
  for (int round = 0; round < 404; ++round) {
    // Once a day, and of late twice.
    clock.time += round < 400 ? kDay : kDay / 2;
    auto versions = Versions::open(*disk, own());
    ASSERT_TRUE(versions);
    ASSERT_TRUE(versions->begin(clock.time, round == 0));
    ASSERT_TRUE(versions->journal().willChangeNoMore());
    VersionHeader header = own();
    header.date = clock.time;
    ASSERT_TRUE(versions->finish(header));
    ASSERT_TRUE(versions->thin(clock.time, {}));
    most = std::max(most, versions->chain().size());
  }
  auto versions = Versions::open(*disk, own());
  std::map<std::string, int> count;
  for (const auto& version : versions->chain()) {
    const double age = clock.time - version.date;
    ++count[age < 2 * kDay     ? "new"
            : age < 31 * kDay  ? "days"
            : age < 366 * kDay ? "weeks"
                               : "months"];
  }
  EXPECT_EQ(count["new"], 4);
  EXPECT_NEAR(count["days"], 29, 1);
  EXPECT_NEAR(count["weeks"], 48, 2);
  EXPECT_NEAR(count["months"], 2, 1);
  EXPECT_LT(most, 90u) << "never many more on the way";
  EXPECT_LT(versions->chain().front().date - begun, 32 * kDay) << "the first month is still there";
  ASSERT_TRUE(versions->thin(clock.time, {.seconds = 10 * kDay}));
  EXPECT_GE(versions->chain().front().date, clock.time - 10 * kDay);
  // As many bytes as the run has added are given for room, and nothing in vain.
  const std::size_t before = versions->chain().size();
  EXPECT_FALSE(versions->makeRoom(UINT64_MAX)) << "all of them would not be enough";
  ASSERT_TRUE(versions->thin(clock.time, {.freeSpace = UINT64_MAX}));
  EXPECT_EQ(versions->chain().size(), before);
  ASSERT_TRUE(versions->thin(clock.time, {.freeSpace = UINT64_MAX, .added = 5000}));
  EXPECT_EQ(versions->chain().size(), before - 1) << "each has a list of one block";
  ASSERT_TRUE(versions->thin(clock.time, {.freeSpace = UINT64_MAX, .added = 1 << 30}));
  EXPECT_GE(versions->chain().size(), 4u) << "those of the last two days stay";
  ASSERT_TRUE(versions->thin(clock.time, {.bytes = 1}));
  EXPECT_EQ(versions->chain().size(), 1u) << "the newest are the copies, which stay";
}

TEST(VersionsKept, OutliveAClockThatRunsAhead) {
  const VersionsKept quarter{.seconds = 90 * kDay};
  std::vector<ReferenceTime> dates;
  for (int day = 0; day < 40; ++day)
    for (int hour = 0; hour < (day > 37 ? 24 : 1); ++hour)
      dates.push_back(785'000'000 + day * kDay + hour * kHour);
  const auto before = quarter.superfluous(dates, dates.back());
  EXPECT_EQ(quarter.superfluous(dates, dates.back() + 5000 * kDay), before) << "while it ran";
  // From now on years ahead.
  const ReferenceTime leap = dates.back() + 5000 * kDay;
  const std::size_t old = dates.size();
  for (int day = 0; day < 7; ++day) {
    dates.push_back(leap + day * kDay);
    EXPECT_TRUE(quarter.superfluous(dates, dates.back()).empty()) << day;
    EXPECT_TRUE(quarter.superfluous(dates, dates[old - 1] + kDay).empty()) << "and right again";
  }
  dates.push_back(leap + 7 * kDay);
  EXPECT_EQ(quarter.superfluous(dates, dates.back()).size(), old) << "it is believed";
  EXPECT_EQ(VersionsKept{.none = true}.superfluous({1, leap}, leap).size(), 1u);
  // Whoever runs once in two months does so.
  dates.clear();
  for (int run = 0; run < 5; ++run) dates.push_back(785'000'000 + run * 61 * kDay);
  EXPECT_EQ(quarter.superfluous(dates, dates.back()).size(), 3u);
}

TEST_F(VersionsTest, AreNotGuessedWhereOneIsMissing) {
  for (int number = 0; number < 6; ++number) {
    clock.time += 60;
    scratch.write("source/file", std::to_string(number));
    ASSERT_EQ(run().code, ExecuteCode::completed);
  }
  const auto disk = HeldFolder::open(scratch / "disk");
  const auto versions = disk->below(std::string(Versions::kName));
  const auto all = Versions::open(*disk, own())->chain();
  const auto firstKnown = [&] {
    const auto there = VersionFolder::all(*versions);
    return VersionFolder::firstKnown(Versions::open(*disk, own())->chain(), there);
  };
  ASSERT_EQ(all.size(), 6u);
  const std::string folder = scratch / "disk/.corvana9-versions/";
  fs::rename(folder + all[2].name, scratch / "away");
  EXPECT_EQ(firstKnown(), 2u) << "the fourth of six is";
  fs::create_directory(folder + VersionFolder::named(all[2].base, VersionFolder::State::merging));
  EXPECT_EQ(firstKnown(), 0u) << "it is being merged";
  EXPECT_EQ(firstKnown(), 2u) << "that was put in order";
  // Merging over the gap does not close it, and elsewhere makes none.
  ASSERT_TRUE(VersionMerge(*versions).perform(all[3], all[4]));
  EXPECT_EQ(firstKnown(), 2u);
  ASSERT_TRUE(VersionMerge(*versions).perform(all[1], all[3]));
  EXPECT_EQ(firstKnown(), 2u) << "only the copies are";
  std::ofstream(folder + all[1].name + "/.corvana9-list") << "rot";
  EXPECT_EQ(firstKnown(), 1u);
}

TEST_F(VersionsTest, KeepTheirOrderWhenTheClockIsSetBack) {
  scratch.write("source/a", "one");
  ASSERT_EQ(run().code, ExecuteCode::completed);
  scratch.write("source/a", "two!");
  clock.time -= 10 * kDay;
  ASSERT_EQ(run().code, ExecuteCode::completed);
  scratch.write("source/a", "three");
  ASSERT_EQ(run().code, ExecuteCode::completed);
  const auto disk = HeldFolder::open(scratch / "disk");
  auto versions = Versions::open(*disk, own());
  const auto states =
      VersionView::statesOf(*disk, *versions->folder(), versions->chain(), "source/a");
  ASSERT_TRUE(states);
  std::vector<std::uint64_t> sizes;
  for (const auto& state : *states) sizes.push_back(state.size);
  EXPECT_THAT(sizes, testing::ElementsAre(3u, 4u, 5u));
  const auto second = Versions::open(*disk, own());
  ASSERT_FALSE(second) << "one works there at a time";
  EXPECT_EQ(second.error().kind, ErrorKind::unavailable);
}

TEST_F(VersionsTest, AreRestoredWithoutALoss) {
  scratch.write("source/d/a", "old a");
  scratch.write("source/b", "same");
  ASSERT_EQ(run().code, ExecuteCode::completed);
  const auto restore = [&](bool overwrites) {
    const auto disk = HeldFolder::open(scratch / "disk");
    auto versions = Versions::open(*disk, own());
    const auto view = VersionView::open(*disk, *versions->folder(), versions->chain(), 0);
    const auto source = HeldFolder::open(scratch / "source");
    Restoration restoration(*view, *source, {.overwrites = overwrites, .suffix = ".before"},
                            {.goesOn = {},
                             .failed = [](const std::string& text) { ADD_FAILURE() << text; },
                             .done = {}});
    EXPECT_TRUE(restoration.perform({"source", "."}));
    return restoration.counts();
  };
  EXPECT_EQ(restore(false).files, 0u) << "nothing to do";
  scratch.damage("source/b");
  EXPECT_EQ(restore(false).kept, 1u) << "though size and date are the same";
  EXPECT_EQ(scratch.read("source/b"), "same");
  EXPECT_NE(scratch.read("source/b.before"), "same");
  fs::remove(scratch / "source/b.before");
  // Newer work, something else in the place of a folder, and what the version did not have.
  fs::remove_all(scratch / "source/d");
  scratch.write("source/d", "a file now");
  scratch.write("source/b", "newer");
  scratch.write("source/new", "stays");
  const auto counts = restore(false);
  EXPECT_EQ(counts.files, 2u);
  EXPECT_EQ(counts.kept, 2u);
  EXPECT_EQ(scratch.read("source/d/a"), "old a");
  EXPECT_EQ(scratch.read("source/d.before"), "a file now");
  EXPECT_EQ(scratch.read("source/b"), "same");
  EXPECT_EQ(scratch.read("source/b.before"), "newer");
  EXPECT_EQ(scratch.read("source/new"), "stays");
  scratch.write("source/b", "again");
  const fs::path half = scratch.write("source/.corvana9-restoring", "of one that was killed");
  EXPECT_EQ(restore(true).kept, 0u);
  EXPECT_FALSE(fs::exists(half));
  EXPECT_EQ(scratch.read("source/b"), "same");
  EXPECT_EQ(scratch.read("source/b.before"), "newer");
  // A folder may hold anything and is never overwritten.
  fs::remove(scratch / "source/b");
  scratch.write("source/b/deep", "precious");
  restore(true);
  EXPECT_EQ(scratch.read("source/b"), "same");
  EXPECT_EQ(scratch.read("source/b.before-2/deep"), "precious");
}

TEST_F(VersionsTest, CanBeLeftInTheMiddleOfAFile) {
  scratch.write("source/large", std::string(40 << 20, 'x'));
  ASSERT_EQ(run().code, ExecuteCode::completed);
  const auto disk = HeldFolder::open(scratch / "disk");
  auto versions = Versions::open(*disk, own());
  const auto view = VersionView::open(*disk, *versions->folder(), versions->chain(), 0);
  const auto source = HeldFolder::open(scratch / "source");
  const auto failed = [](const std::string& text) { ADD_FAILURE() << text; };
  const auto goesOn = [](const std::string&, const auto& counts) { return counts.bytes == 0; };
  Verification verification(*view, *versions->folder(), "sums", {{"source", &*source}},
                            {.goesOn = goesOn, .failed = failed});
  EXPECT_TRUE(verification.perform({}));
  EXPECT_EQ(verification.counts().files + verification.counts().mismatches, 0u);
  fs::remove(scratch / "source/large");
  Restoration restoration(*view, *source, {}, {.goesOn = goesOn, .failed = failed, .done = {}});
  EXPECT_TRUE(restoration.perform({"source", "."}));
  EXPECT_TRUE(fs::is_empty(scratch / "source")) << "half of a file is none";
}

TEST_F(VersionsTest, AreVerified) {
  const std::string contents(300'000, 'x');
  for (const char* name : {"a", "b", "c"}) scratch.write(std::string("source/") + name, contents);
  ASSERT_EQ(run().code, ExecuteCode::completed);
  std::vector<std::string> told;
  const auto verify = [&] {
    const auto disk = HeldFolder::open(scratch / "disk");
    auto versions = Versions::open(*disk, own());
    const auto view = VersionView::open(*disk, *versions->folder(), versions->chain(), 0);
    const auto source = HeldFolder::open(scratch / "source");
    told.clear();
    Verification verification(*view, *versions->folder(), "sums", {{"source", &*source}},
                              {.goesOn = {}, .failed = [&](auto text) { told.push_back(text); }});
    EXPECT_TRUE(verification.perform({}));
    return verification.counts();
  };
  auto counts = verify();
  EXPECT_EQ(counts.files, 3u);
  EXPECT_EQ(counts.mismatches, 0u);
  // Rot beside a source that has not changed, and beside one that has.
  scratch.damage("disk/source/a");
  scratch.damage("disk/source/b");
  scratch.write("source/b", "changed since");
  scratch.write("source/c", "changed since");
  counts = verify();
  EXPECT_EQ(counts.mismatches, 2u);
  EXPECT_THAT(told, testing::ElementsAre(HasSubstr("disk/source/a"), HasSubstr("disk/source/b")));
  EXPECT_EQ(counts.files, 3u) << "the one without a fault is known by its checksum";
}

}  // namespace
}  // namespace corvana
