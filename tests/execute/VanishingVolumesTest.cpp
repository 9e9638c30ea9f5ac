// Volumes that go, come as others, or lie in each other while a copy is made.

#include <sys/mount.h>

#include "tests/execute/Accidents.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class VanishingVolumesTest : public Accidents {};

TEST_F(VanishingVolumesTest, LosesNothingWhenAVolumeIsDetachedMeanwhile) {
  for (const std::string lost : {"source", "disk"}) {
    for (const bool isBetween : {false, true}) {
      SCOPED_TRACE(lost + (isBetween ? " before rsync starts again" : " while rsync works"));
      mountMemory("source");
      mountMemory("disk");
      fill("source", 300);
      ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
      fill("source/more", 300, "new");
      fs::remove(scratch->at("source/f1"));
      replaceRsync(isBetween ? "case \"$*\" in *--dry-run*) $RSYNC \"$@\"; "
                               "umount -l '" +
                                   scratch->at(lost) +
                                   "'; exit 0;; esac; "
                                   "exec $RSYNC \"$@\""
                             : "case \"$*\" in *--dry-run*) ;; *) umount -l '" + scratch->at(lost) +
                                   "';; esac; exec $RSYNC \"$@\"");
      const HeldFolder disk = *HeldFolder::open(scratch->at("disk"));
      const ExecuteEnd end = synchronise("source");
      EXPECT_EQ(end.code, ExecuteCode::volumeGone);
      EXPECT_THAT(end.reason,
                  HasSubstr(scratch->at(lost) + ": its volume is not mounted any more"));
      EXPECT_EQ(end.filesDeleted, 0u);
      EXPECT_TRUE(fs::exists(disk.heldPath() + "/source/f1")) << "the copy is as it was";
      if (lost == "disk") {
        EXPECT_EQ(filesBelow("disk"), 0u) << "nothing in the empty mount point";
      }
      TearDown();
      mounted.clear();
      scratch.emplace();
      rsync = real;
      control.emplace();
    }
  }
}

TEST_F(VanishingVolumesTest, MissesTheCopiesWhereNothingElseTellsTheVolume) {
  const std::string vault = mountMemory("disk");
  fill("source", 3);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  owner.hasRun = true;
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  // It looks like the disk below it, and so does its empty folder when it is not mounted.
  ::umount2(vault.c_str(), MNT_DETACH);
  const ExecuteEnd end = synchronise("source");
  EXPECT_EQ(end.code, ExecuteCode::volumeNotFound);
  EXPECT_THAT(end.reason, HasSubstr("corvana9 edit 7 --adopt"));
  EXPECT_TRUE(fs::is_empty(vault));
  owner.takesOver = true;
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed);
}

TEST_F(VanishingVolumesTest, TellsSubvolumesOfOneDiskApart) {
  if (!mountImage("disk", "mkfs.btrfs -q", "mount -o loop")) GTEST_SKIP() << "no btrfs here";
  const std::string disk = scratch->at("disk");
  const std::string image = scratch->at("disk.image");
  ASSERT_TRUE(shell("cd '" + disk +
                    "' && btrfs subvolume create mine && btrfs subvolume "
                    "create sibling && mkdir sibling/source && echo other > sibling/source/f9"));
  const auto remount = [&](const std::string& subvolume) {
    return shell("umount '" + disk + "' && mount -o loop,subvol=" + subvolume + " '" + image +
                 "' '" + disk + "'");
  };
  fill("source", 3);
  ASSERT_TRUE(remount("mine"));
  const auto mount = VolumeReference(volumes).ofPath(disk);
  ASSERT_TRUE(mount);
  const auto known = volumes.information(*mount);
  ASSERT_TRUE(known && !known->uuid.empty());
  ZAN_Value settings = record(CopyPlan::kSynchronise, {"source"}, "disk");
  settings.setValue("ItemsDestination",
                    FolderDescription()
                        .setPath(disk)
                        .setVolumeSize(known->totalSize)
                        .setUuid(known->uuid)
                        .setMounted(mount->fileSystem, mount->source, mount->root)
                        .toValue());
  EXPECT_EQ(run(settings).code, ExecuteCode::completed);
  ASSERT_TRUE(remount("sibling"));
  EXPECT_EQ(run(settings).code, ExecuteCode::volumeNotFound);
  EXPECT_EQ(scratch->read("disk/source/f9"), "other\n");
}

TEST_F(VanishingVolumesTest, SeesThroughBindMountsWhereADestinationLies) {
  mountMemory("source");
  fill("source/docs", 3);
  scratch->makeFolder("source/backup");
  mountBind(scratch->at("source/backup"), "disk");
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_EQ(filesBelow("disk/source"), 3u) << "the copy is not copied";
  // The folder that holds a source, seen elsewhere, as its destination.
  fill("letters", 3);
  mountBind(scratch->path(), "other");
  EXPECT_THAT(run(record(CopyPlan::kSynchronise, {"letters"}, "other")).reason,
              HasSubstr("where its copy would be"));
  EXPECT_EQ(filesBelow("letters"), 3u);
}

