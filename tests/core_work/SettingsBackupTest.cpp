#include "core/machine/SettingsBackup.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/History.h"
#include "core/machine/StartupDisk.h"
#include "tests/core_work/WorkWorld.h"

namespace corvana::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;
using Step = ZAN_FolderMirror::Step;

std::string textOf(const fs::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

struct SettingsBackupTest : testing::Test {
  SettingsBackupTest() {
    write(data / "Alias/one", "1");
    write(data / "state", "old");
    choose({"Stick"});
  }

  static void write(const fs::path& path, std::string_view text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
  }
  fs::path copyIn(const std::string& name) const {
    return chosen(name) / "Corvana 9 (Settings) Copy";
  }
  fs::path logIn(const std::string& name) const { return copyIn(name) / "_Backup Settings.txt"; }
  fs::path chosen(const std::string& name) const {
    return fs::path(world.machine.folder.path()) / name;
  }
  void choose(const std::vector<std::string>& names) {
    ZAN_Value list = ZAN_Value::array();
    for (const std::string& name : names) {
      list.append(ZAN_Value::dictionary({{"path", chosen(name).string()}, {"colour", 3}}));
      fs::create_directories(chosen(name));
    }
    ASSERT_TRUE(world.store.settings().setMainAppSetting(list, "CopySettingsDestinations"));
  }
  ZAN_Value destination(std::size_t index) {
    return world.store.settings().mainAppSettingForKey("CopySettingsDestinations").at(index);
  }
  void run() {
    backup.backupSettings();
    ASSERT_TRUE(world.machine.runLoop.runUntil([&] { return !backup.isRunning(); }, 3600));
  }
  void age(const std::string& name, double seconds) {
    ASSERT_TRUE(ZAN_FilesUtils::setModificationDate(logIn(name), world.now() - seconds));
  }

  WorkWorld world;
  SettingsBackup backup{world.records, world.volumes};
  fs::path data = world.store.folder().dataFolderPathWithFileName();
};

TEST_F(SettingsBackupTest, MirrorsTheDataFolderAndNotesIt) {
  ASSERT_EQ(::chmod((data / "state").c_str(), 0640), 0);
  write(copyIn("Stick") / "gone/deep", "x");
  write(copyIn("Stick") / "Alias", "a file where a folder is to be");
  fs::create_directory_symlink(chosen(""), copyIn("Stick") / "way out");
  write(copyIn("Stick") / "state", "a folder stood here");
  run();
  EXPECT_EQ(textOf(copyIn("Stick") / "Alias/one"), "1");
  EXPECT_EQ(textOf(copyIn("Stick") / "state"), "old");
  EXPECT_EQ(fs::status(copyIn("Stick") / "state").permissions(), fs::perms(0600));
  EXPECT_EQ(fs::status(copyIn("Stick")).permissions(), fs::perms(0700)) << "passwords lie in it";
  EXPECT_FALSE(fs::exists(copyIn("Stick") / "gone"));
  EXPECT_FALSE(fs::is_symlink(copyIn("Stick") / "way out"));
  EXPECT_TRUE(fs::exists(data / "state")) << "the link was removed, not followed";
  EXPECT_EQ(textOf(logIn("Stick")), world.store.dates().strings().getMediumDateTime(world.now()) +
                                        " - Settings were saved\n");
  EXPECT_EQ(destination(0)["date"].asDate(), world.now());
  EXPECT_EQ(destination(0).integer("colour"), 3);

  // What bears the same date is not copied again, what bears another is, even an older one.
  const auto date = fs::last_write_time(data / "Alias/one");
  write(copyIn("Stick") / "Alias/one", "2");
  fs::last_write_time(copyIn("Stick") / "Alias/one", date);
  write(data / "state", "new");
  fs::last_write_time(data / "state", date - std::chrono::hours(1));
  age("Stick", 7201);
  run();
  EXPECT_EQ(textOf(copyIn("Stick") / "Alias/one"), "2");
  EXPECT_EQ(textOf(copyIn("Stick") / "state"), "new");
}

TEST_F(SettingsBackupTest, NoSecretGoesWhereOthersRead) {
  const std::string secret(32, 'k');
  const ZAN_Value list =
      ZAN_Value::array({ZAN_Value::dictionary({{"Name", "kitchen"},
                                               {"KeyToControl", ZAN_Value::data(secret)},
                                               {"KeyToBeControlled", ZAN_Value::data(secret)}}),
                        ZAN_Value::dictionary({{"SchedulerPrefRemoteControlPassword", secret}})});
  ASSERT_TRUE(world.store.files().writeFileAtPath(data / DataFolder::kPaired,
                                                  DataFiles::dataFileAttributes(),
                                                  ZAN_Archiver::archivedDataWithRootObject(list)));
  const fs::path closed = chosen("closed"), open = chosen("open");
  for (const fs::path& folder : {closed, open}) {
    fs::create_directories(folder);
    // As a file system without rights has it.
    fs::permissions(folder, folder == open ? fs::perms(0777) : fs::perms(0700));
    ASSERT_TRUE(SettingsBackup::saveSettings(data.string(), folder.string(), "2024-01-02"));
  }
  EXPECT_THAT(textOf(closed / DataFolder::kPaired), HasSubstr(secret));
  EXPECT_THAT(textOf(open / DataFolder::kPaired),
              testing::AllOf(HasSubstr("kitchen"), testing::Not(HasSubstr("kkkk"))));
}

TEST_F(SettingsBackupTest, WaitsTwoHoursForEachFolder) {
  choose({"Stick", "Disk", "Away"});
  fs::remove(chosen("Away"));
  run();
  EXPECT_FALSE(fs::exists(chosen("Away"))) << "a volume that is not mounted is not made up";
  const ReferenceTime first = world.now();
  world.advance(60);
  age("Stick", 7199);
  age("Disk", 7201);
  run();
  EXPECT_EQ(destination(0)["date"].asDate(), first);
  EXPECT_EQ(destination(1)["date"].asDate(), world.now());
  EXPECT_TRUE(destination(2)["date"].isNull());
}

TEST_F(SettingsBackupTest, KeepsTheNewestLinesOfItsLog) {
  const auto linesAfter = [&](int before) {
    std::string log;
    for (int line = 1; line <= before; ++line) {
      log += (line == 1 ? "" : "\n") + std::string("line ") + std::to_string(line);
    }
    write(logIn("Stick"), log);
    age("Stick", 7201);
    run();
    const std::string now = textOf(logIn("Stick"));
    return std::count(now.begin(), now.end(), '\n') + 1;
  };
  EXPECT_EQ(linesAfter(60), 46);
  EXPECT_THAT(textOf(logIn("Stick")), testing::EndsWith("\nline 45"));
  EXPECT_EQ(linesAfter(51), 46);
  EXPECT_EQ(linesAfter(50), 51);

  write(logIn("Stick"), "newest\nsecond\n" + std::string(2 << 20, 'x'));
  age("Stick", 7201);
  run();
  EXPECT_THAT(textOf(logIn("Stick")), testing::EndsWith("\nnewest\nsecond"));
}

TEST_F(SettingsBackupTest, AFolderInTroubleKeepsItsDateAndHoldsNobodyUp) {
  choose({"Slow", "Full", "Gone", "Disk"});
  write(data / "large", std::string(500'000, 'x'));
  int ticks = 0;
  world.machine.runLoop.repeat(0.5, [&] { ++ticks; });
  backup.onMirrorStep = [&](Step step, const std::string& path) {
    if (path.find("/Slow/") != std::string::npos) world.machine.clock.sleep(1);
    if (path.find("/Full/") != std::string::npos && step == Step::write) return ENOSPC;
    if (path.find("/Gone/") != std::string::npos && step == Step::copy) {
      fs::remove_all(chosen("Gone"));
    }
    return 0;
  };
  backup.backupSettings();
  backup.backupSettings();
  world.advance(5);
  EXPECT_TRUE(backup.isRunning());
  EXPECT_EQ(ticks, 10);
  // The user takes a folder out of the list while it is being copied to.
  ZAN_Value list = world.store.settings().mainAppSettingForKey("CopySettingsDestinations");
  list.removeAt(0);
  ASSERT_TRUE(world.store.settings().setMainAppSetting(list, "CopySettingsDestinations"));
  ASSERT_TRUE(world.machine.runLoop.runUntil([&] { return !backup.isRunning(); }, 600));

  EXPECT_EQ(textOf(copyIn("Slow") / "large").size(), 500'000U);
  EXPECT_THAT(textOf(logIn("Full")), HasSubstr("Error while saving settings\n"));
  EXPECT_FALSE(fs::exists(copyIn("Full") / "large")) << "no half files";
  EXPECT_TRUE(destination(0)["date"].isNull());
  EXPECT_TRUE(destination(1)["date"].isNull());
  EXPECT_FALSE(destination(2)["date"].isNull()) << "one folder's trouble is not the next one's";
  EXPECT_EQ(world.store.settings().mainAppSettingForKey("CopySettingsDestinations").size(), 3U);
  ASSERT_EQ(world.machine.systemLog.lines.size(), 2U);
  EXPECT_THAT(world.machine.systemLog.lines[0], HasSubstr("No space left"));
  age("Full", 7201);
  run();
  EXPECT_EQ(world.machine.systemLog.lines.size(), 2U) << "the same reason is said once";

  const auto dateOfCopy = destination(2)["date"].asDate();
  world.machine.processes.holdExpendables();
  run();
  ASSERT_GE(world.machine.systemLog.lines.size(), 3U);
  EXPECT_THAT(world.machine.systemLog.lines.back(), HasSubstr("does not answer"));
  EXPECT_EQ(destination(2)["date"].asDate(), dateOfCopy);
}

TEST_F(SettingsBackupTest, RefusesWhatWouldDestroySomething) {
  // Read-only, even for root; inside the copied folder; a link to somebody else's folder.
  choose({"Linked", "Inside"});
  write(chosen("Letters") / "dear", "reader");
  fs::create_directory_symlink(chosen("Letters"), copyIn("Linked"));
  ZAN_Value list = world.store.settings().mainAppSettingForKey("CopySettingsDestinations");
  list.setAt(1, ZAN_Value::dictionary({{"path", data.string()}}));
  list.append(ZAN_Value::dictionary({{"path", "/sys"}}));
  ASSERT_TRUE(world.store.settings().setMainAppSetting(list, "CopySettingsDestinations"));
  run();
  EXPECT_EQ(textOf(chosen("Letters") / "dear"), "reader");
  EXPECT_FALSE(fs::exists(data / "Corvana 9 (Settings) Copy"));
  for (std::size_t i = 0; i < 3; ++i) EXPECT_TRUE(destination(i)["date"].isNull()) << i;
  EXPECT_EQ(world.machine.systemLog.lines.size(), 3U);
}

TEST_F(SettingsBackupTest, NothingIsLostThatWasSavedOnce) {
  ASSERT_TRUE(world.store.settings().saveSchedulerSettings(ZAN_Value::dictionary({{"a", 1}})));
  write(data / "Reports/old", "report");
  run();
  const fs::path settings = copyIn("Stick") / DataFolder::kSchedulerSettings;
  const std::string sound = textOf(settings);
  ASSERT_FALSE(sound.empty());

  // The home is another one, its settings are torn.
  fs::remove_all(data / "Reports");
  write(data / "state", "new");
  write(data / DataFolder::kSchedulerSettings, "torn");
  world.advance(86'400);
  age("Stick", 7201);
  run();
  EXPECT_EQ(textOf(settings), sound) << "what is torn takes the place of nothing";
  EXPECT_THAT(world.machine.systemLog.lines.back(), HasSubstr("keeps its sound one"));
  EXPECT_EQ(textOf(copyIn("Stick") / "state"), "new") << "the rest is saved";
  std::vector<std::string> kept;
  for (const auto& entry : fs::recursive_directory_iterator(copyIn("Stick") / "_Earlier Versions"))
    if (entry.is_regular_file()) kept.push_back(entry.path().filename().string());
  EXPECT_THAT(kept, testing::IsSupersetOf({"old", "state"}));

  for (int day = 0; day < 10; ++day) {
    write(data / "state", std::to_string(day));
    fs::remove(data / DataFolder::kSchedulerSettings);
    world.advance(86'400);
    age("Stick", 7201);
    run();
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(copyIn("Stick") / "_Earlier Versions"), {}), 7);
}

TEST_F(SettingsBackupTest, AStrayFolderInThePlaceOfADiskGetsNothing) {
  const std::string disk = world.machine.volumes.mount({.name = "Safe"});
  ASSERT_TRUE(world.store.settings().setMainAppSetting(
      ZAN_Value::array({ZAN_Value::dictionary({{"path", disk}})}), "CopySettingsDestinations"));
  run();
  const fs::path copy = fs::path(disk) / "Corvana 9 (Settings) Copy";
  ASSERT_TRUE(fs::exists(copy / "state"));
  EXPECT_FALSE(destination(0).string("VolumeFolderName").empty()) << "the volume is noted";

  world.machine.volumes.unmount(disk);
  fs::remove_all(disk);
  fs::create_directories(disk);
  world.advance(8000);
  run();
  EXPECT_TRUE(fs::is_empty(disk));
  EXPECT_THAT(world.machine.systemLog.lines.back(), HasSubstr("is not mounted"));
}

TEST(LongDisabled, IsSaidOnceActionsWereDueForDays) {
  struct Case {
    const char* what;
    bool disabled;
    double lastExecution;
    double nextDate;
    bool warned;
  };
  for (const Case& one : {Case{"just over two days", true, -172'801, -60, true},
                          {"exactly two days", true, -172'800, -60, false},
                          {"nothing was due", true, -300'000, 60, false},
                          {"it is on", false, -300'000, -60, false}}) {
    SCOPED_TRACE(one.what);
    WorkWorld world;
    const ReferenceTime now = world.now();
    world.setActions({WorkWorld::automatic(
        1, 1,
        {{"TriggerScheduleTime", ZAN_Value::date(now + one.nextDate)},
         {"LastScheduleDate", ZAN_Value::date(now - (one.nextDate < 0 ? 86'400 : 0))}})});
    world.state.mScheduleDisabled = one.disabled;
    world.records.history.addHistoryEntry(
        ZAN_Value::dictionary({{"Date", ZAN_Value::date(now + one.lastExecution)}}));
    world.evaluation.rebuildActionsList();
    LongDisabledWarning warning(world.records, world.evaluation);
    warning.checkIfExecutionIsDisabled();
    EXPECT_EQ(world.actionLog.readLogList().size(), one.warned ? 1U : 0U);
    if (one.warned) {
      EXPECT_EQ(world.actionLog.readLogList().at(0).integer("C"), 12);
      EXPECT_THAT(world.report(), HasSubstr("for 2 days"));
    }
  }
}

}  // namespace
}  // namespace corvana::test
