#include "platform/qt/BusAgentClient.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QObject>
#include <utility>

#include "platform/qt/QtRunLoop.h"

namespace corvana {

namespace {

constexpr int kPatience = 10'000;  // ms

Error noBus() { return {ErrorKind::unavailable, "there is no session bus"}; }

Error errorOf(const QDBusMessage& reply) {
  const std::string text = reply.errorMessage().toStdString();
  if (reply.errorName() == QStringLiteral("org.freedesktop.DBus.Error.NameHasNoOwner"))
    return {ErrorKind::absent, text};
  switch (QDBusError(reply).type()) {
    case QDBusError::ServiceUnknown:
      return {ErrorKind::absent, text};
    case QDBusError::NoReply:
    case QDBusError::Timeout:
    case QDBusError::TimedOut:
    case QDBusError::Disconnected:
      return {ErrorKind::unavailable, text};
    default:
      return {ErrorKind::refused, text};
  }
}

QDBusMessage questionOf(const QString& method, const QList<QVariant>& arguments) {
  QDBusMessage call = QDBusMessage::createMethodCall(BusNames::agent(), BusNames::agentPath(),
                                                     BusNames::agent(), method);
  call.setAutoStartService(false);
  call.setArguments(arguments);
  return call;
}

Result<QVariant> answerIn(const QDBusMessage& reply) {
  if (reply.type() != QDBusMessage::ReplyMessage) return errorOf(reply);
  if (reply.arguments().size() != 1)
    return Error{ErrorKind::damaged, "the agent answered something else"};
  return reply.arguments().constFirst();
}

}  // namespace

class BusAgentClient::Private {
 public:
  explicit Private(const std::string& address) {
    if (address.empty()) return;
    mApplication.emplace();
    BusValues::registerTypes();
    mName = QStringLiteral("corvana9-client-%1").arg(reinterpret_cast<quintptr>(this));
    if (const auto made = BusConnection::connectTo(address, mName))
      mBus = *made;
    else
      mName.clear();
  }

  ~Private() {
    mBus = QDBusConnection(QString());
    if (!mName.isEmpty()) QDBusConnection::disconnectFromBus(mName);
  }

  Result<QVariant> ask(const QString& method, const QList<QVariant>& arguments = {}) {
    if (!mBus.isConnected()) return noBus();
    return answerIn(mBus.call(questionOf(method, arguments), QDBus::Block, kPatience));
  }

  Result<ZAN_Value> askValue(const QString& method, const QList<QVariant>& arguments = {}) {
    const Result<QVariant> reply = ask(method, arguments);
    if (!reply) return reply.error();
    return BusValues::valueWithVariant(*reply);
  }

  std::optional<QtApplication> mApplication;
  QDBusConnection mBus{QString()};
  QString mName;
};

BusAgentClient::BusAgentClient(BusConnection::Address address)
    : mPrivate(std::make_unique<Private>(address())) {}

BusAgentClient::~BusAgentClient() = default;

bool BusAgentClient::hasBus() const { return mPrivate->mBus.isConnected(); }

Result<ZAN_Value> BusAgentClient::status() { return mPrivate->askValue(QStringLiteral("Status")); }

Result<ZAN_Value> BusAgentClient::queue() { return mPrivate->askValue(QStringLiteral("Queue")); }

Result<ZAN_Value> BusAgentClient::next() { return mPrivate->askValue(QStringLiteral("Next")); }

Result<ZAN_Value> BusAgentClient::why(std::int64_t ref) {
  return mPrivate->askValue(QStringLiteral("Why"), {static_cast<qlonglong>(ref)});
}

Result<std::string> BusAgentClient::launch(std::int64_t ref) {
  const auto reply = mPrivate->ask(QStringLiteral("Launch"), {static_cast<qlonglong>(ref)});
  if (!reply) return reply.error();
  return reply->toString().toStdString();
}

Outcome BusAgentClient::post(const DistributedNotification& notification) {
  if (!hasBus()) return noBus();
  for (const std::string& text : {notification.name, notification.object}) {
    if (text.find('\0') != std::string::npos)
      return Error{ErrorKind::refused, "a text with a NUL cannot be sent"};
  }
  int dropped = 0;
  const QVariantMap details = BusValues::mapWithDictionary(notification.userInfo, dropped);
  if (dropped > 0) return Error{ErrorKind::refused, "a part of the details has no form on the bus"};
  QDBusMessage message = QDBusMessage::createSignal(BusNames::notificationsPath(),
                                                    BusNames::notifications(), BusNames::posted());
  message << QString::fromStdString(notification.name)
          << QString::fromStdString(notification.object) << details;
  if (!mPrivate->mBus.send(message)) return noBus();
  // The bus takes one thing after another: when it answers, it has had the message.
  const QDBusMessage reply =
      mPrivate->mBus.call(QDBusMessage::createMethodCall(BusNames::bus(), BusNames::busPath(),
                                                         BusNames::bus(), QStringLiteral("GetId")),
                          QDBus::Block, kPatience);
  if (reply.type() != QDBusMessage::ReplyMessage) return errorOf(reply);
  return {};
}

class BusAgentAsker::Private final : public QObject {
 public:
  explicit Private(BusConnection& connection) : mConnection(connection) {
    BusValues::registerTypes();
  }

  void ask(const QString& method, const QList<QVariant>& arguments, Answered answered) {
    if (!mConnection.isConnected()) {
      QMetaObject::invokeMethod(
          this, [answered = std::move(answered)] { answered(noBus()); }, Qt::QueuedConnection);
      return;
    }
    auto* watcher = new QDBusPendingCallWatcher(
        mConnection.bus().asyncCall(questionOf(method, arguments), kPatience), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [watcher, answered = std::move(answered)] {
              watcher->deleteLater();
              const Result<QVariant> reply = answerIn(watcher->reply());
              if (!reply) return answered(reply.error());
              answered(BusValues::valueWithVariant(*reply));
            });
  }

 private:
  BusConnection& mConnection;
};

BusAgentAsker::BusAgentAsker(BusConnection& connection)
    : mPrivate(std::make_unique<Private>(connection)) {}

BusAgentAsker::~BusAgentAsker() = default;

void BusAgentAsker::status(Answered answered) {
  mPrivate->ask(QStringLiteral("Status"), {}, std::move(answered));
}

void BusAgentAsker::queue(Answered answered) {
  mPrivate->ask(QStringLiteral("Queue"), {}, std::move(answered));
}

void BusAgentAsker::why(std::int64_t ref, Answered answered) {
  mPrivate->ask(QStringLiteral("Why"), {static_cast<qlonglong>(ref)}, std::move(answered));
}

void BusAgentAsker::launch(std::int64_t ref, Answered answered) {
  mPrivate->ask(QStringLiteral("Launch"), {static_cast<qlonglong>(ref)}, std::move(answered));
}

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

#include "BusAgentClient.moc"
