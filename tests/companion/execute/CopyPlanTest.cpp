#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "companion/execute/CopyPlan.h"
#include "tests/companion/execute/ScratchFolder.h"

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

/// A world of one system disk (device 1) and what the test mounts.
struct World {
  struct Mounted {
    std::string mountPoint;
    std::uint64_t device, size;
    std::string uuid;
  };
  std::vector<Mounted> mounted{{"/", 1, 1000, "root-uuid"}};

  VolumeFacts facts(const Mounted& mount) const {
    VolumeFacts facts;
    facts.mountPoint = mount.mountPoint;
    facts.deviceNumber = mount.device;
    facts.totalSize = mount.size;
    facts.uuid = mount.uuid;
    facts.name = "Other";
    return facts;
  }
  VolumeGuard guard(bool tolerant = false) const {
    VolumeGuard::Lookup lookup;
    lookup.ofPath = [this](const std::string& path) -> std::optional<VolumeFacts> {
      const Mounted* found = nullptr;
      for (const auto& mount : mounted) {
        const bool holds = mount.mountPoint == "/" || path == mount.mountPoint ||
                           path.starts_with(mount.mountPoint + "/");
        if (holds && (!found || mount.mountPoint.size() > found->mountPoint.size())) found = &mount;
      }
      return facts(*found);
    };
    lookup.withUuid = [this](const std::string& uuid) -> std::optional<VolumeFacts> {
      for (const auto& mount : mounted) {
        if (!uuid.empty() && mount.uuid == uuid) return facts(mount);
      }
      return std::nullopt;
    };
    return VolumeGuard("/media/me", tolerant, lookup);
  }
};

TEST(VolumeGuard, NeverTakesAnEmptyMountPointForItsVolume) {
  World world;
  for (const bool tolerant : {false, true}) {
    EXPECT_EQ(world.guard(tolerant).locate(item("/media/me/Disk/Backup", 1000)).error().kind,
              ErrorKind::absent);
    // /mnt/Disk is not below the volumes folder, but the system disk is not the volume described.
    EXPECT_FALSE(world.guard(tolerant).locate(item("/mnt/Disk/Backup", 500)));
    EXPECT_TRUE(world.guard(tolerant).locate(item("/home/me/Backup", 1000)));
  }
  world.mounted.push_back({"/media/me/Disk", 2, 500, ""});
  EXPECT_TRUE(world.guard().locate(item("/media/me/Disk/Backup", 500)));
}

TEST(VolumeGuard, TellsVolumesByUuidAndElseBySize) {
  World world;
  world.mounted.push_back({"/media/me/Disk", 2, 500, "AA-1"});
  EXPECT_TRUE(world.guard().locate(item("/media/me/Disk/b", 499, "aa-1")));
  EXPECT_TRUE(world.guard().locate(item("/media/me/Disk/b", 500)));
  const auto other = world.guard().locate(item("/media/me/Disk/b", 500, "bb-2"));
  ASSERT_FALSE(other);
  EXPECT_EQ(other.error().text,
            "/media/me/Disk/b: the volume \"Disk\" (bb-2) is not there, \"Other\" is in its place");
  EXPECT_TRUE(world.guard(true).locate(item("/media/me/Disk/b", 500, "bb-2")));
  EXPECT_FALSE(world.guard().locate(item("relative", 500)));
}

TEST(VolumeGuard, FollowsAVolumeThatIsMountedElsewhere) {
  World world;
  world.mounted.push_back({"/media/me/Disk", 2, 500, "stranger"});
  world.mounted.push_back({"/media/me/Disk1", 3, 500, "mine"});
  const auto place = world.guard().locate(item("/media/me/Disk/a/b", 500, "mine"));
  ASSERT_TRUE(place);
  EXPECT_EQ(place->path, "/media/me/Disk1/a/b");
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
  Result<CopyPlan> plan(const ZAN_Value& settings) const {
    return CopyPlan::fromSettings(settings, VolumeGuard("/media/nobody", false));
  }
  std::string refusal(const ZAN_Value& settings) const {
    const auto result = plan(settings);
    return result ? "accepted" : result.error().text;
  }

  ScratchFolder scratch;
};

