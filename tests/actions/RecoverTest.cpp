#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>

#include "StoreHome.h"
#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "actions/History.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;

constexpr double kDay = 86400;

/// While it lives, no file can be opened.
class NoDescriptors {
 public:
  NoDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &mBefore);
    const struct rlimit none = {0, mBefore.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &mBefore); }

 private:
  struct rlimit mBefore = {};
};

class Recover : public testing::Test, protected StoreHome {
 protected:
  static ZAN_Value tree(const std::string& title, double lastDate = 0) {
    return ZAN_Value::array(
        {ZAN_Value::dictionary({{"Ref", 1},
                                {"Title", title},
                                {"ExecCounter", static_cast<std::int64_t>(lastDate)},
                                {"LastScheduleDate", ZAN_Value::date(lastDate)}})});
  }
  std::string titleOf(const std::string& generation) {
    return store.files().readListAtPath(generation).at(1).string("Title");
  }
  std::vector<Generations::Generation> versions() {
    return store.files().generations().of(DataFolder::kActions);
  }
  void save(const ZAN_Value& records) { ASSERT_TRUE(store.tree().saveActionsTree(records)); }
};

TEST_F(Recover, WhatCannotBeReadNowIsNeitherPutAsideNorWrittenOver) {
  save(tree("kept"));
  ASSERT_TRUE(store.settings().setMainAppSetting("kept", "Volume"));
  ASSERT_TRUE(store.tree().appendToChangesList(ZAN_Value::dictionary({{"Ref", 1}})));
  History before(store);
  before.addHistoryEntry(ZAN_Value::dictionary({{"Title", "first"}, {"C", 2}}));
  before.log().addLog(ZAN_Value::dictionary({{"N", "first"}, {"C", 13}}));

  // A program that starts in such a moment, and goes on.
  ActionStore late(machine.clock, machine.machine, machine.systemLog);
  History history(late);
  std::vector<DataFiles::Trouble::Kind> told;
  late.files().onTrouble = [&](const auto& trouble) { told.push_back(trouble.kind); };
  {
    const NoDescriptors none;
    EXPECT_TRUE(late.settings().mainAppSettings().isNull());
    history.addHistoryEntry(ZAN_Value::dictionary({{"Title", "second"}, {"C", 2}}));
    history.log().addLog(ZAN_Value::dictionary({{"N", "second"}, {"C", 13}}));
    EXPECT_FALSE(late.tree().appendToChangesList(ZAN_Value::dictionary({{"Ref", 2}})));
    EXPECT_FALSE(late.settings().setMainAppSetting("new", "Other"));
    EXPECT_TRUE(late.tree().readActionsList().empty());
    EXPECT_FALSE(late.tree().actionsListWasReadable());
  }
  for (const auto kind : told) EXPECT_NE(kind, DataFiles::Trouble::Kind::damaged);
  EXPECT_FALSE(told.empty());
  EXPECT_TRUE(dataFilesWith("(damaged").empty());

  history.addHistoryEntry(ZAN_Value::dictionary({{"Title", "third"}, {"C", 2}}));
  history.log().addLog(ZAN_Value::dictionary({{"N", "third"}, {"C", 13}}));
  ASSERT_TRUE(late.tree().appendToChangesList(ZAN_Value::dictionary({{"Ref", 3}})));
  ASSERT_TRUE(late.settings().setMainAppSetting("new", "Other"));
  EXPECT_EQ(other.settings().mainAppSettingForKey("Volume").string(), "kept");
  EXPECT_EQ(History(other).historyCount(), 3U) << "none is lost, in their order";
  EXPECT_EQ(ActionLog(other).readLogList().size(), 3U);
  EXPECT_EQ(other.tree().readChangesList().size(), 3U);
  EXPECT_EQ(other.tree().readActionsList().size(), 1U);
}

