#include "platform/qt/AvahiBus.h"

#include <QDBusArgument>
#include <QDBusError>
#include <array>

namespace corvana::avahi {

int errorCode(const QString& name) {
  struct Known {
    const char* end;
    int code;
  };
  static constexpr std::array kKnown{Known{".FailureError", -1},
                                     Known{".BadStateError", -2},
                                     Known{".InvalidDomainNameError", -4},
                                     Known{".CollisionError", -8},
                                     Known{".InvalidRecordError", -9},
                                     Known{".InvalidServiceNameError", -10},
                                     Known{".InvalidServiceTypeError", -11},
                                     Known{".InvalidPortError", -12},
                                     Known{".TimeoutError", -15},
                                     Known{".TooManyClientsError", -16},
                                     Known{".TooManyObjectsError", -17},
                                     Known{".TooManyEntriesError", -18},
                                     Known{".AccessDeniedError", -20},
                                     Known{".NotFoundError", -30}};
  constexpr int kBusError = -22;
  for (const Known& one : kKnown)
    if (name.endsWith(QLatin1String(one.end))) return one.code;
  return name.startsWith(service()) ? -1 : kBusError;
}

bool isAbsence(const QString& name) {
  return name == QDBusError::errorString(QDBusError::ServiceUnknown) ||
         name == QStringLiteral("org.freedesktop.DBus.Error.NameHasNoOwner") ||
         name == QDBusError::errorString(QDBusError::NoReply) ||
         name == QDBusError::errorString(QDBusError::Disconnected);
}

Texts textsOf(const std::vector<std::string>& texts) {
  Texts list;
  for (const std::string& text : texts) list.append(QByteArray::fromStdString(text));
  return list;
}

std::vector<std::string> stringsOf(const QVariant& texts) {
  std::vector<std::string> list;
  for (const QByteArray& text : qdbus_cast<Texts>(texts)) list.push_back(text.toStdString());
  return list;
}

namespace {

QDBusMessage callOf(const QString& path, const QString& interface, const QString& method) {
  QDBusMessage call = QDBusMessage::createMethodCall(service(), path, interface, method);
  call.setAutoStartService(false);
  return call;
}

}  // namespace

void ask(QDBusConnection& bus, const QString& path, const QString& interface, const QString& method,
         const QList<QVariant>& arguments, QObject* context,
         std::function<void(const QDBusMessage&)> done) {
  QDBusMessage call = callOf(path, interface, method);
  call.setArguments(arguments);
  auto* const watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), context);
  QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context,
                   [done = std::move(done)](QDBusPendingCallWatcher* finished) {
                     finished->deleteLater();
                     done(finished->reply());
                   });
}

void tell(QDBusConnection& bus, const QString& path, const QString& interface,
          const QString& method) {
  bus.send(callOf(path, interface, method));
}

}  // namespace corvana::avahi
