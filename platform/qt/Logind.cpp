#include "platform/qt/Logind.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <QVariant>
#include <utility>

namespace corvana {

namespace {

constexpr int kAnswerWithin = 5000;  // milliseconds
/// In seconds; the system's own setting is 5, too short for a copy of files.
constexpr qulonglong kShortestDelay = 60;

QString service() { return QStringLiteral("org.freedesktop.login1"); }
QString path() { return QStringLiteral("/org/freedesktop/login1"); }
QString manager() { return QStringLiteral("org.freedesktop.login1.Manager"); }

QDBusMessage callOf(const char* method) {
  return QDBusMessage::createMethodCall(service(), path(), manager(), QString::fromLatin1(method));
}

QDBusMessage propertyCall(const char* name) {
  QDBusMessage call = QDBusMessage::createMethodCall(
      service(), path(), QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
  call << manager() << QString::fromLatin1(name);
  return call;
}

}  // namespace

class Logind::Private final : public QObject {
  Q_OBJECT

 public:
  Private(RunLoop& runLoop, SystemLog& log, BusConnection::Address address)
      : mLog(log),
        mConnection(runLoop, log, std::move(address),
                    "No system bus: sleep and shut-down of the machine are not noticed until there "
                    "is one") {
    mConnection.whenConnected(this, [this] { meet(); });
  }

  ~Private() override { mConnection.forget(this); }

  /// The manager that is there now, after whatever happened.
  void meet() {
    QDBusConnection& bus = mConnection.bus();
    bus.connect(service(), path(), manager(), QStringLiteral("PrepareForSleep"), this,
                SLOT(sleeps(bool)));
    bus.connect(service(), path(), manager(), QStringLiteral("PrepareForShutdown"), this,
                SLOT(shutsDown(bool)));
    bus.connect(BusNames::bus(), BusNames::busPath(), BusNames::bus(),
                QStringLiteral("NameOwnerChanged"), {service()}, QStringLiteral("sss"), this,
                SLOT(owned(QString, QString, QString)));
    askWhetherShuttingDown();
    if (mWantsHold) hold();
  }

  void askWhetherShuttingDown() {
    whenAnswered(propertyCall("PreparingForShutdown"), [this](const QDBusPendingCall& answer) {
      const QDBusPendingReply<QVariant> reply = answer;
      if (reply.isError()) {
        tellAbsence(reply.error().message());
      } else {
        mToldAbsence = false;
        if (reply.value().toBool() != mShuttingDown) shutsDown(reply.value().toBool());
      }
    });
  }

  void hold() {
    QDBusMessage call = callOf("Inhibit");
    call << QStringLiteral("shutdown") << mWho << mWhy << QStringLiteral("delay");
    whenAnswered(call, [this](const QDBusPendingCall& answer) {
      const QDBusPendingReply<QDBusUnixFileDescriptor> reply = answer;
      if (reply.error().type() == QDBusError::ServiceUnknown) {
        tellAbsence(reply.error().message());
      } else if (reply.isError()) {
        mLog.write("A shut-down cannot be held up (" + reply.error().message().toStdString() +
                   "): it does not wait for this program");
      } else if (mWantsHold) {
        mHold = reply.value();
        askHowLongItWaits();
      }
    });
  }

  void askHowLongItWaits() {
    whenAnswered(propertyCall("InhibitDelayMaxUSec"), [this](const QDBusPendingCall& answer) {
      const QDBusPendingReply<QVariant> reply = answer;
      if (reply.isError()) return;
      const qulonglong seconds = reply.value().toULongLong() / 1'000'000;
      if (seconds >= kShortestDelay || std::exchange(mToldDelay, true)) return;
      mLog.write("A shut-down waits for " + std::to_string(seconds) +
                 " s only; for longer set InhibitDelayMaxSec in /etc/systemd/logind.conf");
    });
  }

