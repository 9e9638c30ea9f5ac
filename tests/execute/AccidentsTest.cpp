// Accidents of the machine while a copy is made, with real mounts in a name space of its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <thread>

#include "actions/ActionsTools.h"
#include "execute/plain/CopyRun.h"
#include "platform/linux/LinuxVolumes.h"
#include "platform/linux/SystemClock.h"
#include "tests/execute/ScratchFolder.h"
#include "volumes/VolumeReference.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class AccidentsTest : public testing::Test {
 protected:
  void SetUp() override {
    // Everything mounted here is seen by this process alone and goes with it.
    static const bool isApart = ::unshare(CLONE_NEWNS) == 0 &&
                                ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    if (!isApart) GTEST_SKIP() << "mounting needs root and a name space for mounts";
    volumes.setPatience(30);  // as long as the execute program waits
    ::setenv("RSYNC", rsync.c_str(), 1);
  }

  void TearDown() override {
    for (auto mount = mounted.rbegin(); mount != mounted.rend(); ++mount)
      ::umount2(mount->c_str(), MNT_DETACH);
    scratch.reset();
  }

  std::string mountMemory(const std::string& name) {
    const std::string path = scratch->makeFolder(name);
    EXPECT_EQ(::mount("none", path.c_str(), "tmpfs", 0, "size=64m"), 0);
    mounted.push_back(path);
    return path;
  }

  void mountBind(const std::string& from, const std::string& name) {
    const std::string path = scratch->makeFolder(name);
    ASSERT_EQ(::mount(from.c_str(), path.c_str(), nullptr, MS_BIND, nullptr), 0);
    mounted.push_back(path);
  }

  /// Files f0 to f(count-1) in the folder.
  void fill(const std::string& folder, int count, const std::string& contents = "x") {
    for (int number = 0; number < count; ++number)
      scratch->write(folder + "/f" + std::to_string(number), contents);
  }

  ZAN_Value record(int mode, const std::vector<std::string>& sources,
                   const std::string& destination) const {
    ZAN_Value list = ZAN_Value::array();
    for (const auto& source : sources)
      list.append(ZAN_Value::dictionary({{"VolumeFolderPath", scratch->at(source)}}));
    return ZAN_Value::dictionary(
        {{"OptionsPerformer", "corvana9"},
         {"Mode", mode},
         {"ItemsListOfSourcePath", list},
         {"ItemsDestination",
          ZAN_Value::dictionary({{"VolumeFolderPath", scratch->at(destination)}})}});
  }

  ExecuteEnd run(const ZAN_Value& settings, DeletionLimit limit = {}) {
    const auto plan = CopyPlan::fromSettings(settings, VolumeGuard(volumes, false));
    if (!plan) return {.code = ExecuteCode::volumeNotFound, .reason = plan.error().text};
    return CopyRun(*plan, owner, limit,
                   {.control = *control,
                    .clock = clock,
                    .rsync = rsync,
                    .tell =
                        [this](const auto& progress) {
                          if (onProgress) onProgress(progress);
                        },
                    .sync = sync})
        .perform();
  }
  ExecuteEnd look(const ZAN_Value& settings, std::vector<CopyRun::Planned>& planned) {
    const auto plan = CopyPlan::fromSettings(settings, VolumeGuard(volumes, false));
    if (!plan) return {.code = ExecuteCode::volumeNotFound, .reason = plan.error().text};
    return CopyRun(*plan, owner, {}, {.control = *control, .clock = clock, .rsync = rsync})
        .look([&](const CopyRun::Planned& one) { planned.push_back(one); });
  }
  ExecuteEnd synchronise(const std::string& source, DeletionLimit limit = {}) {
    return run(record(CopyPlan::kSynchronise, {source}, "disk"), limit);
  }

  /// A program in the place of rsync that does something before it, or in its place.
  void replaceRsync(const std::string& script) { rsync = program("rsync", script); }
  static std::string program(const std::string& name, const std::string& script) {
    std::string path = testing::TempDir() + name + std::to_string(::getpid());
    std::ofstream(path) << "#!/bin/sh\n" << script << "\n";
    fs::permissions(path, fs::perms::owner_all);
    return path;
  }
  static bool shell(const std::string& line) {
    return std::system(("{ " + line + "; } >/dev/null 2>&1").c_str()) == 0;
  }
  /// A file system of its own in the folder, by a program that makes it and one that mounts it.
  bool mountImage(const std::string& name, const std::string& make, const std::string& mount) {
    const std::string image = scratch->at(name + ".image");
    const std::string path = scratch->makeFolder(name);
    std::ofstream(image).flush();
    fs::resize_file(image, 200 << 20);
    if (!shell(make + " '" + image + "' && " + mount + " '" + image + "' '" + path + "'"))
      return false;
    mounted.push_back(path);
    return true;
  }

  /// Without the marks of copies and the lists of versions.
  std::size_t filesBelow(const std::string& name) const {
    std::size_t count = 0;
    std::error_code failed;
    for (const auto& entry : fs::recursive_directory_iterator(scratch->at(name), failed)) {
      if (!entry.is_directory() && !entry.path().filename().string().starts_with(".corvana9-"))
        ++count;
    }
    return count;
  }
  /// What runs have put aside.
  std::size_t filesAside() const { return filesBelow("disk/.corvana9-versions"); }

  std::optional<ScratchFolder> scratch{std::in_place};
  std::vector<std::string> mounted;
  LinuxVolumes volumes{"nobody", "/"};
  SystemClock clock;
  CopyOwner owner{.mark = {.machine = "m", .home = "/home/me", .reference = 7, .title = "Mine"}};
  std::optional<ExecuteControl> control{std::in_place};
  /// Another one to be tried is named in the environment.
  const std::string real = std::getenv("RSYNC") ? std::getenv("RSYNC") : "/usr/bin/rsync";
  std::string rsync = real;
  std::string sync = "/usr/bin/sync";
  std::function<void(const ExecuteProgress&)> onProgress;
};

