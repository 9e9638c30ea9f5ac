#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "actions/History.h"
#include "execute/ExecuteRun.h"
#include "platform/linux/LinuxVolumes.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/execute/ScratchFolder.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// A home with one action, executed by the real rsync; the agent is played by the test.
class ExecuteRunTest : public testing::Test {
 protected:
  ExecuteRunTest() {
    scratch.write("Documents/letter", "dear");
    scratch.write("Documents/sub/report", "figures");
    fs::create_directory(scratch / "Backup");
  }

  void makeAction(int mode) {
    const auto item = [&](const std::string& name) {
      return ZAN_Value::dictionary({{"VolumeFolderPath", scratch / name}});
    };
    ZAN_Value sources = ZAN_Value::array({item("Documents")});
    settings = ZAN_Value::dictionary({{"Ref", 77},
                                      {"Title", "Letters"},
                                      {"Mode", mode},
                                      {"OptionsPerformer", "corvana9"},
                                      {"ItemsListOfSourcePath", sources},
                                      {"ItemsDestination", item("Backup")}});
  }

  void run(bool estimate = false) {
    ASSERT_TRUE(store.tree().saveActionsTree(ZAN_Value::array({settings})));
    tree.releaseRootItem();
    ExecuteMessages messages(real.clock, [&](const DistributedNotification& post) {
      posts.push_back(post);
      if (onPost) onPost(post);
    });
    ExecuteArguments arguments;
    arguments.reference = 77;
    arguments.estimateSize = estimate;
    ExecuteRun({{store, tree, history},
                messages,
                *control,
                [this] { return agentRuns; },
                volumes,
                real.machine,
                {{"rsync", rsync}}})
        .perform(arguments);
    tree.releaseRootItem();
  }

  ZAN_Value record() { return tree.rootItem().actionForReference(77)->getSettings(); }
  ZAN_Value lastLog() {
    const ZAN_Value list = history.log().readLogList();
    return list.empty() ? ZAN_Value() : list.at(list.size() - 1);
  }
  ZAN_Value lastHistory() {
    return history.historyEntryAtIndex(static_cast<std::int64_t>(history.historyCount()) - 1);
  }
  std::size_t count(const std::string& object) const {
    return static_cast<std::size_t>(std::count_if(
        posts.begin(), posts.end(), [&](const auto& post) { return post.object == object; }));
  }

  LinuxVolumes volumes{"nobody", "/"};
  ScratchFolder scratch;
  SimulatedPlatform real;
  ZAN_StringTable texts;
  ActionStore store{real.clock, real.machine, real.systemLog};
  ActionTree tree{store.tree(), real.clock, real.systemLog, texts};
  History history{store};
  std::optional<ExecuteControl> control{std::in_place};
  ZAN_Value settings;
  std::vector<DistributedNotification> posts;
  std::function<void(const DistributedNotification&)> onPost;
  bool agentRuns = false;
  std::string rsync = "/usr/bin/rsync";
};

TEST_F(ExecuteRunTest, CopiesAndLeavesEveryRecord) {
  makeAction(2);
  scratch.write("Backup/Documents/kept", "older");
  run();
  EXPECT_EQ(scratch.read("Backup/Documents/sub/report"), "figures");
  EXPECT_EQ(scratch.read("Backup/Documents/kept"), "older");

  EXPECT_EQ(lastLog().integer("C"), 2);
  EXPECT_EQ(lastLog().integer("R"), 77);
  EXPECT_EQ(lastLog().string("N"), "Letters");
  EXPECT_TRUE(lastLog()["M"].isDate());
  ASSERT_EQ(history.historyCount(), 1u);
  EXPECT_EQ(lastHistory().integer("C"), 2);
  EXPECT_EQ(lastHistory().integer("Ref"), 77);
  EXPECT_TRUE(lastHistory()["EndDate"].isDate());
  EXPECT_EQ(record().integer("ExecCounter"), 1);
  EXPECT_EQ(record()["LastExecutionDate"].asDate(), real.clock.now());
  EXPECT_FALSE(store.texts().readCurrentPath());
  EXPECT_FALSE(fs::exists(store.folder().pathOf("Corvana 9 CurrentPath.txt")));

  const auto last = std::find_if(posts.rbegin(), posts.rend(),
                                 [](const auto& post) { return post.object == "ExecuteProgress"; });
  ASSERT_NE(last, posts.rend());
  EXPECT_EQ(last->name, "CVA9_SchedulerNotification");
  EXPECT_EQ(last->userInfo.integer("FilesCopied"), 2);
  EXPECT_EQ(last->userInfo.integer("SizeCopied"), 11);
  EXPECT_EQ(last->userInfo["ProgressValue"].doubleValue(), 100);
  EXPECT_THAT(last->userInfo.string("CurrentPath"), HasSubstr(scratch / "Documents"));
}

