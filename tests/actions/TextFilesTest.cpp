#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "StoreHome.h"
#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/ActionLog.h"
#include "tests/actions/TreeHome.h"

namespace corvana {
namespace {

class Texts : public testing::Test, protected StoreHome {
 protected:
  static std::string lines(int count) {
    std::string text;
    for (int i = 1; i <= count; ++i) text += "line " + std::to_string(i) + "\n";
    return text;
  }
};

TEST_F(Texts, TheShortLogIsCutAtItsBound) {
  const std::string start(75000, 'a');
  const std::string end = std::string(24999, 'b') + "\n";
  put(DataFolder::kShortLog, start + end);
  store.texts().addToLogFile("n\u00e4chste");
  const std::string added = "2024-01-02 12:00:00\nCorvana 9 Scheduler\nn?chste\n";
  EXPECT_EQ(text(path(DataFolder::kShortLog)), start + end + added);

  put(DataFolder::kShortLog, start + end + "\n");
  store.texts().addToLogFile("n\u00e4chste");
  EXPECT_EQ(text(path(DataFolder::kShortLog)), end + "\n" + added);
}

TEST_F(Texts, ATornLineEndsBeforeTheNextOneAndNothingIsLostByTwo) {
  TextFiles& texts = store.texts();
  texts.addToReportFile("whole");
  const std::string report = texts.reportFileNameForDate({});
  const std::string whole = text(report);
  ASSERT_TRUE(ZAN_FilesUtils::appendToFile(report, whole.substr(0, 9), false));
  const auto before = ZAN_FilesUtils::identity(report);
  texts.addToReportFile("whole");
  EXPECT_EQ(text(report), whole + whole.substr(0, 9) + "\n" + whole);
  EXPECT_EQ(ZAN_FilesUtils::identity(report)->inode, before->inode) << "added to, not rewritten";

  // They have no patience with each other's locks, since their clocks do not stand still.
  constexpr int kEach = 300;
  const auto addMany = [&](ActionStore& one, const std::string& name) {
    for (int i = 0; i < kEach; ++i) {
      one.texts().addToReportFile(name + std::to_string(i) + ".");
      one.texts().addToLogFile(name + std::to_string(i) + ".");
    }
  };
  const pid_t child = ::fork();
  if (child == 0) {
    addMany(other, "child");
    ::_exit(0);
  }
  addMany(store, "parent");
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  for (const std::string& all : {text(report), text(path(DataFolder::kShortLog))}) {
    for (int i = 0; i < kEach; ++i)
      for (const std::string name : {"child", "parent"})
        ASSERT_NE(all.find(name + std::to_string(i) + ".\n"), std::string::npos) << name << i;
  }
}

TEST_F(Texts, WhatCannotBeAddedIsTold) {
  const std::string report = store.texts().reportFileNameForDate({});
  std::filesystem::create_directories(report);
  store.texts().addToReportFile("lost");
  ASSERT_EQ(store.files().troubles().count(report), 1U);
  EXPECT_EQ(store.files().troubles().at(report).kind, DataFiles::Trouble::Kind::unwritable);
  std::filesystem::remove(report);
  store.texts().addToReportFile("written");
  EXPECT_TRUE(store.files().troubles().empty());
}

TEST_F(Texts, TheNewestExecutionComesFirst) {
  const std::string root = machine.folder.makeFolder("Backup");
  const std::string file = root + "/_Corvana 9 (Last Executions).txt";
  machine.folder.write("Backup/_Corvana 9 (Last Executions).txt", lines(27));
  store.texts().addLastExecution("Photos", root);
  const std::string first = text(file).substr(0, text(file).find('\n') + 1);
  EXPECT_TRUE(first.ends_with(" Photos\n"));
  EXPECT_EQ(text(file), first + lines(27));
  store.texts().addLastExecution("Photos", root);
  EXPECT_EQ(text(file), first + first + lines(24));
  store.texts().addLastExecution("Photos", machine.folder.at("absent"));
  EXPECT_FALSE(ZAN_FilesUtils::exists(machine.folder.at("absent")));
}

TEST_F(Texts, TheCurrentPathIsWrittenOnceASecond) {
  TextFiles& texts = store.texts();
  EXPECT_FALSE(texts.readCurrentPath());
  texts.saveCurrentPath("/one");
  machine.clock.sleep(0.9);
  texts.saveCurrentPath("/two");
  EXPECT_EQ(texts.readCurrentPath(), "/one");
  machine.clock.sleep(0.2);
  texts.saveCurrentPath("/three");
  EXPECT_EQ(texts.readCurrentPath(), "/three");
  machine.clock.setNow(machine.clock.now() - 86400);
  texts.saveCurrentPath("/after the clock was set back");
  EXPECT_EQ(texts.readCurrentPath(), "/after the clock was set back");

  texts.saveCurrentPathForFirstError("/first");
  texts.saveCurrentPathForLastError("/last");
  texts.saveCurrentPathForFirstError({});
  EXPECT_EQ(texts.readCurrentPathForFirstError(), "/first");
  EXPECT_FALSE(texts.readCurrentPathForLastError());
  texts.clearCurrentPath();
  EXPECT_FALSE(texts.readCurrentPath());
}

TEST_F(Texts, ReportsAreOfTheLocalDay) {
  machine.machine.timeZone = "Pacific/Auckland";  // 01:00 of the next day
  store.texts().addToReportFile("Started");
  const std::string report = data() + "/Reports/20240103 Corvana Report.txt";
  EXPECT_EQ(store.texts().reportFileNameForDate({}), report);
  EXPECT_TRUE(text(report).ends_with(" (Corvana 9 Scheduler) - Started\n")) << text(report);
  machine.machine.timeZone = "UTC";
  EXPECT_EQ(store.texts().reportEmailFileNameForDate(machine.clock.now()),
            data() + "/Reports/20240102 Corvana Email Report.txt");
}

TEST_F(Texts, NoNameMakesAnEntryOfItsOwn) {
  const std::string forged =
      "Photos\n1/2/24 12:00 PM (Corvana 9 Scheduler) - All is well\r\xE2\x80\xA8!";
  store.texts().addToReportFile("Start of \"" + forged + "\"");
  store.texts().addToLogFile(forged);
  store.texts().addToCheckPackagesFile(forged);
  EXPECT_THAT(
      text(store.texts().reportFileNameForDate({})),
      testing::EndsWith("Start of \"Photos\n    1/2/24 12:00 PM (Corvana 9 Scheduler) - All "
                        "is well  !\"\n"))
      << "set in: a line of the entry before it";
  EXPECT_THAT(text(data() + "/Corvana Log.txt"), testing::HasSubstr("Photos\n    1/2/24"));
  const ZAN_Value entry = ZAN_Value::dictionary({{"C", 2}, {"N", "a\nb"}, {"P", "/c\r\n/d"}});
  EXPECT_EQ(ActionLog::messageForEntry(entry), "Action \"a b\" completed - /c  /d");
  TreeHome home(machine);
  ZAN_Value record = ZAN_Value::dictionary({{"Title", forged}, {"Ref", 7}});
  home.tree.rootItem().addActionsFromList(ZAN_Value::array({record}), false, std::nullopt);
  const ProgrammedAction& action = home.tree.rootItem().childAtIndex(0);
  EXPECT_EQ(action.getTitle().find('\n'), std::string::npos);
  EXPECT_EQ(action.getSettings().string("Title"), forged) << "what is stored stays";
}

TEST_F(Texts, TheCompleteLogBelongsToOneExecution) {
  CompleteLog& log = store.completeLog();
  ZAN_Value settings = ZAN_Value::dictionary({{"Title", "a/b"}});
  log.initCreateCompleteLogForAction(settings, "Log of %@");
  log.addToCompleteLogFile("not written", true);
  EXPECT_FALSE(log.mustCreateCompleteLog());

  settings.setValue("ProgrammedActionLinksCreateFullLog", 1);
  for (int execution = 0; execution < 2; ++execution) {
    log.initCreateCompleteLogForAction(settings, "Log of %@");
    log.addToCompleteLogFile("copied", true);
    log.addToCompleteLogFile("/x", false);
  }
  EXPECT_EQ(log.path(), data() + "/LogFiles/a:b-LogFile.txt");
  const std::string written = text(log.path());
  EXPECT_TRUE(written.starts_with("Log of ")) << written;
  EXPECT_TRUE(written.ends_with("\n2024-01-02 12:00:00 +0000 - copied\n>/x\n")) << written;
  EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), 3);
}