TEST_F(AccidentsTest, LosesNothingWhenAVolumeIsDetachedMeanwhile) {
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

TEST_F(AccidentsTest, DeletesLastAndKeepsWhatItDeletes) {
  mountMemory("disk");
  fill("source", 10);
  scratch->write("source/d/e/deep", "deep");
  scratch->write("disk/neighbour", "not ours");
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_EQ(filesAside(), 0u) << "nothing to keep";
  fs::remove_all(scratch->at("source/d"));
  scratch->write("source/f1", "changed");
  scratch->write("source/d2", "now a file");
  const ExecuteEnd end = synchronise("source");
  EXPECT_EQ(end.code, ExecuteCode::completed) << end.reason;
  EXPECT_EQ(end.filesDeleted, 1u);
  EXPECT_EQ(end.filesReplaced, 1u);
  EXPECT_FALSE(fs::exists(scratch->at("disk/source/d")));
  EXPECT_EQ(scratch->read("disk/source/f1"), "changed");
  EXPECT_EQ(scratch->read("disk/neighbour"), "not ours");
  std::string aside;
  for (const auto& entry : fs::directory_iterator(scratch->at("disk/.corvana9-versions"))) {
    if (fs::exists(entry.path() / "source"))
      aside = "disk/.corvana9-versions/" + entry.path().filename().string() + "/source";
  }
  EXPECT_EQ(scratch->read(aside + "/d/e/deep"), "deep");
  EXPECT_EQ(scratch->read(aside + "/f1"), "x");
  EXPECT_EQ(filesAside(), 2u);
}

TEST_F(AccidentsTest, KeepsWhatCannotBeReadAndWhatIsBelowIt) {
  mountMemory("disk");
  fill("source", 3);
  fill("source/locked/sub", 3);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  fs::remove(scratch->at("source/f1"));
  replaceRsync(
      "for word; do source=$copy; copy=$word; done; echo \"rsync: [sender] opendir "
      "\\\"${source}locked\\\" failed: Input/output error (5)\" >&2; $RSYNC \"$@\"; exit "
      "23");
  fs::rename(scratch->at("source/locked"), scratch->at("elsewhere"));
  const ExecuteEnd end = synchronise("source");
  EXPECT_EQ(end.code, ExecuteCode::completedWithErrors);
  EXPECT_EQ(filesBelow("disk/source/locked"), 3u);
  EXPECT_EQ(end.filesDeleted, 1u) << "what is known to be gone goes";
  EXPECT_THAT(end.errorTexts.front(), HasSubstr(scratch->at("source/locked")));
}

TEST_F(AccidentsTest, AsksBeforeMuchIsDeleted) {
  mountMemory("disk");
  fill("source", 200);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  for (int number = 0; number < 60; ++number)
    fs::remove(scratch->at("source/f" + std::to_string(number)));
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed) << "less than a third";
  for (int number = 60; number < 140; ++number)
    fs::remove(scratch->at("source/f" + std::to_string(number)));
  scratch->write("source/new", "copied all the same");
  const ExecuteEnd asked = synchronise("source");
  EXPECT_EQ(asked.code, ExecuteCode::completedWithErrors);
  EXPECT_EQ(asked.toConfirm, 80u);
  EXPECT_THAT(asked.reason, HasSubstr("80 of the 140 files of its copy"));
  EXPECT_EQ(asked.filesDeleted, 0u);
  EXPECT_EQ(filesBelow("disk/source"), 141u);
  EXPECT_EQ(synchronise("source", {.confirmed = 79}).toConfirm, 80u);
  const ExecuteEnd done = synchronise("source", {.confirmed = 80});
  EXPECT_EQ(done.code, ExecuteCode::completed);
  EXPECT_EQ(done.filesDeleted, 80u);
  EXPECT_EQ(filesBelow("disk/source"), 61u);
  EXPECT_EQ(filesAside(), 140u);
  EXPECT_FALSE((DeletionLimit{}.isPassed(50, 60))) << "a few always may go";
  EXPECT_TRUE((DeletionLimit{}.isPassed(51, 152)));
  EXPECT_FALSE((DeletionLimit{}.isPassed(51, 153)));
}

