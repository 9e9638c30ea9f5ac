#pragma once

#include <gtest/gtest.h>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <memory>
#include <string>
#include <vector>

#include "tests/real/PrivateBus.h"

namespace corvana {

/// A login manager that does nothing but remember what it was asked and tell what the test wants.
class LoginManager {
 public:
  LoginManager(RealLoop& real, PrivateBus& bus)
      : mReal(real), mBus(bus), mProcesses(real.loop, {{"test"}, 0, "/"}) {}
  ~LoginManager() { stop(); }

  void start() {
    mName = QStringLiteral("login-manager-%1").arg(++mStarts);
    mConnection = std::make_unique<QDBusConnection>(
        QDBusConnection::connectToBus(QString::fromStdString(mBus.address()), mName));
    auto started =
        mProcesses.start({"/usr/bin/env", "DBUS_SYSTEM_BUS_ADDRESS=" + mBus.address(),
                          "/usr/bin/python3", "-m", "dbusmock", "--system", "--template", "logind"},
                         false, {});
    ASSERT_TRUE(started) << started.error().text;
    mDaemon = std::move(started).value();
    ASSERT_TRUE(mReal.runUntil(
        [this] { return call("ListInhibitors").type() == QDBusMessage::ReplyMessage; }));
  }

  void stop() {
    if (!mDaemon) return;
    mDaemon->terminate();
    EXPECT_TRUE(mReal.runUntil([&] { return !mDaemon->isRunning(); }));
    mDaemon.reset();
    mConnection.reset();
    QDBusConnection::disconnectFromBus(mName);
  }

  void prepareForSleep(bool begins) { emitSignal("PrepareForSleep", begins); }
  void prepareForShutdown(bool begins) { emitSignal("PrepareForShutdown", begins); }

  /// How long it lets others hold a shut-down up.
  void waitsAtMost(int seconds) {
    QDBusMessage order = message("org.freedesktop.DBus.Mock", "AddProperty");
    order << QStringLiteral("org.freedesktop.login1.Manager")
          << QStringLiteral("InhibitDelayMaxUSec")
          << QVariant::fromValue(QDBusVariant(qulonglong(seconds) * 1'000'000));
    EXPECT_EQ(mConnection->call(order).type(), QDBusMessage::ReplyMessage);
  }

  /// "what who why mode" each.
  std::vector<std::string> inhibitors() {
    std::vector<std::string> list;
    const QDBusMessage answer = call("ListInhibitors");
    if (answer.arguments().isEmpty()) return list;
    const auto argument = answer.arguments().at(0).value<QDBusArgument>();
    argument.beginArray();
    while (!argument.atEnd()) {
      QString what, who, why, mode;
      uint uid = 0;
      uint pid = 0;
      argument.beginStructure();
      argument >> what >> who >> why >> mode >> uid >> pid;
      argument.endStructure();
      list.push_back(QStringList{what, who, why, mode}.join(QLatin1Char(' ')).toStdString());
    }
    argument.endArray();
    return list;
  }

  /// How often that method was called.
  int calls(const char* method) {
    QDBusMessage question = message("org.freedesktop.DBus.Mock", "GetMethodCalls");
    question << QString::fromLatin1(method);
    const QDBusMessage answer = mConnection->call(question);
    if (answer.arguments().isEmpty()) return -1;
    const auto argument = answer.arguments().at(0).value<QDBusArgument>();
    int count = 0;
    argument.beginArray();
    while (!argument.atEnd()) {
      argument.beginStructure();
      quint64 time = 0;
      QVariantList arguments;
      argument >> time >> arguments;
      argument.endStructure();
      ++count;
    }
    argument.endArray();
    return count;
  }

 private:
  static QDBusMessage message(const char* interface, const char* method) {
    return QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QString::fromLatin1(interface), QString::fromLatin1(method));
  }
  QDBusMessage call(const char* method) {
    return mConnection->call(message("org.freedesktop.login1.Manager", method));
  }
  void emitSignal(const char* name, bool value) {
    QDBusMessage order = message("org.freedesktop.DBus.Mock", "EmitSignal");
    order << QStringLiteral("org.freedesktop.login1.Manager") << QString::fromLatin1(name)
          << QStringLiteral("b")
          << QVariant(QVariantList{QVariant::fromValue(QDBusVariant(value))});
    const QDBusMessage answer = mConnection->call(order);
    EXPECT_EQ(answer.type(), QDBusMessage::ReplyMessage) << answer.errorMessage().toStdString();
  }

  RealLoop& mReal;
  PrivateBus& mBus;
  LinuxProcesses mProcesses;
  std::unique_ptr<ChildProcess> mDaemon;
  std::unique_ptr<QDBusConnection> mConnection;
  QString mName;
  int mStarts = 0;
};

}  // namespace corvana
