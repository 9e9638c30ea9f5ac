#pragma once

#include "platform/Network.h"
#include "platform/qt/BusConnection.h"

namespace corvana {

/// DNS-SD by the Avahi daemon, asked over the system bus. The bus is connected to when something is
/// first wanted. What is published comes back by itself after a restart of the daemon or of the
/// bus; so does a search. The daemon is not started by it.
class AvahiServices final : public ServiceDiscovery {
 public:
  /// `log` hears once when bus or daemon are away.
  AvahiServices(RunLoop& runLoop, SystemLog& log,
                BusConnection::Address address = BusConnection::systemBusAddress);
  AvahiServices(const AvahiServices&) = delete;
  AvahiServices& operator=(const AvahiServices&) = delete;
  /// What it gave out has to be gone.
  ~AvahiServices() override;

  bool isAway() const override;
  std::unique_ptr<ServicePublication> publish(const ServiceDescription& service,
                                              PublicationEvents events) override;
  std::unique_ptr<ServiceBrowsing> browse(const std::string& type, const std::string& domain,
                                          BrowsingEvents events) override;

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

}  // namespace corvana
