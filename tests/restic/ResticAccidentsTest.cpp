// What befalls runs with restic, on real repositories.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <chrono>
#include <cmath>
#include <thread>

#include "tests/real/MountNamespace.h"
#include "tests/restic/ResticHome.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class ResticAccidentsTest : public ResticTest {
 protected:
  ResticAccidentsTest() { ::prctl(PR_SET_CHILD_SUBREAPER, 1); }

  /// Does it in a process of its own, which may be killed; after so many milliseconds it is. The
  /// signal that has ended it.
  int inChild(const std::function<void()>& work, int milliseconds = -1) {
    const pid_t child = ::fork();
    if (child == 0) {
      work();
      ::_exit(0);
    }
    if (milliseconds >= 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
      ::kill(child, SIGKILL);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    // restic ends a little later as a child of this process.
    while (::waitpid(-1, nullptr, 0) > 0) {
    }
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }

  ZAN_Value request(const char* kind) { return ZAN_Value::dictionary({{"kind", kind}}); }
};

TEST_F(ResticAccidentsTest, AKillInAnyPhaseCostsNothingButThatRun) {
  settings.setValue(VersionKey::none, 1);
  struct Phase {
    const char* word;
    const char* killed;
    const char* task;  ///< nothing: a run
  };
  int number = 0;
  for (const Phase phase :
       {Phase{"init", "$PPID $$", nullptr}, Phase{"backup", "$PPID", nullptr},
        Phase{"backup", "$PPID $$", nullptr}, Phase{"forget", "$PPID $$", nullptr},
        Phase{"prune", "$PPID $$", nullptr}, Phase{"check", "$PPID $$", "verify"},
        Phase{"restore", "$PPID $$", "restore"}}) {
    SCOPED_TRACE(std::string(phase.word) + " " + phase.killed);
    const std::string contents = "letter " + std::to_string(++number);
    scratch.write("Documents/letter", contents);
    settings = record();
    if (phase.word == std::string("prune")) clock.time += 8 * kDay;
    ASSERT_TRUE(store.tree().saveActionsTree(ZAN_Value::array({settings})));
    clock.time += kHour;
    killWhenLocked(phase.word, phase.killed);
    if (phase.word == std::string("restore")) fs::remove(scratch / "Documents/letter");
    EXPECT_EQ(inChild([&] { phase.task ? (void)ask(request(phase.task)) : (void)run(); }), SIGKILL);
    programs.clear();
    if (phase.word == std::string("restore")) {
      EXPECT_EQ(ask(request("restore")).integer("code"), 0);
      EXPECT_EQ(scratch.read("Documents/letter"), "letter " + std::to_string(number - 1));
      scratch.write("Documents/letter", contents);
    }
    clock.time += kHour;
    const ZAN_Value end = run();
    EXPECT_EQ(end.integer("C"), 2) << end.string("Reason");
    const ZAN_Value verified = ask(request("verify"));
    EXPECT_EQ(verified.integer("code"), 0) << verified.string("reason");
    EXPECT_EQ(restic("list locks"), "");
    EXPECT_EQ(ask(request("versions"))["versions"].size(), 1u) << "none are kept";
    EXPECT_EQ(restic("dump latest '" + scratch / "Documents/letter" + "'"), contents);
  }
}

TEST_F(ResticAccidentsTest, ALockOfANamesakeIsNotTakenForOurs) {
  ASSERT_EQ(run().integer("C"), 2);
  // As another machine of this name and user would leave it: nobody here has started that process.
  inChild([&] {
    killWhenLocked("backup", "$$");
    [[maybe_unused]] const int killed =
        std::system(("'" + programs["restic"] + "' --password-file '" + scratch / "password" +
                     "' -r '" + scratch / "Repository" + "' backup '" + scratch / "Documents" + "'")
                        .c_str());
  });
  ASSERT_NE(restic("list locks"), "");
  std::string held;
  onPost = [&](const DistributedNotification& post) {
    if (post.object != "ExecuteProgress") return;
    held = post.userInfo.string("CurrentPath");
    if (held.find("process") != std::string::npos) control->stop(StopReason::user);
  };
  ask(request("verify"));
  EXPECT_THAT(held, HasSubstr("process"));
  EXPECT_NE(restic("list locks"), "");
  // Nobody has renewed it for longer than restic itself takes a lock for a living one's.
  onPost = {};
  control.emplace();
  clock.time += kHour;
  EXPECT_EQ(ask(request("verify")).integer("code"), 0);
}

TEST_F(ResticAccidentsTest, VersionsKeepTheirOrderWhenTheClockIsSetBack) {
  ASSERT_EQ(run().integer("C"), 2);
  clock.time -= 10 * kDay;
  scratch.write("Documents/letter", "second");
  ASSERT_EQ(run().integer("C"), 2);
  scratch.write("Documents/letter", "the third");
  ASSERT_EQ(run().integer("C"), 2);
  const ZAN_Value states = ask(ZAN_Value::dictionary(
      {{"kind", "versions"}, {"names", ZAN_Value::array({scratch / "Documents/letter"})}}));
  std::vector<std::int64_t> sizes;
  for (const ZAN_Value& state : states["versions"].elements())
    sizes.push_back(state.integer("bytes"));
  EXPECT_THAT(sizes, testing::ElementsAre(4, 6, 9)) << states.string("reason");
}

