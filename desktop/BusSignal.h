#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <functional>
#include <utility>

namespace corvana {

/// Hears one signal of one service on the session bus while it lives. Thread: main.
class BusSignal final : public QObject {
  Q_OBJECT

 public:
  BusSignal(const QString& service, const QString& path, const QString& interface,
            const QString& name, std::function<void(const QDBusMessage&)> handler)
      : mHandler(std::move(handler)) {
    QDBusConnection::sessionBus().connect(service, path, interface, name, this,
                                          SLOT(received(QDBusMessage)));
  }

 public Q_SLOTS:
  void received(const QDBusMessage& message) { mHandler(message); }

 private:
  std::function<void(const QDBusMessage&)> mHandler;
};

}  // namespace corvana