TEST_F(Recover, AFileThatLostItsContentsIsDamagedAndANewOneIsNot) {
  store.createMissingDataFiles();
  EXPECT_TRUE(store.tree().readActionsList().empty());
  EXPECT_TRUE(store.tree().actionsListWasReadable()) << "new homes have empty files";
  save(tree("one"));
  ASSERT_TRUE(store.settings().saveSchedulerSettings(ZAN_Value::dictionary({{"a", 1}})));
  History(store).addHistoryEntry(ZAN_Value::dictionary({{"Title", "one"}, {"C", 2}}));
  for (const auto name :
       {DataFolder::kActions, DataFolder::kSchedulerSettings, DataFolder::kHistory})
    put(name, "");

  ActionStore next(machine.clock, machine.machine, machine.systemLog);
  std::set<std::string> damaged;
  next.files().onTrouble = [&](const auto& trouble) {
    if (trouble.kind == DataFiles::Trouble::Kind::damaged) damaged.insert(trouble.path);
  };
  EXPECT_TRUE(next.tree().readActionsList().empty());
  EXPECT_FALSE(next.tree().actionsListWasReadable());
  EXPECT_TRUE(next.settings().schedulerSettings().isNull());
  (void)History(next).historyCount();
  EXPECT_EQ(damaged,
            (std::set<std::string>{path(DataFolder::kActions), path(DataFolder::kSchedulerSettings),
                                   path(DataFolder::kHistory)}));
  ASSERT_TRUE(next.settings().saveSchedulerSettings(ZAN_Value::dictionary({{"b", 2}})));
  EXPECT_EQ(dataFilesWith("Scheduler Settings.cva9data (damaged").size(), 1U)
      << "that something was lost is to be seen";
}

TEST_F(Recover, TheLastTenAndOneADayAreKeptAndDatesMakeNone) {
  for (int day = 0; day < 40; ++day) {
    for (int edit = 0; edit < 3; ++edit) {
      save(tree(std::to_string(day) + "." + std::to_string(edit), day * 100.0 + edit));
      machine.clock.setNow(machine.clock.now() + 60);
      save(tree(std::to_string(day) + "." + std::to_string(edit), day * 100.0 + edit + 50));
      machine.clock.setNow(machine.clock.now() + 60);
    }
    machine.clock.setNow(machine.clock.now() + kDay - 360);
  }
  const auto all = versions();
  ASSERT_GE(all.size(), 10U + 27U);
  ASSERT_LE(all.size(), 10U + 31U);
  EXPECT_EQ(titleOf(all[0].path), "39.2");
  EXPECT_EQ(titleOf(all[9].path), "36.2") << "ten edits back, dates and counters are no edits";
  EXPECT_EQ(titleOf(all[10].path), "35.2") << "then the last of each day";
  EXPECT_GT(all.back().date, machine.clock.now() - 31 * kDay);
  struct stat status;
  ASSERT_EQ(::stat(all[0].path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(Recover, WhatIsBroughtBackReplacesNothingForGood) {
  save(tree("one"));
  machine.clock.setNow(machine.clock.now() + 1);
  save(tree("two", 7));
  // Another program has written since.
  put(DataFolder::kActions, text(versions().back().path));
  machine.clock.setNow(machine.clock.now() + 1);
  save(tree("three"));
  const auto all = versions();
  ASSERT_EQ(all.size(), 4U) << "one, two, one again by the other program, three";
  machine.clock.setNow(machine.clock.now() + 1);

  put(DataFolder::kActions, "no archive");
  EXPECT_FALSE(store.tree().actionsListWasReadable() && !store.tree().readActionsList().empty());
  ASSERT_TRUE(store.files().bringBack(DataFolder::kActions, all[0].path));
  EXPECT_EQ(other.tree().readActionsList(), tree("three"));
  EXPECT_TRUE(dataFilesWith("(damaged").empty()) << "it lies with the versions";
  std::size_t damaged = 0;
  for (const auto& entry : fs::directory_iterator(store.folder().actionsBackupFolderPath()))
    damaged += entry.path().filename().string().find("(damaged") != std::string::npos;
  EXPECT_EQ(damaged, 1U);

  machine.clock.setNow(machine.clock.now() + 1);
  ASSERT_TRUE(store.files().bringBack(DataFolder::kActions, all[2].path));
  EXPECT_EQ(other.tree().readActionsList().at(0).string("Title"), "two");
  EXPECT_EQ(titleOf(versions().front().path), "three") << "what was replaced";

  ASSERT_TRUE(ZAN_FileWriter({}).write(all[0].path, "damaged too", {}));
  EXPECT_FALSE(store.files().bringBack(DataFolder::kActions, all[0].path));
  EXPECT_EQ(other.tree().readActionsList().at(0).string("Title"), "two") << "nothing is touched";
}

}  // namespace
}  // namespace corvana
