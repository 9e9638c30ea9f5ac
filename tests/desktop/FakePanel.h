#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

namespace corvana {

/// The panel's side of status items on the bus: they register here.
class FakePanel : public QObject, protected QDBusContext {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
  Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ items)
  Q_PROPERTY(bool IsStatusNotifierHostRegistered READ isHost)
  Q_PROPERTY(int ProtocolVersion READ version)

 public:
  QStringList items() const { return mItems; }
  bool isHost() const {
    ++mQuestions;
    return mIsHost;
  }
  int questions() const { return mQuestions; }  ///< whether there is a host
  int version() const { return 0; }

  void forgetItems() { mItems.clear(); }
  /// There is only the list of items so far, nobody who shows them.
  void setHost(bool isHost) {
    mIsHost = isHost;
    if (isHost) Q_EMIT StatusNotifierHostRegistered();
  }

 public Q_SLOTS:
  void RegisterStatusNotifierItem(const QString& service) {
    mItems << (service.startsWith('/') ? message().service() : service);
    Q_EMIT StatusNotifierItemRegistered(mItems.last());
  }
  void RegisterStatusNotifierHost(const QString& /*service*/) {
    Q_EMIT StatusNotifierHostRegistered();
  }

 Q_SIGNALS:
  void StatusNotifierItemRegistered(const QString& service);
  void StatusNotifierItemUnregistered(const QString& service);
  void StatusNotifierHostRegistered();

 private:
  QStringList mItems;
  bool mIsHost = true;
  mutable int mQuestions = 0;
};

/// The notification service: keeps what it is asked to show.
class FakeNotifications : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

 public:
  QStringList shown;  ///< "title: text"

 public Q_SLOTS:
  uint Notify(const QString& /*application*/, uint /*replaces*/, const QString& /*icon*/,
              const QString& title, const QString& text, const QStringList& /*actions*/,
              const QVariantMap& /*hints*/, int /*expires*/) {
    shown << title + ": " + text;
    return uint(shown.size());
  }
  QStringList GetCapabilities() { return {QStringLiteral("body"), QStringLiteral("actions")}; }

 Q_SIGNALS:
  void ActionInvoked(uint number, const QString& action);
};

}  // namespace corvana
