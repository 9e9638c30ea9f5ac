#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <algorithm>
#include <functional>
#include <memory>
#include <optional>

#include "tests/desktop/FakePanel.h"
#include "tests/desktop/TestScreen.h"

namespace corvana {

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

inline MenuNode menuNode(const QDBusArgument& argument) {
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
    for (const char* program : {"Xvfb", "xdotool"}) {
      if (QStandardPaths::findExecutable(QString::fromLatin1(program)).isEmpty()) {
        GTEST_SKIP() << "there is no " << program;
      }
    }
    environment = QProcessEnvironment::systemEnvironment();
    startServer();
    environment.insert(QStringLiteral("HOME"), home.path());
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), home.path());
    if (HasFatalFailure()) return;
    // Qt leaves the menu's copy for the bus behind.
    environment.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("detect_leaks=0"));
    environment.insert(QStringLiteral("LANG"), QStringLiteral("C.UTF-8"));
    for (const char* name :
         {"QT_QPA_PLATFORM", "WAYLAND_DISPLAY", "XDG_CONFIG_HOME", "LANGUAGE", "LC_ALL"}) {
      environment.remove(QString::fromLatin1(name));
    }
  }

  void startServer() {
    // Not the first free number: when this server ends, another test's would take it.
    const int number = 1000 + int(QCoreApplication::applicationPid() % 20000) + servers++;
    server.start(
        QStringLiteral("Xvfb"),
        {QStringLiteral(":%1").arg(number), QStringLiteral("-displayfd"), QStringLiteral("1"),
         QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("1024x700x24"),
         QStringLiteral("-nolisten"), QStringLiteral("tcp")});
    ASSERT_TRUE(until([this] { return server.canReadLine(); }));
    const QByteArray display = ":" + server.readLine().trimmed();
    screen.emplace(display);
    environment.insert(QStringLiteral("DISPLAY"), display);
  }

  void TearDown() override {
    screen.reset();
    for (QProcess* process : {&agent, &server}) {
      process->terminate();
      if (process->state() != QProcess::NotRunning && !process->waitForFinished(20000)) {
        process->kill();
        process->waitForFinished();
      }
    }
    // A sanitizer ends it with another.
    EXPECT_EQ(agent.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(agent.exitCode(), 0);
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

  /// What the user has chosen, as members of the stored preferences. The agent takes itself for one
  /// that was just started anew, so that it begins at once.
  void prefer(const QByteArray& members) {
    QDir().mkpath(QFileInfo(settingsPath()).path());
    const double now = double(QDateTime::currentSecsSinceEpoch()) - kReference;
    command({QStringLiteral("pack"), QStringLiteral("-"), settingsPath()},
            "{\"SchedulerQuitDate\": {\"$date\": " + QByteArray::number(now, 'f', 1) + "}" +
                (members.isEmpty() ? "" : ", " + members) + "}");
  }
  QString settingsPath() const {
    return home.path() + QStringLiteral(
                             "/Library/Application Support/Corvana 9/"
                             "Corvana 9 Scheduler Settings.cva9data");
  }

  /// Keys and pointer as the user moves them.
  void user(const QStringList& words) {
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral("xdotool"), words);
    ASSERT_TRUE(until([&] { return process.state() == QProcess::NotRunning; }));
    ASSERT_EQ(process.exitCode(), 0) << words.join(' ').toStdString();
  }

  bool untilShown(const QString& title) {
    return until([&] { return !screen->window(title).place.isEmpty(); });
  }

  std::string titles() const {
    std::string titles;
    for (const TestScreen::Shown& one : screen->windows())
      titles += one.title.toStdString() + " (" + std::to_string(one.place.height()) + "); ";
    return titles;
  }
  static qsizetype coloursOf(const QImage& picture) {
    QSet<QRgb> colours;
    for (int y = 0; y < picture.height(); ++y) {
      for (int x = 0; x < picture.width(); ++x) colours.insert(picture.pixel(x, y));
    }
    return colours.size();
  }

  bool untilRuns() {
    return until([this] { return command({QStringLiteral("status")}).contains("process"); });
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
  /// With what is below "More".
  MenuNode openWholeMenu() {
    MenuNode menu = openMenu();
    const MenuNode* more = menu.find(QStringLiteral("More"));
    return more == nullptr ? menu : openMenu(more->id);
  }
  void click(const QString& label) {
    const MenuNode menu = openWholeMenu();
    const MenuNode* item = menu.find(label);
    ASSERT_NE(item, nullptr) << label.toStdString();
    callMenu(QStringLiteral("Event"),
             {item->id, QStringLiteral("clicked"), QVariant::fromValue(QDBusVariant(0)), 0U});
  }

  static constexpr double kReference = 978307200;  ///< of the agent's times, in seconds of Unix

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
  int servers = 0;  ///< started so far
  std::optional<TestScreen> screen;
  QProcess agent;
};

}  // namespace corvana
