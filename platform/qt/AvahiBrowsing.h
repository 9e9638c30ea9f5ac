#pragma once

#include <QDBusMessage>
#include <QString>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/ServiceDiscovery.h"
#include "platform/qt/AvahiClient.h"

namespace corvana::avahi {

/// A search by the daemon: one browser, and a question for the place of each service it finds.
class Browsing final : public ServiceBrowsing, private Client {
 public:
  /// More names than that are not looked at: anybody on the network can make them up.
  static constexpr std::size_t kMostServices = 500;

  Browsing(Daemon& daemon, const std::string& type, const std::string& domain,
           ServiceDiscovery::BrowsingEvents events);
  ~Browsing() override;

 private:
  struct Seen {
    int places = 0;     ///< interfaces and protocols that it is seen on
    int questions = 0;  ///< of its place, not answered yet
    bool found = false;
  };

  void daemonIsThere() override;
  void daemonIsGone() override;
  void objectSpeaks(const QDBusMessage& message) override;

  void ask(const QString& path, const QString& interface, const QString& method,
           const QList<QVariant>& arguments, std::function<void(const QDBusMessage&)> done);
  void hear(const QDBusMessage& message);
  void itemNew(const QList<QVariant>& item);
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
  int mQuestions = 0;
  bool mAllForNow = false;
  bool mSettled = false;
  std::shared_ptr<int> mAttempt = std::make_shared<int>(0);
};

}  // namespace corvana::avahi
