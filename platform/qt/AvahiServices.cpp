#include "platform/qt/AvahiServices.h"

#include <QDBusMetaType>
#include <algorithm>
#include <set>

#include "platform/qt/AvahiClients.h"

namespace corvana {

/// The daemon as such: whether it is there, and who has to hear of it.
class AvahiServices::Private final : public QObject, public avahi::Daemon {
  Q_OBJECT

 public:
  Private(RunLoop& runLoop, SystemLog& log, BusConnection::Address address)
      : mRunLoop(runLoop), mLog(log), mAddress(std::move(address)) {
    qDBusRegisterMetaType<avahi::Texts>();
  }
  ~Private() override {
    if (mConnection) mConnection->forget(this);
  }

  void connectOnce() {
    if (mConnection) return;
    mConnection.emplace(mRunLoop, mLog, mAddress,
                        "No system bus: other machines are not found, and do not find this one, "
                        "until there is one");
    mConnection->whenConnected(this, [this] { connected(); });
  }

  void connected() {
    QDBusConnection& bus = mConnection->bus();
    bus.connect(BusNames::bus(), BusNames::busPath(), BusNames::bus(),
                QStringLiteral("NameOwnerChanged"), {avahi::service()}, QStringLiteral("sss"), this,
                SLOT(ownerChanged(QDBusMessage)));
    bus.connect(avahi::service(), QStringLiteral("/"), avahi::server(),
                QStringLiteral("StateChanged"), this, SLOT(serverStateChanged(QDBusMessage)));
    // An object may speak before its path is known here.
    bus.connect(avahi::service(), {}, avahi::entryGroup(), QStringLiteral("StateChanged"), this,
                SLOT(objectSpeaks(QDBusMessage)));
    for (const char* signal : {"ItemNew", "ItemRemove", "AllForNow", "Failure"}) {
      bus.connect(avahi::service(), {}, avahi::serviceBrowser(), QString::fromLatin1(signal), this,
                  SLOT(objectSpeaks(QDBusMessage)));
    }
    daemonIsThere();
  }

  void daemonIsThere() {
    for (avahi::Client* client : std::vector(mClients.begin(), mClients.end()))
      if (mClients.contains(client)) client->daemonIsThere();
  }

  QDBusConnection* bus() override {
    return mConnection && mConnection->isConnected() ? &mConnection->bus() : nullptr;
  }
  RunLoop& runLoop() override { return mRunLoop; }
  QObject* context() override { return this; }
  void add(avahi::Client& client) override {
    mClients.insert(&client);
    connectOnce();
    if (bus() == nullptr) return;
    mRunLoop.performOnMain([this, alive = std::weak_ptr<char>(mAlive), &client] {
      if (!alive.expired() && mClients.contains(&client)) client.daemonIsThere();
    });
  }
  bool isAway() const { return mConnection && (mToldAbsence || !mConnection->isConnected()); }
  void remove(avahi::Client& client) override { mClients.erase(&client); }
  void tellAbsence() override {
    if (std::exchange(mToldAbsence, true)) return;
    mLog.write(
        "Avahi does not run: other machines are not found, and do not find this one, until "
        "it does");
  }

 public Q_SLOTS:
  void ownerChanged(const QDBusMessage& message) {
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() != 3) return;
    if (arguments[2].toString().isEmpty()) {
      for (avahi::Client* client : mClients) client->daemonIsGone();
      return;
    }
    mToldAbsence = false;
    daemonIsThere();
  }
  /// It has chosen another host name, say; what is published names the old one.
  void serverStateChanged(const QDBusMessage& message) {
    if (!message.arguments().isEmpty() && message.arguments()[0].toInt() == avahi::kServerRuns)
      daemonIsThere();
  }
  void objectSpeaks(const QDBusMessage& message) {
    for (avahi::Client* client : std::vector(mClients.begin(), mClients.end()))
      if (mClients.contains(client)) client->objectSpeaks(message);
  }

 private:
  RunLoop& mRunLoop;
  SystemLog& mLog;
  BusConnection::Address mAddress;
  std::optional<BusConnection> mConnection;
  std::set<avahi::Client*> mClients;
  bool mToldAbsence = false;
  std::shared_ptr<char> mAlive = std::make_shared<char>();
};

AvahiServices::AvahiServices(RunLoop& runLoop, SystemLog& log, BusConnection::Address address)
    : mPrivate(std::make_unique<Private>(runLoop, log, std::move(address))) {}

AvahiServices::~AvahiServices() = default;

bool AvahiServices::isAway() const { return mPrivate->isAway(); }

std::unique_ptr<ServicePublication> AvahiServices::publish(const ServiceDescription& service,
                                                           PublicationEvents events) {
  return std::make_unique<avahi::Publication>(*mPrivate, service, std::move(events));
}

std::unique_ptr<ServiceBrowsing> AvahiServices::browse(const std::string& type,
                                                       const std::string& domain,
                                                       BrowsingEvents events) {
  return std::make_unique<avahi::Browsing>(*mPrivate, type, domain, std::move(events));
}

}  // namespace corvana

#include "AvahiServices.moc"
