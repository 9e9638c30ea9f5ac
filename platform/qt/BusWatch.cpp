#include "platform/qt/BusWatch.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <utility>

#include "platform/qt/BusNames.h"
#include "platform/qt/BusValues.h"

namespace corvana {

class BusWatch::Private final : public QObject {
  Q_OBJECT

 public:
  Private(BusConnection& connection, Handlers handlers)
      : mConnection(connection), mHandlers(std::move(handlers)) {
    BusValues::registerTypes();
    mConnection.whenConnected(this, [this] { listen(); });
  }

  ~Private() override { mConnection.forget(this); }

  void listen() {
    QDBusConnection& bus = mConnection.bus();
    bus.connect({}, BusNames::notificationsPath(), BusNames::notifications(), BusNames::posted(),
                {}, BusNames::postedSignature(), this, SLOT(posted(QDBusMessage)));
    bus.connect(BusNames::agent(), BusNames::agentPath(), BusNames::agent(), BusNames::changed(),
                this, SLOT(changed()));
    bus.connect(BusNames::bus(), BusNames::busPath(), BusNames::bus(),
                QStringLiteral("NameOwnerChanged"), {BusNames::agent()}, QStringLiteral("sss"),
                this, SLOT(owned(QDBusMessage)));
  }

 public Q_SLOTS:
  void posted(const QDBusMessage& message) {
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() != 3) return;
    ZAN_Value details = BusValues::valueWithVariant(arguments[2]);
    if (details.empty()) details = {};
    mHandlers.notified(
        {arguments[0].toString().toStdString(), arguments[1].toString().toStdString(), details});
  }
  void changed() { mHandlers.changed(); }
  void owned(const QDBusMessage& message) {
    if (message.arguments().size() == 3)
      mHandlers.agentIsOn(!message.arguments()[2].toString().isEmpty());
  }

 private:
  BusConnection& mConnection;
  Handlers mHandlers;
};

BusWatch::BusWatch(BusConnection& connection, Handlers handlers)
    : mPrivate(std::make_unique<Private>(connection, std::move(handlers))) {}

BusWatch::~BusWatch() = default;

}  // namespace corvana

#include "BusWatch.moc"
