#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <functional>
#include <memory>

#include "tests/desktop/FakePanel.h"

namespace corvana {
namespace {

struct MenuNode {
  int id = 0;
  QVariantMap properties;
  QList<MenuNode> children;

  const MenuNode* find(const QString& label) const {
    if (properties.value(QStringLiteral("label")).toString() == label) return this;
    for (const MenuNode& child : children) {
      if (const MenuNode* found = child.find(label)) return found;
    }
    return nullptr;
  }
};

MenuNode menuNode(const QDBusArgument& argument) {
  MenuNode node;
  argument.beginStructure();
  argument >> node.id >> node.properties;
  argument.beginArray();
  while (!argument.atEnd()) {
    QDBusVariant child;
    argument >> child;
    node.children << menuNode(child.variant().value<QDBusArgument>());
  }
  argument.endArray();
  argument.endStructure();
  return node;
}

/// An X server, a home and the agent in them; the test's process is the panel.
class AgentOnDesktop : public testing::Test {
 protected:
  void SetUp() override {
    if (QStandardPaths::findExecutable(QStringLiteral("Xvfb")).isEmpty()) {
      GTEST_SKIP() << "there is no Xvfb";
    }
    server.start(QStringLiteral("Xvfb"),
                 {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
                  QStringLiteral("0"), QStringLiteral("1024x700x24"), QStringLiteral("-nolisten"),
                  QStringLiteral("tcp")});
    ASSERT_TRUE(until([this] { return server.canReadLine(); }));
    environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DISPLAY"), ":" + server.readLine().trimmed());
    environment.insert(QStringLiteral("HOME"), home.path());
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), home.path());
    // Qt leaves the menu's copy for the bus behind.
    environment.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("detect_leaks=0"));
    environment.insert(QStringLiteral("LANG"), QStringLiteral("C.UTF-8"));
    for (const char* name :
         {"QT_QPA_PLATFORM", "WAYLAND_DISPLAY", "XDG_CONFIG_HOME", "LANGUAGE", "LC_ALL"}) {
      environment.remove(QString::fromLatin1(name));
    }
  }

  void TearDown() override {
    for (QProcess* process : {&agent, &server}) {
      process->terminate();
      if (process->state() != QProcess::NotRunning && !process->waitForFinished(20000)) {
        process->kill();
        process->waitForFinished();
      }
    }
  }

  static bool until(const std::function<bool()>& condition, int milliseconds = 30000) {
    QElapsedTimer passed;
    passed.start();
    while (!condition() && passed.elapsed() < milliseconds) {
      QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
    }
    return condition();
  }

  QByteArray command(const QStringList& words, const QByteArray& input = {}) {
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(CORVANA_COMMAND), words);
    process.write(input);
    process.closeWriteChannel();
    until([&] { return process.state() == QProcess::NotRunning; });
    return process.readAllStandardOutput() + process.readAllStandardError();
  }

  void startAgent() {
    agent.setProcessEnvironment(environment);
    agent.setProcessChannelMode(QProcess::ForwardedChannels);
    agent.start(QStringLiteral(CORVANA_AGENT), {});
    ASSERT_TRUE(agent.waitForStarted());
  }

  void appearAsPanel() {
    bus.registerObject(QStringLiteral("/StatusNotifierWatcher"), &panel,
                       QDBusConnection::ExportAllContents);
    ASSERT_TRUE(bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher")));
  }

  QDBusMessage call(const QString& path, const QString& interface, const QString& method,
                    const QVariantList& arguments) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(panel.items().value(0), path, interface, method);
    message.setArguments(arguments);
    return bus.call(message, QDBus::BlockWithGui, 30000);
  }

  QVariant property(const QString& name) {
    return call(QStringLiteral("/StatusNotifierItem"),
                QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
                {QStringLiteral("org.kde.StatusNotifierItem"), name})
        .arguments()
        .value(0)
        .value<QDBusVariant>()
        .variant();
  }

  /// The sizes of the icon's pictures, and the bytes of all of them.
  std::pair<QList<int>, QByteArray> icon() {
    QList<int> sizes;
    QByteArray pixels;
    const auto pictures = property(QStringLiteral("IconPixmap")).value<QDBusArgument>();
    pictures.beginArray();
    while (!pictures.atEnd()) {
      int width = 0;
      int height = 0;
      QByteArray data;
      pictures.beginStructure();
      pictures >> width >> height >> data;
      pictures.endStructure();
      sizes << width;
      pixels += data;
    }
    pictures.endArray();
    return {sizes, pixels};
  }

  QDBusMessage callMenu(const QString& method, const QVariantList& arguments) {
    const QString path = property(QStringLiteral("Menu")).value<QDBusObjectPath>().path();
    return call(path, QStringLiteral("com.canonical.dbusmenu"), method, arguments);
  }
  MenuNode openMenu(int id = 0) {
    callMenu(QStringLiteral("AboutToShow"), {id});
    const QDBusMessage layout = callMenu(QStringLiteral("GetLayout"), {0, -1, QStringList()});
    return menuNode(layout.arguments().value(1).value<QDBusArgument>());
  }
  void click(const QString& label) {
    const MenuNode menu = openMenu();
    const MenuNode* item = menu.find(label);
    ASSERT_NE(item, nullptr) << label.toStdString();
    callMenu(QStringLiteral("Event"),
             {item->id, QStringLiteral("clicked"), QVariant::fromValue(QDBusVariant(0)), 0U});
  }

  int argumentCount = 1;
  char name[5] = "test";
  char* words[2] = {name, nullptr};
  QCoreApplication application{argumentCount, words};
  QDBusConnection bus = QDBusConnection::sessionBus();
  QTemporaryDir home;
  FakePanel panel;
  FakeNotifications notifications;
  QProcessEnvironment environment;
  QProcess server;
  QProcess agent;
};

