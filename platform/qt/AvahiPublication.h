#pragma once

#include <QString>
#include <functional>
#include <memory>

#include "platform/ServiceDiscovery.h"
#include "platform/qt/AvahiClient.h"

namespace corvana::avahi {

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
