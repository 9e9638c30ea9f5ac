#include "desktop/Notifier.h"

#include <QtDBus>
#include <utility>

#include "desktop/BusSignal.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

QString service() { return QStringLiteral("org.freedesktop.Notifications"); }
QString servicePath() { return QStringLiteral("/org/freedesktop/Notifications"); }

}  // namespace

Notifier::Notifier(std::string iconPath) : mIconPath(std::move(iconPath)) {}

Notifier::~Notifier() = default;

bool Notifier::isAnswered() const {
  const QDBusConnectionInterface* bus = QDBusConnection::sessionBus().interface();
  if (bus == nullptr) return false;
  if (bus->isServiceRegistered(service())) return true;
  return bus->activatableServiceNames().value().contains(service());
}

void Notifier::listen() {
  if (mInvoked != nullptr) return;
  mInvoked = std::make_unique<BusSignal>(
      service(), servicePath(), service(), QStringLiteral("ActionInvoked"),
      [this](const QDBusMessage& message) {
        // It goes to everybody on the bus, whoever sent the notice.
        const auto number = message.arguments().value(0).toUInt();
        if (mDelivered.erase(number) != 0 && onActivated) onActivated();
      });
  mClosed = std::make_unique<BusSignal>(service(), servicePath(), service(),
                                        QStringLiteral("NotificationClosed"),
                                        [this](const QDBusMessage& message) {
                                          mDelivered.erase(message.arguments().value(0).toUInt());
                                        });
}

void Notifier::deliver(const std::string& title, const std::string& text, const std::string& button,
                       std::function<void()> refused) {
  // A call on no bus would never be answered.
  if (!QDBusConnection::sessionBus().isConnected()) {
    if (refused) refused();
    return;
  }
  listen();
  QStringList actions{QStringLiteral("default"), QString()};
  if (!button.empty()) actions << QStringLiteral("button") << qt(button);
  QDBusMessage call =
      QDBusMessage::createMethodCall(service(), servicePath(), service(), QStringLiteral("Notify"));
  // The text may be read as markup.
  call << QStringLiteral("Corvana 9") << 0U << qt(mIconPath) << qt(title)
       << qt(text).toHtmlEscaped() << actions
       << QVariantMap{{QStringLiteral("desktop-entry"), QStringLiteral("corvana9-scheduler")}}
       << -1;
  auto* answer = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call));
  QObject::connect(answer, &QDBusPendingCallWatcher::finished, answer,
                   [this, answer, alive = std::weak_ptr<int>(mAlive), refused] {
                     answer->deleteLater();
                     if (alive.expired()) return;
                     const QDBusPendingReply<uint> reply = *answer;
                     if (reply.isValid()) {
                       mDelivered.insert(reply.value());
                     } else if (refused) {
                       refused();
                     }
                   });
}

}  // namespace corvana
