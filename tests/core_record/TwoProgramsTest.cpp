#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>

#include "actions/History.h"
#include "core/record/Preferences.h"
#include "tests/actions/StoreHome.h"
#include "tests/actions/TreeHome.h"

namespace corvana {
namespace {

/// What one of the programs has.
struct Program {
  explicit Program(SimulatedPlatform& machine)
      : home(machine),
        preferences(home.store.settings(), machine.machine, deadlines, machine.clock.now()) {}

  TreeHome home;
  ActionStore& store = home.store;
  History history{store};
  DeadlineList deadlines;
  Preferences preferences;
};

ZAN_Value entry(const char* name, int code, ReferenceTime date = 0) {
  return ZAN_Value::dictionary({{"N", name}, {"C", code}, {"M", ZAN_Value::date(date)}});
}
ZAN_Value run(const char* title, ReferenceTime date) {
  return ZAN_Value::dictionary(
      {{"Title", title}, {"Date", ZAN_Value::date(date)}, {"EndDate", ZAN_Value::date(date)}});
}
void addResults(Program& program, int ref, ReferenceTime date) {
  ASSERT_TRUE(program.history.results().saveActionResults(
      ZAN_Value::dictionary({{"Ref", ref}, {"Title", "T"}, {"Date", ZAN_Value::date(date)}}),
      ZAN_Value::array({"/a"}), {}, {}, {}));
}
std::string joined(const ZAN_Value& list, std::string_view key) {
  std::string all;
  for (const ZAN_Value& one : list.elements()) {
    const std::string text = one.isDictionary() ? one[key].string() : std::string();
    all += (all.empty() || text.empty() ? "" : " ") + text;
  }
  return all;
}

/// Two changes of one file at the same time: the second program holds the file's lock, changes the
/// file a second later and lets go; the first one began before that.
struct Change {
  const char* name;
  const char* file;
  std::function<void(Program&)> begins;
  std::function<void(Program&)> meanwhile;
  std::function<std::string(Program&)> result;
  const char* both;
  std::function<void(Program&)> before = {};
};

TEST(TwoPrograms, WhatAnotherOneHasMergedIsKnownHereToo) {
  SimulatedPlatform machine;
  Program agent(machine);
  Program child(machine);
  Program application(machine);
  ASSERT_TRUE(agent.store.tree().saveActionsTree(ZAN_Value::array({actionRecord("One", 1)})));
  agent.home.tree.rootItem();
  child.home.tree.rootItem().actionForReference(1)->addInChangesList(5, "LastSuccessDate");
  ASSERT_TRUE(application.home.tree.updateActionsWithChanges(true));
  ASSERT_TRUE(agent.home.tree.updateActionsWithChanges(false));
  const auto* action = agent.home.tree.rootItem().actionForReference(1);
  EXPECT_EQ(action->getSettings().integer("LastSuccessDate"), 5) << "it left the list before";
}

TEST(TwoPrograms, LoseNoneOfTheirChanges) {
  const auto log = [](Program& one) { return joined(one.history.log().readLogList(), "N"); };
  const auto titles = [](Program& one) {
    return joined(one.history.getProgrammedHistoryList(), "Title");
  };
  const auto results = [](Program& one) {
    std::string refs;
    for (std::size_t i = 0; i < one.history.results().latestFilesCount(); ++i)
      refs += std::to_string(
          one.history.results().getLatestFilesAtIndex(static_cast<std::int64_t>(i)).integer("Ref"));
    return refs;
  };
  const auto change = [](Program& one, const char* key) {
    EXPECT_TRUE(one.store.tree().appendToChangesList(
        ZAN_Value::dictionary({{"Ref", 1}, {"ChangesObject", key}, {"ChangesKey", key}})));
  };
  const auto changes = [](Program& one) {
    return joined(one.store.tree().readChangesList(), "ChangesKey");
  };
  const auto tree = [](Program& one) {
    one.home.tree.releaseRootItem();
    std::string all = outline(one.home.tree.rootItem());
    const ZAN_Value list = one.store.tree().readActionsList();
    for (const auto& key : {"a", "b"}) all += list.at(0)[key].string();
    return all;
  };
  const auto twoActions = [](Program& one) {
    EXPECT_TRUE(one.store.tree().saveActionsTree(
        ZAN_Value::array({actionRecord("One", 1), actionRecord("Two", 2)})));
  };
  const auto rename = [](Program& one, int ref, const char* title) {
    EXPECT_TRUE(one.home.tree.editStoredTree([&](ProgrammedAction& root) -> Outcome {
      root.actionForReference(ref)->setSetting("Title", title);
      return {};
    }));
  };
  const auto prefer = [](Program& one, const char* key) {
    one.preferences.setPref(key, 1);
    static_cast<void>(one.preferences.savePrefs());
  };
  const auto file = [](const char* name) {
    return [name](Program& one) {
      const std::string text = StoreHome::text(
          name == std::string("Report") ? one.store.texts().reportFileNameForDate({})
                                        : one.store.folder().dataFolderPathWithFileName(name));
      return std::string(text.find("first") == text.npos ? "" : "first ") +
             (text.find("second") == text.npos ? "" : "second");
    };
  };
  const Change kChanges[] = {
      {"log", "Log", [](Program& one) { one.history.log().addLog(entry("a", 2)); },
       [](Program& one) { one.history.log().addLog(entry("b", 2)); }, log, "b a"},
      {"log, cleaned", "Log",
       [](Program& one) { one.history.log().cleanLogs(ActionLog::Clean::applicationEvents); },
       [](Program& one) { one.history.log().addLog(entry("b", 2)); }, log, "b",
       [](Program& one) { one.history.log().addLog(entry("old", 20)); }},
      {"history", "History", [](Program& one) { one.history.addHistoryEntry(run("a", 1)); },
       [](Program& one) { one.history.addHistoryEntry(run("b", 2)); }, titles, "b a"},
      {"history, cleaned", "History",
       [](Program& one) { one.history.removeHistoryEntriesBefore(5); },
       [](Program& one) { one.history.addHistoryEntry(run("b", 9)); }, titles, "b",
       [](Program& one) { one.history.addHistoryEntry(run("old", 2)); }},
      {"counters", "Executions",
       [](Program& one) { one.history.counters().incrementCounter("Nb", 7); },
       [](Program& one) { one.history.counters().incrementCounter("Nb", 7); },
       [](Program& one) { return std::to_string(one.history.counters().counter("Nb", 7)); }, "2"},
      {"results", "Files", [](Program& one) { addResults(one, 1, 10); },
       [](Program& one) { addResults(one, 2, 20); }, results, "21"},
      {"results, cleared", "Files", [](Program& one) { one.history.results().clearLatestFiles(1); },
       [](Program& one) { addResults(one, 2, 20); }, results, "2",
       [](Program& one) { addResults(one, 1, 10); }},
      {"results, looked for", "Files",
       [](Program& one) { one.history.results().updateActionResults(); },
       [](Program& one) { one.history.results().clearLatestFiles(); }, results, "",
       [](Program& one) { addResults(one, 1, 10); }},
      {"settings", "Settings",
       [](Program& one) { EXPECT_TRUE(one.store.settings().setMainAppSetting("x", "a")); },
       [](Program& one) { EXPECT_TRUE(one.store.settings().setMainAppSetting("y", "b")); },
       [](Program& one) {
         return one.store.settings().mainAppSettingForKey("a").string() +
                one.store.settings().mainAppSettingForKey("b").string();
       },
       "xy"},
      {"a counter in the settings", "Settings",
       [](Program& one) {
         EXPECT_TRUE(one.store.settings().incrementCounterInInMainPrefsForKey("a"));
       },
       [](Program& one) {
         EXPECT_TRUE(one.store.settings().incrementCounterInInMainPrefsForKey("a"));
       },
       [](Program& one) {
         return std::to_string(one.store.settings().mainAppSettingForKey("a").integerValue());
       },
       "2"},
      {"preferences", "SchedulerSettings", [&](Program& one) { prefer(one, "a"); },
       [&](Program& one) { prefer(one, "b"); },
       [](Program& one) {
         const ZAN_Value all = one.store.settings().schedulerSettings();
         return std::to_string(all.integer("a")) + std::to_string(all.integer("b"));
       },
       "11"},
      {"changes", "Actions", [&](Program& one) { change(one, "a"); },
       [&](Program& one) { change(one, "b"); }, changes, "b a"},
      {"a tree, edited twice", "Actions", [&](Program& one) { rename(one, 1, "First"); },
       [&](Program& one) { rename(one, 2, "Second"); }, tree, "First Second", twoActions},
      {"a tree, merged while it changes", "Actions",
       [](Program& one) { EXPECT_TRUE(one.home.tree.updateActionsWithChanges(true)); },
       [&](Program& one) { change(one, "b"); },
       [&](Program& one) { return tree(one) + "/" + changes(one); }, "One Twoab/",
       [&](Program& one) {
         twoActions(one);
         change(one, "a");
       }},
      {"a tree, changed while it is edited", "Actions",
       [&](Program& one) { rename(one, 2, "Second"); }, [&](Program& one) { change(one, "b"); },
       [&](Program& one) { return tree(one) + "/" + changes(one); }, "One Secondb/", twoActions},
      {"a tree, written whole over one that was edited", "Actions",
       [](Program& one) {
         one.home.tree.rootItem().actionForReference(1)->setSetting("Title", "First");
         EXPECT_EQ(one.home.tree.saveActionsTree().error().kind, ErrorKind::refused);
       },
       [&](Program& one) { rename(one, 2, "Second"); }, tree, "One Second", twoActions},
      {"a date while another program changes the action", "Actions",
       [](Program& one) {
         one.home.tree.rootItem().actionForReference(1)->setLastScheduleDate(7);
         EXPECT_TRUE(one.home.tree.updateActionsWithChanges(false));
         EXPECT_EQ(one.home.tree.rootItem().actionForReference(1)->getSettings().string("b"), "b");
       },
       [&](Program& one) { change(one, "b"); }, changes, "b LastScheduleDate", twoActions},
      {"the report", "Report", [](Program& one) { one.store.texts().addToReportFile("first"); },
       [](Program& one) { one.store.texts().addToReportFile("second"); }, file("Report"),
       "first second"},
      {"the short log", "ShortLog", [](Program& one) { one.store.texts().addToLogFile("first"); },
       [](Program& one) { one.store.texts().addToLogFile("second"); },
       file(DataFolder::kShortLog.data()), "first second"},
      {"the check of packages", "CheckPackages",
       [](Program& one) { one.store.texts().addToCheckPackagesFile("first"); },
       [](Program& one) { one.store.texts().addToCheckPackagesFile("second"); },
       file(DataFolder::kCheckPackages.data()), "first second"},
  };
  const std::map<std::string, std::string_view> kFiles{
      {"Log", DataFolder::kLog},           {"History", DataFolder::kHistory},
      {"Files", DataFolder::kFiles},       {"Executions", DataFolder::kExecutions},
      {"Settings", DataFolder::kSettings}, {"SchedulerSettings", DataFolder::kSchedulerSettings},
      {"Actions", DataFolder::kActions},   {"Report", "Report"},
      {"ShortLog", DataFolder::kShortLog}, {"CheckPackages", DataFolder::kCheckPackages}};
  for (const Change& one : kChanges) {
    SCOPED_TRACE(one.name);
    SimulatedPlatform machine;
    Program first(machine);
    Program second(machine);
    if (one.before) one.before(second);
    // What is in memory already must not be taken for what is in the file.
    static_cast<void>(one.result(first));
    std::optional<DataFiles::Lock> held(second.store.files().lock(kFiles.at(one.file)));
    bool happened = false;
    machine.time.add(VirtualTime::Kind::world,
                     machine.time.nanoseconds() + VirtualTime::toNanoseconds(1), [&] {
                       happened = true;
                       one.meanwhile(second);
                       held.reset();
                     });
    one.begins(first);
    EXPECT_TRUE(happened) << "it did not wait";
    EXPECT_EQ(one.result(second), one.both);
    EXPECT_EQ(one.result(first), one.both);
    EXPECT_TRUE(machine.systemLog.lines.empty());
  }
}

}  // namespace
}  // namespace corvana
