#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "platform/Machine.h"
#include "platform/RunLoop.h"

class QDBusConnection;

namespace corvana::BusNames {

/// The agent's name on the bus, which is also the name of its interface.
inline QString agent() { return QStringLiteral("com.zan.corvana9.Scheduler"); }
inline QString agentPath() { return QStringLiteral("/com/zan/corvana9/Scheduler"); }
inline QString changed() { return QStringLiteral("Changed"); }

inline QString notificationsPath() {
  return QStringLiteral("/com/zan/corvana9/DistributedNotifications");
}
inline QString notifications() {
  return QStringLiteral("com.zan.corvana9.DistributedNotifications");
}
inline QString posted() { return QStringLiteral("Posted"); }
inline QString postedSignature() { return QStringLiteral("ssa{sv}"); }

// The bus itself.
inline QString bus() { return QStringLiteral("org.freedesktop.DBus"); }
inline QString busPath() { return QStringLiteral("/org/freedesktop/DBus"); }

}  // namespace corvana::BusNames

namespace corvana {

/// The connection to a bus, that of the user's session or the system's, shared by what speaks over
/// it. Without a bus, and when it goes away, it is looked for again after a while. Thread: main.
class BusConnection {
 public:
  /// The address of the bus, empty when there is none now; asked before each attempt to connect.
  using Address = std::function<std::string()>;

  /// What is said once when there is no bus.
  static constexpr const char* kNoSessionBus =
      "No session bus: other programs of Corvana 9 are not heard until there is one";

  /// Connects at once when it can. `log` hears `absence` once each time that there is no bus.
  BusConnection(RunLoop& runLoop, SystemLog& log, Address address = sessionBusAddress,
                std::string absence = kNoSessionBus);
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;
  ~BusConnection();

  bool isConnected() const;
  /// Becomes another one with each new connection.
  QDBusConnection& bus();

  /// `body` is called after each new connection, and now when there is one. `owner` names it for
  /// `forget`.
  void whenConnected(const void* owner, std::function<void()> body);
  void forget(const void* owner);

  /// Qt's connection of that name. Nothing while the system has no thread for it: Qt would wait for
  /// that thread without end, and never make another.
  static std::optional<QDBusConnection> connectTo(const std::string& address, const QString& name);

  /// What the session says, else the socket in the user's run-time folder; nothing is started.
  static std::string sessionBusAddress();
  /// What the environment says, else the system's socket when it is there.
  static std::string systemBusAddress();

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

/// A date on the bus: a structure of one double, seconds since 2001.
struct BusDate {
  double seconds = 0;
};

/// Values in the types of the bus and back: text s, letter c with 0 or 1 b, other integers x (t
/// above its range), reals d, data ay, dates (d), lists av, dictionaries a{sv}. Thread: any.
class BusValues {
 public:
  BusValues() = delete;

  /// What has no form on the bus (null, sets, index sets, objects, texts with a NUL, keys that are
  /// no texts, nesting of more than 12 levels) is left out and counted in `dropped`.
  static QVariantMap mapWithDictionary(const ZAN_Value& dictionary, int& dropped);
  /// Takes every integer type, lists of texts and dictionaries of texts too; null for what is not
  /// understood.
  static ZAN_Value valueWithVariant(const QVariant& variant);

  /// To be called once before a message with a date is sent or read.
  static void registerTypes();
};

}  // namespace corvana

Q_DECLARE_METATYPE(corvana::BusDate)
