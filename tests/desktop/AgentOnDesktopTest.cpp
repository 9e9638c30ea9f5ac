#include <QRegularExpression>

#include "tests/desktop/AgentOnDesktop.h"

namespace corvana {
namespace {

TEST_F(AgentOnDesktop, takesALatePanelAndItsMenuWorksOverTheBus) {
  bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &notifications,
                     QDBusConnection::ExportAllContents);
  ASSERT_TRUE(bus.registerService(QStringLiteral("org.freedesktop.Notifications")));
  command({QStringLiteral("group"), QStringLiteral("My_Home & Garden & more")});
  prefer(R"("SchedulerPrefShowMessageInNotificationCenter": 1)");
  panel.setHost(false);
  startAgent();
  ASSERT_TRUE(untilRuns());
  appearAsPanel();
  // The agent has asked it by then.
  ASSERT_TRUE(until([this] { return panel.questions() > 0; }));
  command({QStringLiteral("status")});
  EXPECT_TRUE(panel.items().isEmpty());
  panel.setHost(true);
  ASSERT_TRUE(until([this] { return !panel.items().isEmpty(); }));

  const MenuNode menu = openWholeMenu();
  const MenuNode* on = menu.find(QStringLiteral("Execute automatically"));
  ASSERT_NE(on, nullptr);
  EXPECT_EQ(on->properties.value(QStringLiteral("toggle-state")).toInt(), 1);
  const MenuNode* run = menu.find(QStringLiteral("Run an action"));
  ASSERT_NE(run, nullptr);
  // As a panel reads it: the first letter underlined, a real underscore.
  EXPECT_NE(openMenu(run->id).find(QStringLiteral("_My__Home & Garden & more")), nullptr);
  const QList<int> sizes = icon().first;
  EXPECT_TRUE(sizes.contains(22) && sizes.contains(44)) << testing::PrintToString(sizes);

  const QByteArray before = icon().second;
  click(QStringLiteral("Do not execute automatically"));
  EXPECT_TRUE(until([&] { return icon().second != before; }));
  EXPECT_TRUE(until([this] {
    return notifications.shown.contains(
        QStringLiteral("Corvana 9: Automatic execution was turned off"));
  }));
  EXPECT_NE(openMenu().find(QStringLiteral("Automatic execution is off")), nullptr);

  // A panel that crashes comes back and gets the same icon.
  const QByteArray off = icon().second;
  ASSERT_TRUE(bus.unregisterService(QStringLiteral("org.kde.StatusNotifierWatcher")));
  panel.forgetItems();
  command({QStringLiteral("status")});
  ASSERT_TRUE(bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher")));
  ASSERT_TRUE(until([this] { return !panel.items().isEmpty(); }));
  EXPECT_EQ(icon().second, off);
  click(QStringLiteral("Execute automatically"));
  EXPECT_TRUE(until([&] { return icon().second == before; }));
}

TEST_F(AgentOnDesktop, saysOnceThatNoPanelTakesItsIconAndCanBeReachedAllTheSame) {
  prefer({});
  startAgent();
  ASSERT_TRUE(untilShown(QStringLiteral("This desktop has no place"))) << titles();
  EXPECT_TRUE(until([this] {
    return command({QStringLiteral("dump"), settingsPath()})
        .contains("\"SchedulerPrefNoPanelWasSaid\": 1");
  }));

  QProcess second;
  second.setProcessEnvironment(environment);
  // No message of its own, which would lie over what is looked for.
  second.start(QStringLiteral(CORVANA_AGENT), {QStringLiteral("--headless")});
  EXPECT_TRUE(untilShown(QStringLiteral("Status"))) << titles();
  second.kill();
  second.waitForFinished();

  // A panel that takes windows may come at any time.
  const QRect place(960, 0, 24, 24);
  screen->becomeTray(place);
  ASSERT_TRUE(until([this] { return screen->takeIcon(); }));
  EXPECT_TRUE(until([&] { return coloursOf(screen->picture(place)) > 10; }));
  user({QStringLiteral("mousemove"), QStringLiteral("972"), QStringLiteral("12"),
        QStringLiteral("click"), QStringLiteral("3")});
  EXPECT_TRUE(until([this] {
    return std::ranges::any_of(screen->windows(), [](const TestScreen::Shown& one) {
      return one.place.height() > 100 && one.title == QStringLiteral("Corvana 9 Scheduler");
    });
  })) << titles();
}

/// The menu bar is the part of the screen above what panels leave of it.
TEST_F(AgentOnDesktop, followsPointerAndKeys) {
  const QRect bar(0, 0, 1024, 24);
  screen->setWorkArea({0, bar.height(), 1024, 700 - bar.height()});
  user({QStringLiteral("mousemove"), QStringLiteral("500"), QStringLiteral("400")});
  // Control (29), Alt (56) and N (49), each a bit of the map.
  QByteArray keys(16, 0);
  for (const int key : {29, 56, 49}) keys[key / 8] = char(keys[key / 8] | 1 << (key % 8));
  prefer(R"("SchedulerPrefDisplayIconWindow": 1, "SchedulerPrefKeysForShortcut": {"$data": ")" +
         keys.toBase64() + R"("})");
  command({QStringLiteral("group"), QStringLiteral("Home")});
  startAgent();
  ASSERT_TRUE(untilRuns());

