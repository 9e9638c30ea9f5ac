#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QAccessible>
#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QProcess>
#include <QPushButton>
#include <QSpinBox>
#include <QStandardPaths>
#include <QTest>
#include <QTreeWidget>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "application/CommandChild.h"
#include "application/HistoryPage.h"
#include "application/RestorePage.h"
#include "application/SettingsPage.h"
#include "application/TimeLine.h"
#include "desktop/Texts.h"
#include "platform/simulated/TemporaryFolder.h"

namespace corvana::test {
namespace {

constexpr int kPatience = 120'000;  // ms, with a machine that does much else

const ChangeSet kEverything{Change::tree, Change::history, Change::preferences, Change::execution};

class NoNavigator final : public Navigator {
 public:
  void showOverview() override {}
  void createBackup() override {}
  void changeBackup(std::int64_t /*reference*/) override {}
  void showRestore(std::int64_t /*reference*/) override {}
  void showHistory(std::int64_t /*reference*/, bool /*onlyFailures*/) override {}
  void showSettings() override {}
};

class SilentLog final : public SystemLog {
 public:
  void write(const std::string& /*line*/) override {}
};

/// The pages over a home of their own, with the real command and the real execute program; no
/// agent.
class PagesTest : public testing::Test {
 protected:
  PagesTest() {
    qputenv("HOME", folder.makeFolder("home").c_str());
    qputenv("LANG", "C");
  }