TEST_F(ExecuteRunTest, TellsAsMuchAsTheModeOfTheSurveyWants) {
  ASSERT_TRUE(texts.load(CORVANA_SOURCE_FOLDER "/resources", {"en"}));
  const ZAN_StringUtils strings("C", "UTC");
  ExecuteMessages messages(real.clock, [&](const auto& post) { posts.push_back(post); });
  const auto tell = [&](const std::string& path) {
    messages.postProgress({.currentPath = path, .sizeCopied = 2000, .filesCopied = 3}, false);
    real.clock.sleep(0.1);
    return count("ExecuteProgress");
  };
  const auto replyIn = [&](int mode) {
    messages.handle({"", "SetExecutionMode", ZAN_Value::dictionary({{"ExecutionMode", mode}})},
                    *control, {texts, strings, 77});
    messages.handle({"", "AskExecuteReply", {}}, *control, {texts, strings, 77});
    return posts.back().userInfo.string("ExecuteReplyMessage");
  };
  EXPECT_EQ(tell("/a"), 1u);
  EXPECT_EQ(tell("/b"), 1u) << "twice a second will do";
  EXPECT_EQ(replyIn(0), "Executing action 77");
  EXPECT_EQ(replyIn(1), "Executing action 77: /b");
  EXPECT_EQ(replyIn(9), "Executing action 77: /b (files: 3, size: 2 kB, errors: 0)");
  real.clock.sleep(1);
  EXPECT_EQ(tell("/c"), 2u);
  EXPECT_EQ(tell("/d"), 3u);
  EXPECT_EQ(tell("/d"), 3u) << "nothing new";
}

TEST_F(ExecuteRunTest, SynchronisingRemovesWhatTheSourceNoLongerHas) {
  makeAction(3);
  scratch.write("Backup/Documents/gone", "older");
  scratch.write("Backup/neighbour", "not ours");
  settings.setValue("LastExecutionDate", ZAN_Value::date(1));
  fs::create_symlink("nowhere", scratch / "Documents/link");
  fs::permissions(scratch / "Documents/letter", fs::perms{0640});
  run();
  EXPECT_EQ(fs::read_symlink(scratch / "Backup/Documents/link"), "nowhere");
  EXPECT_EQ(fs::status(scratch / "Backup/Documents/letter").permissions(), fs::perms{0640});
  EXPECT_EQ(fs::last_write_time(scratch / "Backup/Documents/letter"),
            fs::last_write_time(scratch / "Documents/letter"));
  EXPECT_FALSE(fs::exists(scratch / "Backup/Documents/gone"));
  EXPECT_EQ(scratch.read("Backup/neighbour"), "not ours");
  EXPECT_EQ(scratch.read("Backup/Documents/letter"), "dear");
}

TEST_F(ExecuteRunTest, AsksOnceBeforeItDeletesMuchAndTakesAConsentForOneRun) {
  makeAction(3);
  for (int number = 0; number < 90; ++number)
    scratch.write("Backup/Documents/old" + std::to_string(number), "old");
  settings.setValue(CopyKey::takesOver, 1);
  const auto left = [&] {  // and the mark of the copy
    return std::distance(fs::directory_iterator(scratch / "Backup/Documents"), {}) - 1;
  };
  run();
  EXPECT_EQ(left(), 92);
  EXPECT_EQ(lastLog().integer("C"), 14);
  EXPECT_THAT(lastLog().string("F"), HasSubstr("corvana9 confirm 77"));
  EXPECT_EQ(record().integer(DeletionKey::toConfirm), 90);
  EXPECT_EQ(lastHistory().integer("FilesDeleted"), 0);
  settings = record();
  settings.setValue(DeletionKey::confirmed, 90);
  real.clock.sleep(2);
  run();
  EXPECT_EQ(left(), 2);
  EXPECT_EQ(lastLog().integer("C"), 2);
  EXPECT_EQ(record().integer(DeletionKey::toConfirm), 0);
  EXPECT_EQ(record().integer(DeletionKey::confirmed), 0);
  EXPECT_EQ(lastHistory().integer("FilesDeleted"), 90);
}

