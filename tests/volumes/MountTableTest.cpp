#include "platform/linux/MountTable.h"

#include <gmock/gmock.h>

namespace corvana {
namespace {

using testing::ElementsAre;

TEST(MountTable, TellsVolumesFromThePartsOfTheSystem) {
  const auto mounts = MountTable::parse(
      "20 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
      "21 20 0:5 / /dev rw - devtmpfs udev rw\n"
      "22 20 8:2 / /boot rw shared:2 master:3 - ext4 /dev/sda2 rw\n"
      "23 20 7:1 / /snap/core/1 ro - squashfs /dev/loop1 ro\n"
      "24 20 8:3 / /home rw - ext4 /dev/sda3 rw\n"
      "25 20 8:17 / /media/ann/My\\040Disk\\134 rw - ext4 /dev/sdb1 rw\n"
      "26 20 8:1 /srv /etc/hosts rw - ext4 /dev/sda1 rw\n"
      "27 20 0:40 / /mnt/share rw - cifs //server/share rw\n"
      "28 20 0:41 / /mnt/ssh rw - fuse.sshfs ann@host:/ rw\n"
      "29 20 0:42 / /media/ann/Stick rw - tmpfs none ro\n"
      "30 20 8:33 / /mnt/data rw - ext4 /dev/sdc1 rw\n"
      "31 30 8:49 / /mnt/data rw - ext4 /dev/sdd1 rw\n"
      "nonsense\n32 x\n",
      {"/media/ann", "/home/ann"});
  std::vector<std::string> volumes;
  for (const auto& mount : mounts) {
    if (mount.isVolume)
      volumes.push_back(mount.target + (mount.isServer ? " server" : "") +
                        (mount.isForeign ? " foreign" : "") + (mount.writable ? "" : " ro") + " " +
                        mount.bsdName());
  }
  EXPECT_THAT(volumes, ElementsAre("/ sda1", "/home sda3", "/media/ann/My Disk\\ foreign sdb1",
                                   "/mnt/share server foreign ", "/mnt/ssh server foreign ",
                                   "/media/ann/Stick foreign ro ", "/mnt/data foreign sdd1"));
  EXPECT_EQ(mountAt(mounts, "/mnt/data/x")->id, 31U);
  EXPECT_EQ(mountAt(mounts, "/media/ann/Stick2")->target, "/");
}

}  // namespace
}  // namespace corvana