  static std::string run(const QString& program, const QStringList& words) {
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, words);
    process.waitForFinished(kPatience);
    const std::string text = process.readAll().toStdString();
    EXPECT_EQ(process.exitCode(), 0) << text;
    return text;
  }
  static std::string command(const QStringList& words) {
    return run(CommandChild::program(), words);
  }
  /// A backup of the folder "Documents" with two versions: what a file was, and what it is.
  void makeVersions() {
    folder.write("Documents/thesis.txt", "first thoughts\n");
    folder.write("Documents/Letters/to Anna.txt", "Dear Anna\n");
    folder.makeFolder("copies");
    command({"add", "Papers", "--source", qt(folder.at("Documents")), "--destination",
             qt(folder.at("copies")), "--manual"});
    copy();
    // Versions are named by the second.
    QTest::qWait(1100);
    folder.write("Documents/thesis.txt", "second thoughts, which are longer\n");
    std::filesystem::remove(folder.at("Documents/Letters/to Anna.txt"));
    copy();
  }
  void copy() {
    Household home(log, CORVANA_TEXTS);
    ProgrammedAction::Nodes actions;
    home.actions().getListOfAllProgrammedActions(actions);
    ASSERT_EQ(actions.size(), 1U);
    run(QStringLiteral(CORVANA_EXECUTE), {QString::number(actions.front()->getReference())});
  }
  std::string contents(const std::string& name) const {
    std::ifstream file(folder.at(name));
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static bool waitFor(const std::function<bool()>& condition) {
    return QTest::qWaitFor(condition, kPatience);
  }
  static QPushButton* button(const QWidget& page, const QString& text) {
    for (QPushButton* one : page.findChildren<QPushButton*>())
      if (one->text() == text) return one;
    return nullptr;
  }
  static QTreeWidgetItem* row(const QTreeWidget& list, const QString& name) {
    const auto found = list.findItems(name, Qt::MatchExactly);
    return found.isEmpty() ? nullptr : found.front();
  }
  static bool says(const QWidget& page, const QString& words) {
    for (const QLabel* label : page.findChildren<QLabel*>())
      if (label->isVisibleTo(&page) && label->text().contains(words)) return true;
    return false;
  }

  TemporaryFolder folder;
  SilentLog log;
  NoNavigator navigator;
};

TEST_F(PagesTest, AFileThatChangedComesBackFromItsDateByAFewClicks) {
  makeVersions();
  Household home(log, CORVANA_TEXTS);
  RestorePage page(home, navigator);
  page.resize(900, 700);
  page.show();
  page.refresh(kEverything);
  auto* const list = page.findChild<QTreeWidget*>();
  TimeLine* line = nullptr;
  for (QWidget* one : page.findChildren<QWidget*>())
    if (auto* const found = dynamic_cast<TimeLine*>(one)) line = found;
  // Its only source is open at once.
  ASSERT_TRUE(waitFor([&] { return row(*list, "thesis.txt") != nullptr; }));
  ASSERT_EQ(line->dates().size(), 2U);
  EXPECT_EQ(line->chosen(), 1);
  EXPECT_EQ(QAccessible::queryAccessibleInterface(line)->role(), QAccessible::Slider);
  QTest::keyClick(line, Qt::Key_Left);
  ASSERT_TRUE(waitFor([&] {
    QTreeWidgetItem* const file = row(*list, "thesis.txt");
    return file != nullptr && file->text(1) == home.text("RestoreChanged");
  }));

  const int height = page.minimumSizeHint().height();
  row(*list, "thesis.txt")->setSelected(true);
  ASSERT_TRUE(waitFor([&] { return page.findChildren<QListWidget*>().front()->count() == 2; }));
  EXPECT_TRUE(waitFor([&] { return says(page, "first thoughts"); })) << "what it was is shown";
  EXPECT_LE(page.minimumSizeHint().height(), height + 150) << "a preview takes the room there is";
  QTest::mouseClick(button(page, home.text("RestoreButton")), Qt::LeftButton);
  ASSERT_TRUE(waitFor([&] {
    return says(page, home.text("Restored", {1, std::string("15 bytes")}));
  }));
  EXPECT_EQ(contents("Documents/thesis.txt"), "first thoughts\n");
  std::size_t kept = 0;
  for (const auto& one : std::filesystem::directory_iterator(folder.at("Documents")))
    kept += one.path().filename().string().starts_with("thesis.txt.before-") ? 1 : 0;
  EXPECT_EQ(kept, 1U) << "what stood in the way";

  // What is in no list that is shown is found by its name, and comes back into its folder.
  page.findChild<QLineEdit*>()->setText("ANNA");
  ASSERT_TRUE(waitFor([&] { return list->topLevelItemCount() == 1; }));
  EXPECT_EQ(list->topLevelItem(0)->text(0), "Documents/Letters/to Anna.txt");
  EXPECT_EQ(list->topLevelItem(0)->text(1), home.text("RestoreGone"));
  list->topLevelItem(0)->setSelected(true);
  QTest::mouseClick(button(page, home.text("RestoreButton")), Qt::LeftButton);
  EXPECT_TRUE(waitFor([&] { return contents("Documents/Letters/to Anna.txt") == "Dear Anna\n"; }));

  HistoryPage history(home, navigator);
  history.refresh(kEverything);
  QTreeWidget* runs = nullptr;
  for (QTreeWidget* one : history.findChildren<QTreeWidget*>())
    if (one->accessibleName() == home.text("MainHistory")) runs = one;
  ASSERT_TRUE(waitFor([&] {
    history.refresh(kEverything);
    return runs->topLevelItemCount() == 4;
  }));
  EXPECT_EQ(runs->topLevelItem(0)->text(1), "Papers (restoring)");
  EXPECT_EQ(runs->topLevelItem(3)->text(1), "Papers");
  EXPECT_EQ(runs->topLevelItem(3)->text(3), "2") << "files";
}

TEST_F(PagesTest, WhereNothingCanBeRestoredItSaysWhyAndWhatToDo) {
  {
    Household empty(log, CORVANA_TEXTS);
    RestorePage page(empty, navigator);
    page.show();
    page.refresh(kEverything);
    EXPECT_TRUE(says(page, empty.text("RestoreNoneTitle")));
    EXPECT_TRUE(button(page, empty.text("RestoreFirstBackup"))->isVisible());
  }
  folder.write("Documents/x", "x");
  folder.makeFolder("nothing");
  command({"add", "Papers", "--source", qt(folder.at("Documents")), "--destination",
           qt(folder.at("nothing")), "--manual"});
  Household home(log, CORVANA_TEXTS);
  RestorePage page(home, navigator);
  page.show();
  page.refresh(kEverything);
  EXPECT_TRUE(waitFor([&] { return says(page, qt(folder.at("nothing"))); }));
  EXPECT_FALSE(button(page, home.text("RestoreFirstBackup"))->isVisible());
}

TEST_F(PagesTest, WhatIsSetIsStoredForTheAgent) {
  Household home(log, CORVANA_TEXTS);
  home.store().createMissingDataFiles();
  SettingsPage page(home, navigator);
  page.refresh(kEverything);
  QSpinBox* minutes = nullptr;
  for (QSpinBox* one : page.findChildren<QSpinBox*>())
    if (one->accessibleName() == home.text("PrefNoProgress")) minutes = one;
  ASSERT_NE(minutes, nullptr);
  minutes->setValue(42);
  const ZAN_Value stored = home.store().settings().schedulerSettings();
  EXPECT_EQ(stored.integer("SchedulerPrefNoProgressMinutes"), 42);

  // A server that does not answer is told in its own words, and nothing is kept.
  for (QLineEdit* edit : page.findChildren<QLineEdit*>()) {
    if (edit->accessibleName() == home.text("SettingsAddress")) edit->setText("me@example.invalid");
    if (edit->accessibleName() == home.text("SettingsServer")) edit->setText("localhost");
  }
  page.show();
  QTest::mouseClick(button(page, home.text("SettingsTest")), Qt::LeftButton);
  EXPECT_TRUE(
      waitFor([&] { return says(page, "nothing was changed") || says(page, "localhost:25"); }));
  EXPECT_EQ(home.store().settings().mainAppSettings().integer("SendEmailReport"), 0);
}

TEST_F(PagesTest, WhatAnotherMachineHasKeptIsOpenedByItsAddressAndSeenInSmall) {
  if (QStandardPaths::findExecutable("restic").isEmpty()) GTEST_SKIP() << "restic is missing";
  folder.write("Documents/thesis.txt", "first thoughts\n");
  folder.write("password", "open sesame\n");
  ::chmod(folder.at("password").c_str(), 0600);
  const QString place = qt(folder.at("far away"));
  command({"add", "Papers", "--source", qt(folder.at("Documents")), "--engine", "restic",
           "--repository", place, "--password-file", qt(folder.at("password")), "--manual"});
  copy();
  qputenv("HOME", folder.makeFolder("other home").c_str());
  Household home(log, CORVANA_TEXTS);
  home.store().createMissingDataFiles();
  RestorePage page(home, navigator);
  page.show();
  page.refresh(kEverything);
  const auto open = [&](const char* password) {
    for (QComboBox* box : page.findChildren<QComboBox*>())
      if (box->accessibleName() == home.text("RestoreChooser"))
        emit box->activated(box->findText(home.text("RestoreFromServer")));
    auto* const dialog = page.findChild<QDialog*>();
    ASSERT_NE(dialog, nullptr);
    dialog->findChild<QComboBox*>()->setCurrentIndex(3);
    for (QLineEdit* edit : dialog->findChildren<QLineEdit*>()) {
      if (edit->accessibleName() == home.text("ServerAddress")) edit->setText(place);
      if (edit->accessibleName() == home.text("RepositoryPassword")) edit->setText(password);
    }
    const QPointer<QDialog> seen(dialog);
    QTest::mouseClick(button(*dialog, home.text("RestoreServerOpen")), Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] { return seen.isNull(); }));
  };
  open("wrong");
  EXPECT_TRUE(waitFor([&] { return says(page, "password"); })) << "in restic's words";
  open("open sesame");
  auto* const list = page.findChild<QTreeWidget*>();
  ASSERT_TRUE(waitFor([&] { return row(*list, "thesis.txt") != nullptr; }));
  row(*list, "thesis.txt")->setSelected(true);
  EXPECT_TRUE(waitFor([&] { return says(page, "first thoughts"); }));
  const auto left = [&] {
    return QDir(qt(home.store().folder().hiddenFolderPath())).entryList({"Preview-*"});
  };
  EXPECT_TRUE(waitFor([&] { return left().isEmpty(); })) << "nobody reads it afterwards";
}

