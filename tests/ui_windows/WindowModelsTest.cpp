#include <gmock/gmock.h>

#include <chrono>

#include "actions/History.h"
#include "mail/smtp/MailSender.h"
#include "tests/scenario/Scenario.h"
#include "ui/StatusItem.h"
#include "ui/windows/ComingModels.h"
#include "ui/windows/HistoryModels.h"
#include "ui/windows/PreferencesModel.h"
#include "ui/windows/StatusModels.h"
#include "ui/windows/WeekModel.h"

namespace corvana {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

std::vector<std::string> column(const WindowTable& table, std::size_t column) {
  std::vector<std::string> texts;
  for (std::size_t row = 0; row < table.rowCount(); ++row) texts.push_back(table.text(row, column));
  return texts;
}

class WindowModelsTest : public testing::Test {
 protected:
  void begin() {
    scenario.writeTree();
    scenario.start(true);
    scenario.runFor(5);
    mSources.emplace(scenario.agent->userInterfaceSources());
  }
  const UserInterfaceSources& sources() const { return *mSources; }
  ReferenceTime now() const { return scenario.machine.clock.now(); }

  Scenario scenario;

 private:
  std::optional<UserInterfaceSources> mSources;
};

TEST_F(WindowModelsTest, TheQueueIsReorderedRunAndEmptiedButForWhatRuns) {
  std::vector<std::int64_t> refs;
  for (const char* title : {"A", "B", "C", "D"}) refs.push_back(scenario.action(title, {}));
  ChildScript longOne;
  longOne.seconds = 3600;
  scenario.scripts["A"] = longOne;
  begin();
  SchedulerCommands& commands = scenario.agent->commands();
  QueueModel queue(sources());
  EXPECT_EQ(queue.summary(), "The queue is empty");
  commands.setPreference("SchedulerPrefShowActionsQueue", 1);
  for (const std::int64_t ref : refs) EXPECT_TRUE(commands.launchAction(ref, false));
  EXPECT_THAT(scenario.machine.userInterface.quiet, ElementsAre(Window::queue));
  scenario.runFor(5);
  ASSERT_THAT(column(queue, 0), ElementsAre("A", "B", "C", "D"));
  EXPECT_THAT(column(queue, 2), ElementsAre("Running", "Next", "Waiting", "Waiting"));

  queue.move(3, 0);
  EXPECT_THAT(column(queue, 0), ElementsAre("A", "D", "B", "C")) << "the running one is not passed";
  queue.move(1, 4);
  EXPECT_THAT(column(queue, 0), ElementsAre("A", "B", "C", "D"));
  queue.move(0, 3);
  queue.remove({0, 2});
  EXPECT_THAT(column(queue, 0), ElementsAre("A", "B", "D"));

  commands.disableSchedule();
  EXPECT_EQ(queue.text(2, 2), "Held: automatic execution is off");
  queue.runNow(2);
  EXPECT_THAT(column(queue, 0), ElementsAre("A", "D", "B"));
  EXPECT_EQ(queue.text(1, 2), "Starts now");
  queue.pauseOrContinue();
  EXPECT_EQ(queue.text(0, 2), "Running, paused");
  EXPECT_EQ(queue.pauseTitle(), "Continue");
}

TEST_F(WindowModelsTest, TheNextActionsAreFoundByTheirWordsAndLaunched) {
  scenario.action("Photos of the year", daily(scenario.timeOfDay("18:00"), now()));
  scenario.action("Été à la mer", daily(scenario.timeOfDay("14:00"), now()));
  const std::int64_t byHand = scenario.action(
      "Photos by hand", ZAN_Value::dictionary({{"TriggerAutomatic", 0}, {"Shortcut", "PBH"}}));
  scenario.action("Never by hand", ZAN_Value::dictionary({{"TriggerAutomatic", 0},
                                                          {"TriggerPreventManualLaunch", 1}}));
  begin();
  NextActionsModel next(sources());
  EXPECT_THAT(column(next, 0),
              ElementsAre("Été à la mer", "Photos of the year", "Never by hand", "Photos by hand"));
  EXPECT_THAT(next.text(0, 1), HasSubstr("2:00"));
  next.sortBy(0, true);
  EXPECT_EQ(next.text(0, 0), "Été à la mer") << "É comes after the letters without accents";
  next.sortBy(1, false);

  next.search("year PHOTOS");
  EXPECT_THAT(column(next, 0), ElementsAre("Photos of the year"));
  next.search("éTÉ");
  EXPECT_THAT(column(next, 0), ElementsAre("Été à la mer"));
  next.search("pbh");
  ASSERT_EQ(next.rowCount(), 1u);
  EXPECT_THAT(next.why(0), HasSubstr("automatic"));
  EXPECT_THAT(next.launch({0}), HasSubstr("was added to the queue"));
  EXPECT_TRUE(scenario.agent->queue().contains(byHand));
  EXPECT_THAT(next.launch({0}), HasSubstr("already"));
  next.search("never");
  EXPECT_THAT(next.launch({0}), HasSubstr("by hand"));
  EXPECT_FALSE(scenario.agent->queue().contains(next.id(0)));

  next.search("photos");
  ShownWeekModel week(sources());
  EXPECT_TRUE(week.refresh(next));
  EXPECT_EQ(week.summary(), "7 runs, none at the same time") << "of the dated one found";
  next.refresh();
  EXPECT_FALSE(week.refresh(next)) << "nothing is new";
  scenario.runFor(60);
  EXPECT_TRUE(week.refresh(next)) << "a minute later";
  next.search("");
  EXPECT_TRUE(week.refresh(next));
}

TEST_F(WindowModelsTest, TheLatestActionsTellHowTheyEndedAndFailuresOfAWeekAreSummedUp) {
  const auto entry = [&](const char* title, double ago, int code, int errors) {
    return ZAN_Value::dictionary({{"Date", ZAN_Value::date(now() - ago)},
                                  {"EndDate", ZAN_Value::date(now() - ago + 3725)},
                                  {"Title", title},
                                  {"Ref", 7},
                                  {"C", code},
                                  {"ActionErrors", errors}});
  };
  const auto logged = [&](const char* title, double ago, int code) {
    return ZAN_Value::dictionary(
        {{"M", ZAN_Value::date(now() - ago)}, {"C", code}, {"N", title}, {"F", "the reason"}});
  };
  {
    History history(scenario.store());
    history.addHistoryEntry(entry("Fine", 90000, 2, 0));
    history.addHistoryEntry(entry("Bad", 80000, 14, 2));
    (void)history.results().saveActionResults(
        ZAN_Value::dictionary(
            {{"Ref", 7}, {"Title", "Bad"}, {"Date", ZAN_Value::date(now() - 80000)}}),
        ZAN_Value::array({"/home/c"}), {},
        ZAN_Value::array({"/home/a: no room", "/home/b: locked"}), ZAN_Value::array({"/home/d"}));
    history.log().addLog(logged("Old", 8 * 86400.0, 6));
    history.log().addLog(logged("Bad", 70000, 14));
    history.log().addLog(logged("Fine", 60000, 2));
    history.log().addLog(logged("Crash", 50000, 6));
  }
  begin();
  LatestActionsModel latest(sources());
  EXPECT_THAT(column(latest, 1), ElementsAre("Bad", "Fine"));
  EXPECT_EQ(latest.text(0, 2), "1:02:05");
  EXPECT_EQ(latest.text(0, 3), "Completed with errors");
  EXPECT_THAT(latest.details(0),
              HasSubstr("Errors: 2\n/home/a: no room\n/home/b: locked\n\nLeft out: 1\n/home/d\n\n"
                        "Files: 1\n/home/c"));
  EXPECT_EQ(latest.tone(0), WindowTable::Tone::alert);
  latest.setOnlyFailures(true);
  EXPECT_THAT(column(latest, 1), ElementsAre("Bad"));

  ErrorSummaryModel errors(sources());
  EXPECT_THAT(column(errors, 1), ElementsAre("Crash", "Bad"));
  EXPECT_THAT(errors.details(0), HasSubstr("the reason"));
  EXPECT_FALSE(errors.isShownOnErrors());
  errors.setShownOnErrors(true);
  EXPECT_TRUE(errors.isShownOnErrors());
}

TEST_F(WindowModelsTest, WhatARunAskedToDeleteIsAllowedForThatNumberOnly) {
  const std::int64_t photos =
      scenario.action("Photos", ZAN_Value::dictionary({{DeletionKey::toConfirm, 61}}));
  const auto record = [&] {
    return sources().records.tree.rootItem().actionForReference(photos)->getSettings();
  };
  History(scenario.store())
      .log()
      .addLog(ZAN_Value::dictionary(
          {{"M", ZAN_Value::date(now() - 60)}, {"C", 14}, {"N", "Photos"}, {"R", photos}}));
  begin();
  ErrorSummaryModel errors(sources());
  ASSERT_TRUE(errors.asksToDelete(0));
  std::string said;
  const auto ask = [&] { errors.confirmDeletion(0, [&](std::string text) { said = text; }); };
  ask();
  EXPECT_THAT(scenario.machine.userInterface.questions.back().text, HasSubstr("61"));
  ASSERT_TRUE(scenario.machine.userInterface.answer(Window::errorSummary, false));
  EXPECT_EQ(record().integer(DeletionKey::confirmed), 0);

  ask();
  ActionTree& tree = sources().records.tree;
  tree.addInChangesList(*tree.rootItem().actionForReference(photos), 400, DeletionKey::toConfirm);
  ASSERT_TRUE(scenario.machine.userInterface.answer(Window::errorSummary, true));
  EXPECT_EQ(record().integer(DeletionKey::confirmed), 0) << "the number is another one by now";
  EXPECT_THAT(said, HasSubstr("Another run"));

  ask();
  ASSERT_TRUE(scenario.machine.userInterface.answer(Window::errorSummary, true));
  EXPECT_EQ(record().integer(DeletionKey::confirmed), 400);
  EXPECT_FALSE(errors.asksToDelete(0));
  EXPECT_TRUE(scenario.agent->queue().contains(photos)) << said;
}

/// Every preference that is shown can be changed, counts at once and is in the file afterwards.
TEST_F(WindowModelsTest, PreferencesCountAtOnce) {
  begin();
  UserInterfaceSources lacking = sources();
  lacking.lacking = [](Ability ability) {
    if (ability == Ability::wake) return std::string("No alarm clock.");
    return ability == Ability::seeKeyboard ? std::string("No keys.") : std::string();
  };
  const PreferencesModel preferences(lacking);
  for (const Preference& one : Preferences::table())
    for (const std::string_view key : {one.label, one.help, one.unit})
      EXPECT_TRUE(key.empty() || !lacking.records.texts.text(key).empty()) << key;
  int changed = 0;
  for (const auto& page : preferences.pages()) {
    EXPECT_FALSE(page.title.empty());
    for (const auto& item : page.items) {
      // The account of the reports is another file's.
      if (item.write || item.key.empty()) continue;
      SCOPED_TRACE(item.key);
      EXPECT_FALSE(item.label.empty());
      EXPECT_THAT(item.choices, Each(Not(IsEmpty())));
      EXPECT_EQ(item.lacking.empty(), item.key.find("Shortcut") == std::string::npos);
      EXPECT_EQ(item.help.ends_with("\nNo alarm clock."), item.key == "SchedulerPrefWakeupMachine");
      using Kind = PreferencesModel::Kind;
      ZAN_Value wanted;
      if (item.kind == Kind::checkBox) wanted = item.read().boolValue() ? 0 : 1;
      if (item.kind == Kind::choice) wanted = static_cast<int>(item.choices.size()) - 1;
      if (item.kind == Kind::number) wanted = item.most;
      if (item.kind == Kind::text || item.kind == Kind::password) wanted = "new text";
      if (item.kind == Kind::shortcut) wanted = ZAN_Value::data(std::string(16, '\2'));
      if (wanted.isNull()) continue;
      preferences.change(item, wanted);
      ++changed;
      EXPECT_EQ(item.read(), wanted);
      if (item.key == "SchedulerPrefCurrentContext") continue;
      EXPECT_EQ(scenario.store().settings().schedulerSettings().value(item.key), wanted);
    }
  }
  EXPECT_EQ(changed, 39);
  scenario.machine.runLoop.runFor(0);
  EXPECT_TRUE(scenario.agent->state().mScheduleDisabled);
  EXPECT_FALSE(scenario.machine.userInterface.statusItem) << "the icon is not wanted any more";
}

TEST_F(WindowModelsTest, WhoSwitchesRemoteControlOnGetsItWithProofs) {
  begin();
  const PreferencesModel preferences(sources());
  const auto item = [&](std::string_view key) {
    for (const auto& page : preferences.pages())
      for (const auto& one : page.items)
        if (one.key == key) return one;
    return PreferencesModel::Item{};
  };
  preferences.change(item(PreferenceKey::allowRemoteControl), 1);
  EXPECT_EQ(item(PreferenceKey::remoteProvenOnly).read(), ZAN_Value(1));
  preferences.change(item(PreferenceKey::remoteProvenOnly), 0);
  preferences.change(item(PreferenceKey::allowRemoteControl), 0);
  EXPECT_EQ(item(PreferenceKey::remoteProvenOnly).read(), ZAN_Value(0));
}

TEST_F(WindowModelsTest, TheAccountOfTheReportsIsSetUpAndTried) {
  begin();
  const PreferencesModel preferences(sources());
  const auto page = preferences.pages().back();
  const auto item = [&](std::string_view label) {
    return *std::ranges::find(page.items, label, &PreferencesModel::Item::label);
  };
  const auto set = [&](std::string_view label, const ZAN_Value& value) {
    preferences.change(item(label), value);
  };
  const auto shown = [&](std::string_view label) { return item(label).read().string(); };
  set("Your address:", "Anna <anna@web.de>");
  EXPECT_EQ(shown("Mail server:"), "smtp.web.de");
  EXPECT_EQ(shown("Port:"), "587");
  EXPECT_EQ(item("Encryption:").read().integerValue(), MailKey::kStartTls);
  EXPECT_EQ(shown("Recipients:"), "anna@web.de");
  set("Mail server:", "mail.example.com");
  set("Encryption:", MailKey::kInClear);
  set("Your address:", "anna@gmx.de");
  EXPECT_EQ(shown("Mail server:"), "mail.example.com") << "what the user has chosen stays";
  EXPECT_EQ(shown("At:"), "08:00");
  set("At:", "25:00");
  EXPECT_EQ(shown("At:"), "08:00");
  set("At:", "18:30");
  EXPECT_EQ(shown("At:"), "18:30");
  set("User name:", "");
  set("Password:", "pa ss");
  scenario.runFor(1);
  EXPECT_EQ(shown("Password:"), "");
  const ZAN_Value settings = scenario.store().settings().mainAppSettings();
  EXPECT_EQ(settings.integer(MailKey::standard), 1);
  EXPECT_TRUE(settings["SendReportEmailSMTPServerPassword"].isNull());
  EXPECT_THAT(settings.string(MailKey::passwordFile), HasSubstr("corvana9/mail-password"));

  scenario.machine.network.script = [](const std::string&, std::int64_t) {
    return PeerScript().line("554 not you").close();
  };
  item("Send a test").perform();
  EXPECT_EQ(shown("Last test:"), "Asking mail.example.com:587 (none) …");
  scenario.runFor(60);
  EXPECT_THAT(shown("Last test:"), HasSubstr("Not sent. mail.example.com:587 (none): 554 not you"));
}

TEST_F(WindowModelsTest, AShortcutReadsModifiersFirst) {
  std::string bytes(16, '\0');
  bytes[37 / 8] = static_cast<char>(1 << 37 % 8);
  bytes[29 / 8] = static_cast<char>(bytes[29 / 8] | 1 << 29 % 8);
  begin();
  const PreferencesModel preferences(sources());
  EXPECT_EQ(preferences.shortcutText(ZAN_Value::data(bytes)), "Ctrl+K");
  EXPECT_EQ(preferences.shortcutText({}), "");
}

TEST_F(WindowModelsTest, TheStatusNamesWhatRunsAndWhatHoldsBack) {
  const std::int64_t photos = scenario.action("Photos", daily(scenario.timeOfDay("18:00"), now()));
  begin();
  StatusModel status(sources());
  EXPECT_THAT(status.facts(), Contains(Pair("Next:", HasSubstr("Photos"))));
  EXPECT_EQ(status.text(0, 1), "Never");
  status.launch({0});
  scenario.runFor(5);
  EXPECT_THAT(status.facts(), Contains(Pair("Now:", HasSubstr("Photos, since"))));
  EXPECT_TRUE(status.progress());
  status.setExecution(2);
  EXPECT_EQ(status.execution(), 2);
  EXPECT_THAT(status.why(0), HasSubstr("running"));
  status.setContext(2);
  EXPECT_EQ(status.context(), 2);
  EXPECT_EQ(status.id(0), photos);
}

TEST_F(WindowModelsTest, AStuckExecutionIsShownWithWhoWaitsBehindIt) {
  const std::int64_t photos =
      scenario.action("Photos", ZAN_Value::dictionary({{"OptionsPerformer", "corvana9"}}));
  const std::int64_t music = scenario.action("Music", {});
  ChildScript stuck;
  stuck.seconds = ChildScript::kUntilStopped;
  scenario.scripts["Photos"] = stuck;
  begin();
  SchedulerCommands& commands = scenario.agent->commands();
  EXPECT_TRUE(commands.launchAction(photos, false));
  EXPECT_TRUE(commands.launchAction(music, false));
  const StatusModel status(sources());
  const QueueModel queue(sources());
  const StatusItem& item = sources().statusItem;
  scenario.runFor(500);
  EXPECT_THAT(item.shownTitle(), Not(HasSubstr("progress")));
  EXPECT_EQ(queue.text(0, 2), "Running");
  scenario.runFor(200);
  const auto stuckAndWaiting = AllOf(HasSubstr("“Photos” has made no progress since"),
                                     HasSubstr("Waiting behind it: “Music”."));
  EXPECT_THAT(item.shownTitle(), stuckAndWaiting);
  EXPECT_EQ(scenario.machine.userInterface.statusTitle, item.shownTitle()) << "and was drawn";
  EXPECT_EQ(item.titleColour(), MenuColour::warning);
  EXPECT_THAT(status.facts(), Contains(Pair("Now:", stuckAndWaiting)));
  EXPECT_THAT(queue.text(0, 2), HasSubstr("Stuck since"));
  EXPECT_THAT(queue.summary(), stuckAndWaiting);
  commands.stopExecution();
  scenario.runFor(60);
  EXPECT_THAT(item.shownTitle(), Not(HasSubstr("progress")));
}

/// Ten thousand actions: opening a window and finding one of them is a matter of milliseconds.
TEST_F(WindowModelsTest, LongListsOpenQuickly) {
  for (int i = 0; i < 10'000; ++i)
    scenario.action("Action " + std::to_string(i), daily(scenario.timeOfDay("18:00"), now()));
  begin();
  const auto start = std::chrono::steady_clock::now();
  NextActionsModel next(sources());
  for (std::size_t row = 0; row < 40; ++row) EXPECT_FALSE(next.text(row, 1).empty());
  next.search("action 9999");
  EXPECT_EQ(next.rowCount(), 1u);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  EXPECT_LT(took.count(), 1.0) << "also with sanitizers on a busy machine";
}

}  // namespace
}  // namespace corvana
