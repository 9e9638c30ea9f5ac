#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "execute/plain/CopyPlan.h"
#include "platform/linux/LinuxVolumes.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/execute/ScratchFolder.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

ZAN_Value item(const std::string& path, std::uint64_t size = 0, const std::string& uuid = {}) {
  return ZAN_Value::dictionary({{"VolumeFolderPath", path},
                                {"VolumeFolderVolumeSize", size},
                                {"VolumeFolderName", "Disk"},
                                {"uuid", uuid}});
}

struct World {
  SimulatedPlatform machine;
  SimulatedVolumes& volumes = machine.volumes;
  const std::string place = volumes.folder + "/Disk/b";
  Result<VolumeGuard::Place> locate(const ZAN_Value& item, bool tolerant = false) {
    return VolumeGuard(volumes, tolerant).locate(FolderDescription(item));
  }
};

constexpr std::uint64_t kSystemSize = 500'000'000'000;

TEST(VolumeGuard, NeverTakesAnEmptyMountPointForItsVolume) {
  World world;
  world.machine.folder.makeFolder("Volumes/Disk");
  for (const bool tolerant : {false, true}) {
    EXPECT_EQ(world.locate(item(world.place, kSystemSize), tolerant).error().kind,
              ErrorKind::absent);
    // /mnt/Disk is not below the volumes folder, but the system disk is not the volume described.
    EXPECT_FALSE(world.locate(item("/mnt/Disk/Backup", 500), tolerant));
    EXPECT_TRUE(world.locate(item("/home/me/Backup", kSystemSize), tolerant));
  }
  const std::string target = world.volumes.mountAt(world.volumes.folder + "/Disk", {.size = 500});
  EXPECT_TRUE(world.locate(item(world.place, 500)));
  world.volumes.hang(target);
  EXPECT_EQ(world.locate(item(world.place, 500), true).error().kind, ErrorKind::unavailable);
}

TEST(VolumeGuard, TellsVolumesByUuidAndElseBySize) {
  World world;
  world.volumes.mountAt(world.volumes.folder + "/Disk",
                        {.name = "Other", .size = 500, .uuid = "AA-1"});
  EXPECT_TRUE(world.locate(item(world.place, 499, "aa-1")));
  EXPECT_TRUE(world.locate(item(world.place, 500)));
  const auto other = world.locate(item(world.place, 500, "bb-2"));
  ASSERT_FALSE(other);
  EXPECT_EQ(other.error().text,
            world.place + ": the volume \"Disk\" (bb-2) is not there, \"Other\" is in its place");
  EXPECT_TRUE(world.locate(item(world.place, 500, "bb-2"), true));
  EXPECT_FALSE(world.locate(item("relative", 500)));
}

TEST(VolumeGuard, FollowsAVolumeThatIsMountedElsewhere) {
  World world;
  world.volumes.mount({.size = 500, .uuid = "stranger"});
  world.volumes.mount({.size = 500, .uuid = "mine"});
  const auto place = world.locate(item(world.place, 500, "mine"));
  ASSERT_TRUE(place);
  EXPECT_EQ(place->path, world.volumes.folder + "/Disk1/b");
  EXPECT_EQ(world.locate(item(world.place + "//", 500, "mine"))->path, place->path);
  // It is there, but it does not answer: what lies in its place is not taken for it.
  world.volumes.hang(world.volumes.folder + "/Disk1");
  EXPECT_EQ(world.locate(item(world.place, 500, "mine")).error().kind, ErrorKind::absent);
  EXPECT_EQ(world.locate(item(world.volumes.folder + "/Disk1/b", 500, "mine")).error().kind,
            ErrorKind::unavailable);
}

class CopyPlanTest : public testing::Test {
 protected:
  ZAN_Value record(int mode, const std::vector<std::string>& sources,
                   const std::string& destination) const {
    ZAN_Value list = ZAN_Value::array();
    for (const auto& source : sources) list.append(item(scratch / source));
    return ZAN_Value::dictionary({{"OptionsPerformer", "corvana9"},
                                  {"Mode", mode},
                                  {"ItemsListOfSourcePath", list},
                                  {"ItemsDestination", item(scratch / destination)}});
  }
  Result<CopyPlan> plan(const ZAN_Value& settings) {
    return CopyPlan::fromSettings(settings, VolumeGuard(volumes, false));
  }
  std::string refusal(const ZAN_Value& settings) {
    const auto result = plan(settings);
    return result ? "accepted" : result.error().text;
  }

  ScratchFolder scratch;
  LinuxVolumes volumes{"nobody", "/"};
};

TEST_F(CopyPlanTest, LeavesRecordsOfOthersAlone) {
  scratch.write("source/file", "x");
  ZAN_Value settings = record(CopyPlan::kCopy, {"source"}, "copies");
  EXPECT_EQ(refusal(settings), "accepted");
  EXPECT_THAT(refusal(record(1, {"source"}, "copies")), HasSubstr("Mode"));
}

