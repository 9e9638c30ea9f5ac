#pragma once

#include <QString>

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
