#include "platform/qt/AvahiClients.h"

#include <array>

#include <QDBusArgument>
#include <QDBusError>
#include <QDBusObjectPath>

#include "ZANCocoaFramework/ZAN_IPAddress.h"

namespace corvana::avahi {

int errorCode(const QString& name) {
  struct Known {
    const char* end;
    int code;
  };
  static constexpr std::array kKnown{Known{".FailureError", -1},
                                     Known{".BadStateError", -2},
                                     Known{".InvalidDomainNameError", -4},
                                     Known{".CollisionError", -8},
                                     Known{".InvalidRecordError", -9},
                                     Known{".InvalidServiceNameError", -10},
                                     Known{".InvalidServiceTypeError", -11},
                                     Known{".InvalidPortError", -12},
                                     Known{".TimeoutError", -15},
                                     Known{".TooManyClientsError", -16},
                                     Known{".TooManyObjectsError", -17},
                                     Known{".TooManyEntriesError", -18},
                                     Known{".AccessDeniedError", -20},
                                     Known{".NotFoundError", -30}};
  constexpr int kBusError = -22;
  for (const Known& one : kKnown)
    if (name.endsWith(QLatin1String(one.end))) return one.code;
  return name.startsWith(service()) ? -1 : kBusError;
}

bool isAbsence(const QString& name) {
  return name == QDBusError::errorString(QDBusError::ServiceUnknown) ||
         name == QStringLiteral("org.freedesktop.DBus.Error.NameHasNoOwner") ||
         name == QDBusError::errorString(QDBusError::NoReply) ||
         name == QDBusError::errorString(QDBusError::Disconnected);
}

Texts textsOf(const std::vector<std::string>& texts) {
  Texts list;
  for (const std::string& text : texts) list.append(QByteArray::fromStdString(text));
  return list;
}

std::vector<std::string> stringsOf(const QVariant& texts) {
  std::vector<std::string> list;
  for (const QByteArray& text : qdbus_cast<Texts>(texts)) list.push_back(text.toStdString());
  return list;
}

namespace {

QDBusMessage callOf(const QString& path, const QString& interface, const QString& method) {
  QDBusMessage call = QDBusMessage::createMethodCall(service(), path, interface, method);
  call.setAutoStartService(false);
  return call;
}

}  // namespace

void ask(QDBusConnection& bus, const QString& path, const QString& interface, const QString& method,
         const QList<QVariant>& arguments, QObject* context,
         std::function<void(const QDBusMessage&)> done) {
  QDBusMessage call = callOf(path, interface, method);
  call.setArguments(arguments);
  auto* const watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), context);
  QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context,
                   [done = std::move(done)](QDBusPendingCallWatcher* finished) {
                     finished->deleteLater();
                     done(finished->reply());
                   });
}

void tell(QDBusConnection& bus, const QString& path, const QString& interface,
          const QString& method) {
  bus.send(callOf(path, interface, method));
}

namespace {

constexpr std::size_t kMostEarly = 1000;

/// An address that is good on one link only needs the number of its interface.
std::string addressIn(const QList<QVariant>& answer) {
  const std::string address = answer[7].toString().toStdString();
  const auto parsed = ZAN_IPAddress::parse(address);
  const auto links = ZAN_IPAddress::parse("fe80::");
  return parsed && parsed->sharesNetwork(*links, 10)
             ? address + '%' + std::to_string(answer[0].toInt())
             : address;
}

}  // namespace

Browsing::Browsing(Daemon& daemon, const std::string& type, const std::string& domain,
                   ServiceDiscovery::BrowsingEvents events)
    : mDaemon(daemon),
      mType(QString::fromStdString(type)),
      mDomain(QString::fromStdString(domain)),
      mEvents(std::move(events)) {
  mDaemon.add(*this);
}

Browsing::~Browsing() {
  mDaemon.remove(*this);
  leaveBrowser();
}

void Browsing::ask(const QString& path, const QString& interface, const QString& method,
                   const QList<QVariant>& arguments,
                   std::function<void(const QDBusMessage&)> done) {
  QDBusConnection* const bus = mDaemon.bus();
  if (bus == nullptr) return;
  avahi::ask(*bus, path, interface, method, arguments, mDaemon.context(),
             [attempt = std::weak_ptr<int>(mAttempt), number = *mAttempt,
              done = std::move(done)](const QDBusMessage& reply) {
               const auto current = attempt.lock();
               if (current && *current == number) done(reply);
             });
}

