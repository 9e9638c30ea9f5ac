#include <QAccessible>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimeEdit>
#include <algorithm>
#include <map>
#include <set>

#include "application/BackupCard.h"
#include "application/MainWindow.h"
#include "command/ActionDraft.h"
#include "command/ScheduleWords.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerLog.h"
#include "desktop/Texts.h"
#include "execute/restic/Repository.h"
#include "tests/application/ApplicationTest.h"
#include "tests/desktop_windows/WidgetIn.h"

namespace corvana {
namespace {

class PagesTest : public ApplicationTest {
 protected:
  void begin() {
    household->begin();
    ASSERT_TRUE(eventually([&] { return household->agent() == Household::Agent::answers; }));
    window = std::make_unique<MainWindow>(*household);
    window->QWidget::show();
    QCoreApplication::processEvents();
  }
  void TearDown() override {
    window.reset();
    ApplicationTest::TearDown();
  }
  void press(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    QWidget* target = window->focusWidget();
    QTest::keyClick(target != nullptr ? target : window.get(), static_cast<Qt::Key>(key),
                    modifiers);
  }
  /// The visible button of that name, pressed by the keyboard.
  void press(const QString& name) {
    for (auto* button : window->findChildren<QPushButton*>()) {
      if (button->text() != name || !button->isVisible()) continue;
      button->setFocus();
      QTest::keyClick(button, Qt::Key_Space);
      return;
    }
    ADD_FAILURE() << "no button " << name.toStdString();
  }
  bool isSaid(const QString& words) const {
    for (const auto* label : window->findChildren<QLabel*>())
      if (label->isVisible() && label->text().contains(words)) return true;
    return false;
  }
  ZAN_Value backup() const {
    ZAN_Value record = newActionRecord("Letters", household->now());
    ActionFolders folders;
    const auto volumes = GvfsShares::volumesNow(household->machine(), 5);
    EXPECT_FALSE(folders.add(at("Documents"), ActionFolders::Role::source, false, *volumes));
    EXPECT_FALSE(folders.add(at("elsewhere"), ActionFolders::Role::destination, false, *volumes));
    folders.applyTo(record);
    SchedulePlan{.daily = {8 * 3600}}.applyTo(record, household->calendar(), household->now());
    return record;
  }
  void note(int code, double ago, std::int64_t reference, bool onlyLacks = false) {
    const ReferenceTime date = household->now() - ago;
    household->history().addHistoryEntry(ZAN_Value::dictionary({{"Date", ZAN_Value::date(date)},
                                                                {"EndDate", ZAN_Value::date(date)},
                                                                {"Title", "Letters"},
                                                                {"Ref", reference},
                                                                {"C", code},
                                                                {"Reason", "it went wrong"},
                                                                {RunKey::onlyLacks, onlyLacks},
                                                                {"ActionErrors", 0}}));
  }