  const auto floats = [this] {
    return !screen->window(QStringLiteral("No action is scheduled")).place.isEmpty();
  };
  EXPECT_FALSE(floats());
  user({QStringLiteral("mousemove"), QStringLiteral("900"), QStringLiteral("5")});
  EXPECT_TRUE(until(floats)) << titles();
  user({QStringLiteral("mousemove"), QStringLiteral("500"), QStringLiteral("400")});
  EXPECT_TRUE(until([&] { return !floats(); })) << titles();

  const auto menu = [this] {
    return std::ranges::any_of(screen->windows(), [](const TestScreen::Shown& one) {
      return one.place.height() > 100 && one.place.contains(520, 100);
    });
  };
  user({QStringLiteral("mousemove"), QStringLiteral("512"), QStringLiteral("12"),
        QStringLiteral("keydown"), QStringLiteral("alt"), QStringLiteral("mousedown"),
        QStringLiteral("1")});
  EXPECT_TRUE(until(menu)) << titles();
  user({QStringLiteral("mouseup"), QStringLiteral("1"), QStringLiteral("keyup"),
        QStringLiteral("alt"), QStringLiteral("key"), QStringLiteral("Escape")});
  EXPECT_TRUE(until([&] { return !menu(); }));

  const QStringList down{QStringLiteral("keydown"), QStringLiteral("ctrl"),
                         QStringLiteral("keydown"), QStringLiteral("alt"),
                         QStringLiteral("keydown"), QStringLiteral("n")};
  user(down);
  EXPECT_TRUE(untilShown(QStringLiteral("Next actions"))) << titles();
  user(QStringList(down).replaceInStrings(QStringLiteral("down"), QStringLiteral("up")));
}

TEST_F(AgentOnDesktop, drawsEveryWindowThatItsMenuOpens) {
  appearAsPanel();
  prefer(R"("SchedulerPrefDisplayIconWindow": 2)");
  for (const char* title : {"Photos", "Letters", "Music"}) {
    command({QStringLiteral("add"), QString::fromLatin1(title), QStringLiteral("--source"),
             home.path() + "/" + title, QStringLiteral("--destination"), home.path(),
             QStringLiteral("--every"), QStringLiteral("45m"), QStringLiteral("--force")});
  }
  startAgent();
  ASSERT_TRUE(until([this] { return !panel.items().isEmpty(); }));
  struct Row {
    const char* item;
    const char* title;
  };
  constexpr Row kRows[] = {{"Status and automatic execution…", "Status"},
                           {"Next actions…", "Next actions"},
                           {"Queue…", "Queue"},
                           {"Latest actions…", "Latest actions"},
                           {"All disks…", "All disks"},
                           {"Execution survey…", "Survey Execution"},
                           {"Preferences…", "Preferences"},
                           {"Quit…", "Corvana 9 Scheduler"}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.item);
    click(QString::fromUtf8(row.item));
    ASSERT_TRUE(untilShown(QString::fromUtf8(row.title))) << titles();
    const TestScreen::Shown shown = screen->window(QString::fromUtf8(row.title));
    EXPECT_GE(shown.place.width(), 200);
    EXPECT_TRUE(screen->bounds().contains(shown.place));
    // Smooth letters have many shades; an empty window has a few.
    EXPECT_TRUE(until([&] { return coloursOf(screen->picture(shown.place)) > 30; }));
  }
}

/// Nothing that waits is lost with the screen, and the agent comes to the next one.
TEST_F(AgentOnDesktop, goesOnWithoutItsDisplay) {
  prefer(R"("SchedulerPrefScheduleDisabled": 1)");
  const QByteArray added = command(
      {QStringLiteral("add"), QStringLiteral("Letters"), QStringLiteral("--source"), home.path(),
       QStringLiteral("--destination"), home.path(), QStringLiteral("--force")});
  const auto ref = QRegularExpression(QStringLiteral("[0-9]{6,}")).match(added).captured();
  startAgent();
  ASSERT_TRUE(untilRuns());
  command({QStringLiteral("launch"), ref});
  ASSERT_TRUE(command({QStringLiteral("queue")}).contains("Letters"));
  ASSERT_TRUE(untilShown(QStringLiteral("Automatic execution is off"))) << titles();

  screen.reset();
  server.kill();
  server.waitForFinished();
  const QByteArray number = QByteArray::number(agent.processId());
  EXPECT_TRUE(until(
      [this] { return command({QStringLiteral("log")}).count("Launch Corvana Scheduler") == 2; }));
  EXPECT_TRUE(until([&] { return command({QStringLiteral("status")}).contains(number); }));
  EXPECT_TRUE(command({QStringLiteral("queue")}).contains("Letters"));

  startServer();
  command(
      {QStringLiteral("post"), QStringLiteral("agent"),
       QStringLiteral("ShowAllVisibleWindowsActions"),
       QStringLiteral("{\"DISPLAY\": \"%1\"}").arg(environment.value(QStringLiteral("DISPLAY")))});
  EXPECT_TRUE(until([this] { return !screen->windows().isEmpty(); }));
  EXPECT_TRUE(until([&] { return command({QStringLiteral("status")}).contains(number); }));
  EXPECT_TRUE(command({QStringLiteral("queue")}).contains("Letters"));
}

}  // namespace
}  // namespace corvana
