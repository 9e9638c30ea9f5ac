#include <gmock/gmock.h>

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QPalette>
#include <QPushButton>
#include <QSet>
#include <QTabBar>
#include <QTabWidget>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/History.h"
#include "desktop/AgentWindow.h"
#include "desktop/FloatingWidget.h"
#include "desktop/MessageWindows.h"
#include "desktop/ModelMenu.h"
#include "desktop/Questions.h"
#include "desktop/TableView.h"
#include "desktop/Texts.h"
#include "desktop/WeekView.h"
#include "tests/desktop_windows/WidgetIn.h"
#include "tests/scenario/Scenario.h"
#include "ui/FloatingIcon.h"
#include "ui/StatusMenu.h"

namespace corvana {
namespace {

QPalette darkPalette() {
  QPalette palette(QColor(45, 45, 48), QColor(45, 45, 48));
  palette.setColor(QPalette::Base, QColor(30, 30, 32));
  palette.setColor(QPalette::AlternateBase, QColor(38, 38, 41));
  for (const auto role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText})
    palette.setColor(role, QColor(230, 230, 230));
  palette.setColor(QPalette::Disabled, QPalette::Text, QColor(140, 140, 140));
  palette.setColor(QPalette::Disabled, QPalette::WindowText, QColor(140, 140, 140));
  palette.setColor(QPalette::Highlight, QColor(60, 120, 200));
  palette.setColor(QPalette::HighlightedText, Qt::white);
  return palette;
}

/// The real windows of a simulated agent, on a screen that nobody sees.
class WindowsTest : public testing::Test {
 protected:
  void begin() {
    scenario.writeTree();
    scenario.start(true);
    scenario.runFor(5);
    mSources.emplace(scenario.agent->userInterfaceSources());
  }
  AgentWindow& open(Window which) {
    mWindow = makeWindow(which, *mSources);
    if (mWindow == nullptr) throw std::runtime_error("no such window");
    mWindow->refresh();
    mWindow->show();
    if (QWidget* first = mWindow->firstFocus()) first->setFocus();
    QApplication::processEvents();
    return *mWindow;
  }
  template <class T>
  T& the(const QString& name = {}) {
    return widgetIn<T>(*mWindow, name);
  }
  void press(QWidget& widget, int key) {
    for (const auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
      QKeyEvent event(type, key, Qt::NoModifier);
      QApplication::sendEvent(&widget, &event);
    }
  }
  /// Looks at it as it would be seen: something is drawn, and no text is cut off. With
  /// CORVANA_PICTURES the pictures go to that folder.
  static void picture(QWidget& window, const QString& name) {
    static const QString folder = qEnvironmentVariable("CORVANA_PICTURES");
    QApplication::processEvents();
    const QImage picture = window.grab().toImage();
    QSet<QRgb> colours;
    for (int y = 0; y < picture.height(); ++y) {
      for (int x = 0; x < picture.width(); ++x) colours.insert(picture.pixel(x, y));
    }
    EXPECT_GT(colours.size(), 20) << "drawn with smooth letters";
    if (!folder.isEmpty()) picture.save(folder + "/" + name + ".png");
    for (QWidget* widget : window.findChildren<QWidget*>()) {
      if (widget->isVisible()) look(*widget);
    }
  }
  static void look(QWidget& widget) {
    const auto* label = qobject_cast<QLabel*>(&widget);
    const auto* button = qobject_cast<QAbstractButton*>(&widget);
    const auto* choice = qobject_cast<QComboBox*>(&widget);
    if (label != nullptr && label->wordWrap()) {
      EXPECT_GE(label->height(), label->heightForWidth(label->width()))
          << label->text().toStdString();
    } else if (label != nullptr) {
      EXPECT_GE(label->width(), label->sizeHint().width()) << label->text().toStdString();
    } else if (button != nullptr && !button->text().isEmpty()) {
      EXPECT_GE(button->width(), button->minimumSizeHint().width()) << button->text().toStdString();
    } else if (choice != nullptr) {
      const int text = choice->fontMetrics().horizontalAdvance(choice->currentText());
      EXPECT_GT(choice->width(), text) << choice->currentText().toStdString();
    }
    // Who hears instead of seeing has to be told what it is.
    if (!widget.isEnabled() || (widget.focusPolicy() & Qt::TabFocus) == 0) return;
    if (qobject_cast<QTabBar*>(&widget) != nullptr || widget.focusProxy() != nullptr) return;
    const QAccessibleInterface* spoken = QAccessible::queryAccessibleInterface(&widget);
    EXPECT_FALSE(spoken == nullptr || spoken->text(QAccessible::Name).isEmpty())
        << widget.metaObject()->className();
  }
  /// What has no frame: messages, the announcement, the floating icon, a question, the menu.
  void smallWindows(const QString& look) {
    const QIcon logo(QStringLiteral(CORVANA_RESOURCES "/icons/logo_cva_dialogs.svg"));
    const ZAN_StringTable& texts = mSources->records.texts;
    MessageView message(
        true, qt(texts.text("ExecuteBadTerminatedTitle")),
        qt(texts.text("ExecuteBadTerminatedMessage", {"Photos to the server"})),
        {.colour = 0, .opacity = 0.8, .icon = logo.pixmap(96).toImage(), .widest = 992});
    AnnounceView announce(true, "Photos to the server");
    announce.setProgress(45, "45 %");
    FloatingIconView floating(true, logo);
    QStringList lines;
    for (const std::string& line : floatingIconLines(*mSources, 5)) lines << qt(line);
    floating.setLines(lines);
    floating.setProgress(60, false);
    StatusMenu model(*mSources);
    ModelMenu menu(scenario.machine.runLoop, {});
    menu.setItems(model.items());
    Questions questions;
    questions.ask(texts.text("QuitSchedulerTitle"), texts.text("QuitSchedulerText"),
                  {texts.text("QuitButton"), texts.text("CancelButton")}, {});
    QWidget* question = nullptr;
    for (QWidget* one : QApplication::topLevelWidgets()) {
      if (qobject_cast<QMessageBox*>(one) != nullptr) question = one;
    }
    for (const auto& [small, name] :
         std::initializer_list<std::pair<QWidget*, const char*>>{{&message, "message"},
                                                                 {&announce, "announce"},
                                                                 {&floating, "floating"},
                                                                 {&menu, "menu"},
                                                                 {question, "question"}}) {
      SCOPED_TRACE(name);
      ASSERT_NE(small, nullptr);
      small->show();
      picture(*small, QString::fromLatin1(name) + "-" + look);
    }
  }
  /// A week that has something of everything; actions 101 and on.
  void fillWithExamples() {
    const auto at = [&](const char* clock) { return scenario.timeOfDay(clock); };
    ChildScript longOne;
    longOne.seconds = 3600;
    scenario.scripts["Photos to the server"] = longOne;
    const std::pair<const char*, const char*> daily9[] = {
        {"Photos to the server", "22:30"},
        {"Mail and calendars", "18:00"},
        {"Accounts, encrypted", "23:00"},
        {"Source code", "13:00"},
        {"Night copy of the home folder", "02:30"}};
    for (const auto& [title, clock] : daily9) scenario.action(title, daily(at(clock), now()));
    scenario.action("Notes", everyMinutes(30, now()));
    scenario.action("Films, when the disk is there",
                    ZAN_Value::dictionary({{"TriggerFrequencyPopup", 10}}));
    scenario.action("Archive of the year", ZAN_Value::dictionary({{"TriggerAutomatic", 0}}));
    History history(scenario.store());
    int i = 0;
    for (const int code : {2, 2, 14, 2, 15, 2, 2, 3, 2}) {
      const ReferenceTime start = now() - 86400 * (9 - i) + 3600 * i;
      history.addHistoryEntry(
          ZAN_Value::dictionary({{"Date", ZAN_Value::date(start)},
                                 {"EndDate", ZAN_Value::date(start + 2400 + 300 * i)},
                                 {"Title", daily9[i % 5].first},
                                 {"Ref", 101 + i % 5},
                                 {"C", code},
                                 {"ActionErrors", code == 14 ? 3 : 0}}));
      if (code == 14 || code == 15)
        history.log().addLog(ZAN_Value::dictionary({{"M", ZAN_Value::date(start + 3000)},
                                                    {"C", code},
                                                    {"N", daily9[i % 5].first},
                                                    {"R", 101 + i % 5},
                                                    {"F", "No space left on the volume."},
                                                    {"P", "/media/Backup/2023/film.mov"}}));
      ++i;
    }
  }
  void everyWindowInEveryLook(const std::string& language) {
    scenario.machine.machine.languages = {language};
    fillWithExamples();
    for (const char* name : {"Backup Disk", "USB Stick"}) {
      const std::filesystem::path stray = scenario.machine.volumes.folder + "/" + name;
      std::filesystem::create_directories(stray);
      std::ofstream(stray / "film.mov") << std::string(3'000'000, 'x');
    }
    begin();
    scenario.runFor(20);
    scenario.agent->commands().pauseExecution();
    (void)scenario.agent->commands().launchAction(101, false);
    scenario.runFor(5);
    for (const std::int64_t ref : {102, 103})
      (void)scenario.agent->commands().launchAction(ref, false);
    const QFont usual = QApplication::font();
    const QPalette light = QApplication::palette();
    QFont large = usual;
    large.setPointSizeF(usual.pointSizeF() * 1.8);
    struct Look {
      const char* name;
      QFont font;
      QPalette palette;
      Qt::LayoutDirection direction;
    };
    const Look looks[] = {{"light", usual, light, Qt::LeftToRight},
                          {"dark", usual, darkPalette(), Qt::LeftToRight},
                          {"large", large, light, Qt::LeftToRight},
                          {"rtl", usual, light, Qt::RightToLeft}};
    for (const Look& look : looks) {
      QApplication::setFont(look.font);
      QApplication::setPalette(look.palette);
      QApplication::setLayoutDirection(look.direction);
      for (const Window which :
           {Window::queue, Window::nextActions, Window::latestActions, Window::status,
            Window::mountVolumes, Window::allDisks, Window::volumesFolderError, Window::lowSpace,
            Window::errorSummary, Window::executionSurvey, Window::preferences}) {
        const QString name =
            QString("%1-%2-%3").arg(qt(language)).arg(static_cast<int>(which)).arg(look.name);
        SCOPED_TRACE(name.toStdString());
        AgentWindow& window = open(which);
        window.setText("disk0   sda   Solid-state disk   512 GB\n  1     EFI   vfat   500 MB\n");
        EXPECT_FALSE(window.windowTitle().isEmpty());
        EXPECT_LE(window.minimumSizeHint().width(), 1280);
        EXPECT_LE(window.minimumSizeHint().height(), 720);
        EXPECT_NE(window.nextInFocusChain(), &window);
        for (const QPushButton* button : window.findChildren<QPushButton*>())
          EXPECT_FALSE(button->text().isEmpty());
        if (window.findChild<QTreeView*>() != nullptr && the<TableView>().model()->rowCount() > 0)
          the<TableView>().selectRow(0);
        picture(window, name);
        if (which == Window::nextActions) {
          the<QTabWidget>().setCurrentIndex(1);
          picture(window, name + "-week");
        }
        if (which == Window::preferences) {
          for (int page = 1; page < the<QListWidget>().count(); ++page) {
            the<QListWidget>().setCurrentRow(page);
            picture(window, name + "-" + QString::number(page));
          }
        }
        scenario.machine.userInterface.windows = {which};
        press(window, Qt::Key_Escape);
        EXPECT_TRUE(scenario.machine.userInterface.windows.empty());
      }
      smallWindows(qt(language) + "-" + look.name);
    }
    QApplication::setFont(usual);
    QApplication::setPalette(light);
    QApplication::setLayoutDirection(Qt::LeftToRight);
  }
  std::vector<std::string> queue() const {
    std::vector<std::string> titles;
    for (const QueueRecord& record : scenario.agent->queue().actionsList())
      titles.push_back(std::to_string(record.ref));
    return titles;
  }
  ReferenceTime now() const { return scenario.machine.clock.now(); }

