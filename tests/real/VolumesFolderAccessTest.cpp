#include <gtest/gtest.h>
#include <sys/mount.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "platform/linux/VolumesFolderAccess.h"
#include "platform/simulated/TemporaryFolder.h"
#include "tests/real/MountNamespace.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;

void write(const fs::path& path) {
  fs::create_directories(path.parent_path());
  std::ofstream(path) << "kept";
}

bool leavesMountsAndLinksAlone(const fs::path& root) {
  const fs::path folder = root / "Volumes";
  const fs::path outside = root / "Outside";
  write(outside / "file");
  write(folder / "Linked/inner/file");
  fs::create_directory_symlink(outside, folder / "Linked/inner/link");
  write(folder / "Bound/file");
  fs::create_directory(folder / "Bound/here");
  write(folder / "Disk/file");
  fs::create_directory_symlink(outside, folder / "LinkItself");
  // The same device as the folder itself: only the mount point tells them apart.
  bool good = expect(
      mount(outside.c_str(), (folder / "Bound/here").c_str(), nullptr, MS_BIND, nullptr) == 0,
      "bound");
  good &= expect(mount("none", (folder / "Disk").c_str(), "tmpfs", 0, nullptr) == 0, "mounted");
  write(folder / "Disk/onDisk");

  const VolumesFolderAccess access(folder, root / "home");
  std::uint64_t seen = 0;
  good &= expect(!access.remove("Linked", [&](std::uint64_t gone) { return (seen = gone) < 1; }) &&
                     seen == 1 && fs::exists(folder / "Linked"),
                 "as far as it is wanted");
  good &= expect(static_cast<bool>(access.remove("Linked")), "a plain folder goes");
  good &= expect(static_cast<bool>(access.remove("LinkItself")), "a link goes");
  good &= expect(!access.remove("Bound"), "with a bind mount in it it stays");
  good &= expect(!access.remove("Disk"), "a mount point stays");
  good &= expect(!access.remove(".."), "only names");
  good &= expect(!access.remove("Disk/onDisk"), "only names");
  good &= expect(!fs::exists(folder / "Linked") && !fs::is_symlink(folder / "LinkItself"), "gone");
  good &= expect(fs::exists(outside / "file"), "behind a link");
  good &= expect(fs::exists(folder / "Bound/here/file"), "behind a bind mount");
  good &= expect(fs::exists(folder / "Disk/onDisk"), "on the disk");

  good &= expect(!VolumesFolderAccess("/", root).check(), "the root is no volumes folder");
  fs::create_directory(root / "home");
  good &= expect(!VolumesFolderAccess(root, root / "home").check(),
                 "a folder with a home in it is none");
  good &= expect(!VolumesFolderAccess(folder / "Disk", root).check(), "a mount point is none");
  for (const char* place : {"/usr/share", "/etc", "/var/lib", "/run/lock", "/dev/shm", "/home"})
    good &= expect(!VolumesFolderAccess(place, root / "home").check(), place);
  write(root / "home/.config/user-dirs.dirs");
  std::ofstream(root / "home/.config/user-dirs.dirs") << "XDG_MUSIC_DIR=\"$HOME/Musik\"\n";
  for (const char* own : {".config", "Documents/old", "Musik", "Library/Application Support"}) {
    fs::create_directories(root / "home" / own);
    good &= expect(!VolumesFolderAccess(root / "home" / own, root / "home").check(), own);
  }
  fs::create_directories(root / "home/Volumes");
  good &=
      expect(static_cast<bool>(VolumesFolderAccess(root / "home/Volumes", root / "home").check()),
             "a folder for it in a home");
  fs::create_directory_symlink(folder, root / "Link");
  good &=
      expect(!VolumesFolderAccess(root / "Link", root / "home").remove("Bound"), "a link is none");
  return good;
}

/// A disk is mounted over a part of the stray folder again and again while that is deleted.
bool survivesARace(const fs::path& root) {
  const fs::path folder = root / "Volumes";
  const fs::path place = folder / "Stray/a/b";
  bool good = true;
  int mounted = 0;
  for (int round = 0; round < 150 && good; ++round) {
    for (int i = 0; i < 30; ++i) write(folder / "Stray/a" / ("f" + std::to_string(i)));
    fs::create_directories(place);
    std::atomic<bool> begins{false};
    std::thread plugger([&] {
      while (!begins) {
      }
      for (std::atomic<int> wait{0}; wait < round * 40; ++wait) {
      }
      if (mount("none", place.c_str(), "tmpfs", 0, nullptr) == 0) ++mounted;
    });
    begins = true;
    // Written as soon as it is there, deleted by nobody.
    const VolumesFolderAccess access(folder, root / "home");
    const Outcome first = access.remove("Stray");
    plugger.join();
    if (fs::exists(place)) {
      write(place / "onDisk");
      const Outcome second = access.remove("Stray");
      good &= expect(!second && fs::exists(place / "onDisk"), "the file on the disk");
      umount2(place.c_str(), MNT_DETACH);
    } else {
      good &= expect(static_cast<bool>(first), "nothing was mounted, so it went");
    }
  }
  // Otherwise nothing was raced.
  return good && expect(mounted > 0, "a disk won the race now and then");
}

TEST(VolumesFolderAccess, DeletesNothingBehindAMountOrALink) {
  const TemporaryFolder folder;
  inOwnMountNamespace([&] { return leavesMountsAndLinksAlone(folder.path()); });
}

TEST(VolumesFolderAccess, ADiskThatComesWhileItDeletesKeepsItsFiles) {
  const TemporaryFolder folder;
  inOwnMountNamespace([&] { return survivesARace(folder.path()); });
}

}  // namespace
}  // namespace corvana
