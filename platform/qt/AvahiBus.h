#pragma once

#include <QByteArray>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QList>
#include <QObject>
#include <QString>
#include <functional>
#include <string>
#include <vector>

namespace corvana::avahi {

using Texts = QList<QByteArray>;  ///< aay

inline QString service() { return QStringLiteral("org.freedesktop.Avahi"); }
inline QString server() { return QStringLiteral("org.freedesktop.Avahi.Server"); }
inline QString entryGroup() { return QStringLiteral("org.freedesktop.Avahi.EntryGroup"); }
inline QString serviceBrowser() { return QStringLiteral("org.freedesktop.Avahi.ServiceBrowser"); }

inline constexpr int kAnyInterface = -1;
inline constexpr int kAnyProtocol = -1;
inline constexpr int kIPv4 = 0;
inline constexpr int kServerRuns = 2;
inline constexpr int kGroupEstablished = 2;
inline constexpr int kGroupCollision = 3;
inline constexpr int kGroupFailure = 4;

/// The daemon's number for an error that it names on the bus.
int errorCode(const QString& name);
inline bool isCollision(const QString& name) { return name.endsWith(".CollisionError"); }
/// Whether the error says that there is no daemon.
bool isAbsence(const QString& name);

Texts textsOf(const std::vector<std::string>& texts);
std::vector<std::string> stringsOf(const QVariant& texts);

/// Asks the daemon without starting it; `done` gets the answer or the error from the main loop,
/// unless `context` is gone.
void ask(QDBusConnection& bus, const QString& path, const QString& interface, const QString& method,
         const QList<QVariant>& arguments, QObject* context,
         std::function<void(const QDBusMessage&)> done);
/// Tells the daemon something and waits for nothing.
void tell(QDBusConnection& bus, const QString& path, const QString& interface,
          const QString& method);

}  // namespace corvana::avahi

Q_DECLARE_METATYPE(corvana::avahi::Texts)
