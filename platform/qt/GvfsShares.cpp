#include "platform/qt/GvfsShares.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QObject>
#include <QUrl>
#include <QVariantMap>
#include <algorithm>
#include <utility>

#include "platform/linux/LinuxVolumes.h"
#include "platform/qt/QtRunLoop.h"

namespace corvana {

namespace {

constexpr int kAnswerWithin = 5000;  // milliseconds
constexpr int kAnswerOnceWithin = 2000;

QString service() { return QStringLiteral("org.gtk.vfs.Daemon"); }
QString path() { return QStringLiteral("/org/gtk/vfs/mounttracker"); }
QString tracker() { return QStringLiteral("org.gtk.vfs.MountTracker"); }

QDBusMessage question() {
  QDBusMessage call =
      QDBusMessage::createMethodCall(service(), path(), tracker(), QStringLiteral("ListMounts"));
  call.setAutoStartService(false);
  return call;
}

/// GVfs ends its texts as C does.
QString textOf(const QByteArray& bytes) { return QString::fromUtf8(bytes.constData()); }

/// What a mount is told by: a kind, and what belongs to it.
struct MountKey {
  QString prefix;
  QVariantMap items;

  QString item(const char* name) const {
    return textOf(items.value(QString::fromLatin1(name)).toByteArray());
  }

  /// The address of a share; empty for what is none, such as a camera.
  QUrl address() const {
    const QString kind = item("type");
    QUrl url;
    if (kind == QLatin1String("smb-share")) {
      url.setScheme(QStringLiteral("smb"));
      url.setPath(QLatin1Char('/') + item("share"));
    } else if (kind == QLatin1String("afp-volume")) {
      url.setScheme(QStringLiteral("afp"));
      url.setPath(QLatin1Char('/') + item("volume"));
    } else if (kind == QLatin1String("dav") || kind == QLatin1String("dav+sd")) {
      url.setScheme(item("ssl") == QLatin1String("true") ? QStringLiteral("davs")
                                                         : QStringLiteral("dav"));
      url.setPath(prefix);
    } else if (kind == QLatin1String("nfs")) {
      url.setScheme(kind);
      url.setPath(prefix);
    } else if (QStringList{"sftp", "ftp", "ftps", "ftpis", "google-drive", "onedrive"}.contains(
                   kind)) {
      url.setScheme(kind);
    } else {
      return {};
    }
    const QString server = item("server");
    url.setHost(server.isEmpty() ? item("host") : server);
    if (const QString user = item("user"); !user.isEmpty()) url.setUserName(user);
    if (const int port = item("port").toInt(); port > 0) url.setPort(port);
    return url;
  }
};

std::vector<Mount> sharesIn(const QDBusMessage& answer) {
  std::vector<Mount> shares;
  if (answer.type() != QDBusMessage::ReplyMessage ||
      answer.signature() != QLatin1String("a(sossssssbay(aya{sv})ay)"))
    return shares;
  const auto list = answer.arguments().at(0).value<QDBusArgument>();
  list.beginArray();
  while (!list.atEnd()) {
    QString owner;
    QString name;
    QString ignored;
    QDBusObjectPath object;
    bool isShown = false;
    QByteArray folder;
    QByteArray prefix;
    QByteArray location;
    MountKey key;
    list.beginStructure();
    list >> owner >> object >> name >> ignored >> ignored >> ignored >> ignored >> ignored >>
        isShown >> folder;
    list.beginStructure();
    list >> prefix >> key.items;
    list.endStructure();
    list >> location;
    list.endStructure();
    key.prefix = textOf(prefix);
    const QUrl address = key.address();
    const QString place = textOf(folder);
    // Without its folder file system GVfs shows nothing to programs that do not know it.
    if (!isShown || address.isEmpty() || !place.startsWith(QLatin1Char('/'))) continue;
    const QString share = key.item("share");
    shares.push_back({.target = place.toStdString(),
                      .source = address.toString(QUrl::FullyEncoded).toStdString(),
                      .fileSystem = address.scheme().toStdString(),
                      // The name on the screen is in the user's language.
                      .name = (share.isEmpty() ? name : share).toStdString(),
                      .isVolume = true,
                      .isServer = true,
                      .isForeign = true});
  }
  list.endArray();
  return shares;
}

}  // namespace

class GvfsShares::Private final : public QObject {
  Q_OBJECT

 public:
  Private(BusConnection& connection, Changed changed)
      : mConnection(connection), mChanged(std::move(changed)) {
    mConnection.whenConnected(this, [this] { meet(); });
  }

  ~Private() override { mConnection.forget(this); }

  void meet() {
    QDBusConnection& bus = mConnection.bus();
    for (const char* signal : {"Mounted", "Unmounted"}) {
      bus.connect(service(), path(), tracker(), QString::fromLatin1(signal), this,
                  SLOT(changed(QDBusMessage)));
    }
    bus.connect(BusNames::bus(), BusNames::busPath(), BusNames::bus(),
                QStringLiteral("NameOwnerChanged"), {service()}, QStringLiteral("sss"), this,
                SLOT(changed(QDBusMessage)));
    ask();
  }

  void ask() {
    if (mIsAsking) {
      mAsksAgain = true;
      return;
    }
    mIsAsking = true;
    auto* watcher =
        new QDBusPendingCallWatcher(mConnection.bus().asyncCall(question(), kAnswerWithin), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
      watcher->deleteLater();
      mIsAsking = false;
      mChanged(sharesIn(watcher->reply()));
      if (std::exchange(mAsksAgain, false)) ask();
    });
  }

 public Q_SLOTS:
  void changed(const QDBusMessage&) { ask(); }

 private:
  BusConnection& mConnection;
  Changed mChanged;
  bool mIsAsking = false;
  bool mAsksAgain = false;
};

GvfsShares::GvfsShares(BusConnection& connection, Changed changed)
    : mPrivate(std::make_unique<Private>(connection, std::move(changed))) {}

GvfsShares::~GvfsShares() = default;

std::vector<Mount> GvfsShares::now() {
  // Where no folder shows any, the bus need not be asked.
  const auto mounts = MountTable::read({});
  const std::string address = BusConnection::sessionBusAddress();
  if (address.empty() ||
      std::ranges::find(mounts, "fuse.gvfsd-fuse", &Mount::fileSystem) == mounts.end())
    return {};
  const QtApplication application;
  std::vector<Mount> shares;
  const QString name =
      QStringLiteral("corvana9-shares-%1").arg(reinterpret_cast<quintptr>(&shares));
  {
    const auto bus = BusConnection::connectTo(address, name);
    if (!bus) return {};
    if (bus->isConnected())
      shares = sharesIn(bus->call(question(), QDBus::Block, kAnswerOnceWithin));
  }
  QDBusConnection::disconnectFromBus(name);
  return shares;
}

std::unique_ptr<Volumes> GvfsShares::volumesNow(const Machine& machine, double patience,
                                                bool areAllWanted) {
  auto volumes = std::make_unique<LinuxVolumes>(machine.loginName(), machine.homeFolder());
  volumes->setPatience(patience);
  volumes->setShares(now());
  if (areAllWanted) volumes->askAll();
  return volumes;
}

}  // namespace corvana

#include "GvfsShares.moc"
