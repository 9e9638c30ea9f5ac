#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "RecordFixture.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

struct StorageWatchTest : RecordTest {
  StorageWatchTest() {
    agent.records.texts = ZAN_StringTable(
        ZAN_StringTable::Entries{{"StorageDamaged", "%@ is damaged, left: %@"},
                                 {"StorageDamagedRecover", "%@ is damaged (recover), left: %@"},
                                 {"StorageUnreadable", "cannot read %@"},
                                 {"StorageUnwritable", "cannot write %@"},
                                 {"RecoverTitle", "Earlier version"},
                                 {"RecoverText", "Bring back %@ of %@?"},
                                 {"RecoverButton", "Yes"},
                                 {"RecoverNotNowButton", "No"},
                                 {"RecoverDone", "%@ is back"},
                                 {"RecoverFailed", "%@ is not back: %@"}});
  }
  std::string path(std::string_view name) { return agent.store.folder().pathOf(name); }
  std::string report() {
    const auto file =
        ZAN_FilesUtils::readFile(agent.store.texts().reportFileNameForDate(p.clock.now()));
    return file ? file->bytes : "";
  }
  std::string logged() {
    std::string all;
    const ZAN_Value list = agent.log.readLogList();
    for (const ZAN_Value& entry : list.elements()) all += ActionLog::messageForEntry(entry) + "\n";
    return all;
  }
  void damage(std::string_view name) {
    const auto half = fs::file_size(path(name)) / 2;
    fs::resize_file(path(name), half);
  }

  RecordedAgent agent{p};
};

TEST_F(StorageWatchTest, DamageIsToldEverywhereAndAnEarlierVersionIsOffered) {
  TreeFiles& tree = agent.store.tree();
  const auto actions = [](const char* title) {
    return ZAN_Value::array({ZAN_Value::dictionary({{"Ref", 1}, {"Title", title}})});
  };
  ASSERT_TRUE(tree.saveActionsTree(actions("First")));
  p.runLoop.runFor(3600);
  ASSERT_TRUE(tree.saveActionsTree(actions("Second")));
  std::string broughtBack;
  agent.records.storage.onBroughtBack = [&](std::string_view name) { broughtBack = name; };

  damage(DataFolder::kActions);
  EXPECT_TRUE(tree.readActionsList().empty());
  p.runLoop.runFor(1);
  EXPECT_NE(agent.state.mErrorInExecution, 0);
  EXPECT_THAT(report(), HasSubstr("Programmed Actions.cva9data is damaged (recover)"));
  EXPECT_THAT(logged(), HasSubstr("is damaged (recover)"));
  ASSERT_EQ(agent.records.storage.lasting().size(), 1U);
  ASSERT_EQ(p.userInterface.questions.size(), 1U);
  EXPECT_TRUE(tree.readActionsList().empty());
  p.runLoop.runFor(60);
  EXPECT_EQ(p.userInterface.questions.size(), 1U) << "one cause is one question";

  ASSERT_TRUE(p.userInterface.answerWhich(0));
  p.runLoop.runFor(1);
  EXPECT_EQ(broughtBack, DataFolder::kActions);
  EXPECT_EQ(tree.readActionsList().at(0).string("Title"), "Second");
  EXPECT_TRUE(agent.records.storage.lasting().empty());
  EXPECT_THAT(logged(), HasSubstr("is back"));
}

TEST_F(StorageWatchTest, WhatTheUserDeclinesStaysAsItIs) {
  TreeFiles& tree = agent.store.tree();
  ASSERT_TRUE(tree.saveActionsTree(ZAN_Value::array({ZAN_Value::dictionary({{"Ref", 1}})})));
  damage(DataFolder::kActions);
  EXPECT_TRUE(tree.readActionsList().empty());
  p.runLoop.runFor(1);
  ASSERT_TRUE(p.userInterface.answerWhich(1));
  p.runLoop.runFor(1);
  EXPECT_TRUE(tree.readActionsList().empty());
  EXPECT_EQ(agent.records.storage.lasting().size(), 1U) << "and it is told on";
}

TEST_F(StorageWatchTest, WhatPassesIsNotToldAndWhatLastsIs) {
  const std::string check = path(DataFolder::kCheckPackages);
  const auto hinder = [&] { fs::create_directories(check); };
  hinder();
  agent.store.texts().addToCheckPackagesFile("a");
  EXPECT_EQ(agent.records.storage.lasting().size(), 1U) << "for whoever asks";
  p.runLoop.runFor(20);
  fs::remove(check);
  agent.store.texts().addToCheckPackagesFile("b");
  p.runLoop.runFor(60);
  EXPECT_THAT(report(), Not(HasSubstr("cannot write")));
  EXPECT_TRUE(agent.records.storage.lasting().empty());
  EXPECT_EQ(agent.state.mErrorInExecution, 0);

  fs::remove(check);
  hinder();
  agent.store.texts().addToCheckPackagesFile("c");
  p.runLoop.runFor(31);
  EXPECT_THAT(report(), HasSubstr("cannot write " + check));
  EXPECT_THAT(logged(), HasSubstr("cannot write"));
  EXPECT_NE(agent.state.mErrorInExecution, 0);
}

}  // namespace
}  // namespace corvana
