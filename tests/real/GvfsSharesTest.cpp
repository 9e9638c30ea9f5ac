#include "platform/qt/GvfsShares.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/linux/LinuxMachine.h"
#include "platform/linux/LinuxVolumes.h"
#include "tests/real/PrivateBus.h"

namespace corvana {
namespace {

/// Stands in for GVfs; hears lines "VISIBLE FOLDER NAME KEY=VALUE...", and "-" takes all away.
constexpr const char* kTracker = R"(import os, sys, dbus, dbus.bus, dbus.service, dbus.mainloop.glib
from gi.repository import GLib
INTERFACE = 'org.gtk.vfs.MountTracker'
MOUNT = '(sossssssbay(aya{sv})ay)'
def text(value): return dbus.ByteArray(value.encode() + b'\0')
class Tracker(dbus.service.Object):
    mounts = []
    @dbus.service.method(INTERFACE, out_signature='a' + MOUNT)
    def ListMounts(self): return self.mounts
    @dbus.service.signal(INTERFACE, signature=MOUNT)
    def Mounted(self, mount): pass
    @dbus.service.signal(INTERFACE, signature=MOUNT)
    def Unmounted(self, mount): pass
def heard(source, condition):
    for line in os.read(0, 4096).decode().splitlines():
        if line == '-':
            while tracker.mounts: tracker.Unmounted(tracker.mounts.pop())
            continue
        visible, folder, name, *items = line.split()
        told = {key: text(value) for key, value in (item.split('=') for item in items)}
        tracker.mounts.append((':1.9', '/org/gtk/vfs/mount/1', name, name, '', '', '', '', visible == '1', text(folder),
                               (text('/files'), dbus.Dictionary(told, signature='sv')), text('')))
        tracker.Mounted(tracker.mounts[-1])
    return True
dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.bus.BusConnection(sys.argv[1])
tracker = Tracker(bus, '/org/gtk/vfs/mounttracker')
name = dbus.service.BusName('org.gtk.vfs.Daemon', bus)
GLib.io_add_watch(0, GLib.IO_IN, heard)
GLib.MainLoop().run()
)";

struct GvfsSharesTest : testing::Test {
  std::unique_ptr<ChildProcess> tracker() {
    auto started = processes.start(
        {"/usr/bin/python3", folder.write("tracker.py", kTracker), bus.address()}, true, {});
    EXPECT_TRUE(started) << started.error().text;
    return std::move(started).value();
  }
  bool hears(const std::function<bool()>& condition) { return real.runUntil(condition); }

  RealLoop real;
  PrivateBus bus{real};
  TemporaryFolder folder;
  LinuxProcesses processes{real.loop, {{"test"}, 0, "/"}};
  StandardErrorLog log;
};

TEST_F(GvfsSharesTest, SharesComeAndGoAsGvfsSays) {
  bus.start();
  BusConnection connection(real.loop, log, [&] { return bus.address(); });
  LinuxVolumes volumes("nobody", folder.at("home"), real.loop, real.loop);
  std::vector<std::string> told;
  volumes.observe({[&](const Mount& mount) { told.push_back("+" + mount.source); },
                   [&](const Mount& mount) { told.push_back("-" + mount.source); }});
  std::size_t count = 99;
  const GvfsShares shares(connection, [&](std::vector<Mount> all) {
    count = all.size();
    volumes.setShares(std::move(all));
  });
  ASSERT_TRUE(hears([&] { return count == 0; })) << "where it does not run there are none";

  auto gvfs = tracker();
  const std::string photos = folder.makeFolder("gvfs/photos");
  const std::string web = folder.makeFolder("gvfs/web");
  gvfs->write(
      "0 /hidden Hidden type=sftp host=hidden\n1 /camera Camera type=gphoto2 host=x\n" +
      ("1 " + photos + " Photos_on_nas type=smb-share server=nas share=Photos user=anna\n") +
      ("1 " + web + " Cloud type=dav host=cloud.example ssl=true port=8443\n"));
  ASSERT_TRUE(hears([&] { return told.size() == 2; }));
  std::ranges::sort(told);
  EXPECT_EQ(told, (std::vector<std::string>{"+davs://cloud.example:8443/files",
                                            "+smb://anna@nas/Photos"}));
  const auto mounts = volumes.mounts();
  const Mount& share = mounts[mounts.size() - 2];
  EXPECT_EQ(share.target, photos);
  EXPECT_EQ(share.name, "Photos");
  EXPECT_TRUE(share.isServer && share.isForeign && share.isVolume);
  EXPECT_GT(volumes.information(share)->totalSize, 0U);

  told.clear();
  gvfs->write("-\n");
  ASSERT_TRUE(hears([&] { return told.size() == 2; }));
  gvfs->write("1 " + photos + " Photos type=smb-share server=nas share=Photos\n");
  ASSERT_TRUE(hears([&] { return told.size() == 3; }));
  gvfs->terminate();
  ASSERT_TRUE(hears([&] { return told.size() == 4; })) << "they go with it";
  EXPECT_EQ(told.back(), "-smb://nas/Photos");
  EXPECT_TRUE(hears([&] { return !gvfs->isRunning(); }));
}

}  // namespace
}  // namespace corvana