TEST_F(ResticAccidentsTest, SnapshotsWithoutAHomeAreNobodyElses) {
  ASSERT_EQ(run().integer("C"), 2);
  const std::string own = "corvana9,action=77,machine=" + simulated.machine.machineIdentifier();
  const std::string backUp = "backup --host " + simulated.machine.hostName() + " --tag " + own;
  const auto versions = [&] { return ask(request("versions"))["versions"].size(); };
  restic(backUp + " '" + scratch / "Documents" + "'");
  EXPECT_EQ(versions(), 2u) << "one of the time before there were homes";
  restic(backUp + "-other '" + scratch / "Documents" + "'");
  restic(backUp + ",home=/home/else '" + scratch / "Documents" + "'");
  EXPECT_EQ(versions(), 1u) << "it may be the other home's";
}

TEST_F(ResticAccidentsTest, RestoresInPiecesWhereRoomIsShort) {
  inOwnMountNamespace([&] {
    EXPECT_EQ(::mount("tmpfs", (scratch / "Documents").c_str(), "tmpfs", 0, "size=12m"), 0);
    std::map<std::string, std::string> files;
    for (int i = 0; i < 9; ++i) {
      const std::string name = std::string(i < 4 ? "a/b c/" : "a/d/") + std::to_string(i);
      files[name] = std::string(900'000, static_cast<char>('a' + i));
      scratch.write("Documents/" + name, files[name]);
    }
    fs::create_directory(scratch / "Documents/a/empty");
    fs::permissions(scratch / "Documents/a/d", fs::perms::owner_all);
    EXPECT_EQ(run().integer("C"), 2);
    scratch.damage("Documents/a/d/7");
    fs::remove_all(scratch / "Documents/a/b c");
    scratch.write("Documents/a/b c", "a file in its place");
    fs::remove(scratch / "Documents/a/empty");
    const ZAN_Value restored = ask(request("restore"));
    EXPECT_EQ(restored.integer("code"), 0) << restored.string("reason");
    EXPECT_EQ(restored.integer("files"), 5);
    EXPECT_EQ(restored.integer("same"), 4);
    EXPECT_EQ(restored["kept"].size(), 2u);
    std::vector<fs::path> aside;
    for (const auto& entry : fs::recursive_directory_iterator(scratch / "Documents"))
      if (entry.path().string().find(".before-") != std::string::npos) aside.push_back(entry);
    for (const auto& path : aside) fs::remove(path);
    EXPECT_EQ(aside.size(), 2u);
    for (const auto& [name, contents] : files)
      EXPECT_TRUE(scratch.read("Documents/" + name) == contents) << name;
    EXPECT_EQ(fs::status(scratch / "Documents/a/d").permissions(), fs::perms::owner_all);
    EXPECT_TRUE(fs::exists(scratch / "Documents/a/empty"));
    return !HasFailure();
  });
}

TEST_F(ResticAccidentsTest, AnItemIsLeftOutOnTheWay) {
  scratch.write("Documents/film", "");
  fs::resize_file(scratch / "Documents/film", 2'000'000'000);
  bool isSkipped = false;
  onPost = [&](const DistributedNotification& post) {
    const std::string path = post.userInfo.string("CurrentPath");
    if (post.object == "ExecuteProgress" && path.ends_with("/film") &&
        !std::exchange(isSkipped, true))
      control->skipItem();
  };
  const ZAN_Value end = run();
  EXPECT_EQ(end.integer("C"), 2) << end.string("Reason");
  EXPECT_TRUE(isSkipped);
  EXPECT_EQ(end.integer(RunKey::skipped), 1);
  const std::string list = restic("ls latest");
  EXPECT_THAT(list, HasSubstr("/letter\n"));
  EXPECT_THAT(list, testing::Not(HasSubstr("/film\n")));
}

TEST_F(ResticAccidentsTest, EachVersionIsWhatTheSourceWas) {
  for (const unsigned seed : wantedSeeds(1)) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    for (const char* name : {"Documents", "Repository"}) fs::remove_all(scratch / name);
    fs::create_directory(scratch / "Documents");
    Editor editor(scratch / "Documents", seed);
    clock.time = real.now() - 400 * kDay;
    std::map<double, Manifest> states;
    for (int day = 0; day < 9; ++day) {
      for (int edits = editor.roll(14); edits > 0; --edits) editor.edit();
      clock.time = std::floor(clock.time + (1 + editor.roll(16)) * kDay / 2);
      states[clock.time] = manifestOf(scratch / "Documents");
      settings = record();
      ASSERT_TRUE(store.tree().saveActionsTree(ZAN_Value::array({settings})));
      if (day > 0 && editor.roll(3) == 0) {
        inChild([&] { run(); }, editor.roll(1500));
        control.emplace();
      } else {
        const ZAN_Value end = run();
        EXPECT_EQ(end.integer("C"), 2) << end.string("Reason");
      }
    }
    const ZAN_Value listed = ask(request("versions"));
    EXPECT_GT(listed["versions"].size(), 2u) << listed.string("reason");
    for (const ZAN_Value& version : listed["versions"].elements()) {
      const double date = version["date"].doubleValue();
      SCOPED_TRACE(versionDateText(date));
      ASSERT_TRUE(states.contains(date));
      ZAN_Value wish = request("restore");
      wish.setValue("at", date);
      wish.setValue("to", scratch / "restored");
      const ZAN_Value restored = ask(wish);
      EXPECT_EQ(restored.integer("code"), 0) << restored.string("reason");
      EXPECT_EQ(difference(manifestOf(scratch / "restored/Documents"), states[date]), "");
      fs::remove_all(scratch / "restored");
    }
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace corvana
