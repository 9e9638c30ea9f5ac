#include <gtest/gtest.h>
#include <sys/mount.h>

#include <filesystem>
#include <fstream>
#include <string>

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
  fs::create_directory(folder / "Empty");
  for (int i = 0; i < 2; ++i) {
    write(folder / "Full/inner/file");
    fs::create_directory_symlink(outside, folder / "Full/link");
    const auto contents = access.measure("Full");
    good &= expect(contents && contents->files == 2, "a link counts as itself");
    const auto moved = access.moveAside("Full");
    good &=
        expect(moved && *moved == folder / (i == 0 ? ".Moved aside/Full" : ".Moved aside/Full 2"),
               "moved under a free name");
    good &= expect(moved && fs::exists(fs::path(*moved) / "inner/file"), "with all that is in it");
  }
  const auto emptied = access.moveAside("Empty");
  good &= expect(emptied && emptied->empty() && !fs::exists(folder / "Empty"), "an empty one goes");
  good &= expect(!access.moveAside("Bound"), "what holds a mount is not moved");
  good &= expect(!access.moveAside("Disk"), "nor is a mount point");
  const auto bound = access.measure("Bound");
  good &= expect(bound && bound->files == 1, "what is mounted in it is not counted");
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

TEST(VolumesFolderAccess, DeletesNothingBehindAMountOrALink) {
  const TemporaryFolder folder;
  inOwnMountNamespace([&] { return leavesMountsAndLinksAlone(folder.path()); });
}

}  // namespace
}  // namespace corvana