TEST_F(VanishingVolumesTest, LeavesAloneWhatIsMountedWithinSourceOrCopy) {
  mountMemory("disk");
  fill("source", 3);
  fill("source/in[n]er", 2);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  // Of another file system and of the same one.
  mountMemory("source/in[n]er");
  fill("elsewhere", 4);
  mountBind(scratch->at("elsewhere"), "source/bound");
  const ExecuteEnd said = synchronise("source");
  EXPECT_EQ(said.code, ExecuteCode::completedWithErrors) << "not everything is there";
  EXPECT_EQ(said.errors, 2u);
  EXPECT_THAT(said.errorTexts.front(),
              HasSubstr(scratch->at("source/in[n]er") + ": another volume is mounted there"));
  EXPECT_THAT(said.errorTexts.front(), HasSubstr("corvana9 edit 7 --exclude '/in\\[n]er'"));
  EXPECT_EQ(filesBelow("disk/source/in[n]er"), 2u);
  EXPECT_EQ(filesBelow("disk/source/bound"), 0u);
  // What the user leaves out is neither missed nor deleted.
  scratch->write("source/a.tmp", "x");
  fs::remove(scratch->at("source/f1"));
  scratch->write("disk/source/old.tmp", "x");
  ZAN_Value settings = record(CopyPlan::kSynchronise, {"source"}, "disk");
  settings.setValue(CopyKey::exclusions, ZAN_Value::array({"/in\\[n]er", "/bound/", "*.tmp"}));
  EXPECT_EQ(run(settings).code, ExecuteCode::completed);
  EXPECT_FALSE(fs::exists(scratch->at("disk/source/a.tmp")));
  EXPECT_TRUE(fs::exists(scratch->at("disk/source/old.tmp")));
  EXPECT_FALSE(fs::exists(scratch->at("disk/source/f1")));
  EXPECT_EQ(filesBelow("disk/source/in[n]er"), 2u);
}

TEST_F(VanishingVolumesTest, TakesTheDiskWhoseTurnItIs) {
  mountMemory("disk");
  fill("source", 2);
  ZAN_Value settings = record(CopyPlan::kSynchronise, {"source"}, "gone/for/now");
  settings.setValue(
      VolumeIdentity::kRotation,
      ZAN_Value::array({ZAN_Value::dictionary({{"VolumeFolderPath", scratch->at("disk")}})}));
  EXPECT_EQ(run(settings).code, ExecuteCode::completed);
  EXPECT_EQ(filesBelow("disk/source"), 2u);
  settings.setValue(VolumeIdentity::kRotation, ZAN_Value::array());
  EXPECT_THAT(run(settings).reason, HasSubstr(scratch->at("gone/for")));
}

TEST_F(VanishingVolumesTest, RefusesACopyThatIsALinkOrAnotherVolume) {
  mountMemory("disk");
  fill("source", 3);
  fill("precious", 3);
  fs::create_directory_symlink(scratch->at("precious"), scratch->at("disk/source"));
  EXPECT_EQ(synchronise("source").code, ExecuteCode::unexpectedError);
  fs::remove(scratch->at("disk/source"));
  mountBind(scratch->at("precious"), "disk/source");
  EXPECT_EQ(synchronise("source").code, ExecuteCode::unexpectedError);
  EXPECT_EQ(filesBelow("precious"), 3u);
  EXPECT_EQ(filesBelow("disk"), 3u);
}

TEST_F(VanishingVolumesTest, DeletesNothingWhenAnotherFolderTakesThePlaceOfTheSource) {
  mountMemory("disk");
  fill("source", 10);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  fs::remove(scratch->at("source/f1"));
  scratch->write("source/new", "x");
  replaceRsync("$RSYNC \"$@\"; case \"$*\" in *--dry-run*) ;; *) mv '" + scratch->at("source") +
               "' '" + scratch->at("moved") + "'; mkdir '" + scratch->at("source") + "';; esac");
  const ExecuteEnd end = synchronise("source");
  EXPECT_EQ(end.code, ExecuteCode::completedWithErrors);
  EXPECT_THAT(end.reason, HasSubstr("another folder has taken its place; nothing was deleted"));
  EXPECT_EQ(filesBelow("disk/source"), 11u);
}

TEST_F(VanishingVolumesTest, DeletesNothingWhenTheDriverOfTheSourceDies) {
  mountMemory("disk");
  fill("real", 300);
  scratch->makeFolder("source");
  const std::string driver = scratch->at("driver");
  const auto mount = [&] {
    return shell("bindfs -f '" + scratch->at("real") + "' '" + scratch->at("source") +
                 "' & echo $! > '" + driver + "'; for i in 1 2 3 4 5 6 7 8 9; do mountpoint -q '" +
                 scratch->at("source") + "' && exit 0; sleep 0.2; done; exit 1");
  };
  if (!mount()) GTEST_SKIP() << "no bindfs here";
  mounted.push_back(scratch->at("source"));
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  fs::remove(scratch->at("real/f1"));
  fill("real/more", 300, "new");
  for (const bool inLook : {false, true}) {
    replaceRsync(std::string("case \"$*\" in *--dry-run*) ") +
                 (inLook ? "" : "exec $RSYNC \"$@\"") + ";; esac; kill -9 $(cat '" + driver +
                 "'); sleep 0.2; exec $RSYNC \"$@\"");
    const ExecuteEnd end = synchronise("source");
    EXPECT_NE(end.code, ExecuteCode::completed);
    EXPECT_FALSE(end.onlyLacks());
    EXPECT_EQ(end.filesDeleted, 0u);
    EXPECT_GE(filesBelow("disk/source"), 300u);
    EXPECT_TRUE(fs::exists(scratch->at("disk/source/f1")));
    control.emplace();
    ::umount2(scratch->at("source").c_str(), MNT_DETACH);
    ASSERT_TRUE(mount());
  }
  rsync = real;
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_FALSE(fs::exists(scratch->at("disk/source/f1")));
  ASSERT_TRUE(shell("kill $(cat '" + driver + "')"));
}

}  // namespace
}  // namespace corvana