TEST_F(AccidentsTest, LetsNoFolderWithManyFilesMakeWayForAFileUnasked) {
  mountMemory("disk");
  fill("source/d", 80);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  fs::remove_all(scratch->at("source/d"));
  scratch->write("source/d", "now a file");
  const ExecuteEnd asked = synchronise("source");
  EXPECT_EQ(asked.code, ExecuteCode::completedWithErrors);
  EXPECT_EQ(asked.toConfirm, 80u);
  EXPECT_EQ(filesBelow("disk/source/d"), 80u);
  EXPECT_EQ(synchronise("source", {.confirmed = 80}).code, ExecuteCode::completed);
  EXPECT_EQ(scratch->read("disk/source/d"), "now a file");
  EXPECT_EQ(filesAside(), 80u);
}

TEST_F(AccidentsTest, TakesALinkForTheFolderThatItLeadsTo) {
  mountMemory("disk");
  fill("real", 3);
  fs::create_directory_symlink(scratch->at("real"), scratch->at("source"));
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_EQ(filesBelow("disk/source"), 3u);
  // A file in its place is not what was copied.
  fs::remove(scratch->at("source"));
  scratch->write("source", "a file");
  const ExecuteEnd end = synchronise("source");
  EXPECT_EQ(end.code, ExecuteCode::unexpectedError);
  EXPECT_THAT(end.reason, HasSubstr("it is a file now"));
  EXPECT_EQ(filesBelow("disk/source"), 3u);
  // A link to nowhere is a source that is not there.
  fs::remove(scratch->at("source"));
  fs::create_directory_symlink(scratch->at("nowhere"), scratch->at("source"));
  EXPECT_EQ(synchronise("source").code, ExecuteCode::volumeNotFound);
  EXPECT_EQ(filesBelow("disk/source"), 3u);
}

