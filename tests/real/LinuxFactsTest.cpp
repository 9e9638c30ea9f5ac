#include <gmock/gmock.h>

#include "platform/linux/LinuxMachine.h"
#include "platform/linux/MountTable.h"
#include "platform/simulated/TemporaryFolder.h"

namespace corvana {
namespace {

using testing::ElementsAre;

TEST(StartupVolumeFacts, ReadsTheDeviceThatIsMountedLastAtTheRoot) {
  const TemporaryFolder folder;
  folder.write("devices/8:1/size", "2000\n");
  folder.write("devices/8:2/size", "5000\n");
  const auto read = [&](const std::string& table) {
    return StartupVolumeFacts({.mountTable = folder.write("mounts", table),
                               .devices = folder.at("devices"),
                               .labels = folder.at("none"),
                               .root = "/"})
        .read();
  };
  const std::string rest = " rw - ext4 /dev/sda1 rw\n";
  const auto volume = read("1 0 8:1 / / rw shared:1" + rest + "2 0 8:2 / /home" + rest);
  ASSERT_TRUE(volume);
  EXPECT_EQ(volume->size, 2000U * 512);
  EXPECT_EQ(volume->name, "/") << "it has no label";
  EXPECT_GT(volume->volumeSize, 0U);
  EXPECT_EQ(read("1 0 8:1 / /" + rest + "2 1 8:2 / /" + rest)->size, 5000U * 512);
  EXPECT_FALSE(read("1 0 0:20 / / rw - overlay overlay rw\n"));
  EXPECT_FALSE(read(""));
}

TEST(LoginItems, ListsTheProgramsOfTheEntriesThatAreSwitchedOn) {
  const TemporaryFolder folder;
  const auto entry = [&](const std::string& path, const std::string& lines) {
    folder.write(path + ".desktop", "[Desktop Entry]\nType=Application\n" + lines);
  };
  entry("user/a", "Exec=\"/opt/my tool/run\" --quietly %u\n");
  entry("user/off", "Exec=/bin/off\nHidden=true\n");
  entry("system/off", "Exec=/bin/off\n");
  entry("system/b", "Exec = sh -c true\n[Desktop Action x]\nExec=/bin/other\n");
  entry("system/c", "Exec=nowhere\n");
  entry("system/d", "Exec=/bin/d\nX-GNOME-Autostart-enabled=false\n");
  folder.write("user/readme.txt", "Exec=/bin/no\n");
  EXPECT_THAT(LoginItems({folder.at("user"), folder.at("system"), folder.at("none")}, "/none:/bin")
                  .programs(),
              ElementsAre("/opt/my tool/run", "/bin/sh", "nowhere"));
}

}  // namespace
}  // namespace corvana
