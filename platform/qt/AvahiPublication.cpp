#include "platform/qt/AvahiPublication.h"

#include <QDBusObjectPath>
#include <utility>

#include "platform/qt/AvahiBus.h"

namespace corvana::avahi {

namespace {

/// New texts have to reach the others before the service goes; the daemon spreads them over a
/// quarter of a second at most.
constexpr double kFarewell = 0.24;

}  // namespace

Publication::Publication(Daemon& daemon, const ServiceDescription& service,
                         ServiceDiscovery::PublicationEvents events)
    : mDaemon(daemon), mService(service), mEvents(std::move(events)) {
  mDaemon.add(*this);
}

Publication::~Publication() {
  mDaemon.remove(*this);
  if (!mTextsChanged || mGroup.isEmpty()) {
    leaveGroup();
    return;
  }
  QDBusConnection* const bus = mDaemon.bus();
  if (bus == nullptr) return;
  mDaemon.runLoop().performAfter(kFarewell, [connection = *bus, group = mGroup]() mutable {
    tell(connection, group, entryGroup(), QStringLiteral("Free"));
  });
}

void Publication::ask(const QString& path, const QString& interface, const QString& method,
                      const QList<QVariant>& arguments,
                      std::function<void(const QDBusMessage&)> done) {
  QDBusConnection* const bus = mDaemon.bus();
  if (bus == nullptr) return;
  avahi::ask(*bus, path, interface, method, arguments, mDaemon.context(),
             [this, attempt = std::weak_ptr<int>(mAttempt), number = *mAttempt,
              done = std::move(done)](const QDBusMessage& reply) {
               const auto current = attempt.lock();
               if (!current || *current != number) return;
               if (reply.type() != QDBusMessage::ReplyMessage && isAbsence(reply.errorName())) {
                 mDaemon.tellAbsence();
                 return;
               }
               done(reply);
             });
}

void Publication::daemonIsThere() {
  leaveGroup();
  ++*mAttempt;
  ask(QStringLiteral("/"), server(), QStringLiteral("GetState"), {},
      [this](const QDBusMessage& reply) {
        // One that does not run yet says so when it does.
        if (reply.type() != QDBusMessage::ReplyMessage) {
          failed(reply.errorName(), reply.errorMessage());
        } else if (reply.arguments().value(0).toInt() == kServerRuns) {
          makeGroup();
        }
      });
}

void Publication::daemonIsGone() {
  mGroup.clear();
  ++*mAttempt;
}

void Publication::makeGroup() {
  ask(QStringLiteral("/"), server(), QStringLiteral("EntryGroupNew"), {},
      [this](const QDBusMessage& reply) {
        if (reply.type() != QDBusMessage::ReplyMessage) {
          failed(reply.errorName(), reply.errorMessage());
          return;
        }
        mGroup = reply.arguments().value(0).value<QDBusObjectPath>().path();
        addService();
      });
}

void Publication::addService() {
  ask(mGroup, entryGroup(), QStringLiteral("AddService"),
      {kAnyInterface, kAnyProtocol, 0U, QString::fromStdString(mService.name),
       QString::fromStdString(mService.type), QString::fromStdString(mService.domain), QString(),
       QVariant::fromValue(static_cast<ushort>(mService.port)),
       QVariant::fromValue(textsOf(mService.txt))},
      [this](const QDBusMessage& reply) {
        if (reply.type() == QDBusMessage::ReplyMessage) {
          commit();
        } else if (isCollision(reply.errorName())) {
          nameIsTaken();
        } else {
          failed(reply.errorName(), reply.errorMessage());
        }
      });
}

void Publication::commit() {
  ask(mGroup, entryGroup(), QStringLiteral("Commit"), {}, [this](const QDBusMessage& reply) {
    if (reply.type() != QDBusMessage::ReplyMessage) failed(reply.errorName(), reply.errorMessage());
  });
}

void Publication::objectSpeaks(const QDBusMessage& message) {
  const QList<QVariant> arguments = message.arguments();
  if (mGroup.isEmpty() || message.path() != mGroup || message.interface() != entryGroup() ||
      arguments.size() != 2)
    return;
  switch (arguments[0].toInt()) {
    case kGroupEstablished:
      if (mEvents.published) mEvents.published(mService.name);
      break;
    case kGroupCollision:
      nameIsTaken();
      break;
    case kGroupFailure:
      failed(arguments[1].toString(), arguments[1].toString());
      break;
    default:
      break;
  }
}

void Publication::nameIsTaken() {
  leaveGroup();
  ++*mAttempt;
  std::string other = mEvents.renamed ? mEvents.renamed(mService.name) : std::string();
  if (other.empty()) {
    failed(QStringLiteral("org.freedesktop.Avahi.CollisionError"),
           QStringLiteral("the name is taken"));
    return;
  }
  mService.name = std::move(other);
  makeGroup();
}

void Publication::leaveGroup() {
  if (mGroup.isEmpty()) return;
  if (QDBusConnection* const bus = mDaemon.bus(); bus != nullptr)
    tell(*bus, mGroup, entryGroup(), QStringLiteral("Free"));
  mGroup.clear();
}

void Publication::failed(const QString& name, const QString& reason) {
  if (mEvents.failed) mEvents.failed(errorCode(name), reason.toStdString());
}

void Publication::setTxt(const std::vector<std::string>& txt) {
  mService.txt = txt;
  if (mGroup.isEmpty()) return;
  mTextsChanged = true;
  ask(mGroup, entryGroup(), QStringLiteral("UpdateServiceTxt"),
      {kAnyInterface, kAnyProtocol, 0U, QString::fromStdString(mService.name),
       QString::fromStdString(mService.type), QString::fromStdString(mService.domain),
       QVariant::fromValue(textsOf(txt))},
      [](const QDBusMessage&) {});
}

}  // namespace corvana::avahi