TEST_F(ExecuteRunTest, TouchesNothingForAnotherPerformersRecord) {
  makeAction(2);
  settings.removeKey("OptionsPerformer");
  run();
  EXPECT_TRUE(fs::is_empty(scratch / "Backup"));
  EXPECT_EQ(lastLog().integer("C"), 5);
  EXPECT_THAT(lastLog().string("F"), HasSubstr("OptionsPerformer"));
  EXPECT_TRUE(record()["ExecCounter"].isNull());
  EXPECT_TRUE(record()["LastExecutionDate"].isNull());
}

TEST_F(ExecuteRunTest, SaysThatAVolumeIsMissingAndCreatesNothing) {
  makeAction(2);
  settings.setValue("ItemsDestination",
                    ZAN_Value::dictionary({{"VolumeFolderPath", "/media/nobody/Disk/Backup"},
                                           {"VolumeFolderVolumeSize", 5}}));
  run();
  EXPECT_FALSE(fs::exists("/media/nobody"));
  EXPECT_EQ(lastLog().integer("C"), 4);
  EXPECT_EQ(lastHistory().integer("C"), 4);
  EXPECT_TRUE(record()["LastExecutionDate"].isNull());
}

TEST_F(ExecuteRunTest, CountsWhatCannotBeCopied) {
  makeAction(2);
  scratch.write("Backup/Documents/sub", "a file where a folder must be");
  scratch.write("Backup/Documents/letter/full", "a folder where a file must be");
  run();
  EXPECT_EQ(lastLog().integer("C"), 14);
  EXPECT_GE(lastHistory().integer("ActionErrors"), 1);
  EXPECT_EQ(record().integer("ExecCounter"), 1);
  EXPECT_TRUE(history.results().getActionResultsPathForRef(77, *lastHistory()["Date"].asDate()));
}

TEST_F(ExecuteRunTest, TellsEachEndOfTheCopyingProgram) {
  makeAction(2);
  const std::string error = "echo 'rsync: open \"/a\" failed: Permission denied (13)' >&2; ";
  struct End {
    std::string script;
    int code;
    int errors;
  };
  for (const End& end :
       {End{"exit 0", 2, 0}, End{error + "exit 0", 14, 1}, End{"exit 23", 14, 1},
        End{error + error + "exit 23", 14, 2}, End{"exit 24", 2, 0}, End{error + "exit 24", 14, 1},
        End{"exit 20", 5, 0}, End{"exit 22", 5, 0}, End{"exit 25", 5, 0}, End{"exit 30", 11, 0},
        End{"exit 35", 11, 0}, End{"kill -9 $$", 5, 0}, End{"kill -TERM $$", 5, 0},
        End{"rm -r '" + (scratch / "Documents") + "'; exit 12", 15, 0}}) {
    SCOPED_TRACE(end.script);
    // Memory file systems may refuse to execute what lies in them.
    rsync = testing::TempDir() + "rsync" + std::to_string(::getpid());
    std::ofstream(rsync) << "#!/bin/sh\n" << end.script << "\n";
    fs::permissions(rsync, fs::perms::owner_all);
    run();
    EXPECT_EQ(lastLog().integer("C"), end.code);
    EXPECT_EQ(lastHistory().integer("ActionErrors"), end.errors);
    EXPECT_EQ(lastHistory().integer("C"), end.code);
    fs::remove(rsync);
    real.clock.sleep(2);
  }
}

TEST_F(ExecuteRunTest, EndsAsTheUserOrTheVolumeWants) {
  makeAction(2);
  for (const auto& [object, code] :
       {std::pair("ActionStop", 3), std::pair("ActionStopVolume", 15)}) {
    control.emplace();
    ExecuteMessages(real.clock, {})
        .handle({"CVA9_ExecuteNotification", object, {}}, *control, {texts, ZAN_StringUtils(), 77});
    run();
    EXPECT_EQ(lastLog().integer("C"), code);
    EXPECT_EQ(lastHistory().integer("C"), code);
    EXPECT_TRUE(record()["LastExecutionDate"].isNull());
  }
}

TEST_F(ExecuteRunTest, TellsWhatItWouldDoAndRecordsNothing) {
  makeAction(3);
  ASSERT_TRUE(store.tree().saveActionsTree(ZAN_Value::array({settings})));
  tree.releaseRootItem();
  ExecuteMessages messages(real.clock, {});
  ExecuteRun planning({{store, tree, history}, messages, *control, {}, volumes, real.machine});
  const ZAN_Value plan = planning.plan(77, 1);
  EXPECT_TRUE(plan["possible"].boolValue()) << plan.string("reason");
  EXPECT_EQ(plan["copy"].integer("files"), 2);
  EXPECT_EQ(plan["copy"].integer("bytes"), 11);
  EXPECT_EQ(plan["copy"]["items"].size(), 1u);
  EXPECT_EQ(plan["delete"].integer("files"), 0);
  EXPECT_TRUE(fs::is_empty(scratch / "Backup"));
  EXPECT_EQ(history.historyCount(), 0u);
  EXPECT_FALSE(planning.plan(78, 1)["possible"].boolValue());
}

