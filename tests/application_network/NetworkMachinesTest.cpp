#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAccessible>
#include <QInputDialog>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QTest>
#include <QVBoxLayout>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "application/Household.h"
#include "application/NetworkMachines.h"
#include "application/PairingDialog.h"
#include "desktop/Texts.h"
#include "platform/simulated/TemporaryFolder.h"

namespace corvana {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kAction = R"({"ref":7,"title":"Letters","mode":2,"launchable":true},)"
                                R"({"ref":8,"title":"Mirror","mode":3,"launchable":true},)"
                                R"({"ref":9,"title":"Private","mode":2,"launchable":false})";

/// One machine as `corvana9 peers` tells of it.
std::string machine(const std::string& name, const std::string& more) {
  return R"({"name":")" + name + R"(","identifier":"id-)" + name +
         R"(","user":501,"host":"h","active":true,"service":")" + name + R"(&&x","actions":[)" +
         kAction + "]," + more + "}";
}

class NetworkMachinesTest : public testing::Test {
 protected:
  NetworkMachinesTest() {
    qputenv("HOME", folder.path().c_str());
    qputenv("LANG", "C");
    household = std::make_unique<Household>(log, CORVANA_TEXTS);
  }
  /// What the command does: a script that knows its words as "$*".
  void answer(const std::string& script) {
    folder.write("answers",
                 "echo \"$*\" >> \"$HOME/asked\"\ncase \"$*\" in\n" + script + "\nesac\n");
  }
  static std::string saying(const std::string& words, const std::string& json) {
    return "*\"" + words + "\"*) printf '%s\\n' '" + json + "';;\n";
  }
  std::string asked() const {
    std::ifstream file(folder.at("asked"));
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static bool waitFor(const std::function<bool()>& condition) {
    return QTest::qWaitFor(condition, 60'000);
  }
  static bool says(const QWidget& page, const QString& words) {
    for (const QLabel* label : page.findChildren<QLabel*>())
      if (label->isVisible() && label->text().contains(words)) return true;
    return false;
  }
  QString text(const char* key) const { return household->text(key); }
  static void press(const QWidget& page, const QString& words) {
    for (QPushButton* one : page.findChildren<QPushButton*>())
      if (one->text() == words && one->isVisible()) {
        one->setFocus();
        return QTest::keyClick(one, Qt::Key_Space);
      }
    ADD_FAILURE() << "no button " << words.toStdString();
  }
  /// The entries for one machine.
  QList<QAction*> entries(const QWidget& page, const std::string& name) {
    for (const QPushButton* one : page.findChildren<QPushButton*>())
      if (one->accessibleName() == household->text("NetMore", {name}))
        return one->menu()->actions();
    return {};
  }

  class SilentLog final : public SystemLog {
   public:
    void write(const std::string& /*line*/) override {}
  };
  TemporaryFolder folder;
  SilentLog log;
  std::unique_ptr<Household> household;
};

TEST_F(NetworkMachinesTest, BesideNoBackupNothingIsShownButMachines) {
  for (const bool isAny : {false, true}) {
    answer(saying("peers", "[" + (isAny ? machine("anna", R"("proven":true)") : "") + "]"));
    QWidget window;
    QVBoxLayout column(&window);
    auto* const page = new NetworkMachines(*household);
    page->setQuiet(true);
    column.addWidget(page);
    column.addStretch(1);
    window.resize(600, 400);
    window.show();
    SCOPED_TRACE(isAny);
    EXPECT_FALSE(says(window, text("NetTitle")));
    ASSERT_TRUE(waitFor([&] { return !asked().empty() && (!isAny || says(window, "anna")); }));
    EXPECT_EQ(says(window, text("NetTitle")), isAny);
    std::filesystem::remove(folder.at("asked"));
  }
}

TEST_F(NetworkMachinesTest, EachIsShownAsFarAsItHasProvenItself) {
  answer(saying("peers",
                "[" + machine("dora", R"("proven":false)") + "," +
                    machine("carla", R"("proven":true,"password":true,"permits":"")") + "," +
                    machine("anna",
                            R"("proven":true,"paired":true,"encrypted":true,"pairedAs":"Attic",)"
                            R"("permits":"launch")") +
                    "," + machine("liar", R"("proven":true,"paired":true,"encrypted":true)") + "," +
                    machine("old", R"("proven":true,"paired":true)") + "," +
                    machine("myself", R"("proven":true,"own":true)") +
                    R"(,{"name":"emil","identifier":"e","user":1,"paired":true,"absent":true}])") +
         saying("anna&&x status",
                std::string(R"({"enabled":true,"actions":[)") + kAction +
                    R"(],"attention":[{"kind":"failed","ref":7,"title":"Let\u202eters"}]})") +
         "*\"liar&&x status\"*) for i in 1 2 3; do echo \"stranger $i: nothing\" >&2; done\n"
         "echo 'corvana9: another machine answers' >&2; exit 1;;\n");
  NetworkMachines page(*household);
  page.resize(700, 900);
  page.show();
  ASSERT_TRUE(waitFor([&] { return says(page, "another machine answers"); }));
  ASSERT_TRUE(waitFor([&] { return says(page, household->text("NetNeeds", {1})); }));
  EXPECT_FALSE(says(page, "stranger"));
  EXPECT_FALSE(says(page, "myself")) << "it is no other computer";
  EXPECT_TRUE(says(page, text("NetNoChannelThere"))) << "the old one is not asked";
  EXPECT_TRUE(says(page, "Attic")) << "as its user calls it here";
  EXPECT_TRUE(says(page, household->text("NetFailed", {std::string("Let ters")})));
  for (const char* key :
       {"NetPaired", "NetPairedUnsure", "NetPassword", "NetUnproven", "NetAbsent"})
    EXPECT_TRUE(says(page, text(key))) << key;
  EXPECT_THAT(asked(), Not(HasSubstr("carla&&x"))) << "only what is paired tells how it stands";
  EXPECT_EQ(entries(page, "carla").front()->text(), text("NetMayNot"));
  EXPECT_FALSE(entries(page, "carla").front()->isEnabled());
  EXPECT_EQ(entries(page, "Attic").size(), 2)
      << "what may not be launched from here is not offered";
  for (QWidget* widget : page.findChildren<QWidget*>()) {
    if (!widget->isVisible() || widget->focusPolicy() == Qt::NoFocus) continue;
    EXPECT_FALSE(QAccessible::queryAccessibleInterface(widget)->text(QAccessible::Name).isEmpty())
        << widget->metaObject()->className();
  }
}

TEST_F(NetworkMachinesTest, WhatDeletesThereIsAskedForFirst) {
  answer(saying("peers",
                "[" +
                    machine("anna",
                            R"("proven":true,"paired":true,"encrypted":true,"permits":"launch")") +
                    "," + machine("carla", R"("proven":true,"password":true,"permits":"launch")") +
                    "]") +
         saying("anna&&x status", std::string(R"({"enabled":true,"actions":[)") + kAction + "]}") +
         "*launch*) cat >> \"$HOME/asked\"; echo '{}';;\n");
  NetworkMachines page(*household);
  page.resize(700, 900);
  page.show();
  ASSERT_TRUE(waitFor([&] { return says(page, text("NetWell")); }));

  entries(page, "anna")[0]->trigger();
  ASSERT_TRUE(
      waitFor([&] { return says(page, household->text("NetAsked", {std::string("Letters")})); }));
  EXPECT_THAT(asked(), HasSubstr("peer --json -- anna&&x launch 7\n"));

  entries(page, "anna")[1]->trigger();
  auto* question = page.findChild<QMessageBox*>();
  ASSERT_NE(question, nullptr);
  EXPECT_EQ(question->informativeText(), text("NetRunDeletes"));
  QTest::keyClick(question, Qt::Key_Return);
  EXPECT_TRUE(waitFor([&] { return page.findChild<QMessageBox*>() == nullptr; }));
  EXPECT_THAT(asked(), Not(HasSubstr("launch 8"))) << "Enter alone runs nothing";
  entries(page, "anna")[1]->trigger();
  press(*page.findChild<QMessageBox*>(), text("NetRunButton"));
  EXPECT_TRUE(waitFor([&] { return asked().find("anna&&x launch 8\n") != std::string::npos; }));

  // The password goes through no list of processes.
  entries(page, "carla")[0]->trigger();
  auto* password = page.findChild<QInputDialog*>();
  ASSERT_NE(password, nullptr);
  password->setTextValue("geheim");
  password->accept();
  EXPECT_TRUE(waitFor([&] {
    return asked().find("/dev/stdin -- carla&&x launch 7\ngeheim\n") != std::string::npos;
  }));
}

TEST_F(NetworkMachinesTest, NothingIsSearchedOutOfSight) {
  answer("*peers*) echo '{\"reason\":\"no daemon\"}'; exit 1;;\n");
  QScrollArea area;
  auto* tall = new QWidget;
  auto* column = new QVBoxLayout(tall);
  column->addSpacing(2000);
  auto* page = new NetworkMachines(*household);
  column->addWidget(page);
  area.setWidget(tall);
  area.setWidgetResizable(true);
  area.resize(600, 400);
  area.show();
  QTest::qWait(50);
  EXPECT_EQ(asked(), "");
  area.ensureWidgetVisible(page);
  ASSERT_TRUE(waitFor([&] { return says(*page, "no daemon"); }));
  answer(saying("peers", "[]"));
  press(*page, text("NetAgain"));
  EXPECT_TRUE(waitFor([&] { return says(*page, text("NetNone")); })) << "empty, it invites";
  answer("*) echo '{\"limit\":2000}' >&2; echo '[]';;\n");
  press(*page, text("NetAgain"));
  EXPECT_TRUE(waitFor([&] { return says(*page, household->text("NetLimit", {2000})); }));
}

class PairingDialogTest : public NetworkMachinesTest {
 protected:
  /// The command that lets a machine come, or goes to one: it says how the digits were answered.
  static constexpr const char* kTalk =
      "*--accept*|*\"-- berta\"*) echo '{\"waits\":\"anna\"}' >&2\n"
      "echo '{\"name\":\"berta\",\"identifier\":\"b1\",\"user\":7,\"digits\":\"012345\"}' >&2\n"
      "trap 'echo ended >> \"$HOME/asked\"; exit 1' TERM; read said; echo \"said $said\" >> "
      "\"$HOME/asked\"\n"
      "[ $said = y ] && echo '{\"name\":\"berta\"}' || { echo '{\"reason\":\"not confirmed\"}'; "
      "exit 1; };;\n";

  void SetUp() override {
    answer(saying("--list", R"([{"name":"Old","identifier":"o1","user":3}])") +
           saying("--waiting", R"([{"name":"berta"}])") + saying("--forget", "{}") + kTalk);
    page.resize(600, 600);
    page.show();
    page.load();
    ASSERT_TRUE(waitFor([&] { return says(page, "Old"); }));
    press(page, text("NetPair"));
    dialog = page.findChild<PairingDialog*>();
    ASSERT_NE(dialog, nullptr);
  }

  PairedComputers page{*household};
  QDialog* dialog = nullptr;
};

TEST_F(PairingDialogTest, BothWaysLeadToTheDigitsAndOnlyYesPairs) {
  const QString berta = household->text("PairWith", {std::string("berta")});
  ASSERT_TRUE(waitFor([&] {
    for (const QPushButton* one : dialog->findChildren<QPushButton*>())
      if (one->text() == berta && one->isVisible()) return true;
    return false;
  }));
  press(*dialog, berta);
  ASSERT_TRUE(waitFor([&] { return says(*dialog, "012  345"); }));
  // An Enter that was meant for something else says no.
  QTest::keyClick(dialog->focusWidget(), Qt::Key_Return);
  ASSERT_TRUE(waitFor([&] { return says(*dialog, text("PairNot")); }));
  EXPECT_TRUE(says(*dialog, "not confirmed"));
  press(*dialog, text("PairAgain"));
  press(*dialog, text("PairHere"));
  ASSERT_TRUE(waitFor([&] { return says(*dialog, "012  345"); }));
  press(*dialog, text("PairSame"));
  ASSERT_TRUE(
      waitFor([&] { return says(*dialog, household->text("PairDone", {std::string("berta")})); }));
  EXPECT_TRUE(says(*dialog, text("PairDoneButOff"))) << "remote control is not switched on here";
  EXPECT_THAT(asked(), HasSubstr("said n"));
  EXPECT_THAT(asked(), HasSubstr("said y"));

  // The program hears of signals in its loop, and holds them back for that.
  sigset_t held, before;
  sigemptyset(&held);
  sigaddset(&held, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &held, &before);
  dialog->accept();
  QTRY_VERIFY(page.findChild<PairingDialog*>() == nullptr);
  press(page, text("NetPair"));
  dialog = page.findChild<PairingDialog*>();
  press(*dialog, text("PairHere"));
  ASSERT_TRUE(waitFor([&] { return says(*dialog, "012  345"); }));
  dialog->reject();
  EXPECT_TRUE(waitFor([&] { return asked().find("ended") != std::string::npos; }))
      << "whoever closes the window lets the other machine know";
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(PairingDialogTest, ForgettingIsConfirmedAndNamesTheMachineExactly) {
  dialog->close();
  press(page, text("SettingsForget"));
  QTest::keyClick(page.findChild<QMessageBox*>(), Qt::Key_Return);
  ASSERT_TRUE(waitFor([&] { return page.findChild<QMessageBox*>() == nullptr; }));
  EXPECT_THAT(asked(), Not(HasSubstr("--forget")));
  press(page, text("SettingsForget"));
  press(*page.findChild<QMessageBox*>(), text("SettingsForget"));
  EXPECT_TRUE(waitFor([&] { return asked().find("--forget o1/3") != std::string::npos; }));
}

}  // namespace
}  // namespace corvana
