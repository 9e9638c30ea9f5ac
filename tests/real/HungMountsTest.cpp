#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/linux/LinuxProcesses.h"
#include "platform/linux/LinuxVolumes.h"
#include "platform/linux/Spawn.h"
#include "platform/simulated/TemporaryFolder.h"
#include "tests/real/HungMount.h"
#include "tests/real/MountNamespace.h"
#include "tests/real/RealLoop.h"

namespace corvana {
namespace {

using Questions = HungMount::Questions;

double secondsOf(const std::function<void()>& body) {
  const auto start = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// A child that waits for the mount and cannot be killed.
bool cannotBeKilled(const std::string& path) {
  struct stat state {};
  const auto answer = ExpendableChild::valueOf([&] { return ::stat(path.c_str(), &state); }, 0.2);
  if (answer) return false;
  usleep(100'000);
  int status = 0;
  return waitpid(-1, &status, WNOHANG) == 0;
}

TEST(ExpendableChild, AnswersOrIsLeftBehind) {
  const auto text = ExpendableChild::ask([] { return std::string(200'000, 'x'); }, 30);
  ASSERT_TRUE(text);
  EXPECT_EQ(text->size(), 200'000U);
  EXPECT_EQ(ExpendableChild::ask([] { return std::string(); }, 30).valueOr("none"), "");
  const auto ended = ExpendableChild::ask([]() -> std::string { _exit(3); }, 30);
  EXPECT_TRUE(!ended && ended.error().kind == ErrorKind::refused);
  const auto late = ExpendableChild::ask(
      []() -> std::string {
        pause();
        return {};
      },
      0.05);
  EXPECT_TRUE(!late && late.error().kind == ErrorKind::unavailable);

  // What it inherited would keep others waiting.
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  const auto open = ExpendableChild::valueOf([&] { return fcntl(ends[1], F_GETFD); }, 30);
  EXPECT_EQ(open, -1);
  close(ends[0]);
  close(ends[1]);
}

bool volumesAnswerBesideHungOnes(const TemporaryFolder& folder) {
  setenv("CORVANA9_VOLUMES", folder.at("Volumes").c_str(), 1);
  const HungMount dead(folder.makeFolder("Volumes/Dead"), Questions::taken);
  const HungMount deaf(folder.makeFolder("Volumes/Deaf"), Questions::ignored);
  if (!dead.isMounted()) return true;
  const std::string alive = folder.makeFolder("Volumes/Alive");
  if (mount("alive", alive.c_str(), "tmpfs", 0, nullptr) != 0) return false;

  LinuxVolumes volumes("nobody", folder.at("home"));
  volumes.setPatience(0.5);
  const auto mounts = volumes.mounts();
  int answers = 0;
  int silences = 0;
  volumes.askAll();
  bool good = expect(secondsOf([&] {
                       for (const Mount& mount : mounts) {
                         if (!mount.target.starts_with(folder.path())) continue;
                         volumes.information(mount) ? ++answers : ++silences;
                       }
                     }) < 0.9,
                     "two that hang take as long as one");
  good &= expect(answers == 1 && silences == 2, "only those that hang are silent");
  good &= expect(secondsOf([&] { volumes.exists(folder.at("Volumes/Dead/file")); }) < 0.1,
                 "nobody waits for them again");
  good &= expect(volumes.exists(alive), "the other one is asked");
  return good;
}

TEST(HungMounts, VolumesAreListedInTimeBesideThem) {
  if (access("/dev/fuse", R_OK) != 0) GTEST_SKIP() << "no file systems in user space here";
  const TemporaryFolder folder;
  inOwnMountNamespace([&] { return volumesAnswerBesideHungOnes(folder); });
}

bool anotherProgramTakesOver(const TemporaryFolder& folder) {
  setenv("CORVANA9_VOLUMES", folder.at("Volumes").c_str(), 1);
  HungMount dead(folder.makeFolder("Volumes/Dead"), Questions::taken);
  if (!dead.isMounted()) return true;
  const std::string done = folder.at("done");
  // The process that asks becomes another program, and ends.
  const pid_t agent = fork();
  if (agent == 0) {
    RealLoop real;
    LinuxVolumes volumes("nobody", folder.at("home"));
    for (const Mount& mount : volumes.mounts())
      if (mount.target == folder.at("Volumes/Dead")) volumes.information(mount);
    if (!cannotBeKilled(folder.at("Volumes/Dead"))) _exit(3);
    LinuxProcesses processes(real.loop, {{"touch", done}, 0, folder.at("home")});
    processes.relaunch("/usr/bin/touch");
    _exit(4);
  }
  int status = 0;
  pid_t ended = 0;
  for (int looks = 0; looks < 500 && ended == 0; ++looks) {
    ended = waitpid(agent, &status, WNOHANG);
    if (ended == 0) usleep(10'000);
  }
  if (ended == 0) kill(agent, SIGKILL);
  bool good = expect(ended == agent && status == 0, "it became the other program and ended");
  good &= expect(access(done.c_str(), F_OK) == 0, "which did its work");
  dead.end();
  return good;
}

TEST(HungMounts, AProgramThatAskedOneCanRestartAndEnd) {
  if (access("/dev/fuse", R_OK) != 0) GTEST_SKIP() << "no file systems in user space here";
  const TemporaryFolder folder;
  inOwnMountNamespace([&] { return anotherProgramTakesOver(folder); });
}

bool toolIsGivenUp(const TemporaryFolder& folder) {
  HungMount dead(folder.makeFolder("Dead"), Questions::taken);
  if (!dead.isMounted()) return true;
  bool isLate = false;
  const double seconds = secondsOf([&] {
    const auto output = runToolBlocking({"/usr/bin/stat", folder.at("Dead")}, 0.3);
    isLate = !output && output.error().kind == ErrorKind::unavailable;
  });
  const bool good = expect(isLate && seconds < 2, "its end is not waited for") &&
                    expect(dead.hasTaken(), "it was with the mount");
  dead.end();
  return good;
}

TEST(HungMounts, AToolThatCannotBeKilledIsGivenUp) {
  if (access("/dev/fuse", R_OK) != 0) GTEST_SKIP() << "no file systems in user space here";
  const TemporaryFolder folder;
  inOwnMountNamespace([&] { return toolIsGivenUp(folder); });
}

}  // namespace
}  // namespace corvana
