#include "tools/shutdown/SkipOffer.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <utility>

namespace corvana {

namespace {

QString service() { return QStringLiteral("org.freedesktop.Notifications"); }
QString path() { return QStringLiteral("/org/freedesktop/Notifications"); }
QString button() { return QStringLiteral("skip"); }
constexpr uchar kCritical = 2;

QString qt(const std::string& text) { return QString::fromStdString(text); }

}  // namespace

class SkipOffer::Private final : public QObject {
  Q_OBJECT

 public:
  Private(BusConnection& connection, Texts texts, std::function<void()> chosen)
      : mConnection(connection), mTexts(std::move(texts)), mChosen(std::move(chosen)) {
    mConnection.whenConnected(this, [this] {
      mConnection.bus().connect(service(), path(), service(), QStringLiteral("ActionInvoked"), this,
                                SLOT(invoked(uint, QString)));
    });
  }
  ~Private() override { mConnection.forget(this); }

  void open() {
    QDBusMessage call =
        QDBusMessage::createMethodCall(service(), path(), service(), QStringLiteral("Notify"));
    call << QStringLiteral("Corvana 9") << mNumber << QString() << qt(mTexts.title)
         << qt(mTexts.text) << QStringList{button(), qt(mTexts.button)}
         << QVariantMap{{QStringLiteral("urgency"), QVariant::fromValue(kCritical)}} << 0;
    auto* watcher = new QDBusPendingCallWatcher(mConnection.bus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
      const QDBusPendingReply<uint> reply = *watcher;
      if (!reply.isError()) mNumber = reply.value();
      watcher->deleteLater();
    });
  }

  void close() {
    if (mNumber == 0) return;
    QDBusMessage call = QDBusMessage::createMethodCall(service(), path(), service(),
                                                       QStringLiteral("CloseNotification"));
    call << std::exchange(mNumber, 0U);
    mConnection.bus().send(call);
  }

 public Q_SLOTS:
  void invoked(uint number, const QString& key) {
    if (number == mNumber && mNumber != 0 && key == button()) mChosen();
  }

 private:
  BusConnection& mConnection;
  Texts mTexts;
  std::function<void()> mChosen;
  uint mNumber = 0;
};

SkipOffer::SkipOffer(BusConnection& connection, Texts texts, std::function<void()> chosen)
    : mPrivate(std::make_unique<Private>(connection, std::move(texts), std::move(chosen))) {}

SkipOffer::~SkipOffer() = default;

void SkipOffer::open() { mPrivate->open(); }

void SkipOffer::close() { mPrivate->close(); }

}  // namespace corvana

#include "SkipOffer.moc"