  Scenario scenario;

 private:
  std::optional<UserInterfaceSources> mSources;
  std::unique_ptr<AgentWindow> mWindow;
};

/// Titled, reachable by the keyboard, closed by Escape through the command, and at its smallest no
/// larger than a small screen, in every look; with every
/// text whole and a name for whoever hears it.
TEST_F(WindowsTest, EveryWindowOpensInEveryLookAndClosesByEscape) { everyWindowInEveryLook("en"); }

TEST_F(WindowsTest, EveryWindowHasRoomForLongerWords) { everyWindowInEveryLook("de"); }

TEST_F(WindowsTest, TheQueueIsWorkedByTheKeyboardAndByDragging) {
  const std::int64_t a = scenario.action("A", {});
  const std::int64_t b = scenario.action("B", {});
  const std::int64_t c = scenario.action("C", {});
  begin();
  SchedulerCommands& commands = scenario.agent->commands();
  commands.disableSchedule();
  for (const std::int64_t ref : {a, b, c}) EXPECT_TRUE(commands.launchAction(ref, false));
  AgentWindow& window = open(Window::queue);
  auto& list = the<TableView>();
  const auto strings = [](std::initializer_list<std::int64_t> refs) {
    std::vector<std::string> texts;
    for (const std::int64_t ref : refs) texts.push_back(std::to_string(ref));
    return texts;
  };

  list.selectRow(2);
  const std::unique_ptr<QMimeData> dragged(
      list.model()->mimeData({list.model()->index(2, 0), list.model()->index(2, 1)}));
  // While C is being dragged to its place before A, the rows move.
  commands.moveInQueue(2, 1);
  commands.moveInQueue(0, 2);
  list.model()->dropMimeData(dragged.get(), Qt::MoveAction, 0, 0, {});
  EXPECT_EQ(queue(), strings({b, c, a})) << "before A, wherever both are by now";
  commands.moveInQueue(0, 2);
  window.refresh();
  EXPECT_EQ(list.selectedRow(), 0u) << "what was selected stays so";
  the<QPushButton>("Move down").click();
  window.refresh();
  EXPECT_EQ(queue(), strings({a, c, b}));
  press(list, Qt::Key_Delete);
  window.refresh();
  EXPECT_EQ(queue(), strings({a, b}));
  list.selectRow(1);
  press(list, Qt::Key_Return);
  EXPECT_EQ(queue(), strings({b, a})) << "runs now";
  EXPECT_EQ(scenario.agent->queue().executeNowActionsList().size(), 1u);
}

TEST_F(WindowsTest, TheNextActionsAreFoundAsOneTypesAndTheWeekIsWalkedThrough) {
  scenario.action("Mail", daily(scenario.timeOfDay("18:00"), now()));
  const std::int64_t photos = scenario.action("Photos", daily(scenario.timeOfDay("18:00"), now()));
  begin();
  AgentWindow& window = open(Window::nextActions);
  auto& search = the<QLineEdit>();
  EXPECT_TRUE(search.hasFocus() || !search.isActiveWindow());
  search.setText("photo");
  EXPECT_EQ(the<TableView>().model()->rowCount(), 1);
  press(search, Qt::Key_Return);
  EXPECT_EQ(queue(), std::vector{std::to_string(photos)});

  search.clear();
  the<QTabWidget>().setCurrentIndex(1);
  auto& week = the<WeekView>();
  press(week, Qt::Key_Right);
  EXPECT_THAT(week.accessibleDescription().toStdString(), testing::HasSubstr("Mail"));
  press(week, Qt::Key_Right);
  EXPECT_THAT(week.accessibleDescription().toStdString(),
              testing::HasSubstr("will wait for “Mail”"));
  press(week, Qt::Key_Down);
  EXPECT_THAT(week.accessibleDescription().toStdString(), testing::HasSubstr("Tomorrow"));
  const QString chosen = week.accessibleDescription();
  scenario.runFor(90);
  window.refresh();
  EXPECT_EQ(week.accessibleDescription(), chosen);
}

TEST_F(WindowsTest, PreferencesCountWhenClicked) {
  begin();
  AgentWindow& window = open(Window::preferences);
  the<QCheckBox>("Announce an action before it starts").click();
  EXPECT_EQ(scenario.agent->preferences().mPrefShowMessageBeforeAction, 1);
  auto& name = the<QLineEdit>("Name of this machine:");
  name.selectAll();
  for (const char letter : std::string("Attic")) {
    QKeyEvent event(QEvent::KeyPress, 0, Qt::NoModifier, QString(letter));
    QApplication::sendEvent(&name, &event);
  }
  press(name, Qt::Key_Return);
  EXPECT_EQ(scenario.agent->preferences().mRemoteControlLocalName, "Attic");

  // Changed elsewhere, it is shown.
  scenario.agent->commands().disableSchedule();
  window.refresh();
  EXPECT_TRUE(the<QCheckBox>("Do not execute actions automatically").isChecked());
}

TEST_F(WindowsTest, TenThousandActionsOpenAtOnceAndDrawOnlyWhatIsSeen) {
  for (int i = 0; i < 10'000; ++i)
    scenario.action("Action " + std::to_string(i), daily(scenario.timeOfDay("18:00"), now()));
  begin();
  const auto start = std::chrono::steady_clock::now();
  AgentWindow& window = open(Window::nextActions);
  EXPECT_FALSE(window.grab().isNull());
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  EXPECT_LT(took.count(), 2.0) << "also with sanitizers on a busy machine";
}

}  // namespace
}  // namespace corvana