  void whenAnswered(const QDBusMessage& call,
                    std::function<void(const QDBusPendingCall&)> answered) {
    auto* watcher =
        new QDBusPendingCallWatcher(mConnection.bus().asyncCall(call, kAnswerWithin), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [watcher, answered = std::move(answered)] {
              answered(*watcher);
              watcher->deleteLater();
            });
  }

  void tellAbsence(const QString& why) {
    if (!std::exchange(mToldAbsence, true)) {
      mLog.write("The login manager does not answer (" + why.toStdString() +
                 "): sleep and shut-down of the machine are not noticed");
    }
  }

 public Q_SLOTS:
  void sleeps(bool begins) {
    if (mHandlers.prepareForSleep) mHandlers.prepareForSleep(begins);
  }
  void shutsDown(bool begins) {
    mShuttingDown = begins;
    if (mHandlers.prepareForShutdown) mHandlers.prepareForShutdown(begins);
  }
  void owned(const QString&, const QString&, const QString& now) {
    // The one that comes back knows nothing of what the other had promised.
    if (now.isEmpty()) return;
    askWhetherShuttingDown();
    if (mWantsHold) hold();
  }

 public:
  SystemLog& mLog;
  BusConnection mConnection;
  Handlers mHandlers;
  bool mShuttingDown = false;
  bool mToldAbsence = false;
  bool mToldDelay = false;
  bool mWantsHold = false;
  QString mWho;
  QString mWhy;
  QDBusUnixFileDescriptor mHold;
};

Logind::Logind(RunLoop& runLoop, SystemLog& log, BusConnection::Address address)
    : mPrivate(std::make_unique<Private>(runLoop, log, std::move(address))) {}

Logind::~Logind() = default;

void Logind::setHandlers(Handlers handlers) { mPrivate->mHandlers = std::move(handlers); }

bool Logind::isShuttingDown() const { return mPrivate->mShuttingDown; }

Outcome Logind::powerOff() {
  const std::string advice = "; switch it off yourself";
  if (!mPrivate->mConnection.isConnected())
    return Error{ErrorKind::unavailable, "power off: there is no system bus" + advice};
  QDBusMessage call = callOf("PowerOff");
  call << false;
  const QDBusMessage answer = mPrivate->mConnection.bus().call(call, QDBus::Block, kAnswerWithin);
  if (answer.type() == QDBusMessage::ReplyMessage) return {};
  return Error{ErrorKind::refused, "power off: " + answer.errorMessage().toStdString() + advice};
}

void Logind::holdUpShutDown(const std::string& who, const std::string& why) {
  mPrivate->mWho = QString::fromStdString(who);
  mPrivate->mWhy = QString::fromStdString(why);
  mPrivate->mWantsHold = true;
  if (mPrivate->mConnection.isConnected()) mPrivate->hold();
}

void Logind::letShutDown() {
  mPrivate->mWantsHold = false;
  mPrivate->mHold = QDBusUnixFileDescriptor();
}

bool Logind::isHoldingUpShutDown() const { return mPrivate->mHold.isValid(); }

LogindPower::LogindPower(Logind& logind, WakeAlarm alarm)
    : mLogind(logind), mAlarm(std::move(alarm)) {
  mLogind.setHandlers({[this](bool begins) {
                         const auto& told = begins ? mObserver.willSleep : mObserver.didWake;
                         if (told) told();
                       },
                       [this](bool begins) {
                         if (!begins && mObserver.shutDownIsOff) mObserver.shutDownIsOff();
                       }});
}

LogindPower::~LogindPower() { mLogind.setHandlers({}); }

Outcome LogindPower::scheduleWake(std::int64_t time, const std::string&) {
  return mAlarm.set(time);
}

void LogindPower::cancelWake(std::int64_t time, const std::string&) { mAlarm.cancel(time); }

Outcome LogindPower::shutDown() {
  // Whoever has begun it decides whether it is a restart.
  return mLogind.isShuttingDown() ? Outcome() : mLogind.powerOff();
}

}  // namespace corvana

#include "Logind.moc"