  std::unique_ptr<MainWindow> window;
};

TEST_F(PagesTest, SetsUpAFirstBackupByTheKeyboardAlone) {
  begin();
  ASSERT_TRUE(isSaid(household->text("FirstTitle")));
  press(household->text("FirstCreate"));
  for (auto* box : window->findChildren<QCheckBox*>()) {
    if (box->text() != "Documents") continue;
    box->setFocus();
    QTest::keyClick(box, Qt::Key_Space);
  }
  press(household->text("CreateNext"));
  auto& path = widgetIn<QLineEdit>(*window, household->text("WhereFolder"));
  const auto heightOf = [&](const QWidget& widget) { return widget.mapTo(&*window, QPoint()).y(); };
  const QWidget* last = nullptr;
  for (QWidget* one = window->nextInFocusChain(); one != &*window; one = one->nextInFocusChain()) {
    const bool isField = one == &path || qobject_cast<QRadioButton*>(one) != nullptr;
    if (!isField || !one->isVisible()) continue;
    EXPECT_GE(heightOf(*one) + one->height(), last == nullptr ? 0 : heightOf(*last))
        << utf8(one->accessibleName()) << " by Tab";
    last = one;
  }
  EXPECT_NE(last, nullptr);
  path.setFocus();
  QTest::keyClicks(&path, QString::fromStdString(at("elsewhere")));
  press(household->text("CreateNext"));
  EXPECT_TRUE(isSaid("20:00") || isSaid("8:00")) << "the next dates";
  press(household->text("CardRun"));
  ASSERT_TRUE(eventually([&] { return !agent->launched.empty(); }));

  const ZAN_Value record = recordOf(agent->launched.front());
  EXPECT_EQ(record.string("Title"), "Documents");
  EXPECT_EQ(record.string("OptionsPerformer"), "corvana9");
  EXPECT_EQ(ActionsTools::getSourcesForAction(record).front().path(), at("Documents"));
  EXPECT_EQ(ActionsTools::getDestinationForAction(record).path(), at("elsewhere"));
  const Schedule schedule(record);
  EXPECT_EQ(schedule.kind, ScheduleKind::daily);
  EXPECT_EQ(household->calendar().secondsInDay(schedule.time.value_or(0)), 20 * 3600);
}

TEST_F(PagesTest, KeepsWhatOpensAServerApartFromItsRecord) {
  begin();
  window->createBackup();
  for (auto* box : window->findChildren<QCheckBox*>())
    if (box->text() == "Documents") box->setChecked(true);
  press(household->text("CreateNext"));
  auto& kind = widgetIn<QComboBox>(*window, household->text("ServerKind"));
  EXPECT_FALSE(kind.isVisible());
  widgetIn<QRadioButton>(*window, household->text("WhereServer")).setChecked(true);
  EXPECT_TRUE(kind.isVisible());
  kind.setCurrentIndex(1);
  const auto type = [&](const char* field, const QString& text) {
    widgetIn<QLineEdit>(*window, household->text(field)).setText(text);
  };
  type("ServerAddress", "http://127.0.0.1:1/bucket");
  type("ServerKey", "the key");
  type("ServerSecret", "a/b@c");
  auto& next = widgetIn<QPushButton>(*window, household->text("CreateNext"));
  EXPECT_FALSE(next.isEnabled()) << "without a password";
  type("RepositoryPassword", "open sesame");
  press(household->text("CreateNext"));
  press(household->text("CreateSave"));
  ASSERT_TRUE(eventually([&] { return household->actions().numberOfActions() == 1; }));

  const std::string shown = "s3:http://127.0.0.1:1/bucket";
  ProgrammedAction& action = household->actions().childAtIndex(0);
  const ZAN_Value record = action.getSettings();
  EXPECT_EQ(record.string("Engine"), "restic");
  EXPECT_EQ(record.string("Repository"), shown);
  EXPECT_TRUE(ActionsTools::getDestinationForAction(record).isNull());
  const auto kept = RepositorySecret::find(shown, household->store().folder().hiddenFolderPath());
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->password, "open sesame");
  EXPECT_EQ(RepositoryAddress(kept->address).environment(),
            (std::vector<std::string>{"AWS_ACCESS_KEY_ID=the key", "AWS_SECRET_ACCESS_KEY=a/b@c"}));

  // It is shown as what it is, and another name changes nothing of that.
  EXPECT_TRUE(eventually([&] { return isSaid(QString::fromStdString(shown)); }));
  window->changeBackup(action.getReference());
  widgetIn<QLineEdit>(*window, household->text("CreateName")).setText("Far away");
  press(household->text("CreateSave"));
  ASSERT_TRUE(
      eventually([&] { return household->actions().childAtIndex(0).getTitle() == "Far away"; }));
  EXPECT_EQ(household->actions().childAtIndex(0).getSettings().string("Repository"), shown);

