#pragma once

#include <deque>
#include <map>

#include <QByteArray>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QList>
#include <QObject>
#include <QString>

#include "platform/Network.h"
#include "platform/RunLoop.h"

class QDBusConnection;
class QDBusMessage;
class QObject;

namespace corvana::avahi {

using Texts = QList<QByteArray>;  ///< aay

inline QString service() { return QStringLiteral("org.freedesktop.Avahi"); }
inline QString server() { return QStringLiteral("org.freedesktop.Avahi.Server"); }
inline QString entryGroup() { return QStringLiteral("org.freedesktop.Avahi.EntryGroup"); }
inline QString serviceBrowser() { return QStringLiteral("org.freedesktop.Avahi.ServiceBrowser"); }

inline constexpr int kAnyInterface = -1;
inline constexpr int kAnyProtocol = -1;
inline constexpr int kIPv4 = 0;
inline constexpr int kServerRuns = 2;
inline constexpr int kGroupEstablished = 2;
inline constexpr int kGroupCollision = 3;
inline constexpr int kGroupFailure = 4;

/// The daemon's number for an error that it names on the bus.
int errorCode(const QString& name);
inline bool isCollision(const QString& name) { return name.endsWith(".CollisionError"); }
/// Whether the error says that there is no daemon.
bool isAbsence(const QString& name);

Texts textsOf(const std::vector<std::string>& texts);
std::vector<std::string> stringsOf(const QVariant& texts);

/// Asks the daemon without starting it; `done` gets the answer or the error from the main loop,
/// unless `context` is gone.
void ask(QDBusConnection& bus, const QString& path, const QString& interface, const QString& method,
         const QList<QVariant>& arguments, QObject* context,
         std::function<void(const QDBusMessage&)> done);
/// Tells the daemon something and waits for nothing.
void tell(QDBusConnection& bus, const QString& path, const QString& interface,
          const QString& method);

/// Something that lives in the daemon for us, and has to be made anew when the daemon comes back.
class Client {
 public:
  virtual ~Client() = default;
  /// The daemon has come, or works under another host name now: begin, or begin anew.
  virtual void daemonIsThere() = 0;
  /// It is gone, and all that was in it.
  virtual void daemonIsGone() = 0;
  /// A signal of any object of the daemon's.
  virtual void objectSpeaks(const QDBusMessage& message) = 0;
};

/// The daemon, as its clients know it.
class Daemon {
 public:
  /// Null while there is no bus.
  virtual QDBusConnection* bus() = 0;
  virtual RunLoop& runLoop() = 0;
  virtual QObject* context() = 0;  ///< lives as long as this
  /// `daemonIsThere` is called from the loop soon when there is a bus.
  virtual void add(Client& client) = 0;
  virtual void remove(Client& client) = 0;
  virtual void tellAbsence() = 0;

 protected:
  ~Daemon() = default;
};

/// A search by the daemon: one browser, and a question for the place of each service it finds.
class Browsing final : public ServiceBrowsing, private Client {
 public:
  /// More names than that are not looked at: anybody on the network can make them up.
  static constexpr std::size_t kMostServices = 2000;
  /// Questions at a time: the bus refuses those that are more than a hundred or so.
  static constexpr int kMostQuestions = 50;

  Browsing(Daemon& daemon, const std::string& type, const std::string& domain,
           ServiceDiscovery::BrowsingEvents events);
  ~Browsing() override;

 private:
  struct Seen {
    int places = 0;     ///< interfaces and protocols that it is seen on
    int questions = 0;  ///< of its place, not answered yet
    bool found = false;
    bool hasIPv4 = false;  ///< found at an address of IPv4
  };

  void daemonIsThere() override;
  void daemonIsGone() override;
  void objectSpeaks(const QDBusMessage& message) override;

  void ask(const QString& path, const QString& interface, const QString& method,
           const QList<QVariant>& arguments, std::function<void(const QDBusMessage&)> done);
  void hear(const QDBusMessage& message);
  void itemNew(const QList<QVariant>& item);
  void askNext();
  void itemRemoved(const std::string& name);
  void resolved(const std::string& name, const QDBusMessage& reply);
  void settleWhenAnswered();
  void leaveBrowser();

  Daemon& mDaemon;
  QString mType;
  QString mDomain;
  ServiceDiscovery::BrowsingEvents mEvents;
  QString mBrowser;                  ///< empty: none yet
  std::vector<QDBusMessage> mEarly;  ///< of browsers, before this one's path is known
  std::map<std::string, Seen> mSeen;
  std::deque<QList<QVariant>> mToAsk;  ///< items whose place is not asked for yet
  int mQuestions = 0;
  bool mAllForNow = false;
  bool mSettled = false;
  bool mFull = false;
  std::shared_ptr<int> mAttempt = std::make_shared<int>(0);
};

/// A service in the daemon: an entry group of its own.
class Publication final : public ServicePublication, private Client {
 public:
  Publication(Daemon& daemon, const ServiceDescription& service,
              ServiceDiscovery::PublicationEvents events);
  ~Publication() override;

  void setTxt(const std::vector<std::string>& txt) override;

 private:
  void daemonIsThere() override;
  void daemonIsGone() override;
  void objectSpeaks(const QDBusMessage& message) override;

  /// Asks, and hears the answer only when nothing was begun anew meanwhile.
  void ask(const QString& path, const QString& interface, const QString& method,
           const QList<QVariant>& arguments, std::function<void(const QDBusMessage&)> done);
  void makeGroup();
  void addService();
  void commit();
  void nameIsTaken();
  void leaveGroup();
  void failed(const QString& name, const QString& reason);

  Daemon& mDaemon;
  ServiceDescription mService;
  ServiceDiscovery::PublicationEvents mEvents;
  QString mGroup;  ///< empty: none yet
  bool mTextsChanged = false;
  std::shared_ptr<int> mAttempt = std::make_shared<int>(0);
};

}  // namespace corvana::avahi

Q_DECLARE_METATYPE(corvana::avahi::Texts)