TEST_F(CopyPlanTest, SetsOnlyWhatAFileSystemKeeps) {
  const auto held = HeldFolder::open(scratch.path());
  ASSERT_TRUE(held);
  const auto has = [&](const Mount& mount, const std::string& word) {
    const auto words = FileSystemFacts::of(*held, mount).options();
    return std::ranges::find(words, word) != words.end();
  };
  Mount mount;
  for (const char* kind : {"vfat", "msdos", "exfat", "ntfs", "ntfs3", "fuseblk"}) {
    mount.fileSystem = kind;
    EXPECT_TRUE(has(mount, "--no-perms")) << kind;
    EXPECT_TRUE(has(mount, "--modify-window=2")) << kind;
    EXPECT_FALSE(has(mount, "--acls")) << kind;
  }
  for (const char* kind : {"ext4", "btrfs", "nfs", "cifs"}) {
    mount.fileSystem = kind;
    EXPECT_FALSE(has(mount, "--no-perms")) << kind;
    EXPECT_TRUE(has(mount, "--hard-links")) << kind;
  }
  mount.source = "smb://nas/x";
  mount.fileSystem = "smb";
  EXPECT_TRUE(has(mount, "--no-perms"));
  EXPECT_TRUE(has(mount, "--chmod=D700,F700"));
  EXPECT_TRUE(fs::is_empty(scratch.path())) << "trying leaves nothing";
}

TEST_F(CopyPlanTest, RefusesWhatWouldDestroySomething) {
  scratch.write("source/file", "x");
  scratch.write("other/source/file", "x");
  scratch.write("deep/deep/file", "x");
  scratch.write(".corvana9-versions/file", "x");
  ASSERT_EQ(::mkfifo((scratch / "pipe").c_str(), 0600), 0);
  fs::create_directory_symlink(scratch.path(), scratch / "link");
  const int mode = CopyPlan::kSynchronise;
  EXPECT_THAT(refusal(record(mode, {"source", "other/source"}, "copies")),
              HasSubstr("would lie in that of"));
  EXPECT_THAT(refusal(record(mode, {"source"}, "")), HasSubstr("where its copy would be"));
  EXPECT_THAT(refusal(record(mode, {"source"}, "link")), HasSubstr("where its copy would be"));
  EXPECT_THAT(refusal(record(mode, {"deep/deep"}, "")), HasSubstr("where its copy would be"));
  EXPECT_THAT(refusal(record(mode, {"source"}, "source")), HasSubstr("its own destination"));
  EXPECT_THAT(refusal(record(mode, {".corvana9-versions"}, "copies")), HasSubstr("older versions"));
  EXPECT_THAT(refusal(record(mode, {"pipe"}, "copies")), HasSubstr("neither a folder nor a file"));
  EXPECT_THAT(refusal(record(mode, {"absent"}, "copies")), HasSubstr("No such file"));
}

TEST_F(CopyPlanTest, CreatesTheDestinationButNotItsFolder) {
  scratch.write("source/file", "x");
  const auto near = plan(record(CopyPlan::kCopy, {"source"}, "copies"));
  ASSERT_TRUE(near);
  EXPECT_FALSE(fs::exists(scratch / "copies"));
  EXPECT_TRUE(near->openDestination());
  EXPECT_TRUE(fs::is_directory(scratch / "copies"));
  EXPECT_EQ(plan(record(CopyPlan::kCopy, {"source"}, "far/copies")).error().kind,
            ErrorKind::absent);
}

TEST_F(CopyPlanTest, LooksForDeletionsOnlyWhenSynchronisingAndKeepsOutOfItself) {
  scratch.write("so[ur]ce/back*up/old", "x");
  for (const int mode : {CopyPlan::kCopy, CopyPlan::kSynchronise}) {
    const auto made = plan(record(mode, {"so[ur]ce"}, "so[ur]ce/back*up"));
    ASSERT_TRUE(made) << made.error().text;
    const auto copy = made->openDestination();
    ASSERT_TRUE(copy);
    const std::vector<std::string> skipped{"a\\b", "c*\\d"};
    const CopyPlan::Task task{made->sources().front(), copy->heldPath(), nullptr, skipped, {}};
    const auto looking = made->arguments("rsync", CopyPlan::Pass::look, task);
    const auto copying = made->arguments("rsync", CopyPlan::Pass::copy, task);
    EXPECT_THAT(looking, Contains("--dry-run"));
    if (mode == CopyPlan::kSynchronise) {
      EXPECT_THAT(looking, Contains("--delete-after"));
    } else {
      EXPECT_THAT(looking, Not(Contains(HasSubstr("--delete"))));
    }
    EXPECT_THAT(copying, Not(Contains(HasSubstr("--delete"))));
    EXPECT_THAT(copying, Not(Contains("--force")));
    EXPECT_THAT(copying, Contains("--exclude=/back\\*up"));
    EXPECT_THAT(copying, Contains("--exclude=/a\\b"));
    EXPECT_THAT(copying, Contains("--exclude=/c\\*\\\\d"));
    EXPECT_EQ(copying.back(), copy->heldPath() + "/");
  }
}

}  // namespace
}  // namespace corvana