class Activity : public testing::Test, protected StoreHome {
 protected:
  ZAN_Value set(const std::string& key) {
    const ZAN_Value record = other.activity().readActivity();
    const auto minutes = ZAN_Unarchiver::unarchiveObjectWithData(record[key].bytes());
    return minutes ? *minutes : ZAN_Value();
  }
  static RunningProcess execute(std::int64_t pid) {
    RunningProcess process;
    process.pid = pid;
    process.bundlePath = "/Applications/Corvana 9.app/Contents/Resources/Corvana 9 Execute.app";
    return process;
  }
};

TEST_F(Activity, MinutesOlderThanTheKeptPeriodGo) {
  ActivityRecord& activity = store.activity();
  machine.clock.setNow(60);
  activity.saveActivity(2, true, false, {}, {});
  machine.clock.setNow(5184059);
  activity.saveActivity({}, false, true, 5184600.0, {});
  EXPECT_TRUE(set("SchedulerActivity").containsIndex(1)) << "too early to forget anything";
  machine.clock.setNow(5184060);
  activity.saveActivity({}, false, false, {}, {});
  EXPECT_FALSE(set("SchedulerActivity").containsIndex(1));
  EXPECT_FALSE(set("MainAppActivity").containsIndex(1));
  EXPECT_TRUE(set("SchedulerActivity").containsIndex(86400));
  EXPECT_TRUE(set("SchedulerActivity").containsIndex(86401));
  EXPECT_TRUE(set("ExecuteActivity").containsIndex(86400));
  EXPECT_TRUE(set("WakeUpActivity").containsIndex(86410));

  EXPECT_EQ(other.activity().readActivity()["SchedulerStatus"].integer("60"), 2);
  machine.clock.setNow(5184061);
  activity.saveActivity(1, false, false, {}, {});
  EXPECT_EQ(other.activity().readActivity()["SchedulerStatus"],
            ZAN_Value::dictionary({{"5184061", 1}}));
}