TEST_F(AgentOnDesktop, takesALatePanelAndItsMenuWorksOverTheBus) {
  bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &notifications,
                     QDBusConnection::ExportAllContents);
  ASSERT_TRUE(bus.registerService(QStringLiteral("org.freedesktop.Notifications")));
  const QString data = home.path() + "/Library/Application Support/Corvana 9";
  command({QStringLiteral("group"), QStringLiteral("Home & Garden")});
  command({QStringLiteral("pack"), QStringLiteral("-"),
           data + "/Corvana 9 Scheduler Settings.cva9data"},
          R"({"SchedulerPrefShowMessageInNotificationCenter": 1})");
  startAgent();
  ASSERT_TRUE(until([this] { return command({QStringLiteral("status")}).contains("process"); }));
  appearAsPanel();
  ASSERT_TRUE(until([this] { return !panel.items().isEmpty(); }));

  const MenuNode menu = openMenu();
  const MenuNode* on = menu.find(QStringLiteral("Execute Automatically"));
  ASSERT_NE(on, nullptr);
  EXPECT_EQ(on->properties.value(QStringLiteral("toggle-state")).toInt(), 1);
  const MenuNode* run = menu.find(QStringLiteral("Run an Action"));
  ASSERT_NE(run, nullptr);
  // Qt marks the second ampersand as the one to underline, so that it is seen.
  EXPECT_NE(openMenu(run->id).find(QStringLiteral("Home _& Garden")), nullptr);
  const QList<int> sizes = icon().first;
  EXPECT_TRUE(sizes.contains(22) && sizes.contains(44)) << testing::PrintToString(sizes);

  const QByteArray before = icon().second;
  click(QStringLiteral("Do Not Execute Automatically"));
  EXPECT_TRUE(until([&] { return icon().second != before; }));
  EXPECT_TRUE(until([this] {
    return notifications.shown.contains(
        QStringLiteral("Corvana 9: Automatic execution was turned off"));
  }));
  EXPECT_NE(openMenu().find(QStringLiteral("Automatic execution is off")), nullptr);
}

}  // namespace
}  // namespace corvana
