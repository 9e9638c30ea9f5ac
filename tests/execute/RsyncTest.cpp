#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "execute/plain/Rsync.h"
#include "tests/execute/ScratchFolder.h"

namespace corvana {
namespace {

TEST(RsyncOutput, ReadsItemsAndProgressInAnyPieces) {
  const std::string text =
      "@*deleting   0 src/old\n@>f+++++++++ 2 src/back\\#134#012slash\n"
      "\r              2   0%    0.00kB/s    0:00:00 (xfr#1, ir-chk=1000/1007)"
      "\r       30000007  60%  286.10MB/s    0:00:00 (xfr#5, to-chk=3/7)\n"
      "@>f+++++++++ 20000001 src/new\\#012line bad\\#377\n@cd+++++++++ 4096 src/d/\n"
      "\r       30000007  40%  286.10MB/s    0:00:00 (xfr#6, to-chk=5/7)@>f+++++++++ 5 behind an "
      "error\n"
      "\r       30000012  40%  286.10MB/s    0:00:00 (xfr#7, to-chk=5/7)Number of files: 9 (reg: "
      "8, "
      "dir: 1)\n";
  for (const std::size_t piece : {text.size(), std::size_t{1}, std::size_t{7}}) {
    RsyncOutput output;
    std::vector<std::string> items;
    for (std::size_t at = 0; at < text.size(); at += piece) {
      output.readOutput(std::string_view(text).substr(at, piece));
      if (items.empty() || items.back() != output.currentItem())
        items.push_back(output.currentItem());
    }
    output.finish();
    EXPECT_EQ(output.currentItem(), "behind an error");
    EXPECT_EQ(output.filesListed(), 8u);
    if (piece == 1) {
      EXPECT_THAT(items, testing::ElementsAre("", "src/back\\#012slash", "src/new\nline bad\xff",
                                              "src/d/", "behind an error"));
    }
    EXPECT_EQ(output.bytesCopied(), 20000008u) << "others have vanished";
    EXPECT_EQ(output.filesCopied(), 3u);
  }
}

TEST(RsyncOutput, TellsEachChangeAndHowMuchThereIs) {
  struct Seen {
    std::string name;
    std::uint64_t size;
    bool deletion, transfer, created;
    bool operator==(const Seen&) const = default;
  };
  std::vector<Seen> seen;
  RsyncOutput output({}, [&](const RsyncOutput::Item& item) {
    seen.push_back({item.name, item.size, item.isDeletion(), item.isTransfer(), item.isNew()});
  });
  output.readOutput(
      "@*deleting   0 d/old one\n@>f.st...... 77 changed\n@>f+++++++++ 5 new\n"
      "@.d..t...... 4096 ./\n@hf+++++++++ 5 other name\n@damaged\n"
      "cannot delete non-empty directory: keep\n"
      "Number of files: 1007 (reg: 1000, dir: 7)\n");
  output.finish();
  EXPECT_EQ(seen, (std::vector<Seen>{{"d/old one", 0, true, false, false},
                                     {"changed", 77, false, true, false},
                                     {"new", 5, false, true, true},
                                     {"./", 4096, false, false, false},
                                     {"other name", 5, false, false, true}}));
  EXPECT_EQ(output.filesListed(), 1000u);
}

TEST(RsyncOutput, KnowsWhatOfTheSourceWasNotRead) {
  RsyncOutput output(
      {{"/proc/self/fd/5", "/home/me", true}, {"/proc/self/fd/6", "/disk/me", false, true}});
  output.readErrors(
      "rsync: [sender] opendir \"/proc/self/fd/5/a/b\" failed: Permission denied (13)\n"
      "file has vanished: \"/proc/self/fd/5/c\\#012d\"\n"
      "directory has vanished: \"/proc/self/fd/5/e\"\n"
      "rsync: [generator] opendir \"/proc/self/fd/6/a/b\" failed: Permission denied (13)\n"
      "rsync: [generator] mkdir \"/proc/self/fd/6/f\" failed: No space left on device (28)\n");
  ASSERT_TRUE(output.unread());
  EXPECT_THAT(*output.unread(), testing::ElementsAre("a/b", "c\nd", "e"));
  EXPECT_EQ(output.errorCount(), 2u);
  EXPECT_EQ(output.firstErrorPath(), "/home/me/a/b");
  EXPECT_EQ(output.lastErrorPath(), "/disk/me/f");
  EXPECT_TRUE(output.isFull());
  EXPECT_EQ(output.errors().front().text,
            "rsync: [sender] opendir \"/home/me/a/b\" failed: Permission denied (13)");
}

TEST(RsyncOutput, CountsErrorsButNotTheirSummary) {
  RsyncOutput output;
  output.readErrors(
      "rsync: [sender] send_files failed to open \"/a/b \\#012c\": Permission denied (13)\n");
  output.readErrors("rsync: [generator] mkdir \"/d\" failed: Read-only file system (30)\n");
  output.readErrors(
      "file has vanished: \"/e\"\nrsync error: some files could not be transferred (code 23)");
  output.finish();
  EXPECT_EQ(output.errorCount(), 2u);
  EXPECT_EQ(output.firstErrorPath(), "/a/b \nc");
  EXPECT_EQ(output.lastErrorPath(), "/d");
}

std::vector<std::string> rsync(const std::string& from, const std::string& to,
                               std::vector<std::string> more = {}) {
  std::vector<std::string> words{"/usr/bin/rsync", "-a"};
  for (const auto& word : RsyncOutput::arguments()) words.push_back(word);
  words.insert(words.end(), more.begin(), more.end());
  words.insert(words.end(), {"--", from, to});
  return words;
}

TEST(RsyncProcess, CopiesNamesOfAnyBytes) {
  ScratchFolder scratch;
  const std::string odd = "a\nb \\#012 \xff\xfe";
  scratch.write("source/" + odd, "contents");
  std::filesystem::create_directory(scratch / "copy");
  ExecuteControl control;
  RsyncOutput output;
  const auto end =
      RsyncProcess::run({rsync(scratch / "source", scratch / "copy/")}, control, output, [] {});
  ASSERT_TRUE(end);
  EXPECT_EQ(end->status, 0);
  EXPECT_EQ(output.currentItem(), "source/" + odd);
  EXPECT_EQ(scratch.read("copy/source/" + odd), "contents");
  EXPECT_EQ(output.filesCopied(), 1u);
  EXPECT_EQ(output.bytesCopied(), 8u);
}

TEST(RsyncProcess, StopsAndSkipsWhenAsked) {
  ScratchFolder scratch;
  scratch.write("source/big", std::string(4 << 20, 'x'));
  std::filesystem::create_directory(scratch / "copy");
  for (const bool skip : {false, true}) {
    ExecuteControl control;
    RsyncOutput output;
    // Slow enough (64 KB/s) that it cannot end by itself while the test runs.
    const auto end = RsyncProcess::run(
        {rsync(scratch / "source", scratch / "copy/", {"--bwlimit=64"})}, control, output, [&] {
          if (output.currentItem().empty()) return;
          skip ? control.skipItem() : control.stop(StopReason::user);
        });
    ASSERT_TRUE(end);
    EXPECT_NE(end->status, 0);
    EXPECT_EQ(end->skipWanted, skip);
    EXPECT_FALSE(std::filesystem::exists(scratch / "copy/source/big"));
  }
}

TEST(RsyncProcess, HoldsStillWhilePausedAndCanBeStoppedThen) {
  ScratchFolder scratch;
  scratch.write("source/big", std::string(4 << 20, 'x'));
  std::filesystem::create_directory(scratch / "copy");
  ExecuteControl control;
  RsyncOutput output;
  std::thread other;
  const auto end = RsyncProcess::run(
      {rsync(scratch / "source", scratch / "copy/", {"--bwlimit=64"})}, control, output, [&] {
        if (output.currentItem().empty() || other.joinable()) return;
        control.setPaused(true);
        other = std::thread([&] { control.stop(StopReason::user); });
      });
  if (other.joinable()) other.join();
  ASSERT_TRUE(end);
  EXPECT_NE(end->status, 0);
}

TEST(RsyncProcess, SaysWhyAProgramCannotBeStarted) {
  ExecuteControl control;
  RsyncOutput output;
  const auto end = RsyncProcess::run({{"/nonexistent/rsync"}}, control, output, [] {});
  ASSERT_FALSE(end);
  EXPECT_EQ(end.error().text, "/nonexistent/rsync: No such file or directory");
}

}  // namespace
}  // namespace corvana