TEST_F(AccidentsTest, CopiesFilesAndWhatALinkToAFileLeadsTo) {
  mountMemory("disk");
  scratch->write("letter", "dear");
  fs::create_symlink("letter", scratch->at("link"));
  const auto both = record(CopyPlan::kSynchronise, {"letter", "link"}, "disk");
  ASSERT_EQ(run(both).code, ExecuteCode::completed);
  EXPECT_EQ(scratch->read("disk/letter"), "dear");
  EXPECT_FALSE(fs::is_symlink(scratch->at("disk/link")));
  EXPECT_EQ(scratch->read("disk/link"), "dear");
  scratch->write("letter", "changed");
  ASSERT_EQ(run(both).code, ExecuteCode::completed);
  EXPECT_EQ(scratch->read("disk/link"), "changed");
  EXPECT_EQ(filesAside(), 2u);
  // A folder in the place of a file is not what was copied.
  fs::remove(scratch->at("letter"));
  fill("letter", 2);
  EXPECT_EQ(run(both).code, ExecuteCode::unexpectedError);
  EXPECT_EQ(scratch->read("disk/letter"), "changed");
}

TEST_F(AccidentsTest, DeletesOnlyInItsOwnCopies) {
  mountMemory("disk");
  fill("source", 3);
  fill("disk/source", 5, "another's");
  const ExecuteEnd refused = synchronise("source");
  EXPECT_EQ(refused.code, ExecuteCode::unexpectedError);
  EXPECT_THAT(refused.reason, HasSubstr("corvana9 edit 7 --adopt"));
  EXPECT_EQ(scratch->read("disk/source/f4"), "another's");
  // An action that has filled it before there were marks goes on, unless another one does, too.
  owner.hasRun = true;
  owner.isAlone = false;
  EXPECT_EQ(synchronise("source").code, ExecuteCode::unexpectedError);
  EXPECT_EQ(filesBelow("disk/source"), 5u);
  owner.isAlone = true;
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_EQ(filesBelow("disk/source"), 3u);
  // Another action, with a source of the same name.
  fill("second/source", 2, "second");
  owner.mark.reference = 8;
  const ExecuteEnd other = synchronise("second/source");
  EXPECT_EQ(other.code, ExecuteCode::unexpectedError);
  EXPECT_THAT(other.reason, HasSubstr("action 7 \"Mine\" (" + scratch->at("source") + ")"));
  EXPECT_EQ(run(record(CopyPlan::kCopy, {"second/source"}, "disk")).code,
            ExecuteCode::unexpectedError);
  EXPECT_EQ(filesBelow("disk/source"), 3u);
  owner.takesOver = true;
  EXPECT_EQ(synchronise("second/source").code, ExecuteCode::completed);
  EXPECT_EQ(filesBelow("disk/source"), 2u);
  owner.takesOver = false;
  EXPECT_EQ(synchronise("source").code, ExecuteCode::unexpectedError) << "it has another owner now";
  // What a power failure leaves of a mark, and what damage leaves.
  std::ofstream(scratch->at("disk/source/.corvana9-copy"), std::ios::trunc).flush();
  EXPECT_EQ(synchronise("second/source").code, ExecuteCode::completed);
  scratch->write("disk/source/.corvana9-copy", "{\"machine\":");
  EXPECT_EQ(synchronise("second/source").code, ExecuteCode::unexpectedError);
}