TEST_F(PagesTest, AllAgeAlarmsAreSetOnOnePage) {
  folder.write("Documents/x", "x");
  const auto add = [&](const QString& title, const QStringList& when) {
    command(QStringList{"add", title, "--source", qt(folder.at("Documents")), "--destination",
                        qt(folder.makeFolder("copies of " + utf8(title)))} +
            when);
  };
  add("Daily", {"--daily", "08:00"});
  add("By hand", {"--manual"});
  Household home(log, CORVANA_TEXTS);
  SettingsPage page(home, navigator);
  page.refresh(kEverything);
  auto* const side = page.findChild<QListWidget*>();
  side->setCurrentItem(side->findItems(home.text("SettingsAlarms"), Qt::MatchExactly).front());
  auto* const list = page.findChild<QTreeWidget*>();
  ASSERT_EQ(list->topLevelItemCount(), 2);
  QTreeWidgetItem* const daily = row(*list, "Daily");
  EXPECT_EQ(daily->text(1), home.text("AlarmsDays", {3}));
  EXPECT_EQ(row(*list, "By hand")->text(1), home.text("AlarmsByHand"));
  EXPECT_FALSE(row(*list, "By hand")->flags() & Qt::ItemIsUserCheckable);
  const auto record = [&] { return home.actions().childAtIndex(0).getSettings(); };
  daily->setCheckState(0, Qt::Unchecked);
  EXPECT_EQ(record().integer(ActionKey::ageAlarm), 0);
  daily->setData(3, Qt::EditRole, 5);
  EXPECT_EQ(record().integer(ActionKey::notExecutedDays), 5);
  EXPECT_NE(record().integer(ActionKey::notExecuted), 0);
  daily->setData(3, Qt::EditRole, 0);
  EXPECT_EQ(record().integer(ActionKey::notExecuted), 0);

  // The looks are seen as they are chosen.
  side->setCurrentItem(side->findItems(home.text("SettingsLook"), Qt::MatchExactly).front());
  QWidget* preview = nullptr;
  for (QWidget* one : page.findChildren<QWidget*>())
    if (one->accessibleName() == home.text("SettingsPreview")) preview = one;
  ASSERT_NE(preview, nullptr);
  preview->resize(700, 300);
  const QImage before = preview->grab().toImage();
  for (QComboBox* box : page.findChildren<QComboBox*>())
    if (box->accessibleName() == home.text("PrefMessageColour")) {
      box->setCurrentIndex(3);
      emit box->activated(3);
    }
  EXPECT_NE(preview->grab().toImage(), before);
}

}  // namespace
}  // namespace corvana::test
