// What disks cannot hold or do.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "tests/execute/Accidents.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class FileSystemLimitsTest : public Accidents {};

TEST_F(FileSystemLimitsTest, SaysWhichSubvolumesItLeavesOut) {
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

TEST_F(FileSystemLimitsTest, MergesNoNamesOnADiskThatDoesNotTellCapitalLetters) {
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

TEST_F(FileSystemLimitsTest, SaysWhoseFileNobodyMayRead) {
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

TEST_F(FileSystemLimitsTest, GoesOnWithoutAFileThatIsTooLarge) {
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

TEST_F(FileSystemLimitsTest, SaysWhichPathsAreTooLong) {
  mountMemory("disk");
  fill("source", 2);
  const std::string name(100, 'd');
  ZAN_Descriptor folder(::open(scratch->at("source").c_str(), O_RDONLY | O_DIRECTORY));
  for (int depth = 0; depth < 45; ++depth) {
    ASSERT_EQ(::mkdirat(folder.get(), name.c_str(), 0700), 0);
    folder = ZAN_Descriptor(::openat(folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY));
  }
  const ExecuteEnd said = synchronise("source");
  EXPECT_TRUE(said.onlyLacks()) << testing::PrintToString(said.errorTexts);
  ASSERT_EQ(said.patterns.size(), 1u);
  EXPECT_THAT(said.errorTexts.front(), HasSubstr("is not copied; shorten names above it"));
  EXPECT_THAT(said.errorTexts.front(), HasSubstr("corvana9 edit 7 --exclude-missing"));
  ZAN_Value settings = record(CopyPlan::kSynchronise, {"source"}, "disk");
  settings.setValue(CopyKey::exclusions, ZAN_Value::array({said.patterns.front()}));
  EXPECT_EQ(run(settings).code, ExecuteCode::completed);
}

TEST_F(FileSystemLimitsTest, SaysWhatProtectsACopyAndEndsWhenItsDiskFails) {
  if (!mountImage("disk", "mkfs.ext4 -q", "mount -o loop")) GTEST_SKIP() << "no ext4 here";
  fill("source", 200);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  for (const char* name : {"f1", "f2"})
    ASSERT_TRUE(shell("chattr +i '" + scratch->at(std::string("disk/source/") + name) + "'"));
  scratch->write("source/f1", "changed");
  fs::remove(scratch->at("source/f2"));
  const ExecuteEnd held = synchronise("source");
  EXPECT_EQ(held.code, ExecuteCode::completedWithErrors);
  EXPECT_FALSE(held.onlyLacks());
  ASSERT_EQ(held.errorTexts.size(), 2u);
  for (const std::string& text : held.errorTexts) EXPECT_THAT(text, HasSubstr("sudo chattr -i '"));
  ASSERT_TRUE(shell("chattr -i '" + scratch->at("disk/source") + "'/*"));
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed);

  // The disk goes when everything is copied.
  const std::string isCopied = scratch->at("copied");
  replaceRsync("$RSYNC \"$@\" || exit; case \"$*\" in *--dry-run*) ;; *) > '" + isCopied +
               "';; esac");
  const ZAN_Descriptor disk(::open(scratch->at("disk").c_str(), O_RDONLY | O_DIRECTORY));
  onProgress = [&](const ExecuteProgress&) {
    constexpr unsigned kWithoutLastWrites = 2;
    if (fs::exists(isCopied)) ::ioctl(disk.get(), _IOR('X', 125, unsigned), &kWithoutLastWrites);
  };
  for (int number = 10; number < 60; ++number)
    fs::remove(scratch->at("source/f" + std::to_string(number)));
  scratch->write("source/f1", "changed again");
  const ExecuteEnd gone = synchronise("source");
  EXPECT_EQ(gone.code, ExecuteCode::unexpectedError);
  EXPECT_THAT(gone.reason, HasSubstr("Input/output error; nothing more was deleted"));
  EXPECT_EQ(gone.errors, 0u);
  EXPECT_TRUE(gone.isDoubted);
}

TEST_F(FileSystemLimitsTest, FailsWhenTheDiskDoesNotConfirmAndComparesContentsThen) {
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

TEST_F(FileSystemLimitsTest, MakesRoomByOlderVersionsAndSaysWhatIsLacking) {
  mountMemory("disk");  // 64 MB
  const auto of = [&](const std::string& name, int megabytes) {
    scratch->write("source/" + name, std::string(static_cast<std::size_t>(megabytes) << 20, 'x'));
  };
  of("a", 25);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  fs::remove(scratch->at("source/a"));
  of("b", 25);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  scratch->write("source/holes", "");
  fs::resize_file(scratch->at("source/holes"), 30 << 20);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_EQ(filesAside(), 1u) << "holes take up no room";
  of("c", 30);  // fits only where the older version lay
  const ExecuteEnd end = synchronise("source");
  EXPECT_EQ(end.code, ExecuteCode::completed) << end.reason;
  EXPECT_EQ(filesAside(), 0u);
  scratch->write("source/a hole", "");
  fs::resize_file(scratch->at("source/a hole"), 30 << 20);
  of("d", 30);
  const ExecuteEnd full = synchronise("source");
  EXPECT_EQ(full.code, ExecuteCode::unexpectedError);
  EXPECT_THAT(full.reason, HasSubstr("No space left on device: "));
  EXPECT_THAT(full.reason, HasSubstr(" more are needed"));
  EXPECT_EQ(scratch->read("disk/source/b").size(), 25u << 20);
}

}  // namespace
}  // namespace corvana