TEST_F(AccidentsTest, MissesTheCopiesWhereNothingElseTellsTheVolume) {
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

TEST_F(AccidentsTest, TellsSubvolumesOfOneDiskApart) {
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

TEST_F(AccidentsTest, SeesThroughBindMountsWhereADestinationLies) {
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

TEST_F(AccidentsTest, LeavesAloneWhatIsMountedWithinSourceOrCopy) {
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

TEST_F(AccidentsTest, SaysWhichSubvolumesItLeavesOut) {
  if (!mountImage("source", "mkfs.btrfs -q", "mount -o loop")) GTEST_SKIP() << "no btrfs here";
  mountMemory("disk");
  fill("source", 3);
  scratch->makeFolder("source/d");
  ASSERT_TRUE(shell("cd '" + scratch->at("source/d") + "' && btrfs subvolume create su*b"));
  fill("source/d/su*b", 2);
  const ExecuteEnd said = synchronise("source");
  EXPECT_TRUE(said.onlyLacks()) << said.reason;
  ASSERT_EQ(said.errorTexts.size(), 1u);
  EXPECT_THAT(said.errorTexts.front(),
              HasSubstr(scratch->at("source/d/su*b") + ": it is a subvolume of its own"));
  EXPECT_THAT(said.patterns, testing::ElementsAre("/d/su\\*b"));
  EXPECT_EQ(filesBelow("disk/source"), 3u);
  ZAN_Value settings = record(CopyPlan::kSynchronise, {"source"}, "disk");
  for (const std::string& pattern : {said.patterns.front(), std::string("d/s*")}) {
    settings.setValue(CopyKey::exclusions, ZAN_Value::array({pattern}));
    EXPECT_EQ(run(settings).code, ExecuteCode::completed) << pattern;
  }
}

TEST_F(AccidentsTest, MergesNoNamesOnADiskThatDoesNotTellCapitalLetters) {
  if (!mountImage("disk", "mkfs.exfat",
                  "f() { D=$(losetup -f --show \"$1\") && mount.exfat-fuse $D \"$2\"; R=$?; "
                  "losetup -d $D; return $R; }; f"))
    GTEST_SKIP() << "no exfat driver for FUSE here";
  scratch->write("source/docs/letter", "small");
  scratch->write("source/Docs/letter", "capital");
  scratch->write("source/a/\xc3\x84rger", "capital umlaut");
  scratch->write("source/a/\xc3\xa4rger", "small umlaut");
  scratch->write("source/skip/X", "1");
  scratch->write("source/skip/x", "2");
  ZAN_Value settings = record(CopyPlan::kSynchronise, {"source"}, "disk");
  settings.setValue(CopyKey::exclusions, ZAN_Value::array({"skip"}));
  for (int pass = 0; pass < 2; ++pass) {
    const ExecuteEnd end = run(settings);
    EXPECT_TRUE(end.onlyLacks()) << end.reason;
    EXPECT_EQ(end.notPossible, 2u) << testing::PrintToString(end.errorTexts);
    EXPECT_THAT(end.patterns, testing::UnorderedElementsAre("/docs", "/a/\xc3\xa4rger"));
    EXPECT_EQ(scratch->read("disk/source/Docs/letter"), "capital");
    EXPECT_EQ(scratch->read("disk/source/a/\xc3\x84rger"), "capital umlaut");
    EXPECT_THAT(end.losses, testing::Contains("owners and rights"));
  }
  // What is spelled otherwise now is not gone.
  fs::remove_all(scratch->at("source/docs"));
  fs::rename(scratch->at("source/Docs"), scratch->at("source/DOCS"));
  scratch->write("source/DOCS/letter", "capital");
  const ExecuteEnd renamed = run(settings);
  EXPECT_EQ(renamed.filesDeleted, 0u);
  EXPECT_EQ(scratch->read("disk/source/docs/letter"), "capital");
  // Names that the disk cannot hold.
  scratch->write("source/a:b", "x");
  fs::remove(scratch->at("source/a/\xc3\xa4rger"));
  fs::create_symlink("a", scratch->at("source/link"));
  const ExecuteEnd odd = run(settings);
  EXPECT_TRUE(odd.onlyLacks()) << testing::PrintToString(odd.errorTexts);
  EXPECT_THAT(odd.patterns, testing::UnorderedElementsAre("/a:b", "/link"));
  settings.setValue(CopyKey::exclusions, ZAN_Value::array({"skip", "/a:b", "/link"}));
  EXPECT_EQ(run(settings).code, ExecuteCode::completed);
}

TEST_F(AccidentsTest, SaysWhoseFileNobodyMayRead) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can become another user";
  mountMemory("disk");
  fill("source", 3);
  fs::permissions(scratch->at("source/f1"), fs::perms::none);
  fs::permissions(scratch->path(), fs::perms::all);
  fs::permissions(scratch->at("disk"), fs::perms::all);
  replaceRsync("exec setpriv --reuid=65534 --clear-groups $RSYNC \"$@\"");
  // Its mark is the other user's; what matters here is the file.
  ASSERT_TRUE(HeldFolder::open(scratch->at("disk"))->makeBelow("source", 0777));
  ASSERT_EQ(::chown(scratch->at("disk/source").c_str(), 65534, 65534), 0);
  ZAN_Value settings = record(CopyPlan::kCopy, {"source"}, "disk");
  const ExecuteEnd end = run(settings);
  EXPECT_TRUE(end.onlyLacks()) << testing::PrintToString(end.errorTexts);
  EXPECT_THAT(end.patterns, testing::ElementsAre("/f1"));
  EXPECT_THAT(end.errorTexts.front(), HasSubstr("Permission denied"));
  EXPECT_THAT(end.errorTexts.front(), HasSubstr("corvana9 edit 7 --exclude '/f1'"));
  settings.setValue(CopyKey::exclusions, ZAN_Value::array({"/f1"}));
  EXPECT_EQ(run(settings).code, ExecuteCode::completed);
}

TEST_F(AccidentsTest, GoesOnWithoutAFileThatIsTooLarge) {
  mountMemory("disk");
  fill("source", 2);
  scratch->write("source/d/film", "long");
  replaceRsync(
      "case \"$*\" in *--dry-run*|*/d/film*) exec $RSYNC \"$@\";; esac; for word; do copy=$word; "
      "done; echo \"rsync: [receiver] write failed on \\\"${copy}d/film\\\": File too large "
      "(27)\" >&2; exit 11");
  const ExecuteEnd end = synchronise("source");
  EXPECT_TRUE(end.onlyLacks()) << end.reason;
  EXPECT_THAT(end.patterns, testing::ElementsAre("/d/film"));
  EXPECT_EQ(filesBelow("disk/source"), 2u);
}

TEST_F(AccidentsTest, FailsWhenTheDiskDoesNotConfirmAndComparesContentsThen) {
  mountMemory("disk");
  fill("source", 3);
  sync = program("sync", "echo \"sync: error syncing '$2': Input/output error\" >&2; exit 1");
  const ExecuteEnd end = synchronise("source");
  EXPECT_EQ(end.code, ExecuteCode::unexpectedError);
  EXPECT_THAT(end.reason, HasSubstr("did not confirm what was written: Input/output error"));
  EXPECT_TRUE(end.isDoubted);
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed) << "nothing was written";
  sync = "/usr/bin/sync";
  // Same size and same time, other contents: what such a disk may have.
  const auto date = fs::last_write_time(scratch->at("source/f1"));
  scratch->write("disk/source/f1", "?");
  fs::last_write_time(scratch->at("disk/source/f1"), date);
  ZAN_Value settings = record(CopyPlan::kSynchronise, {"source"}, "disk");
  settings.setValue(CopyKey::isDoubted, 1);
  EXPECT_EQ(run(settings).code, ExecuteCode::completed);
  EXPECT_EQ(scratch->read("disk/source/f1"), "x");
}

TEST_F(AccidentsTest, GoesOnWithALargeFileWhereItWasStopped) {
  mountMemory("disk");
  const std::string log = scratch->at("log");
  std::string contents(17 << 20, 'a');
  std::uint32_t odd = 1;
  for (char& letter : contents)
    letter = static_cast<char>((odd = odd * 1664525 + 1013904223) >> 24);
  scratch->write("source/films/long", contents);
  scratch->write("source/other/long", "another of the name");
  replaceRsync(
      "case \"$*\" in *--dry-run*) ;; *) set -- --bwlimit=8000 \"$@\";; esac; exec $RSYNC \"$@\"");
  onProgress = [&](const auto& progress) {
    if (progress.sizeCopied > 6'000'000) control->stop(StopReason::user);
  };
  EXPECT_EQ(synchronise("source").code, ExecuteCode::abortedByUser);
  EXPECT_FALSE(fs::exists(scratch->at("disk/source/films/long")));
  const auto half = scratch->read("disk/source/films/.corvana9-partial/long").size();
  EXPECT_GT(half, 4u << 20);
  onProgress = {};
  control.emplace();
  replaceRsync("case \"$*\" in *--no-whole-file*) exec $RSYNC --stats \"$@\" | tee -a '" + log +
               "';; esac; exec $RSYNC \"$@\"");
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_TRUE(scratch->read("disk/source/films/long") == contents);
  EXPECT_EQ(scratch->read("disk/source/other/long"), "another of the name");
  EXPECT_EQ(filesBelow("disk/source"), 2u);
  const std::string told = scratch->read("log");
  const std::string word = "Matched data: ";
  ASSERT_THAT(told, HasSubstr(word));
  EXPECT_GT(std::stol(told.substr(told.find(word) + word.size())), 4 << 20);
  // What a kill leaves lies in the copy under a name of rsync's own.
  fs::remove(scratch->at("disk/source/films/long"));
  fs::remove(log);
  scratch->write("disk/source/films/.long.Ab12Cd", contents.substr(0, 9 << 20));
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_TRUE(scratch->read("disk/source/films/long") == contents);
  EXPECT_THAT(scratch->read("log"), HasSubstr(word));
  EXPECT_EQ(filesBelow("disk/source"), 2u);
}

TEST_F(AccidentsTest, TakesTheDiskWhoseTurnItIs) {
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

TEST_F(AccidentsTest, TellsWhatARunWouldDoAndDoesNothing) {
  mountMemory("disk");
  using Kind = CopyRun::Planned::Kind;
  fill("source", 2);
  const auto tell = [&](const std::string& destination) {
    std::vector<CopyRun::Planned> planned;
    const ExecuteEnd end = look(record(CopyPlan::kSynchronise, {"source"}, destination), planned);
    EXPECT_EQ(end.code, ExecuteCode::completed) << end.reason;
    std::multiset<std::pair<Kind, std::string>> told;
    for (const auto& one : planned) {
      if (!one.path.ends_with('/'))
        told.insert({one.kind, fs::relative(one.path, scratch->path())});
    }
    return told;
  };
  const std::multiset<std::pair<Kind, std::string>> both{{Kind::copied, "source/f0"},
                                                         {Kind::copied, "source/f1"}};
  for (const std::string destination : {"disk", "disk/new"}) EXPECT_EQ(tell(destination), both);
  EXPECT_TRUE(fs::is_empty(scratch->at("disk")));
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  fs::remove(scratch->at("source/f0"));
  scratch->write("source/f1", "longer");
  const auto before = fs::last_write_time(scratch->at("disk/source"));
  EXPECT_EQ(tell("disk"), (std::multiset<std::pair<Kind, std::string>>{
                              {Kind::replaced, "source/f1"}, {Kind::deleted, "disk/source/f0"}}));
  EXPECT_EQ(filesBelow("disk"), 2u);
  EXPECT_EQ(fs::last_write_time(scratch->at("disk/source")), before);
}

TEST_F(AccidentsTest, RefusesACopyThatIsALinkOrAnotherVolume) {
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

TEST_F(AccidentsTest, DeletesNothingWhenAnotherFolderTakesThePlaceOfTheSource) {
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

TEST_F(AccidentsTest, MakesRoomByOlderVersionsAndSaysWhatIsLacking) {
  mountMemory("disk");  // 64 MB
  const auto of = [&](const std::string& name, int megabytes) {
    scratch->write("source/" + name, std::string(static_cast<std::size_t>(megabytes) << 20, 'x'));
  };
  of("a", 25);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  fs::remove(scratch->at("source/a"));
  of("b", 25);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_EQ(filesAside(), 1u);
  of("c", 30);  // fits only where the older version lay
  const ExecuteEnd end = synchronise("source");
  EXPECT_EQ(end.code, ExecuteCode::completed) << end.reason;
  EXPECT_EQ(filesAside(), 0u);
  of("d", 30);
  const ExecuteEnd full = synchronise("source");
  EXPECT_EQ(full.code, ExecuteCode::unexpectedError);
  EXPECT_THAT(full.reason, HasSubstr("No space left on device: "));
  EXPECT_THAT(full.reason, HasSubstr(" more are needed"));
  EXPECT_EQ(scratch->read("disk/source/b").size(), 25u << 20);
}

TEST_F(AccidentsTest, LosesNothingWhenRsyncIsKilled) {
  mountMemory("disk");
  fill("source", 60);
  scratch->write("source/big", std::string(3 << 20, 'b'));
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  fs::remove(scratch->at("source/f1"));
  scratch->write("source/big", std::string(3 << 20, 'c'));
  const std::string killed = "$RSYNC --bwlimit=500 \"$@\" & sleep 0.3; kill -9 $!; kill -9 $$";
  for (const std::string& script :
       {std::string("kill -9 $$"),
        "case \"$*\" in *--dry-run*) exec $RSYNC \"$@\";; esac; " + killed}) {
    replaceRsync(script);
    const ExecuteEnd end = synchronise("source");
    EXPECT_EQ(end.code, ExecuteCode::unexpectedError);
    EXPECT_THAT(end.reason, HasSubstr("ended by signal 9"));
    EXPECT_EQ(scratch->read("disk/source/big"), std::string(3 << 20, 'b'));
    EXPECT_TRUE(fs::exists(scratch->at("disk/source/f1")));
  }
  rsync = real;
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_EQ(filesBelow("disk/source"), filesBelow("source"));
}

TEST_F(AccidentsTest, DeletesNothingWhenTheDriverOfTheSourceDies) {
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

TEST_F(AccidentsTest, GoesOnAfterItWasKilledAtAnyPoint) {
  mountMemory("disk");
  fill("source", 60);
  scratch->write("source/big", std::string(3 << 20, 'b'));
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  for (const std::string phase : {"look", "copy", "delete"}) {
    SCOPED_TRACE(phase);
    fs::remove(scratch->at("source/f" + std::to_string(phase.size())));
    scratch->write("source/big", std::string(3 << 20, phase[0]));
    const std::string kill = "kill -9 $PPID; sleep 1";
    if (phase == "look") replaceRsync(kill);
    if (phase == "copy")
      replaceRsync("case \"$*\" in *--dry-run*) ;; *) (sleep 0.05; " + kill +
                   ") & set -- --bwlimit=1000 \"$@\";; esac; exec $RSYNC \"$@\"");
    if (phase == "delete")
      replaceRsync("$RSYNC \"$@\"; r=$?; case \"$*\" in *--dry-run*) ;; *) " + kill +
                   ";; esac; exit $r");
    EXPECT_EXIT((synchronise("source"), std::exit(0)), testing::KilledBySignal(SIGKILL), "");
    const std::string big = scratch->read("disk/source/big");
    ASSERT_EQ(big.size(), 3u << 20);
    EXPECT_EQ(big.front(), big.back()) << "the old one or the new one";
    EXPECT_GE(filesBelow("disk/source"), 59u);
    rsync = real;
    const ExecuteEnd end = synchronise("source");
    EXPECT_EQ(end.code, ExecuteCode::completed) << end.reason;
    EXPECT_EQ(filesBelow("disk/source"), filesBelow("source"));
    EXPECT_EQ(scratch->read("disk/source/big").back(), phase[0]);
  }
}

}  // namespace
}  // namespace corvana
