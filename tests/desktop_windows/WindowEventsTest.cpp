#include <gmock/gmock.h>

#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QProxyStyle>
#include <QPushButton>
#include <QScreen>
#include <QSlider>
#include <QSpinBox>
#include <QStyleOptionSlider>
#include <QTest>
#include <QWheelEvent>
#include <QWindow>
#include <fstream>

#include "desktop/AgentWindow.h"
#include "desktop/DesktopLanguage.h"
#include "desktop/Notifier.h"
#include "desktop/ShortcutField.h"
#include "desktop/TableView.h"
#include "desktop/Texts.h"
#include "desktop/WindowRegistry.h"
#include "tests/desktop_windows/WidgetIn.h"
#include "tests/scenario/Scenario.h"
#include "ui/windows/PreferencesModel.h"

namespace corvana {
namespace {

using testing::HasSubstr;
using testing::Not;

/// A desktop whose single click activates.
class SingleClickStyle final : public QProxyStyle {
 public:
  int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                QStyleHintReturn* data) const override {
    return hint == SH_ItemView_ActivateItemOnSingleClick
               ? 1
               : QProxyStyle::styleHint(hint, option, widget, data);
  }
};

/// The windows as the agent shows them, worked by pointer, wheel and keys.
class WindowEventsTest : public testing::Test {
 protected:
  void begin() {
    scenario.writeTree();
    scenario.start(true);
    scenario.runFor(5);
    mSources.emplace(scenario.agent->userInterfaceSources());
    windows.emplace(scenario.machine.runLoop);
    windows->setSources(&*mSources);
  }
  void TearDown() override {
    if (windows) windows->setSources(nullptr);
  }
  AgentWindow& open(Window which) {
    windows->show(which);
    QApplication::processEvents();
    return the(which);
  }
  static AgentWindow& the(Window which) {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
      auto* window = dynamic_cast<AgentWindow*>(widget);
      if (window != nullptr && window->which() == which && window->isVisible()) return *window;
    }
    throw std::runtime_error("no such window");
  }
  template <class T>
  static T& the(const AgentWindow& window, const QString& name = {}) {
    return widgetIn<T>(window, name);
  }
  /// What the agent tells its windows arrives.
  void settle() {
    windows->refresh();
    scenario.runFor(0.5);
  }
  static bool says(const AgentWindow& window, const QString& words) {
    const auto labels = window.findChildren<QLabel*>();
    return std::ranges::any_of(labels, [&](QLabel* one) { return one->text().contains(words); });
  }
  static QPoint in(const QWidget& widget, const QPoint& place) {
    return widget.mapTo(widget.window(), place);
  }
  static void wheel(QWidget& widget) {
    const QPointF middle = widget.rect().center();
    QWheelEvent event(middle, widget.mapToGlobal(middle), {}, {0, -120}, Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(&widget, &event);
  }
  const Preferences& preferences() const { return scenario.agent->preferences(); }
  std::size_t queued() const { return scenario.agent->queue().actionsList().size(); }

  Scenario scenario;

 private:
  std::optional<UserInterfaceSources> mSources;

 protected:
  std::optional<WindowRegistry> windows;
};

TEST_F(WindowEventsTest, ASliderCountsWhenItIsLetGoAndTheWheelOnlyWithTheKeyboard) {
  begin();
  AgentWindow& window = open(Window::preferences);
  the<QListWidget>(window).setCurrentRow(2);
  QApplication::processEvents();
  auto& slider = the<QSlider>(window, "Opacity of messages:");
  QStyleOptionSlider option;
  option.initFrom(&slider);
  option.minimum = slider.minimum();
  option.maximum = slider.maximum();
  option.sliderPosition = option.sliderValue = slider.value();
  const QPoint handle =
      slider.style()
          ->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, &slider)
          .center();
  const int arranged = scenario.machine.userInterface.rearrangements;
  ASSERT_EQ(slider.value(), 80);
  QTest::mousePress(window.windowHandle(), Qt::LeftButton, {}, in(slider, handle));
  QTest::mouseMove(window.windowHandle(), in(slider, {slider.width() / 2, handle.y()}));
  QTest::mouseMove(window.windowHandle(), in(slider, {slider.width() / 3, handle.y()}));
  EXPECT_EQ(preferences().mPrefShowMessageTransparency, 80) << "not while it is being dragged";
  QTest::mouseRelease(window.windowHandle(), Qt::LeftButton, {},
                      in(slider, {slider.width() / 3, handle.y()}));
  EXPECT_LT(preferences().mPrefShowMessageTransparency, 60);
  EXPECT_EQ(preferences().mPrefShowMessageTransparency, slider.value());
  scenario.machine.runLoop.runFor(0);
  EXPECT_GT(scenario.machine.userInterface.rearrangements, arranged) << "seen at once";

