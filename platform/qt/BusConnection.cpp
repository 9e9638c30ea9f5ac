#include "platform/qt/BusConnection.h"

#include <unistd.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <algorithm>
#include <cstdlib>
#include <map>
#include <utility>

#include "platform/linux/ExpendableChild.h"

namespace corvana {

namespace {

constexpr double kFirstRetry = 1;
constexpr double kLastRetry = 300;

}  // namespace

class BusConnection::Private final : public QObject {
  Q_OBJECT

 public:
  Private(RunLoop& runLoop, SystemLog& log, Address address, std::string absence)
      : mRunLoop(runLoop), mLog(log), mAddress(std::move(address)), mAbsence(std::move(absence)) {
    connectToBus();
  }

  ~Private() override {
    mRunLoop.cancel(mRetry);
    leaveBus();
  }

  void connectToBus() {
    mRetry = 0;
    leaveBus();
    const std::string address = mAddress();
    if (!address.empty()) {
      // A name used again would hand back the connection that was lost.
      mName = QStringLiteral("corvana9-%1-%2")
                  .arg(reinterpret_cast<quintptr>(this))
                  .arg(++mConnections);
      if (const auto made = connectTo(address, mName))
        mBus = *made;
      else
        mName.clear();
    }
    if (!mBus.isConnected()) {
      if (!std::exchange(mToldAbsence, true)) {
        mLog.write(mAbsence);
      }
      retryLater();
      return;
    }
    mWait = kFirstRetry;
    mToldAbsence = false;
    mBus.connect({}, QStringLiteral("/org/freedesktop/DBus/Local"),
                 QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                 SLOT(lost()));
    for (const auto& [owner, body] : mConnected) body();
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

 public Q_SLOTS:
  void lost() { retryLater(); }

 public:
  RunLoop& mRunLoop;
  SystemLog& mLog;
  Address mAddress;
  std::string mAbsence;
  QDBusConnection mBus{QString()};
  QString mName;
  int mConnections = 0;
  RunLoop::TimerId mRetry = 0;
  double mWait = kFirstRetry;
  bool mToldAbsence = false;
  std::map<const void*, std::function<void()>> mConnected;
};

BusConnection::BusConnection(RunLoop& runLoop, SystemLog& log, Address address, std::string absence)
    : mPrivate(std::make_unique<Private>(runLoop, log, std::move(address), std::move(absence))) {}

BusConnection::~BusConnection() = default;

bool BusConnection::isConnected() const { return mPrivate->mBus.isConnected(); }

QDBusConnection& BusConnection::bus() { return mPrivate->mBus; }

void BusConnection::whenConnected(const void* owner, std::function<void()> body) {
  const auto& kept = mPrivate->mConnected.insert_or_assign(owner, std::move(body)).first->second;
  if (isConnected()) kept();
}

void BusConnection::forget(const void* owner) { mPrivate->mConnected.erase(owner); }

std::optional<QDBusConnection> BusConnection::connectTo(const std::string& address,
                                                        const QString& name) {
  if (!ExpendableChild::runDetached([] {})) return std::nullopt;
  return QDBusConnection::connectToBus(QString::fromStdString(address), name);
}

std::string BusConnection::sessionBusAddress() {
  const char* said = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (said != nullptr && *said != '\0') return said;
  const char* folder = std::getenv("XDG_RUNTIME_DIR");
  if (folder == nullptr || *folder != '/') return {};
  const std::string socket = std::string(folder) + "/bus";
  return access(socket.c_str(), F_OK) == 0 ? "unix:path=" + socket : std::string();
}

std::string BusConnection::systemBusAddress() {
  const char* said = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  if (said != nullptr && *said != '\0') return said;
  const char* socket = "/run/dbus/system_bus_socket";
  return access(socket, F_OK) == 0 ? std::string("unix:path=") + socket : std::string();
}

}  // namespace corvana

#include "BusConnection.moc"