TEST_F(CopyPlanTest, LeavesRecordsOfOthersAlone) {
  scratch.write("source/file", "x");
  ZAN_Value settings = record(CopyPlan::kCopy, {"source"}, "copies");
  EXPECT_EQ(refusal(settings), "accepted");
  settings.setValue("OptionsPerformer", "another");
  EXPECT_THAT(refusal(settings), HasSubstr("OptionsPerformer"));
  settings.removeKey("OptionsPerformer");
  EXPECT_THAT(refusal(settings), HasSubstr("OptionsPerformer"));
  EXPECT_THAT(refusal(record(1, {"source"}, "copies")), HasSubstr("Mode"));
}

TEST_F(CopyPlanTest, RefusesWhatWouldDestroySomething) {
  scratch.write("source/file", "x");
  scratch.write("other/source/file", "x");
  scratch.write("deep/deep/file", "x");
  fs::create_directory(scratch / "empty");
  scratch.write("copies/empty/kept", "x");
  fs::create_directory_symlink(scratch.path(), scratch / "link");
  const int mode = CopyPlan::kSynchronise;
  EXPECT_THAT(refusal(record(mode, {"source", "other/source"}, "copies")),
              HasSubstr("would lie in that of"));
  EXPECT_THAT(refusal(record(mode, {"source"}, "")), HasSubstr("where its copy would be"));
  EXPECT_THAT(refusal(record(mode, {"source"}, "link")), HasSubstr("where its copy would be"));
  EXPECT_THAT(refusal(record(mode, {"deep/deep"}, "")), HasSubstr("where its copy would be"));
  EXPECT_THAT(refusal(record(mode, {"source"}, "source")), HasSubstr("its own destination"));
  EXPECT_THAT(refusal(record(mode, {"empty"}, "copies")), HasSubstr("nothing was deleted"));
  EXPECT_EQ(refusal(record(CopyPlan::kCopy, {"empty"}, "copies")), "accepted");
  EXPECT_THAT(refusal(record(mode, {"absent"}, "copies")), HasSubstr("No such file"));
}

TEST_F(CopyPlanTest, CreatesTheDestinationButNotItsFolder) {
  scratch.write("source/file", "x");
  const auto near = plan(record(CopyPlan::kCopy, {"source"}, "copies"));
  ASSERT_TRUE(near);
  EXPECT_FALSE(fs::exists(scratch / "copies"));
  EXPECT_TRUE(near->createDestination());
  EXPECT_TRUE(fs::is_directory(scratch / "copies"));
  EXPECT_EQ(plan(record(CopyPlan::kCopy, {"source"}, "far/copies")).error().kind,
            ErrorKind::absent);
}

TEST_F(CopyPlanTest, DeletesOnlyWhenSynchronisingAndKeepsOutOfItself) {
  scratch.write("so[ur]ce/back*up/old", "x");
  const auto copy = plan(record(CopyPlan::kCopy, {"so[ur]ce"}, "so[ur]ce/back*up"));
  ASSERT_TRUE(copy) << copy.error().text;
  EXPECT_THAT(copy->arguments("rsync", {}), Not(Contains("--delete")));
  const auto synchronise = plan(record(CopyPlan::kSynchronise, {"so[ur]ce"}, "so[ur]ce/back*up"));
  const auto words = synchronise->arguments("rsync", {"so[ur]ce/a\\b"});
  EXPECT_THAT(words, Contains("--delete"));
  EXPECT_THAT(words, Contains("--exclude=/so\\[ur]ce/back\\*up"));
  EXPECT_THAT(words, Contains("--exclude=/so\\[ur]ce/a\\\\b"));
  EXPECT_EQ(words.back(), scratch / "so[ur]ce/back*up/");
  EXPECT_EQ(synchronise->sourcePathOf("so[ur]ce/a/b"), scratch / "so[ur]ce/a/b");
}

}  // namespace
}  // namespace corvana