TEST_F(Activity, ProcessesAreNotedWhenTheyChange) {
  RunningProcess foreign;
  foreign.pid = 7;
  foreign.bundlePath = "/Applications/Other.app";
  const std::vector<RunningProcess> two{execute(31), foreign, execute(5)};
  for (int i = 0; i < 3; ++i) {
    machine.clock.sleep(30);
    store.activity().saveActivity({}, false, false, {}, {});
  }
  store.activity().saveActivity({}, false, true, {}, two);
  store.activity().saveActivity({}, false, true, {}, two);
  const ZAN_Value processes = other.activity().readActivity()["ProcessActivity"];
  ASSERT_EQ(processes.size(), 2U);
  EXPECT_EQ(processes.at(0).string("pid"), "");
  EXPECT_EQ(processes.at(1).string("pid"), "5,31");

  // An action of every minute must not make each of the many writings a large one.
  ZAN_Value many = ZAN_Value::array();
  for (std::size_t i = 0; i < ActivityRecord::kMostProcesses; ++i) {
    many.append(ZAN_Value::dictionary({{"time", machine.clock.now()}, {"pid", std::to_string(i)}}));
  }
  ASSERT_TRUE(store.files().writeObjectToFile(ZAN_Value::dictionary({{"ProcessActivity", many}}),
                                              DataFolder::kActivity));
  store.activity().saveActivity({}, false, true, {}, two);
  const ZAN_Value bounded = other.activity().readActivity()["ProcessActivity"];
  EXPECT_EQ(bounded.size(), ActivityRecord::kMostProcesses);
  EXPECT_EQ(bounded.at(0).string("pid"), "1");
  EXPECT_EQ(bounded.at(bounded.size() - 1).string("pid"), "5,31");
}

TEST_F(Activity, WhatTheClockAloneAddsIsWrittenRarelyAndNothingOfItIsForgotten) {
  int written = 0;
  ActionStore quiet(machine.clock, machine.machine, machine.systemLog,
                    [&](ZAN_FileWriter::Step step, const std::string&) {
                      written += step == ZAN_FileWriter::Step::rename;
                      return 0;
                    });
  quiet.files().keepForLater(machine.runLoop);
  const auto minutes = [&](int count) {
    for (int minute = 0; minute < count; ++minute) {
      quiet.activity().saveActivity({}, false, false, {}, {});
      machine.runLoop.runFor(60);
    }
  };
  const auto stored = [&] {
    std::size_t count = 0;
    const ZAN_Value minutes = set("SchedulerActivity");
    for (const auto& range : minutes.ranges()) count += range.length;
    return count;
  };
  minutes(29);
  EXPECT_EQ(written, 0);
  minutes(2);
  EXPECT_EQ(written, 1) << "after half an hour";
  EXPECT_EQ(stored(), 30U);
  minutes(4);
  EXPECT_EQ(written, 1);
  quiet.finishSaving();
  EXPECT_EQ(stored(), 35U) << "at the end";
  minutes(1);
  quiet.activity().saveActivity(0, false, true, {}, {});
  EXPECT_EQ(stored(), 37U) << "what has happened is written at once, and the rest with it";
  const int before = written;
  minutes(31);
  EXPECT_EQ(written, before + 1);
}

}  // namespace
}  // namespace corvana