TEST_F(ExecuteRunTest, TellsOfAnItemThatCannotBeCopiedAndHowToLeaveItOut) {
  makeAction(2);
  rsync = testing::TempDir() + "rsync" + std::to_string(::getpid());
  std::ofstream(rsync) << "#!/bin/sh\nfor word; do source=$copy; copy=$word; done\n"
                          "echo \"rsync: [sender] send_files failed to open \\\"${source}mine\\\": "
                          "Permission denied (13)\" >&2; exit 23\n";
  fs::permissions(rsync, fs::perms::owner_all);
  run();
  fs::remove(rsync);
  EXPECT_EQ(lastLog().integer("C"), 14);
  EXPECT_EQ(lastLog().integer(RunKey::onlyLacks), 1);
  EXPECT_THAT(lastLog().string("F"), HasSubstr("corvana9 edit 77 --exclude-missing"));
  EXPECT_EQ(lastHistory().integer(RunKey::notPossible), 1);
  EXPECT_EQ(lastHistory().integer(RunKey::onlyLacks), 1);
  EXPECT_EQ(record()[CopyKey::notPossible], ZAN_Value::array({"/mine"}));
  EXPECT_EQ(record()[ActionKey::lastSuccess].asDate(), lastHistory()["EndDate"].asDate());
}

TEST_F(ExecuteRunTest, NotesItsLastSuccessApartFromItsLastRun) {
  makeAction(2);
  run();
  const ZAN_Value good = lastHistory();
  ASSERT_EQ(good.integer("C"), 2);
  rsync = testing::TempDir() + "rsync" + std::to_string(::getpid());
  std::ofstream(rsync) << "#!/bin/sh\nexit 23\n";
  fs::permissions(rsync, fs::perms::owner_all);
  for (int i = 0; i < 2; ++i) {
    real.clock.sleep(1);
    run();
    EXPECT_EQ(lastHistory().integer("C"), 14);
    EXPECT_EQ(record()[ActionKey::lastSuccess].asDate(), good["EndDate"].asDate());
    EXPECT_GT(*record()["LastExecutionDate"].asDate(), *good["EndDate"].asDate());
    // The first of them found a record of a version that noted runs alone.
    settings = record();
  }
  fs::remove(rsync);
}

TEST_F(ExecuteRunTest, NamesTheFolderThatStandsWhereAFileIsToBe) {
  makeAction(2);
  run();
  fs::remove_all(scratch / "Documents/sub");
  scratch.write("Documents/sub", "a file now");
  scratch.write("Documents/other", "new");
  real.clock.sleep(1);
  run();
  EXPECT_EQ(lastLog().integer("C"), 14);
  EXPECT_EQ(lastLog().string("P"), scratch / "Backup/Documents/sub");
  EXPECT_EQ(scratch.read("Backup/Documents/other"), "new");
  EXPECT_EQ(scratch.read("Backup/Documents/sub/report"), "figures");
}

TEST_F(ExecuteRunTest, EstimatesWithoutCopying) {
  makeAction(2);
  run(true);
  EXPECT_TRUE(fs::is_empty(scratch / "Backup"));
  EXPECT_EQ(record().integer("ExecutionPrecountQty"), 2);
  EXPECT_EQ(record().integer("ExecutionPrecountSize"), 11);
  EXPECT_EQ(history.historyCount(), 0u);
  EXPECT_TRUE(record()["LastExecutionDate"].isNull());
}

TEST_F(ExecuteRunTest, LeavesTheLogToAnAgentThatTakesItAndWritesItElse) {
  makeAction(2);
  agentRuns = true;
  onPost = [&](const DistributedNotification& post) {
    if (post.object != "AddToLog") return;
    ZAN_Value entry = post.userInfo;
    entry.setValue("M", ZAN_Value::date(real.clock.now()));
    history.log().addLog(entry);
  };
  run();
  EXPECT_EQ(history.log().readLogList().size(), 1u);
  EXPECT_FALSE(lastLog().contains("Untold"));
  onPost = {};
  real.clock.sleep(1);
  run();
  EXPECT_EQ(history.log().readLogList().size(), 2u);
  EXPECT_EQ(lastLog().integer("Untold"), 1) << "for the next agent";
  EXPECT_EQ(count("AddToLog"), 2u);
}

}  // namespace
}  // namespace corvana
