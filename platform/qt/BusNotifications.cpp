#include "platform/qt/BusNotifications.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <algorithm>
#include <map>
#include <utility>

namespace corvana {

namespace {

bool hasForm(const std::string& text) { return text.find('\0') == std::string::npos; }

}  // namespace

class BusNotifications::Private final : public QObject {
  Q_OBJECT

 public:
  Private(std::unique_ptr<BusConnection> own, BusConnection& connection, RunLoop& runLoop,
          SystemLog& log)
      : mOwnConnection(std::move(own)), mConnection(connection), mRunLoop(runLoop), mLog(log) {
    BusValues::registerTypes();
    mConnection.whenConnected(this, [this] {
      for (const auto& handler : mHandlers) listen(handler.first, true);
    });
  }

  ~Private() override {
    mConnection.forget(this);
    mRunLoop.cancel(mDelivery);
    if (!mConnection.isConnected()) return;
    for (const auto& handler : mHandlers) listen(handler.first, false);
  }

  /// The first argument is part of what the bus is asked for, so that other traffic wakes nobody.
  void listen(const std::string& name, bool listens) {
    const QStringList match{QString::fromStdString(name)};
    if (listens) {
      mConnection.bus().connect({}, BusNames::notificationsPath(), BusNames::notifications(),
                                BusNames::posted(), match, BusNames::postedSignature(), this,
                                SLOT(received(QDBusMessage)));
    } else {
      mConnection.bus().disconnect({}, BusNames::notificationsPath(), BusNames::notifications(),
                                   BusNames::posted(), match, BusNames::postedSignature(), this,
                                   SLOT(received(QDBusMessage)));
    }
  }

  void deliver() {
    const auto waiting = std::exchange(mWaiting, {});
    for (const DistributedNotification& one : waiting) {
      const auto found = mHandlers.find(one.name);
      if (found == mHandlers.end()) continue;
      const Handler handler = found->second;
      handler(one);
    }
  }

  void tellDropped() {
    if (std::exchange(mToldDropped, true)) return;
    mLog.write("A part of a notification has no form on the bus and is left out");
  }

 public Q_SLOTS:
  void received(const QDBusMessage& message) {
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() != 3) return;
    DistributedNotification notification{arguments[0].toString().toStdString(),
                                         arguments[1].toString().toStdString(),
                                         BusValues::valueWithVariant(arguments[2])};
    if (notification.userInfo.empty()) {
      notification.userInfo = {};
      const bool known = std::any_of(mWaiting.begin(), mWaiting.end(), [&](const auto& one) {
        return one.userInfo.isNull() && one.name == notification.name &&
               one.object == notification.object;
      });
      if (known) return;
    }
    mWaiting.push_back(std::move(notification));
    if (mWaiting.size() == 1) mDelivery = mRunLoop.performAfter(0, [this] { deliver(); });
  }

 public:
  std::unique_ptr<BusConnection> mOwnConnection;
  BusConnection& mConnection;
  RunLoop& mRunLoop;
  SystemLog& mLog;
  RunLoop::TimerId mDelivery = 0;
  bool mToldDropped = false;
  std::map<std::string, Handler> mHandlers;
  std::vector<DistributedNotification> mWaiting;
};

BusNotifications::BusNotifications(BusConnection& connection, RunLoop& runLoop, SystemLog& log)
    : mPrivate(std::make_unique<Private>(nullptr, connection, runLoop, log)) {}

BusNotifications::BusNotifications(RunLoop& runLoop, SystemLog& log,
                                   BusConnection::Address address) {
  auto own = std::make_unique<BusConnection>(runLoop, log, std::move(address));
  BusConnection& connection = *own;
  mPrivate = std::make_unique<Private>(std::move(own), connection, runLoop, log);
}

BusNotifications::~BusNotifications() = default;

void BusNotifications::post(const DistributedNotification& notification) {
  if (!isConnected()) return;
  if (!hasForm(notification.name) || !hasForm(notification.object)) {
    mPrivate->tellDropped();
    return;
  }
  int dropped = 0;
  const QVariantMap details = BusValues::mapWithDictionary(notification.userInfo, dropped);
  if (dropped > 0) mPrivate->tellDropped();
  QDBusMessage message = QDBusMessage::createSignal(BusNames::notificationsPath(),
                                                    BusNames::notifications(), BusNames::posted());
  message << QString::fromStdString(notification.name)
          << QString::fromStdString(notification.object) << details;
  if (!mPrivate->mConnection.bus().send(message)) mPrivate->tellDropped();
}

void BusNotifications::observe(const std::string& name, Handler handler) {
  const bool added = mPrivate->mHandlers.insert_or_assign(name, std::move(handler)).second;
  if (added && isConnected()) mPrivate->listen(name, true);
}

void BusNotifications::stopObserving(const std::string& name) {
  if (mPrivate->mHandlers.erase(name) != 0 && isConnected()) mPrivate->listen(name, false);
}

bool BusNotifications::isConnected() const { return mPrivate->mConnection.isConnected(); }

}  // namespace corvana

#include "BusNotifications.moc"