  auto& colour = the<QComboBox>(window, "Colour of messages:");
  auto& place = the<QSpinBox>(window, "Place of messages, from the left:");
  the<QListWidget>(window).setFocus();
  for (QWidget* field : {static_cast<QWidget*>(&colour), static_cast<QWidget*>(&place),
                         static_cast<QWidget*>(&slider)})
    wheel(*field);
  EXPECT_EQ(preferences().mPrefShowMessageColor, 0);
  EXPECT_EQ(preferences().mShowMessagePosition.x, 50);
  colour.setFocus();
  wheel(colour);
  EXPECT_EQ(preferences().mPrefShowMessageColor, 1);

  the<QListWidget>(window).setCurrentRow(5);
  auto& addresses = the<QLineEdit>(window, "Only from:");
  addresses.setFocus();
  QTest::keyClicks(&addresses, "10.0.0.0/8");
  QTest::keyClick(&addresses, Qt::Key_Return);
  EXPECT_EQ(scenario.agent->preferences()
                .prefForKey("SchedulerPrefRemoteControlAllowedAddresses")
                .string(),
            "10.0.0.0/8");
}

TEST_F(WindowEventsTest, OneClickSelectsTwoRunAndTheAnswerStaysUntilAnotherRowIsChosen) {
  scenario.action("A", {});
  scenario.action("B", {});
  begin();
  SingleClickStyle style;
  AgentWindow& window = open(Window::status);
  auto& list = the<TableView>(window);
  list.setStyle(&style);
  const auto row = [&](int number) {
    return in(*list.viewport(), list.visualRect(list.model()->index(number, 0)).center());
  };
  QTest::mouseClick(window.windowHandle(), Qt::LeftButton, {}, row(0));
  EXPECT_EQ(list.selectedRow(), 0U);
  EXPECT_EQ(queued(), 0U);
  QTest::mouseDClick(window.windowHandle(), Qt::LeftButton, {}, row(0));
  EXPECT_EQ(queued(), 1U);
  settle();
  EXPECT_TRUE(says(window, "“A” was added to the queue."));
  QTest::mouseClick(window.windowHandle(), Qt::LeftButton, {}, row(1));
  EXPECT_FALSE(says(window, "was added"));
  QTest::keyClick(&list, Qt::Key_Enter);
  EXPECT_EQ(queued(), 2U);
  list.setStyle(nullptr);

  AgentWindow& next = open(Window::nextActions);
  QTest::keyClicks(&the<QLineEdit>(next), "b");
  QTest::keyClick(&the<QLineEdit>(next), Qt::Key_Return);
  settle();
  EXPECT_TRUE(says(next, "“B” is in the queue already."));
  QTest::keyClick(&the<QLineEdit>(next), Qt::Key_Backspace);
  EXPECT_FALSE(says(next, "already"));
}

TEST_F(WindowEventsTest, WhatComesUpByItselfLeavesTheKeyboardWhereItIs) {
  const std::int64_t action = scenario.action("A", {});
  begin();
  scenario.agent->commands().disableSchedule();
  EXPECT_TRUE(scenario.agent->commands().launchAction(action, false));
  QLineEdit letter("Dear");
  letter.show();
  windows->showQuietly(Window::queue);
  EXPECT_TRUE(the(Window::queue).testAttribute(Qt::WA_ShowWithoutActivating));
  letter.activateWindow();
  QApplication::processEvents();
  windows->showQuietly(Window::queue);
  QApplication::processEvents();
  ASSERT_EQ(QApplication::activeWindow(), &letter);
  QTest::keyClick(QGuiApplication::focusWindow(), Qt::Key_Backspace);
  EXPECT_EQ(letter.text(), "Dea");
  EXPECT_EQ(queued(), 1U);

  AgentWindow& queue = open(Window::queue);
  EXPECT_EQ(QApplication::activeWindow(), &queue);
  EXPECT_FALSE(queue.testAttribute(Qt::WA_ShowWithoutActivating));
  the<TableView>(queue).selectRow(0);
  QTest::keyClick(QGuiApplication::focusWindow(), Qt::Key_Backspace);
  EXPECT_EQ(queued(), 0U);
}

