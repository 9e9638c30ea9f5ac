#include <gmock/gmock.h>

#include <filesystem>

#include "platform/simulated/SimulatedPlatform.h"
#include "volumes/AliasFile.h"
#include "volumes/StrayRemoval.h"
#include "volumes/VolumeIdentity.h"
#include "volumes/ZAN_MountedVolumes.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct VolumeListsTest : testing::Test {
  SimulatedPlatform machine;
  SimulatedVolumes& volumes = machine.volumes;
};

TEST_F(VolumeListsTest, AliasesLeadToPathsAndAddresses) {
  const auto entry = [](const std::string& lines) { return "[Desktop Entry]\n" + lines; };
  struct Row {
    std::string contents;
    std::optional<std::string> target;
    bool isAlias;
  };
  const std::vector<Row> rows{
      {entry("Type=Link\nURL=smb://s/x"), "smb://s/x", true},
      {entry(" Type = Link \n\nURL = file:///media/a%20b%2\n"), "/media/a b%2", true},
      {entry("URL=file://host/media/a\nType=Link\n"), "/media/a", true},
      {entry("Type=Link\nURL=file://\n"), {}, true},
      {entry("Type=Application\nURL=/media/a\n"), {}, false},
      {"[Other]\nType=Link\nURL=/media/a\n", {}, false},
      {entry("Type=Link\nURL=smb://s/x\n[Other]\nURL=smb://s/y\n"), "smb://s/x", true},
      {"/dev/sdb1\n", "/dev/sdb1", false},
      {"sftp://host/x", "sftp://host/x", false},
      {"nothing of the kind", {}, false},
      {"", {}, false},
  };
  for (const Row& row : rows) {
    const std::string path = machine.folder.write("a.desktop", row.contents);
    EXPECT_EQ(AliasFile::target(path), row.target) << row.contents;
    EXPECT_EQ(AliasFile::isAlias(path), row.isAlias) << row.contents;
    EXPECT_FALSE(AliasFile::isAlias(machine.folder.write("plain", row.contents)));
  }
  std::filesystem::create_symlink("../Disk/x", machine.folder.at("link"));
  EXPECT_EQ(AliasFile::target(machine.folder.at("link")),
            std::filesystem::path(machine.folder.path()).parent_path() / "Disk/x");

  const auto mounted = [&](const std::string& contents) {
    return AliasFile::mountFromAliasFile(machine.processes,
                                         machine.folder.write("alias", contents));
  };
  EXPECT_EQ(mounted(machine.folder.path()), 0) << "it is there, or mounts itself when looked at";
  EXPECT_EQ(mounted("/not/there"), -1);
  EXPECT_EQ(mounted("nothing of the kind"), -1);
  EXPECT_EQ(mounted("smb://s/x"), -1) << "no tool";
  machine.processes.tool("/usr/bin/gio", [](const auto&) { return std::string(); });
  EXPECT_EQ(mounted("smb://s/x"), 0);
  EXPECT_THAT(machine.processes.toolRuns.back(), ElementsAre("/usr/bin/gio", "mount", "smb://s/x"));
  EXPECT_EQ(AliasFile::mountFromAliasFile(machine.processes, machine.folder.at("gone")), -43);
  machine.processes.holdExpendables();
  EXPECT_EQ(mounted(machine.folder.path()), -1);
}

TEST_F(VolumeListsTest, MountedVolumesAreListedOnceTheirServersLast) {
  ZAN_MountedVolumes mounted(volumes);
  volumes.mount({.name = "Share", .size = 5, .fileSystem = "cifs", .isServer = true});
  const std::string disk = volumes.mount(
      {.name = "Disk", .size = 9, .free = 3, .uuid = "mine", .creationDate = 7, .readOnly = true});
  volumes.mountAt("/mnt", {.name = "Disk", .bsdName = "sdb1"});
  volumes.mountAt("/srv/x", {.name = "Vault", .size = 4, .bsdName = "sdq1"});
  const auto names = [&] {
    std::vector<std::string> names;
    for (const ZAN_Value& infos : mounted.getAllMountedVolumes())
      names.push_back(infos.string("volName"));
    return names;
  };
  EXPECT_EQ(mounted.getAllMountedVolumesCount(), 4U);
  EXPECT_THAT(names(), ElementsAre("System", "Disk", "Vault", "Share"));
  const ZAN_Value infos = mounted.getInfosForVolumeAtPath(disk + "/x");
  EXPECT_EQ(infos.string("volPath"), disk);
  EXPECT_EQ(infos.string("bsdName"), "sdb1");
  EXPECT_EQ(infos.string("uuid"), "mine");
  EXPECT_EQ(infos.string("mediaBSDName"), "sdb");
  EXPECT_EQ(infos.string("volumeType"), "EXT4");
  EXPECT_EQ(infos.string("diskPartitionMap"), "GUID_partition_scheme");
  EXPECT_FALSE(infos["writable"].boolValue());
  EXPECT_FALSE(infos["internal"].boolValue());
  EXPECT_EQ(infos.integer("volSize"), 9);
  EXPECT_EQ(infos.integer("volFreeSize"), 3);
  EXPECT_EQ(infos.integer("volDate"), 7);
  EXPECT_TRUE(mounted.getInfosForVolumeAtIndex(3)["isServer"].boolValue());
  EXPECT_TRUE(mounted.getInfosForVolumeAtIndex(-1).isNull());
  EXPECT_TRUE(mounted.getInfosForVolumeAtIndex(4).isNull());

  // Read once, until somebody asks for it anew.
  volumes.unmount("/srv/x");
  EXPECT_EQ(mounted.getAllMountedVolumesCount(), 4U);
  mounted.updateListVolumes();
  EXPECT_THAT(names(), ElementsAre("System", "Disk", "Share"));
  EXPECT_EQ(mounted.getInfosForVolumeAtPath("/srv/x/y").string("volName"), "System");
}