  ZAN_Value other = household->actions().childAtIndex(0).getSettings();
  other.setValue("Repository", "sftp:me@host:/backup");
  other.removeKey("Ref");
  window->changeBackup(add(other));
  EXPECT_EQ(widgetIn<QComboBox>(*window, household->text("ServerKind")).currentIndex(), 0);
  EXPECT_EQ(utf8(widgetIn<QLineEdit>(*window, household->text("ServerAddress")).text()),
            "me@host:/backup");
}

TEST_F(PagesTest, ChangesOneWordAndLeavesTheRestOfARecord) {
  ZAN_Value record = backup();
  record.setValue("OptionsOfAnotherProgram", "kept");
  record.setValue("TriggerHourDelay", 2);
  record.setValue("OptionsPerformer", "another");
  household->begin();
  const std::int64_t reference = add(record);
  begin();
  window->changeBackup(reference);
  widgetIn<QLineEdit>(*window, household->text("CreateName")).setText("Post");
  press(household->text("CreateSave"));
  ASSERT_TRUE(eventually([&] { return recordOf(reference).string("Title") == "Post"; }));

  ZAN_Value before = record;
  ZAN_Value after = recordOf(reference);
  for (const char* key : {"Title", "SaveEditDate", "Ref", "CreationDate", "VersionsNone",
                          "VersionsDays", "VersionsBytes"}) {
    before.removeKey(key);
    after.removeKey(key);
  }
  EXPECT_EQ(after, before);

  // What is beyond the sentences, and a group that is not there yet.
  window->changeBackup(reference);
  widgetIn<QComboBox>(*window, household->text("DetailsGroup")).setCurrentText("Family");
  widgetIn<QComboBox>(*window, household->text("DetailsContext")).setCurrentIndex(2);
  widgetIn<QCheckBox>(*window, household->text("DetailsAgeAlarm")).setChecked(false);
  auto& hours = widgetIn<QCheckBox>(*window, household->text("WhenHours"));
  const auto times = [&] {
    return std::ranges::count_if(window->findChildren<QTimeEdit*>(), &QWidget::isEnabled);
  };
  const auto without = times();
  hours.setChecked(true);
  EXPECT_EQ(times(), without + 2);
  hours.setChecked(false);
  press(household->text("CreateSave"));
  ASSERT_TRUE(eventually([&] { return recordOf(reference).integer("TriggerAgeAlarm") == 0; }));
  const ProgrammedAction* moved = household->actions().actionForReference(reference);
  EXPECT_EQ(moved->parent()->getTitle(), "Family");
  EXPECT_EQ(moved->getActionContext(), ActionContext::home);
  EXPECT_EQ(recordOf(reference).string("OptionsOfAnotherProgram"), "kept");
}

TEST_F(PagesTest, RefusesACopyWithinItsSourceInWords) {
  begin();
  window->createBackup();
  for (auto* box : window->findChildren<QCheckBox*>())
    if (box->text() == "Documents") box->setChecked(true);
  press(household->text("CreateNext"));
  auto& path = widgetIn<QLineEdit>(*window, household->text("WhereFolder"));
  path.setText(QString::fromStdString(at("Documents/copy")));
  press(household->text("CreateNext"));
  press(household->text("CreateSave"));
  EXPECT_TRUE(eventually([&] { return isSaid(household->text("CreateTrouble")); }));
  EXPECT_EQ(household->actions().numberOfActions(), 0U);
}

TEST_F(PagesTest, SaysWhatIsWrongUntilItIsSeenOrMended) {
  household->begin();
  const std::int64_t reference = add(backup());
  note(2, 90'000, reference);
  note(5, 3'600, reference);
  SettingsFiles& settings = household->store().settings();
  const auto failed = [&](bool isUnseen) {
    ZAN_Value stored = ZAN_Value::dictionary();
    if (isUnseen)
      stored.setValue("SchedulerFailuresNotSeen",
                      ZAN_Value::array({ZAN_Value::dictionary({{"R", reference}, {"C", 5}})}));
    EXPECT_TRUE(settings.saveSchedulerSettings(stored));
  };
  failed(true);
  begin();
  EXPECT_TRUE(isSaid(household->text("BannerOneNeedsCare")));
  EXPECT_TRUE(isSaid("it went wrong"));
  press(household->text("BannerAgain"));
  EXPECT_TRUE(eventually([&] { return agent->launched.size() == 1; }));

  failed(false);
  EXPECT_TRUE(eventually([&] { return isSaid(household->text("BannerUnmended")); })) << "seen";
  EXPECT_TRUE(isSaid("it went wrong"));
  failed(true);
  EXPECT_TRUE(eventually([&] { return isSaid(household->text("BannerOneNeedsCare")); }));
  note(2, 10, reference);
  EXPECT_TRUE(eventually([&] { return isSaid(household->text("BannerWell")); })) << "mended";
  window->showHistory(reference, false);
  auto& whose = widgetIn<QComboBox>(*window, household->text("HistoryBackup"));
  EXPECT_EQ(whose.currentText(), "Letters");
  EXPECT_EQ(whose.itemText(0), household->text("HistoryAllBackups"));
  window->showOverview();

  agent->answer.setValue("enabled", false);
  agent->tellChanged();
  EXPECT_TRUE(eventually([&] { return isSaid(household->text("BannerDisabled")); }));
  press(household->text("BannerEnable"));
  EXPECT_TRUE(eventually([&] { return agent->hasHeard("ActivateExecution"); }));
  agent.reset();
  EXPECT_TRUE(eventually([&] { return isSaid(household->text("BannerNoAgent")); }));
}

TEST_F(PagesTest, WhatCannotBeCopiedIsLeftOutByEitherButton) {
  household->begin();
  ZAN_Value lacking = ZAN_Value::array();
  std::vector<std::int64_t> references;
  for (const char* title : {"First", "Second"}) {
    ZAN_Value record = backup();
    record.setValue("Title", title);
    record.setValue(CopyKey::exclusions, ZAN_Value::array({"*.tmp"}));
    record.setValue(CopyKey::notPossible, ZAN_Value::array({"/Documents/pipe"}));
    references.push_back(add(record));
    lacking.append(references.back());
    note(LogCode::completedWithErrors, 60, references.back(), true);
  }
  ASSERT_TRUE(household->store().settings().saveSchedulerSettings(
      ZAN_Value::dictionary({{PreferenceKey::lacking, lacking}})));
  begin();
  EXPECT_TRUE(isSaid(household->text("BannerNeedCare", {2})));
  press(household->text("BannerLeaveOut"));
  ASSERT_TRUE(eventually([&] { return agent->launched.size() == 1; }));
  ASSERT_TRUE(eventually([&] { return isSaid(household->text("BannerOneNeedsCare")); }));
  for (QAction* entry : widgetIn<BackupCard>(*window, "Second").findChild<QMenu*>()->actions())
    if (entry->text() == household->text("CardLeaveOut")) entry->trigger();
  ASSERT_TRUE(eventually([&] { return agent->launched == references; }));
  for (const std::int64_t reference : references) {
    EXPECT_EQ(recordOf(reference)[CopyKey::exclusions],
              ZAN_Value::array({"*.tmp", "/Documents/pipe"}));
    EXPECT_TRUE(recordOf(reference)[CopyKey::notPossible].empty());
  }
}

TEST_F(PagesTest, BackupsThatCannotBeReadAreNotTakenForNone) {
  add(backup());
  const std::string file = household->store().folder().pathOf(DataFolder::kActions);
  std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
  household = makeHousehold();
  begin();
  EXPECT_TRUE(isSaid(household->text("BannerLostText")));
  EXPECT_FALSE(isSaid(household->text("FirstTitle")));
}

TEST_F(PagesTest, ShowsWhatTheAgentPosts) {
  begin();
  agent->post("SurveyFolderResults", ZAN_Value::dictionary({{"Msg", "Three files are new"}}));
  add(backup());
  EXPECT_TRUE(eventually([&] { return isSaid("Three files are new"); }));
}

TEST_F(PagesTest, ACardIsDraggedToAnotherPlaceAndIntoAGroup) {
  household->begin();
  std::map<std::string, std::int64_t> references;
  const auto addIn = [&](std::int64_t group, const std::string& title) {
    ZAN_Value record = backup();
    record.setValue("Title", title);
    ASSERT_TRUE(household->edit([&](ProgrammedAction& root) -> Outcome {
      ProgrammedAction& parent = group == 0 ? root : *root.actionOrGroupForReference(group);
      parent.addActionsFromList(ZAN_Value::array({record}), false, std::nullopt);
      references[title] = parent.childAtIndex(parent.numberOfChildren() - 1).getReference();
      return {};
    }));
  };
  for (const char* title : {"A", "B", "C"}) addIn(0, title);
  // The second of two groups of one title.
  for (const char* title : {"G", "G"})
    ASSERT_TRUE(household->edit([&](ProgrammedAction& root) -> Outcome {
      references["group"] = root.addGroup(title, {}, 0)->getReference();
      return {};
    }));
  addIn(references["group"], "D");
  begin();
  const auto titlesIn = [&](std::int64_t group) {
    std::string titles;
    const ProgrammedAction& root = household->actions();
    const ProgrammedAction& parent =
        group == 0 ? root : *household->actions().actionOrGroupForReference(group);
    for (const auto& child : parent.getChildrenList())
      if (!child->isGroup()) titles += child->getTitle();
    return titles;
  };
  const auto isShown = [&](const QString& title) {
    for (const auto* widget : window->findChildren<QWidget*>())
      if (widget->isVisible() && widget->accessibleName() == title) return true;
    return false;
  };
  const auto drag = [&](const char* title, const char* other, double part,
                        const std::function<void()>& meanwhile, bool isDropped = true) {
    auto& card = widgetIn<BackupCard>(*window, title);
    const QPoint grip(20, 20);
    QTest::mousePress(&card, Qt::LeftButton, {}, grip);
    QTest::mouseMove(&card, grip + QPoint(2, 30));
    meanwhile();
    const auto& below = widgetIn<BackupCard>(*window, other);
    const QPoint target(20, static_cast<int>(below.height() * part));
    QTest::mouseMove(&card, card.mapFromGlobal(below.mapToGlobal(target)));
    if (!isDropped) QTest::keyClick(card.parentWidget(), Qt::Key_Escape);
    QTest::mouseRelease(&card, Qt::LeftButton, {}, card.mapFromGlobal(below.mapToGlobal(target)));
  };
  drag(
      "C", "A", 0.1, [] {}, false);
  EXPECT_EQ(titlesIn(0), "ABC") << "taken back";
  // Another program adds one above all and changes what is being dragged, which stays in hand.
  drag("C", "A", 0.1, [&] {
    const auto& held = widgetIn<BackupCard>(*window, "C");
    addIn(0, "F");
    ASSERT_TRUE(household->edit([&](ProgrammedAction& root) -> Outcome {
      root.actionForReference(references["F"])->moveActionTo(root, 0, SortMode::manual);
      return {};
    }));
    ASSERT_TRUE(eventually([&] { return isShown("F"); }));
    EXPECT_EQ(held.accessibleName(), "C");
    QProcess::execute(CORVANA_COMMAND,
                      {"add", "E", "--source", QString::fromStdString(at("Documents")),
                       "--destination", QString::fromStdString(at("elsewhere"))});
    QProcess::execute(CORVANA_COMMAND,
                      {"edit", QString::number(references["C"]), "--shortcut", "c"});
    QCoreApplication::processEvents();
  });
  ASSERT_TRUE(eventually([&] { return titlesIn(0) == "FCABE"; })) << titlesIn(0);
  EXPECT_EQ(recordOf(references["C"]).string("Shortcut"), "c");

  const auto isShownAs = [&](const char* title, const QString& words) {
    return eventually([&] {
      const auto& card = widgetIn<BackupCard>(*window, title);
      return card.isVisible() && card.y() < widgetIn<BackupCard>(*window, words).y();
    });
  };
  ASSERT_TRUE(isShownAs("C", "A"));
  drag("A", "D", 0.9, [&] { EXPECT_FALSE(isSaid("“G”")); });
  EXPECT_TRUE(eventually([&] { return titlesIn(references["group"]) == "DA"; }));
  EXPECT_EQ(titlesIn(0), "FCBE");

  // Its place is known by more than the title of its group.
  window->changeBackup(references["A"]);
  const auto& groups = widgetIn<QComboBox>(*window, household->text("DetailsGroup"));
  EXPECT_EQ(groups.currentText(), "G (2)");
  window->changeBackup(references["B"]);
  widgetIn<QComboBox>(*window, household->text("DetailsGroup")).setCurrentText("G (2)");
  widgetIn<QCheckBox>(*window, household->text("DetailsFavourite")).setChecked(true);
  press(household->text("CreateSave"));
  EXPECT_TRUE(eventually([&] { return titlesIn(references["group"]).find('B') == 2; }));
  EXPECT_TRUE(household->actions().actionForReference(references["B"])->isFavorite());
}

TEST_F(PagesTest, ManyBackupsAreShownByFewCards) {
  constexpr int kBackups = 600;
  household->begin();
  ASSERT_TRUE(household->edit([&](ProgrammedAction& root) -> Outcome {
    ZAN_Value list = ZAN_Value::array();
    for (int number = 0; number < kBackups; ++number)
      list.append(ZAN_Value::dictionary({{"Title", "Backup " + std::to_string(number)}}));
    root.addActionsFromList(list, false, std::nullopt);
    return {};
  }));
  begin();
  const auto cards = [&] {
    std::vector<BackupCard*> found;
    for (auto* widget : window->findChildren<QWidget*>())
      if (auto* card = dynamic_cast<BackupCard*>(widget)) found.push_back(card);
    return found;
  };
  QScrollArea& area = widgetIn<QScrollArea>(*window, household->text("OverviewBackups"));
  QScrollBar& bar = *area.verticalScrollBar();
  std::set<QString> seen;
  for (int value = 0;; value = std::min(value + area.height() / 2, bar.maximum())) {
    bar.setValue(value);
    QCoreApplication::processEvents();
    int bottom = 0;
    for (const BackupCard* card : cards()) {
      if (!card->isVisible() || card->visibleRegion().isEmpty()) continue;
      seen.insert(card->accessibleName());
      bottom = std::max(bottom, card->mapTo(&area, QPoint(0, card->height())).y());
    }
    if (bar.value() == bar.maximum()) break;
    ASSERT_GE(bottom, area.height() - 40) << "a gap at " << value;
  }
  EXPECT_EQ(seen.size(), std::size_t(kBackups));
  EXPECT_LT(cards().size(), 60U);
}

TEST_F(PagesTest, EveryControlHasANameAndARoleAndFitsASmallScreen) {
  // The longer words.
  household.reset();
  setenv("LC_ALL", "de_DE.UTF-8", 1);
  household = makeHousehold();
  unsetenv("LC_ALL");
  ASSERT_EQ(household->text("MainHistory"), "Verlauf");
  household->begin();
  const std::int64_t reference = add(backup());
  begin();
  const auto check = [&](const char* page) {
    EXPECT_LE(window->minimumSizeHint().width(), 800) << page;
    EXPECT_LE(window->minimumSizeHint().height(), 560) << page;
    for (QWidget* widget : window->findChildren<QWidget*>()) {
      if (!widget->isVisible() || widget->focusPolicy() == Qt::NoFocus) continue;
      // The field within a field with steps is read out as that.
      if (widget->inherits("QScrollArea") || widget->parent()->inherits("QAbstractSpinBox"))
        continue;
      QAccessibleInterface* seen = QAccessible::queryAccessibleInterface(widget);
      ASSERT_NE(seen, nullptr);
      EXPECT_FALSE(seen->text(QAccessible::Name).isEmpty())
          << page << ": " << widget->metaObject()->className();
      EXPECT_NE(seen->role(), QAccessible::Client)
          << page << ": " << widget->accessibleName().toStdString();
    }
  };
  check("overview");
  window->changeBackup(reference);
  check("change");
  window->createBackup();
  check("create");
  // Who clicks twice goes one step, and asking for a new one again throws none away.
  for (auto* path : window->findChildren<QLineEdit*>())
    if (path->accessibleName() == household->text("WhereFolder"))
      path->setText(QString::fromStdString(at("elsewhere")));
  for (auto* button : window->findChildren<QPushButton*>())
    if (button->isVisible() && button->text() == household->text("CreateNext")) {
      QTest::mouseClick(button, Qt::LeftButton);
      QTest::mouseDClick(button, Qt::LeftButton);
      QTest::mouseRelease(button, Qt::LeftButton);
    }
  window->createBackup();
  EXPECT_TRUE(isSaid(household->text("CreateWhere")));
  window->showRestore(0);
  check("restore");
  window->showHistory(0, false);
  for (const char* part : {"HistoryPast", "HistoryWeek", "HistoryNotices"}) {
    press(household->text(part));
    check(part);
  }
  window->showSettings();
  auto& parts = widgetIn<QListWidget>(*window, household->text("MainSettings"));
  for (int part = 0; part < parts.count(); ++part) {
    parts.setCurrentRow(part);
    check(parts.item(part)->text().toUtf8());
  }
}

}  // namespace
}  // namespace corvana