TEST_F(WindowEventsTest, AWindowComesBackWhereItWasAndOntoTheScreen) {
  begin();
  AgentWindow* window = &open(Window::queue);
  const QRect place(60, 50, window->minimumSizeHint().width() + 40, 333);
  window->setGeometry(place);
  windows->hide(Window::queue);
  EXPECT_EQ(open(Window::queue).geometry(), place);
  the(Window::queue).move(5000, 4000);
  windows->hide(Window::queue);
  window = &open(Window::queue);
  EXPECT_TRUE(window->screen()->geometry().contains(window->geometry()));
}

TEST_F(WindowEventsTest, OnlyKeysThatNobodyTypesMakeAShortcut) {
  begin();
  const UserInterfaceSources sources = scenario.agent->userInterfaceSources();
  const PreferencesModel names(sources);
  const auto keysInWords = [&](const ZAN_Value& keys) { return names.shortcutText(keys); };
  ShortcutField field({"Change", "Clear", "None", "Press", keysInWords});
  std::vector<std::string> recorded;
  field.onChanged = [&](const ZAN_Value& keys) { recorded.push_back(keysInWords(keys)); };
  constexpr unsigned kA = 38, kControl = 37, kShift = 50, kCapsLock = 66, kF5 = 71;
  const auto send = [&](QEvent::Type type, unsigned scanCode) {
    QKeyEvent event(type, Qt::Key_unknown, Qt::NoModifier, scanCode, 0, 0);
    QApplication::sendEvent(field.button(), &event);
  };
  const auto press = [&](std::initializer_list<unsigned> codes) {
    for (const unsigned code : codes) send(QEvent::KeyPress, code);
    for (const unsigned code : codes) send(QEvent::KeyRelease, code);
  };
  field.button()->click();
  for (const auto& typed : {std::initializer_list<unsigned>{kA}, {kShift, kA}, {kControl}})
    press(typed);
  press({kCapsLock, kA});
  EXPECT_TRUE(recorded.empty());
  press({kCapsLock, kControl, kA});
  field.button()->click();
  press({kF5});
  EXPECT_THAT(recorded, testing::ElementsAre("Ctrl+A", "F5"));
}

TEST_F(WindowEventsTest, ANoticeThatNobodyCanTakeIsRefusedAtOnce) {
  Notifier notifier("icon.png");
  bool refused = false;
  notifier.deliver("Corvana 9", "text", {}, [&] { refused = true; });
  EXPECT_TRUE(refused);
}

TEST_F(WindowEventsTest, TheDisksAreShownAndTheProcessesSavedWhereTheWindowSays) {
  scenario.machine.folder.makeFolder("Downloads");
  begin();
  AgentWindow& window = open(Window::allDisks);
  windows->setText(Window::allDisks, "sda 500 GB");
  EXPECT_EQ(the<QPlainTextEdit>(window).toPlainText(), "sda 500 GB");
  QTest::mouseClick(&the<QPushButton>(window, "Save the processes"), Qt::LeftButton);
  EXPECT_TRUE(says(window, qt(scenario.machine.machine.downloads)));
}

TEST_F(WindowEventsTest, TheLanguageOfTheTextsSetsTheDirection) {
  {
    const DesktopLanguage arabic("ar");
    EXPECT_EQ(QGuiApplication::layoutDirection(), Qt::RightToLeft);
  }
  const DesktopLanguage english("en");
  EXPECT_EQ(QGuiApplication::layoutDirection(), Qt::LeftToRight);
}

}  // namespace
}  // namespace corvana
