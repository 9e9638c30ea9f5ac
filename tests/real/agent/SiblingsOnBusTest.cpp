#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <algorithm>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "actions/History.h"
#include "actions/ProgrammedAction.h"
#include "tests/real/agent/AgentOnBus.h"

namespace corvana {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

struct SiblingsOnBusTest : AgentOnBus {
  // Made when the home of the test is the home of this process.
  std::unique_ptr<LinuxMachine> machine;
  std::unique_ptr<ActionStore> store;
  BusNotifications sibling{real.loop, log, [this] { return bus.address(); }};

  void SetUp() override {
    AgentOnBus::SetUp();
    machine = std::make_unique<LinuxMachine>();
    store = std::make_unique<ActionStore>(clock, *machine, log);
  }
  bool executing(std::int64_t ref) {
    return until([ref](const ZAN_Value& status) {
      return status["executing"].boolValue() && status["current"].integer("ref") == ref;
    });
  }
  bool allDone() {
    return until([](const ZAN_Value& status) { return status.integer("queueCount") == 0; });
  }
  ZAN_Value stored(std::int64_t ref) {
    const ZAN_Value records = store->tree().readActionsList();
    for (const ZAN_Value& record : records.elements()) {
      if (record.integer("Ref") == ref) return record;
    }
    return {};
  }
  void setPause(bool pause) {
    ASSERT_TRUE(client->post(
        {"CVA9_ExecuteNotification", "ActionPause", ZAN_Value::dictionary({{"Pause", pause}})}));
  }
};

TEST_F(SiblingsOnBusTest, AnActionCrashesTwice) {
  startAgent();
  EXPECT_EQ(command({"launch", std::to_string(kLetters)}).code, 0);
  ASSERT_TRUE(executing(kLetters));
  endExecution(11);
  // The messages about the crash have their time on screen first.
  ASSERT_TRUE(until([](const ZAN_Value& status) {
    return status["current"].integer("retry") == 1 && status["executing"].boolValue();
  })) << agentOutput;
  endExecution(11);
  ASSERT_TRUE(allDone());
  const Said log = command({"log"});
  EXPECT_THAT(log.text, HasSubstr("Action \"Letters\" aborted (crash)"));
  std::vector<std::int64_t> crashes;
  const ZAN_Value entries = store->files().readListFromFile("Corvana 9 Log.cva9data");
  for (const ZAN_Value& entry : entries.elements()) {
    if (entry.integer("C") == 6) crashes.push_back(entry.integer("S"));
  }
  EXPECT_THAT(crashes, testing::ElementsAre(11, 11));
  EXPECT_EQ(client->status()->integer("errorCode"), 6);
}

TEST_F(SiblingsOnBusTest, AMainApplicationThatRunsHasTheTreeForItself) {
  // It posts nothing itself: it is there, and the test hears what it would hear.
  const std::string program = home.at("Applications/Corvana 9.app/Contents/MacOS/Corvana 9");
  fs::create_directories(fs::path(program).parent_path());
  fs::copy_file("/bin/sleep", program);
  std::vector<std::pair<std::string, std::int64_t>> heard;
  sibling.observe("CVA9_MainAppliNotification", [&](const DistributedNotification& note) {
    heard.emplace_back(note.object, note.userInfo.integer("SchedulerStatus"));
  });
  const auto hears = [&](const char* object, std::int64_t status = 0) {
    return real.runUntil(
        [&] { return std::ranges::count(heard, std::pair(std::string(object), status)) > 0; });
  };
  startAgent();
  auto mainApp = processes.start(environment({program, "600"}), false, {});
  ASSERT_TRUE(mainApp);
  ASSERT_TRUE(hears("ReturnCVASchedulerStatus", 1)) << "it is greeted";

  sibling.post({"CVA9_SchedulerNotification", "LaunchAction",
                ZAN_Value::dictionary({{"Ref", static_cast<long long>(kLetters)}})});
  ASSERT_TRUE(hears("ReturnCVASchedulerStatus", 2));
  // As the execute application does at its end.
  ASSERT_TRUE(store->tree().appendToChangesList(
      ZAN_Value::dictionary({{"Ref", static_cast<long long>(kLetters)},
                             {"ChangesKey", "LastExecutionDate"},
                             {"ChangesObject", ZAN_Value::date(clock.now())}})));
  const ZAN_Value before = stored(kLetters);
  endExecution(0);
  ASSERT_TRUE(hears("UpdateHistory"));
  EXPECT_EQ(stored(kLetters), before) << "the tree is the main application's while it runs";
  EXPECT_GE(store->tree().readChangesList().size(), 2U);

  // It edits and quits; then the agent merges, and the edit is still there.
  ZAN_Value records = store->tree().readActionsList();
  ZAN_Value edited = records.at(1);
  edited.setValue("Title", "Pictures");
  records.setAt(1, edited);
  ASSERT_TRUE(store->tree().saveActionsTree(records));
  (*mainApp)->terminate();
  ASSERT_TRUE(real.runUntil([&] { return !(*mainApp)->isRunning(); }));
  heard.clear();
  ASSERT_TRUE(real.runUntil([&] {
    // It looks every five seconds whether the main application is still there.
    sibling.post({"CVA9_SchedulerNotification", "ActionListChanged", {}});
    return store->tree().readChangesList().empty();
  }));
  EXPECT_TRUE(stored(kLetters).contains("LastBackupDateForFilter"));
  EXPECT_EQ(stored(kPhotos).string("Title"), "Pictures");
  EXPECT_TRUE(heard.empty()) << "nobody there to be told";
}

TEST_F(SiblingsOnBusTest, TheExecuteProgramObeys) {
  const std::string execute = bundle("Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute");
  fs::remove(execute);
  fs::copy_file(CORVANA_EXECUTE, execute);
  for (int i = 0; i < 25'000; ++i) home.write("Films/" + std::to_string(i), "x");
  fs::create_directories(home.at("Backup"));
  const Said added = command({"add", "Films", "--source", home.at("Films"), "--destination",
                              home.at("Backup"), "--manual"});
  ASSERT_EQ(added.code, 0) << added.text;
  const ZAN_Value records = store->tree().readActionsList();
  const std::int64_t films = records.at(records.size() - 1).integer("Ref");
  int reports = 0;
  std::string reply;
  startAgent();
  sibling.observe("CVA9_SchedulerNotification", [&](const DistributedNotification& note) {
    // While it looks there is nothing yet that could be skipped.
    if (note.object == "ExecuteProgress" && note.userInfo.contains(ProgressKey::bytesToCopy))
      ++reports;
    if (note.object == "SurveyReplyNotification")
      reply = note.userInfo.string("ExecuteReplyMessage");
  });
  sibling.post({"Nobody", "Flush", {}});
  const auto run = [&](const std::function<void()>& meanwhile) {
    reports = 0;
    EXPECT_EQ(command({"launch", std::to_string(films)}).code, 0);
    ASSERT_TRUE(real.runUntil([&] { return reports > 0; })) << agentOutput;
    setPause(true);
    meanwhile();
    ASSERT_TRUE(allDone());
  };
  run([&] {
    // A paused one still answers, and a stop reaches it through the agent.
    ASSERT_TRUE(client->post({"CVA9_ExecuteNotification", "AskExecuteReply", {}}));
    ASSERT_TRUE(real.runUntil([&] { return !reply.empty(); }));
    EXPECT_TRUE(client->status()->value("executing").boolValue());
    EXPECT_EQ(command({"stop"}).code, 0);
  });
  History history(*store);
  ASSERT_EQ(history.historyCount(), 1U);
  EXPECT_EQ(history.historyEntryAtIndex(0).integer("C"), 3) << "aborted by the user";

  fs::remove_all(home.at("Backup/Films"));
  run([&] {
    EXPECT_EQ(command({"skip"}).code, 0);
    setPause(false);
  });
  ASSERT_EQ(history.historyCount(), 2U);
  EXPECT_NE(history.historyEntryAtIndex(1).integer("C"), 3);
  // Rsync may have had that item written already when it was told: what counts is that it was
  // named as left out, and that the others are there.
  const auto results = history.results().getActionResultsPathForRef(
      films, history.historyEntryAtIndex(1)["Date"].asDate().value_or(0));
  ASSERT_TRUE(results);
  EXPECT_EQ(history.results().readActionResults(*results)["Excluded"].size(), 1U);
  EXPECT_GE(std::distance(fs::directory_iterator(home.at("Backup/Films")), {}), 24'999);
  EXPECT_FALSE(store->tree().readChangesList().empty() &&
               stored(films).integer("ExecCounter") == 0);

  // An agent that dies leaves it alone; the next agent knows it and starts no second one beside it.
  fs::remove_all(home.at("Backup/Films"));
  run([&] {
    processes.kill(agent->pid());
    ASSERT_TRUE(real.runUntil([&] { return !agent->isRunning(); }));
    startAgent();
    EXPECT_EQ(command({"launch", std::to_string(films)}).code, 1);
    EXPECT_EQ(history.historyCount(), 3U);
    setPause(false);
  });
  ASSERT_TRUE(real.runUntil([&] { return !history.historyEntryAtIndex(2)["EndDate"].isNull(); }));
  EXPECT_EQ(history.historyEntryAtIndex(2).integer("C"), 2) << "it recorded its end alone";
  bool queued = false;
  EXPECT_TRUE(real.runUntil([&] {
    queued = queued || client->launch(films).valueOr("") == "queued";
    return queued;
  })) << "its end is known now";
}

TEST_F(SiblingsOnBusTest, ASustainedFloodHoldsNoLaunchUp) {
  startAgent();
  QDBusConnection raw = QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "raw");
  const auto signal = [](const QList<QVariant>& arguments) {
    QDBusMessage message =
        QDBusMessage::createSignal("/com/zan/corvana9/DistributedNotifications",
                                   "com.zan.corvana9.DistributedNotifications", "Posted");
    message.setArguments(arguments);
    return message;
  };
  const QString name = "CVA9_SchedulerNotification";
  QVariant deep = 1;
  for (int i = 0; i < 30; ++i) deep = QVariantList{deep};
  // No signature, another one, nested beyond measure, a name and a path without end.
  const QList<QDBusMessage> nonsense{
      signal({}),
      signal({name, 7, 8}),
      signal({name, "ActionPause"}),
      signal({name, "ActionPause", QVariantMap{{"Pause", deep}}}),
      signal({name, QString(2'000'000, 'x'), QVariantMap()}),
      signal({name, "AddToLog", QVariantMap{{"C", deep}, {"N", QVariantList{1, "a"}}}}),
      signal({name, "ExecuteProgress", QVariantMap{{"CurrentPath", QString(1'000'000, 'y')}}})};
  int sent = 0;
  const auto flood = real.loop.repeat(0.01, [&] {
    for (int i = 0; i < 10; ++i) {
      raw.send(signal({name, "ExecuteProgress",
                       QVariantMap{{"CurrentPath", "/a"}, {"ProgressValue", ++sent}}}));
    }
    if (sent % 1000 == 0) std::ranges::for_each(nonsense, [&](const auto& one) { raw.send(one); });
  });
  struct EndOfFlood {
    QtRunLoop& loop;
    RunLoop::TimerId flood;
    ~EndOfFlood() { loop.cancel(flood); }
  } const endOfFlood{real.loop, flood};
  ASSERT_TRUE(real.runUntil([&] { return sent > 2000; }));
  EXPECT_EQ(client->launch(kLetters).valueOr("not asked"), "queued");
  ASSERT_TRUE(executing(kLetters))
      << "a tick launches it in the middle of the flood" << agentOutput;
  endExecution(0);
  ASSERT_TRUE(allDone());
  EXPECT_TRUE(agent->isRunning());
  EXPECT_FALSE(client->status()->value("paused").boolValue());
  QDBusConnection::disconnectFromBus("raw");
}

TEST(TwoWriters, LoseNoEdit) {
  constexpr int kEdits = 500;
  const TemporaryFolder home;
  ::setenv("HOME", home.path().c_str(), 1);
  SystemClock clock;
  LinuxMachine machine;
  SimulatedSystemLog log;
  ActionStore store(clock, machine, log);
  ASSERT_TRUE(store.tree().saveActionsTree(
      ZAN_Value::array({ZAN_Value::dictionary({{"Ref", 1}, {"Title", "Letters"}})})));
  const auto write = [&](const std::string& letter, bool throughChanges) {
    ActionStore own(clock, machine, log);
    const ZAN_StringTable texts;
    ActionTree tree(own.tree(), clock, log, texts);
    // Where the other one keeps the lock for long an edit is refused, and made again.
    const ReferenceTime end = clock.now() + 60;
    bool good = true;
    for (int i = 0; good && i < kEdits; ++i) {
      const std::string key = letter + std::to_string(i);
      const auto edit = [&]() -> Outcome {
        if (!throughChanges)
          return tree.editStoredTree([&](ProgrammedAction& root) -> Outcome {
            root.actionForReference(1)->setSetting(key, i);
            return {};
          });
        if (Outcome added = own.tree().appendToChangesList(
                ZAN_Value::dictionary({{"Ref", 1}, {"ChangesKey", key}, {"ChangesObject", i}}));
            !added)
          return added;
        return tree.updateActionsWithChanges(true);
      };
      while (!(good = static_cast<bool>(edit())) && clock.now() < end) clock.sleep(0.01);
    }
    return good;
  };
  const pid_t other = ::fork();
  if (other == 0) ::_exit(write("b", true) ? 0 : 1);
  EXPECT_TRUE(write("a", false));
  int status = 1;
  ASSERT_EQ(::waitpid(other, &status, 0), other);
  EXPECT_EQ(status, 0);
  const ZAN_StringTable texts;
  ActionTree tree(store.tree(), clock, log, texts);
  const ZAN_Value record = tree.rootItem().actionForReference(1)->getSettings();
  int found = 0;
  for (int i = 0; i < kEdits; ++i) {
    found += record.contains("a" + std::to_string(i)) ? 1 : 0;
    found += record.contains("b" + std::to_string(i)) ? 1 : 0;
  }
  EXPECT_EQ(found, 2 * kEdits);
  EXPECT_TRUE(store.tree().readChangesList().empty());
}

}  // namespace
}  // namespace corvana
