#include "actions/History.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "StoreHome.h"

namespace corvana {
namespace {

class HistoryFiles : public testing::Test, protected StoreHome {
 protected:
  History history{store};
  History otherHistory{other};

  static ZAN_Value event(int code, const std::string& name, ReferenceTime date) {
    return ZAN_Value::dictionary({{"C", code}, {"N", name}, {"M", ZAN_Value::date(date)}});
  }
  static ZAN_Value run(ReferenceTime start, const std::string& title, int code = 2) {
    return ZAN_Value::dictionary({{"Date", ZAN_Value::date(start)},
                                  {"EndDate", ZAN_Value::date(start + 3723)},
                                  {"Title", title},
                                  {"C", code}});
  }
  std::string names() {
    std::string all;
    const ZAN_Value list = otherHistory.log().readLogList();
    for (const ZAN_Value& entry : list.elements()) all += entry.string("N");
    return all;
  }
  static ZAN_Value header(int reference, ReferenceTime date) {
    return ZAN_Value::dictionary(
        {{"Ref", reference}, {"Title", "Photos"}, {"Date", ZAN_Value::date(date)}});
  }
};

TEST_F(HistoryFiles, TheLogDropsItsOldestEntries) {
  ZAN_Value list = ZAN_Value::array();
  for (int i = 0; i < 5000; ++i) list.append(event(2, std::to_string(i), i));
  history.log().saveLogList(list);
  history.log().addLog(event(2, "new", 5000));
  const ZAN_Value stored = otherHistory.log().readLogList();
  EXPECT_EQ(stored.size(), 5000U);
  EXPECT_EQ(stored.at(0).string("N"), "1");
  EXPECT_EQ(stored.at(4999).string("N"), "new");
}

TEST_F(HistoryFiles, CleaningTheLog) {
  using Clean = ActionLog::Clean;
  const ReferenceTime now = machine.clock.now();
  ZAN_Value list = ZAN_Value::array();
  list.append(event(1, "a", now - 7776001));
  list.append(event(20, "b", now - 2592001));
  list.append(event(9, "c", now - 604800));
  list.append(event(3, "d", now - 604801));
  list.append(ZAN_Value::dictionary({{"C", 17}, {"N", "e"}}));
  const auto cleaned = [&](Clean mode, const ZAN_Value& indexes = {}) {
    history.log().saveLogList(list);
    history.log().cleanLogs(mode, indexes);
    return names();
  };
  EXPECT_EQ(cleaned(Clean::olderThan7Days), "ce");
  EXPECT_EQ(cleaned(Clean::olderThan30Days), "cde");
  EXPECT_EQ(cleaned(Clean::olderThan90Days), "bcde");
  EXPECT_EQ(cleaned(Clean::applicationEvents), "ade");
  EXPECT_EQ(cleaned(Clean::listed, ZAN_Value::indexSet({{1, 2}, {4, 9}})), "ad");
  EXPECT_EQ(cleaned(Clean::all), "");
}

TEST_F(HistoryFiles, ProgramsAddToTheSameLists) {
  history.log().addLog(event(1, "a", 1));
  otherHistory.log().addLog(event(2, "b", 2));
  history.log().addLog(event(1, "c", 3));
  EXPECT_EQ(names(), "abc");
  history.addHistoryEntry(run(1, "a"));
  otherHistory.addHistoryEntry(run(2, "b"));
  EXPECT_EQ(history.historyCount(), 2U);
}

TEST_F(HistoryFiles, WhatAFullDiskRefusedIsWrittenLater) {
  bool full = false;
  ActionStore poor(machine.clock, machine.machine, machine.systemLog,
                   [&](ZAN_FileWriter::Step step, const std::string&) {
                     return full && step == ZAN_FileWriter::Step::write ? ENOSPC : 0;
                   });
  History record(poor);
  const auto happen = [&](const std::string& name, ReferenceTime date) {
    record.log().addLog(event(2, name, date));
    record.addHistoryEntry(run(date, name));
    (void)poor.tree().appendToChangesList(ZAN_Value::dictionary({{"Ref", 1}}));
  };
  happen("a", 1);
  full = true;
  happen("b", 2);
  EXPECT_EQ(names(), "a");
  full = false;
  happen("c", 3);
  EXPECT_EQ(names(), "abc");
  EXPECT_EQ(otherHistory.historyCount(), 3U);
  EXPECT_EQ(other.tree().readChangesList().size(), 3U);
}

TEST_F(HistoryFiles, TheTextLogsAreForPeople) {
  machine.machine.timeZone = "Europe/Paris";
  history.log().addLog(event(4, "Photos", 0));
  history.log().addLog(event(20, "", 3600));
  history.log().addLog(event(13, "Hello", 7200));
  EXPECT_EQ(text(machine.folder.at("Library/Logs/Corvana 9.log")),
            "2001-01-01 01:00:00 - Action \"Photos\" cancelled (volume/folder not found)\n"
            "2001-01-01 02:00:00 - Launch Corvana Scheduler\n"
            "2001-01-01 03:00:00 - Hello\n");
  history.addHistoryEntry(run(0, "Photos", 14));
  EXPECT_EQ(text(machine.folder.at("Library/Logs/Corvana 9 Actions.log")),
            "2001-01-01 01:00:00 - 1:02:03 - Action \"Photos\" completed with errors\n");

  // It grows at its end, by one more of several equal lines, too; else it is written anew.
  const std::string log = machine.folder.at("Library/Logs/Corvana 9.log");
  const std::string three = text(log);
  const std::string hello = three.substr(three.rfind("2001"));
  const auto file = [&] { return ZAN_FilesUtils::identity(log)->inode; };
  const auto first = file();
  history.log().addLog(event(13, "Hello", 7200));
  otherHistory.log().addLog(event(13, "Hello", 7200));
  EXPECT_EQ(text(log), three + hello + hello);
  EXPECT_EQ(file(), first);
  ASSERT_TRUE(ZAN_FilesUtils::appendToFile(log, hello.substr(0, 12), false));
  history.log().addLog(event(13, "Hello", 7200));
  EXPECT_EQ(text(log), three + hello + hello + hello) << "a torn line is healed";
  EXPECT_NE(file(), first);
  history.log().cleanLogs(ActionLog::Clean::applicationEvents);
  EXPECT_EQ(text(log).find("Launch"), std::string::npos);
}

TEST_F(HistoryFiles, AnEndReplacesItsStart) {
  history.addHistoryEntry(run(10, "started"));
  history.addHistoryEntry(run(10, "ended"));
  history.addHistoryEntry(run(20, "next"));
  history.addHistoryEntry(run(10, "late"));
  ASSERT_EQ(otherHistory.historyCount(), 3U);
  EXPECT_TRUE(otherHistory.getProgrammedHistoryList().at(0).isString());
  EXPECT_EQ(otherHistory.historyEntryAtIndex(0).string("Title"), "ended");
  EXPECT_EQ(otherHistory.historyEntryAtIndex(2).string("Title"), "late");
  EXPECT_TRUE(otherHistory.historyEntryAtIndex(-1).isNull());
  EXPECT_TRUE(otherHistory.historyEntryAtIndex(3).isNull());
}

TEST_F(HistoryFiles, TheHistoryKeepsItsHeaderAndItsBound) {
  ZAN_Value list = ZAN_Value::array({"Programmed History Data"});
  for (int i = 0; i < 5000; ++i) list.append(run(i, std::to_string(i)));
  ASSERT_TRUE(other.files().writeListToFile(list, DataFolder::kHistory));
  history.addHistoryEntry(run(6000, "new"));
  EXPECT_EQ(otherHistory.historyCount(), 5000U);
  EXPECT_EQ(otherHistory.historyEntryAtIndex(0).string("Title"), "1");

  list = ZAN_Value::array({"Programmed History Data", run(5, "old"), run(10, "border")});
  list.append(ZAN_Value::dictionary({{"Title", "undated"}}));
  ASSERT_TRUE(other.files().writeListToFile(list, DataFolder::kHistory));
  history.removeHistoryEntriesBefore(10);
  ASSERT_EQ(otherHistory.historyCount(), 2U);
  EXPECT_EQ(otherHistory.historyEntryAtIndex(0).string("Title"), "border");
  EXPECT_EQ(otherHistory.historyEntryAtIndex(1).string("Title"), "undated");
}

TEST_F(HistoryFiles, CountersAreKeptForEachAction) {
  history.counters().incrementCounter(ExecutionCounters::kExecutions, 7);
  otherHistory.counters().incrementCounter(ExecutionCounters::kExecutions, 7);
  history.counters().incrementCounter(ExecutionCounters::kExecutions, 8);
  history.counters().incrementCounter(ExecutionCounters::kCrashes, 7);
  EXPECT_EQ(otherHistory.counters().counter("Nb", 7), 2);
  EXPECT_EQ(otherHistory.counters().counter("Cr", 7), 1);
  EXPECT_EQ(otherHistory.counters().total("Nb"), 3);
}

TEST_F(HistoryFiles, ResultsAreFoundAndMergedIntoTheLatestLists) {
  const ZAN_Value files = ZAN_Value::array({"/a", "/b"});
  const ZAN_Value errors = ZAN_Value::array({"/c"});
  ASSERT_TRUE(history.results().saveActionResults(header(7, 1000), files, {}, {}, {}));
  ASSERT_TRUE(history.results().saveActionResults(header(8, 2000), files, {}, errors, {}));
  ASSERT_TRUE(history.results().saveActionResults(header(7, 1500), files, {}, {}, {}));
  EXPECT_EQ(otherHistory.results().latestFilesCount(), 3U);
  EXPECT_EQ(otherHistory.results().getLatestFilesAtIndex(0).integer("Ref"), 8);
  EXPECT_EQ(otherHistory.results().getLatestFilesAtIndex(2)["Date"].asDate(), 1000);
  EXPECT_EQ(otherHistory.results().latestErrorsCount(), 1U);

  machine.machine.timeZone = "Asia/Tokyo";
  const auto path = history.results().getActionResultsPathForRef(8, 2000);
  ASSERT_TRUE(path) << "found although its name was formed in another zone";
  EXPECT_TRUE(path->ends_with("/History/01_01_01 00_33_20 8.cvahisto"));
  EXPECT_EQ(history.results().readActionResults(*path)["Errors"], errors);
  EXPECT_FALSE(history.results().getActionResultsPathForRef(8, 1000));

  // What the user cleared does not come back from results that were merged already.
  history.results().clearLatestFiles(7);
  history.results().updateActionResults();
  EXPECT_EQ(otherHistory.results().latestFilesCount(), 1U);
  history.results().clearLatestFiles();
  EXPECT_EQ(otherHistory.results().latestFilesCount(), 0U);
  EXPECT_EQ(otherHistory.results().latestErrorsCount(), 1U);

  // One dated ahead is taken in once and keeps nobody out, nor does what it left in the list.
  const ReferenceTime ahead = machine.clock.now() + 4'000'000'000;
  ASSERT_TRUE(ZAN_FilesUtils::setModificationDate(*path, ahead));
  history.results().updateActionResults();
  EXPECT_EQ(otherHistory.results().latestFilesCount(), 1U);
  history.results().clearLatestFiles();
  std::filesystem::copy_file(*path, *path + ".cvahisto");
  history.results().updateActionResults();
  EXPECT_EQ(otherHistory.results().latestFilesCount(), 1U);
  history.results().clearLatestFiles();
  history.results().updateActionResults();
  EXPECT_EQ(otherHistory.results().latestFilesCount(), 0U);
  ZAN_Value list = store.files().readListFromFile(DataFolder::kFiles);
  list.setAt(0, ZAN_Value::dictionary({{"MergedUntil", ZAN_Value::date(ahead)}}));
  ASSERT_TRUE(store.files().writeListToFile(list, DataFolder::kFiles));
  history.results().updateActionResults();
  EXPECT_GT(otherHistory.results().latestFilesCount(), 0U);
}

}  // namespace
}  // namespace corvana
