#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "actions/ActionsTools.h"
#include "execute/plain/CopyRun.h"
#include "platform/linux/LinuxVolumes.h"
#include "platform/linux/SystemClock.h"
#include "tests/execute/ScratchFolder.h"

namespace corvana {

/// Copies on real mounts, in a name space of the test's own: accidents of the machine while they
/// are made.
class Accidents : public testing::Test {
 protected:
  void SetUp() override {
    // Everything mounted here is seen by this process alone and goes with it.
    static const bool isApart = ::unshare(CLONE_NEWNS) == 0 &&
                                ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    if (!isApart) GTEST_SKIP() << "mounting needs root and a name space for mounts";
    volumes.setPatience(30);  // as long as the execute program waits
    ::setenv("RSYNC", rsync.c_str(), 1);
  }

  void TearDown() override {
    for (auto mount = mounted.rbegin(); mount != mounted.rend(); ++mount)
      ::umount2(mount->c_str(), MNT_DETACH);
    scratch.reset();
  }

  std::string mountMemory(const std::string& name) {
    const std::string path = scratch->makeFolder(name);
    EXPECT_EQ(::mount("none", path.c_str(), "tmpfs", 0, "size=64m"), 0);
    mounted.push_back(path);
    return path;
  }

  void mountBind(const std::string& from, const std::string& name) {
    const std::string path = scratch->makeFolder(name);
    ASSERT_EQ(::mount(from.c_str(), path.c_str(), nullptr, MS_BIND, nullptr), 0);
    mounted.push_back(path);
  }

  /// Files f0 to f(count-1) in the folder.
  void fill(const std::string& folder, int count, const std::string& contents = "x") {
    for (int number = 0; number < count; ++number)
      scratch->write(folder + "/f" + std::to_string(number), contents);
  }

  ZAN_Value record(int mode, const std::vector<std::string>& sources,
                   const std::string& destination) const {
    ZAN_Value list = ZAN_Value::array();
    for (const auto& source : sources)
      list.append(ZAN_Value::dictionary({{"VolumeFolderPath", scratch->at(source)}}));
    return ZAN_Value::dictionary(
        {{"OptionsPerformer", "corvana9"},
         {"Mode", mode},
         {"ItemsListOfSourcePath", list},
         {"ItemsDestination",
          ZAN_Value::dictionary({{"VolumeFolderPath", scratch->at(destination)}})}});
  }

  ExecuteEnd run(const ZAN_Value& settings, DeletionLimit limit = {}) {
    const auto plan = CopyPlan::fromSettings(settings, VolumeGuard(volumes, false));
    if (!plan) return {.code = ExecuteCode::volumeNotFound, .reason = plan.error().text};
    return CopyRun(*plan, owner, limit,
                   {.control = *control,
                    .clock = clock,
                    .rsync = rsync,
                    .tell =
                        [this](const auto& progress) {
                          if (onProgress) onProgress(progress);
                        },
                    .sync = sync})
        .perform();
  }
  ExecuteEnd look(const ZAN_Value& settings, std::vector<CopyRun::Planned>& planned) {
    const auto plan = CopyPlan::fromSettings(settings, VolumeGuard(volumes, false));
    if (!plan) return {.code = ExecuteCode::volumeNotFound, .reason = plan.error().text};
    return CopyRun(*plan, owner, {}, {.control = *control, .clock = clock, .rsync = rsync})
        .look([&](const CopyRun::Planned& one) { planned.push_back(one); });
  }
  ExecuteEnd synchronise(const std::string& source, DeletionLimit limit = {}) {
    return run(record(CopyPlan::kSynchronise, {source}, "disk"), limit);
  }

  /// A program in the place of rsync that does something before it, or in its place.
  void replaceRsync(const std::string& script) { rsync = program("rsync", script); }
  static std::string program(const std::string& name, const std::string& script) {
    std::string path = testing::TempDir() + name + std::to_string(::getpid());
    std::ofstream(path) << "#!/bin/sh\n" << script << "\n";
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return path;
  }
  static bool shell(const std::string& line) {
    return std::system(("{ " + line + "; } >/dev/null 2>&1").c_str()) == 0;
  }
  /// A file system of its own in the folder, by a program that makes it and one that mounts it.
  bool mountImage(const std::string& name, const std::string& make, const std::string& mount) {
    const std::string image = scratch->at(name + ".image");
    const std::string path = scratch->makeFolder(name);
    std::ofstream(image).flush();
    std::filesystem::resize_file(image, 200 << 20);
    if (!shell(make + " '" + image + "' && " + mount + " '" + image + "' '" + path + "'"))
      return false;
    mounted.push_back(path);
    return true;
  }

  /// Without the marks of copies and the lists of versions.
  std::size_t filesBelow(const std::string& name) const {
    std::size_t count = 0;
    std::error_code failed;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(scratch->at(name), failed)) {
      if (!entry.is_directory() && !entry.path().filename().string().starts_with(".corvana9-"))
        ++count;
    }
    return count;
  }
  /// What runs have put aside.
  std::size_t filesAside() const { return filesBelow("disk/.corvana9-versions"); }

  std::optional<ScratchFolder> scratch{std::in_place};
  std::vector<std::string> mounted;
  LinuxVolumes volumes{"nobody", "/"};
  SystemClock clock;
  CopyOwner owner{.mark = {.machine = "m", .home = "/home/me", .reference = 7, .title = "Mine"}};
  std::optional<ExecuteControl> control{std::in_place};
  /// Another one to be tried is named in the environment.
  const std::string real = std::getenv("RSYNC") ? std::getenv("RSYNC") : "/usr/bin/rsync";
  std::string rsync = real;
  std::string sync = "/usr/bin/sync";
  std::function<void(const ExecuteProgress&)> onProgress;
};

}  // namespace corvana
