#include "volumes/VolumeIdentity.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/simulated/SimulatedPlatform.h"

namespace corvana {
namespace {

struct VolumeIdentityTest : testing::Test {
  ZAN_Value item(const std::string& path, std::uint64_t size, const std::string& uuid = {}) {
    ZAN_Value value = ZAN_Value::dictionary({{"VolumeFolderPath", path},
                                             {"VolumeFolderVolumeSize", size},
                                             {"VolumeFolderVolumeDate", 1},
                                             {"VolumeFolderName", "Disk"}});
    if (!uuid.empty()) value.setValue("uuid", uuid);
    return value;
  }
  bool isMounted(const ZAN_Value& value, bool tolerant = false) {
    return identity.checkIfVolumeMounted(FolderDescription(value), tolerant);
  }

  SimulatedPlatform machine;
  SimulatedVolumes& volumes = machine.volumes;
  VolumeIdentity identity{volumes};
  const std::string place = volumes.folder + "/Disk/Backup";
};

TEST_F(VolumeIdentityTest, SizeDecidesThenTheUuidAndNeverTheDate) {
  EXPECT_FALSE(isMounted({}));
  EXPECT_FALSE(isMounted("text"));
  EXPECT_FALSE(isMounted(item(place, 7, "mine"), true)) << "never the disk below the folder";
  const std::string target = volumes.mount({.size = 7, .uuid = "mine", .creationDate = 5});
  EXPECT_TRUE(isMounted(item(place, 7)));
  EXPECT_TRUE(isMounted(item(place, 7, "another")));
  EXPECT_TRUE(isMounted(item(place, 8, "mine")));
  EXPECT_FALSE(isMounted(item(place, 8)));
  EXPECT_FALSE(isMounted(item(place, 8, "another")));
  EXPECT_TRUE(isMounted(item(place, 8, "another"), true));
  volumes.hang(target);
  EXPECT_FALSE(isMounted(item(place, 7, "mine"), true));
}

TEST_F(VolumeIdentityTest, WithoutAReferenceAFittingVolumeOrAFolderWillDo) {
  volumes.mountAt(volumes.folder + "/Disk 1", {.name = "Disk", .size = 7, .uuid = "mine"});
  EXPECT_TRUE(isMounted(item(place, 8, "mine")));
  EXPECT_TRUE(isMounted(item(place, 7)));
  EXPECT_FALSE(isMounted(item(place, 8)));
  machine.folder.makeFolder("Volumes/Disk/Backup");
  EXPECT_TRUE(isMounted(item(place, 8))) << "below the volumes folder and there";
  EXPECT_FALSE(identity.locate(FolderDescription(item(place, 8)), true))
      << "but nothing is written there";
}

TEST_F(VolumeIdentityTest, AllSourcesCountAndWithoutThemEverythingIsThere) {
  const std::string here = machine.folder.path();
  const ZAN_Value system = item(here, 500'000'000'000);
  const ZAN_Value gone = item(place, 7);
  const auto all = [&](const ZAN_Value& sources, const ZAN_Value& destination) {
    return identity.checkIfAllVolumesMounted(ZAN_Value::dictionary(
        {{"ItemsListOfSourcePath", sources}, {"ItemsDestination", destination}}));
  };
  EXPECT_TRUE(all({}, gone));
  EXPECT_FALSE(all(ZAN_Value::array(), gone)) << "an empty list is a list";
  EXPECT_FALSE(all(ZAN_Value::array({system, "damaged"}), system));
  EXPECT_TRUE(all(ZAN_Value::array({system}), {}));
  EXPECT_FALSE(all(ZAN_Value::array({system}), gone));
  EXPECT_FALSE(all(ZAN_Value::array({system, gone}), system));
}

TEST_F(VolumeIdentityTest, WithoutAUuidWhatWasMountedDecides) {
  const auto vault = [&](std::string_view source) {
    return FolderDescription(item(place, 7)).setMounted("fuse.gocryptfs", source, "/");
  };
  volumes.mount(
      {.size = 7, .uuid = "the disk below", .fileSystem = "fuse.gocryptfs", .isServer = true});
  const auto same = vault("smb://server/Disk");
  const auto other = vault("smb://server/Other");
  EXPECT_TRUE(identity.locate(same, false));
  EXPECT_TRUE(identity.checkIfVolumeMounted(same, false));
  EXPECT_FALSE(identity.locate(other, false));
  EXPECT_FALSE(identity.checkIfVolumeMounted(other, false)) << "of the same size";
  volumes.unmount(volumes.folder + "/Disk");
  volumes.mount({.size = 7, .fileSystem = "ext4"});
  EXPECT_FALSE(identity.locate(same, false)) << "the disk below it";
  // A device may have got another name.
  volumes.mountAt("/mnt/x", {.size = 9, .bsdName = "sdx1"});
  EXPECT_TRUE(identity.locate(
      FolderDescription(item("/mnt/x/a", 9)).setMounted("ext4", "/dev/sdq1", "/"), false));
}

TEST_F(VolumeIdentityTest, KnowsADiskUnderANewNameAndNoTwinInItsPlace) {
  const FolderDescription mine(item(place, 7, "mine"));
  const std::string twin = volumes.mountAt(volumes.folder + "/Disk", {.size = 9, .uuid = "twin"});
  const std::string renamed =
      volumes.mountAt(volumes.folder + "/Attic", {.name = "Attic", .size = 8, .uuid = "mine"});
  const auto at = [&](const std::string& path) { return *identity.reference().ofPath(path); };
  EXPECT_TRUE(identity.isOn(mine, at(renamed)));
  EXPECT_FALSE(identity.isOn(mine, at(twin)));
  EXPECT_TRUE(identity.isAnother(mine, at(twin)));
  EXPECT_FALSE(identity.isAnother(FolderDescription(item(place, 7)), at(twin))) << "nobody knows";
  EXPECT_TRUE(isMounted(mine.toValue())) << "elsewhere, and another one in its place";
  const auto found = identity.locate(mine, false);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->path, renamed + "/Backup");
  EXPECT_TRUE(identity.locate(FolderDescription(item(place, 9)), false));
  EXPECT_FALSE(identity.locate(FolderDescription(item(place, 8)), false)) << "of another size";
  // Disks that take turns: one of them is enough.
  ZAN_Value record = ZAN_Value::dictionary(
      {{"ItemsListOfSourcePath", ZAN_Value::array({item(renamed + "/a", 8, "mine")})},
       {"ItemsDestination", item(place, 5, "first")}});
  EXPECT_FALSE(identity.checkIfAllVolumesMounted(record));
  record.setValue(VolumeIdentity::kRotation,
                  ZAN_Value::array({item(place, 5, "second"), item(place, 9, "twin")}));
  EXPECT_TRUE(identity.checkIfAllVolumesMounted(record));
  EXPECT_EQ(VolumeIdentity::destinationsOf(record).size(), 3u);
  volumes.unmount(renamed);
  EXPECT_FALSE(identity.locate(mine, false)) << "nobody writes to its twin";
}

TEST_F(VolumeIdentityTest, FollowsLinksButNotOntoVolumes) {
  volumes.mount({.size = 7});
  std::filesystem::create_symlink(volumes.folder + "/Disk", machine.folder.at("link"));
  EXPECT_TRUE(isMounted(item(machine.folder.at("link/Backup"), 7)));
  // Two of one name: the second one is not called as the first.
  const std::string second = volumes.mount({.size = 9});
  EXPECT_EQ(second, volumes.folder + "/Disk1");
  EXPECT_EQ(identity.reference().localizedPath(second), second);
  volumes.unmount(volumes.folder + "/Disk");
  EXPECT_EQ(identity.reference().localizedPath(second), volumes.folder + "/Disk");
}

}  // namespace
}  // namespace corvana