TEST_F(VolumeListsTest, StrayFoldersGoOneRoundAfterTheOther) {
  const VolumesFolder folder(volumes);
  EXPECT_TRUE(folder.checkVolumesFolder());
  volumes.mount({.name = "Mounted"});
  for (const char* name : {"Preboot", ".hidden", "com.apple.TimeMachine.x", "System", "Empty"})
    machine.folder.makeFolder(std::string("Volumes/") + name);
  EXPECT_THAT(*folder.getFaultyFoldersInVolumes(), ElementsAre(volumes.folder + "/Empty"));
  EXPECT_FALSE(folder.checkVolumesFolder());
  for (const char* name : {"Full", "Sticky", "Later"})
    machine.folder.write(std::string("Volumes/") + name + "/file", "x");
  EXPECT_EQ(VolumesFolder::namesOf(*folder.getFaultyFoldersInVolumes()),
            "Empty, Full, Later, Sticky");

  Platform platform = machine.platform();
  StrayContents contents(platform);
  int counted = 0;
  contents.onCounted = [&] { ++counted; };
  contents.count({volumes.folder + "/Full"});
  contents.count({volumes.folder + "/Sticky", volumes.folder + "/Empty"});
  EXPECT_FALSE(contents.strays().at(1).contents);
  machine.runLoop.runFor(1);
  EXPECT_EQ(counted, 2) << "the first look was overtaken";
  EXPECT_EQ((*contents.strays().at(0).contents)->files, 1U);
  EXPECT_EQ((*contents.strays().at(1).contents)->files, 0U);

  std::optional<StrayRemoval> removal(std::in_place, platform, folder);
  std::vector<std::vector<std::string>> rounds;
  const auto done = [&](const StrayRemoval::Taken& taken) {
    rounds.push_back({VolumesFolder::namesOf(taken.deleted), VolumesFolder::namesOf(taken.aside)});
  };
  const auto at = [&](const std::string& name) { return volumes.folder + "/" + name; };
  volumes.sticky = {"Sticky"};
  const std::size_t before = machine.systemLog.lines.size();
  removal->run(StrayRemoval::Way::aside, 3, done,
               std::vector{at("Empty"), at("Full"), at("Sticky")});
  removal->run(StrayRemoval::Way::deleted, 0, done, std::vector{at("Later"), at("Sticky")});
  machine.runLoop.runFor(2.9);
  EXPECT_TRUE(removal->isRunning());
  EXPECT_THAT(rounds, IsEmpty()) << "it rests";
  machine.runLoop.runFor(1);
  EXPECT_FALSE(removal->isRunning());
  EXPECT_THAT(rounds, ElementsAre(ElementsAre("Empty", "Full"), ElementsAre("Later", "")));
  EXPECT_EQ(machine.systemLog.lines.size(), before + 1) << "the same reason once";

  // Stopped, it deletes no more and does not rest.
  volumes.sticky.clear();
  machine.folder.write("Volumes/Tail/file", "x");
  volumes.beforeRemoving = [&] { removal->stop(); };
  machine.folder.write("Volumes/Sticky/second", "x");
  removal->run(StrayRemoval::Way::deleted, 60, done);
  machine.runLoop.runFor(1);
  EXPECT_FALSE(removal->isRunning());
  EXPECT_THAT(rounds.back(), ElementsAre("", ""));
  EXPECT_TRUE(std::filesystem::exists(at("Tail/file")));
  EXPECT_EQ(removal->countOfGone(), 0U);
  // Nobody hears of what ends after it.
  volumes.beforeRemoving = nullptr;
  removal->run(StrayRemoval::Way::aside, 1, done);
  const std::size_t heard = rounds.size();
  removal.reset();
  machine.runLoop.runFor(3);
  EXPECT_EQ(rounds.size(), heard);
}

}  // namespace
}  // namespace corvana
