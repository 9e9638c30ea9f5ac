#include "platform/qt/BusNotifications.h"

#include <unistd.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <algorithm>
#include <cstdlib>
#include <map>
#include <utility>
#include <vector>

#include "platform/qt/BusValues.h"

namespace corvana {

namespace {

constexpr double kFirstRetry = 1;
constexpr double kLastRetry = 300;

QString path() { return QStringLiteral("/com/zan/corvana9/DistributedNotifications"); }
QString interface() { return QStringLiteral("com.zan.corvana9.DistributedNotifications"); }
QString signal() { return QStringLiteral("Posted"); }
QString signature() { return QStringLiteral("ssa{sv}"); }

bool hasForm(const std::string& text) { return text.find('\0') == std::string::npos; }

}  // namespace

class BusNotifications::Private final : public QObject {
  Q_OBJECT

 public:
  Private(RunLoop& runLoop, SystemLog& log, Address address)
      : mRunLoop(runLoop), mLog(log), mAddress(std::move(address)) {
    BusValues::registerTypes();
    connectToBus();
  }

  ~Private() override {
    mRunLoop.cancel(mRetry);
    mRunLoop.cancel(mDelivery);
    leaveBus();
  }

  void connectToBus() {
    mRetry = 0;
    leaveBus();
    const std::string address = mAddress();
    if (!address.empty()) {
      // A name used again would hand back the connection that was lost.
      mName = QStringLiteral("corvana9-notifications-%1-%2")
                  .arg(reinterpret_cast<quintptr>(this))
                  .arg(++mConnections);
      mBus = QDBusConnection::connectToBus(QString::fromStdString(address), mName);
    }
    if (!mBus.isConnected()) {
      if (!std::exchange(mToldAbsence, true)) {
        mLog.write("No session bus: other programs of Corvana 9 are not heard until there is one");
      }
      retryLater();
      return;
    }
    mWait = kFirstRetry;
    mToldAbsence = false;
    mBus.connect({}, QStringLiteral("/org/freedesktop/DBus/Local"),
                 QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                 SLOT(lost()));
    for (const auto& handler : mHandlers) listen(handler.first, true);
  }

  void leaveBus() {
    if (mName.isEmpty()) return;
    mBus = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus(std::exchange(mName, {}));
  }

  void retryLater() {
    if (mRetry != 0) return;
    mRetry = mRunLoop.performAfter(mWait, [this] { connectToBus(); });
    mWait = std::min(mWait * 2, kLastRetry);
  }

  /// The first argument is part of what the bus is asked for, so that other traffic wakes nobody.
  void listen(const std::string& name, bool listens) {
    const QStringList match{QString::fromStdString(name)};
    if (listens) {
      mBus.connect({}, path(), interface(), signal(), match, signature(), this,
                   SLOT(received(QDBusMessage)));
    } else {
      mBus.disconnect({}, path(), interface(), signal(), match, signature(), this,
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

  void lost() { retryLater(); }

 public:
  RunLoop& mRunLoop;
  SystemLog& mLog;
  Address mAddress;
  QDBusConnection mBus{QString()};
  QString mName;
  int mConnections = 0;
  RunLoop::TimerId mRetry = 0;
  RunLoop::TimerId mDelivery = 0;
  double mWait = kFirstRetry;
  bool mToldAbsence = false;
  bool mToldDropped = false;
  std::map<std::string, Handler> mHandlers;
  std::vector<DistributedNotification> mWaiting;
};

BusNotifications::BusNotifications(RunLoop& runLoop, SystemLog& log, Address address)
    : mPrivate(std::make_unique<Private>(runLoop, log, std::move(address))) {}

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
  QDBusMessage message = QDBusMessage::createSignal(path(), interface(), signal());
  message << QString::fromStdString(notification.name)
          << QString::fromStdString(notification.object) << details;
  if (!mPrivate->mBus.send(message)) mPrivate->tellDropped();
}

void BusNotifications::observe(const std::string& name, Handler handler) {
  const bool added = mPrivate->mHandlers.insert_or_assign(name, std::move(handler)).second;
  if (added && isConnected()) mPrivate->listen(name, true);
}

void BusNotifications::stopObserving(const std::string& name) {
  if (mPrivate->mHandlers.erase(name) != 0 && isConnected()) mPrivate->listen(name, false);
}

bool BusNotifications::isConnected() const { return mPrivate->mBus.isConnected(); }

std::string BusNotifications::sessionBusAddress() {
  const char* said = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (said != nullptr && *said != '\0') return said;
  const char* folder = std::getenv("XDG_RUNTIME_DIR");
  if (folder == nullptr || *folder != '/') return {};
  const std::string socket = std::string(folder) + "/bus";
  return access(socket.c_str(), F_OK) == 0 ? "unix:path=" + socket : std::string();
}

}  // namespace corvana

#include "BusNotifications.moc"
