#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "execute/Rsync.h"
#include "tests/execute/ScratchFolder.h"

namespace corvana {
namespace {

TEST(RsyncOutput, ReadsItemsAndProgressInAnyPieces) {
  const std::string text =
      "@*deleting   0 src/old\n@>f+++++++++ 2 src/back\\#134#012slash\n"
      "\r              2   0%    0.00kB/s    0:00:00 (xfr#1, ir-chk=1000/1007)"
      "\r       30000007  60%  286.10MB/s    0:00:00 (xfr#5, to-chk=3/7)\n"
      "@>f+++++++++ 1 src/new\\#012line bad\\#377\n@cd+++++++++ 4096 src/d/\n"
      "\r       30000007  40%  286.10MB/s    0:00:00 (xfr#6, to-chk=5/7)\n";
  for (const std::size_t piece : {text.size(), std::size_t{1}, std::size_t{7}}) {
    RsyncOutput output;
    std::vector<std::string> items;
    for (std::size_t at = 0; at < text.size(); at += piece) {
      output.readOutput(std::string_view(text).substr(at, piece));
      if (items.empty() || items.back() != output.currentItem())
        items.push_back(output.currentItem());
    }
    output.finish();
    EXPECT_EQ(output.currentItem(), "src/d/");
    if (piece == 1) {
      EXPECT_THAT(items, testing::ElementsAre("", "src/back\\#012slash", "src/new\nline bad\xff",
                                              "src/d/"));
    }
    EXPECT_EQ(output.bytesCopied(), 30000007u);
    EXPECT_EQ(output.filesCopied(), 6u);
    EXPECT_EQ(output.itemsDeleted(), 1u);
    EXPECT_DOUBLE_EQ(output.progress(), 60);  // four of seven files are less, and it never falls
  }
}

TEST(RsyncOutput, TakesNoMoreFromAProgressLineThanItSays) {
  struct Line {
    const char* text;
    std::uint64_t bytes;
    std::uint64_t files;
    double progress;
  };
  for (const Line& line : {
           // Folders are still being read: the percentage is one of what is known so far.
           Line{"   500 100%  1.0MB/s  0:00:00 (xfr#3, ir-chk=10/20)", 500, 3, 0},
           Line{"   500  30%  1.0MB/s  0:00:00 (xfr#3, to-chk=10/20)", 500, 3, 50},
           Line{"   500  70%  1.0MB/s  0:00:00 (xfr#3, to-chk=10/20)", 500, 3, 70},
           Line{"   500  70%  1.0MB/s  0:00:00 (xfr#3, to-chk=0/20)", 500, 3, 100},
           Line{"   500  70%  1.0MB/s  0:00:00 (xfr#3, to-chk=20/20)", 500, 3, 70},
           Line{"   500  10%  1.0MB/s  0:00:00 (xfr#3, to-chk=30/20)", 500, 3, 10},
           Line{"   500  10%  1.0MB/s  0:00:00 (xfr#3, to-chk=0/0)", 500, 3, 10},
           Line{"   500 130%  1.0MB/s  0:00:00", 500, 0, 100},
           Line{"   500  40%  1.0MB/s  0:00:00", 500, 0, 40},
           Line{"   500  40", 0, 0, 0},
           Line{"   40%", 0, 0, 0},
           Line{"sent 500 bytes", 0, 0, 0},
       }) {
    SCOPED_TRACE(line.text);
    RsyncOutput output;
    output.readOutput(std::string(line.text) + "\r");
    EXPECT_EQ(output.bytesCopied(), line.bytes);
    EXPECT_EQ(output.filesCopied(), line.files);
    EXPECT_DOUBLE_EQ(output.progress(), line.progress);
    output.readOutput("   400  5%  1.0MB/s  0:00:00 (xfr#2, to-chk=20/20)\r");
    EXPECT_GE(output.bytesCopied(), line.bytes) << "it never falls";
    EXPECT_GE(output.filesCopied(), line.files);
    EXPECT_GE(output.progress(), line.progress);
  }
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
      RsyncProcess::run(rsync(scratch / "source", scratch / "copy/"), control, output, [] {});
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
        rsync(scratch / "source", scratch / "copy/", {"--bwlimit=64"}), control, output, [&] {
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
  const auto end = RsyncProcess::run(rsync(scratch / "source", scratch / "copy/", {"--bwlimit=64"}),
                                     control, output, [&] {
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
  const auto end = RsyncProcess::run({"/nonexistent/rsync"}, control, output, [] {});
  ASSERT_FALSE(end);
  EXPECT_EQ(end.error().text, "/nonexistent/rsync: No such file or directory");
}

}  // namespace
}  // namespace corvana
