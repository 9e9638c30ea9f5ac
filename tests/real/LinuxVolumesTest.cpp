#include "platform/linux/LinuxVolumes.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/simulated/TemporaryFolder.h"
#include "tests/real/MountNamespace.h"
#include "tests/real/RealLoop.h"

namespace corvana {
namespace {

bool tellsOnlyWhatComesAndGoes(const TemporaryFolder& folder) {
  const std::string place = folder.makeFolder("Volumes/Disk");
  setenv("CORVANA9_VOLUMES", folder.at("Volumes").c_str(), 1);
  RealLoop real;
  std::vector<std::string> told;
  LinuxVolumes volumes("nobody", folder.at("home"), real.loop, real.loop);
  const auto plug = [&](const char* name) {
    return mount(name, place.c_str(), "tmpfs", 0, nullptr) == 0;
  };
  bool good = expect(plug("first"), "mounted");
  volumes.observe({[&](const Mount& mount) { told.push_back("+" + mount.source); },
                   [&](const Mount& mount) { told.push_back("-" + mount.source); }});
  const auto hears = [&](std::size_t count) {
    return real.runUntil([&] { return told.size() >= count; });
  };
  good &= expect(plug("second") && hears(1), "one over the other");
  good &= expect(umount(place.c_str()) == 0 && hears(2), "and away");
  good &= expect(umount(place.c_str()) == 0 && hears(3), "the first one away");
  return good && expect(told == std::vector<std::string>{"+second", "-second", "-first"},
                        "the covered one neither went nor came");
}

TEST(LinuxVolumes, AMountThatIsCoveredHasNotGone) {
  const TemporaryFolder folder;
  inOwnMountNamespace([&] { return tellsOnlyWhatComesAndGoes(folder); });
}

TEST(VolumeReader, LooksForTheUuidOfADeviceAFewTimes) {
  int readings = 0;
  std::string uuid;
  VolumeReader reader([&](const std::string&) {
    ++readings;
    return DeviceFacts::Identity{uuid, "Disk", "ext4"};
  });
  reader.setLimit(30);
  const TemporaryFolder folder;
  // One of the desktop's is not compared with the mount table.
  Mount mount{.target = folder.path(), .source = "/dev/late", .fileSystem = "ext4"};
  EXPECT_EQ(reader.information(mount, 0)->uuid, "");
  uuid = "4711";
  EXPECT_EQ(reader.information(mount, 0)->uuid, "4711");
  reader.information(mount, 0);
  EXPECT_EQ(readings, 2) << "known now";
  mount.source = "/dev/none";
  reader.forget(mount);
  uuid.clear();
  for (int i = 0; i < 10; ++i) reader.information(mount, 0);
  EXPECT_EQ(readings, 2 + 4) << "it has none";
}

}  // namespace
}  // namespace corvana