void Browsing::daemonIsThere() {
  daemonIsGone();
  ask(QStringLiteral("/"), server(), QStringLiteral("ServiceBrowserNew"),
      {kAnyInterface, kAnyProtocol, mType, mDomain, 0U}, [this](const QDBusMessage& reply) {
        if (reply.type() != QDBusMessage::ReplyMessage) {
          if (isAbsence(reply.errorName())) mDaemon.tellAbsence();
          if (mEvents.failed) mEvents.failed(reply.errorMessage().toStdString());
          return;
        }
        mBrowser = reply.arguments().value(0).value<QDBusObjectPath>().path();
        for (const QDBusMessage& message : std::exchange(mEarly, {})) objectSpeaks(message);
      });
}

void Browsing::daemonIsGone() {
  leaveBrowser();
  ++*mAttempt;
  mEarly.clear();
  mQuestions = 0;
  mToAsk.clear();
  mAllForNow = false;
  for (const auto& [name, seen] : std::exchange(mSeen, {}))
    if (seen.found && mEvents.lost) mEvents.lost(name);
}

void Browsing::objectSpeaks(const QDBusMessage& message) {
  if (message.interface() != serviceBrowser()) return;
  if (mBrowser.isEmpty()) {
    if (mEarly.size() < kMostEarly) mEarly.push_back(message);
  } else if (message.path() == mBrowser) {
    hear(message);
  }
}

void Browsing::hear(const QDBusMessage& message) {
  const QList<QVariant> arguments = message.arguments();
  const QString signal = message.member();
  if (signal == QLatin1String("ItemNew") && arguments.size() == 6) {
    itemNew(arguments);
  } else if (signal == QLatin1String("ItemRemove") && arguments.size() == 6) {
    itemRemoved(arguments[2].toString().toStdString());
  } else if (signal == QLatin1String("AllForNow")) {
    mAllForNow = true;
    settleWhenAnswered();
  } else if (signal == QLatin1String("Failure") && mEvents.failed) {
    mEvents.failed(arguments.value(0).toString().toStdString());
  }
}

void Browsing::itemNew(const QList<QVariant>& item) {
  const std::string name = item[2].toString().toStdString();
  if (!mSeen.contains(name) && mSeen.size() >= kMostServices) {
    if (!std::exchange(mFull, true) && mEvents.full) mEvents.full(kMostServices);
    return;
  }
  Seen& seen = mSeen[name];
  ++seen.places;
  ++seen.questions;
  mToAsk.push_back(item);
  askNext();
}

void Browsing::askNext() {
  while (mQuestions < kMostQuestions && !mToAsk.empty()) {
    const QList<QVariant> item = std::move(mToAsk.front());
    mToAsk.pop_front();
    ++mQuestions;
    ask(QStringLiteral("/"), server(), QStringLiteral("ResolveService"),
        {item[0].toInt(), item[1].toInt(), item[2].toString(), item[3].toString(),
         item[4].toString(), item[1].toInt(), 0U},
        [this, name = item[2].toString().toStdString()](const QDBusMessage& reply) {
          resolved(name, reply);
        });
  }
}

void Browsing::resolved(const std::string& name, const QDBusMessage& reply) {
  --mQuestions;
  if (const auto seen = mSeen.find(name); seen != mSeen.end()) {
    --seen->second.questions;
    const QList<QVariant> answer = reply.arguments();
    if (reply.type() == QDBusMessage::ReplyMessage && answer.size() == 11) {
      const bool isBetter = !seen->second.hasIPv4 || answer[6].toInt() == kIPv4;
      seen->second.found = true;
      seen->second.hasIPv4 = seen->second.hasIPv4 || answer[6].toInt() == kIPv4;
      if (mEvents.found && isBetter) {
        mEvents.found({name, answer[5].toString().toStdString(), addressIn(answer),
                       static_cast<std::uint16_t>(answer[8].toUInt()), stringsOf(answer[9])});
      }
    } else if (!seen->second.found && seen->second.questions == 0 && mEvents.notResolved) {
      mEvents.notResolved(name, errorCode(reply.errorName()), reply.errorMessage().toStdString());
    }
  }
  askNext();
  settleWhenAnswered();
}

void Browsing::itemRemoved(const std::string& name) {
  const auto seen = mSeen.find(name);
  if (seen == mSeen.end() || --seen->second.places > 0) return;
  const bool wasFound = seen->second.found;
  mSeen.erase(seen);
  if (wasFound && mEvents.lost) mEvents.lost(name);
}

void Browsing::settleWhenAnswered() {
  if (!mAllForNow || mQuestions > 0 || std::exchange(mSettled, true)) return;
  if (mEvents.settled) mEvents.settled();
}

void Browsing::leaveBrowser() {
  if (mBrowser.isEmpty()) return;
  if (QDBusConnection* const bus = mDaemon.bus(); bus != nullptr)
    tell(*bus, mBrowser, serviceBrowser(), QStringLiteral("Free"));
  mBrowser.clear();
}

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
