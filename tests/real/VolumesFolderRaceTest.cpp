#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <tuple>

#include "platform/linux/VolumesFolderAccess.h"
#include "platform/simulated/TemporaryFolder.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;

constexpr int kImpossible = 77;
constexpr int kLost = 1;
constexpr int kNotRaced = 2;
constexpr int kFiles = 20;
constexpr auto kDuration = std::chrono::milliseconds(700);
constexpr auto kLongest = std::chrono::seconds(20);  // where each deletion meets the disk

void fill(const fs::path& folder) {
  std::error_code ignored;
  fs::create_directories(folder, ignored);
  for (int i = 0; i < kFiles; ++i) std::ofstream(folder / std::to_string(i)) << "kept";
}

long filesIn(const fs::path& folder) {
  return std::ranges::count_if(fs::recursive_directory_iterator(folder),
                               [](const auto& entry) { return entry.is_regular_file(); });
}

/// From now on the kernel is one that cannot refuse to cross a mount point.
bool forgetOpenat2() {
  std::array<sock_filter, 4> code = {{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  }};
  const sock_fprog program{code.size(), code.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

/// A full disk, with a folder of the stray one's name too, comes and goes at `place` while "Stray"
/// is deleted over and over. Runs in a process whose mounts go with it.
int race(const fs::path& root, const fs::path& place, bool isOldKernel) {
  if (isOldKernel && !forgetOpenat2()) return kImpossible;
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return kImpossible;
  const fs::path folder = root / "Volumes";
  const fs::path disk = root / "Disk";
  fs::create_directories(folder);
  fs::create_directories(disk);
  if (mount("none", disk.c_str(), "tmpfs", 0, nullptr) != 0) return kImpossible;
  fill(disk);
  fill(disk / "Stray/a");
  const long before = filesIn(disk);

  std::atomic<bool> ends{false};
  std::atomic<int> mounted{0};
  std::thread plugger([&] {
    while (!ends) {
      if (mount(disk.c_str(), place.c_str(), nullptr, MS_BIND, nullptr) != 0) continue;
      ++mounted;
      std::this_thread::yield();
      umount2(place.c_str(), MNT_DETACH);
    }
  });
  // By a bind mount of the folder as it is, which sees nothing of what is mounted over it.
  const fs::path below = root / "Below";
  fs::create_directories(below);
  const bool isSeen = mount(folder.c_str(), below.c_str(), nullptr, MS_BIND, nullptr) == 0;
  const VolumesFolderAccess access(folder, root / "home");
  const auto begin = std::chrono::steady_clock::now();
  int deleted = 0;
  const auto goesOn = [&] {
    const auto passed = std::chrono::steady_clock::now() - begin;
    return passed < kDuration || ((mounted == 0 || deleted == 0) && passed < kLongest);
  };
  while (isSeen && goesOn() && filesIn(disk) == before) {
    fill(below / "Stray/a");
    if (access.remove("Stray")) ++deleted;
  }
  ends = true;
  plugger.join();
  if (filesIn(disk) != before) return kLost;
  return isSeen && mounted > 0 && deleted > 0 ? 0 : kNotRaced;
}

class VolumesFolderRaceTest : public ::testing::TestWithParam<std::tuple<const char*, bool>> {};

TEST_P(VolumesFolderRaceTest, AFullDiskThatComesAndGoesKeepsEveryFile) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, for mounts";
  const TemporaryFolder folder;
  const fs::path root = folder.path();
  const pid_t child = fork();
  if (child == 0)
    _exit(race(root, root / "Volumes" / std::get<0>(GetParam()), std::get<1>(GetParam())));
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == kImpossible) GTEST_SKIP() << "no mount namespace here";
  EXPECT_EQ(WEXITSTATUS(status), 0)
      << kLost << ": files were lost, " << kNotRaced << ": nothing was raced";
}

INSTANTIATE_TEST_SUITE_P(Places, VolumesFolderRaceTest,
                         ::testing::Combine(::testing::Values("Stray", "Stray/a", ""),
                                            ::testing::Bool()));

}  // namespace
}  // namespace corvana
