#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// A service as it is made known on the local network.
struct ServiceDescription {
  std::string name;    ///< UTF-8, 1 to 63 bytes
  std::string type;    ///< such as "_http._tcp"
  std::string domain;  ///< such as "local"
  std::uint16_t port = 0;
  std::vector<std::string> txt;  ///< "key=value", 255 bytes each at most
};

/// A service of some machine, as it was found.
struct FoundService {
  std::string name;
  std::string host;
  std::string address;  ///< IPv4
  std::uint16_t port = 0;
  std::vector<std::string> txt;
};

/// A service made known; it is taken back when this goes. Thread: main.
class ServicePublication {
 public:
  virtual ~ServicePublication() = default;
  /// Replaces the texts of the service, which stays where it is.
  virtual void setTxt(const std::vector<std::string>& txt) = 0;
};

/// A search of the network that goes on until this goes. Thread: main.
class ServiceBrowsing {
 public:
  virtual ~ServiceBrowsing() = default;
};

/// DNS-SD: services made known and found on the local network without any server. What it does is
/// done from the main loop and told there. Thread: main.
class ServiceDiscovery {
 public:
  struct PublicationEvents {
    /// It is known now, under this name; told again when it had been lost.
    std::function<void(const std::string& name)> published;
    /// Another service has that name: gives the one to try next, empty to give up.
    std::function<std::string(const std::string& taken)> renamed;
    /// It is not known, and why; the code is that of the service daemon.
    std::function<void(int code, const std::string& reason)> failed;
  };
  struct BrowsingEvents {
    std::function<void(const FoundService& service)> found;  ///< or found again, changed
    /// It was taken back.
    std::function<void(const std::string& name)> lost;
    /// It is there, but nobody says where.
    std::function<void(const std::string& name, int code, const std::string& reason)> notResolved;
    /// What answers at all has answered; what comes now is new.
    std::function<void()> settled;
    std::function<void(const std::string& reason)> failed;
  };

  virtual ~ServiceDiscovery() = default;

  /// Whether the daemon was needed and is away. Nothing is asked of it to know.
  virtual bool isAway() const { return false; }
  /// Never null. As long as the daemon for it is away nothing is known to anybody; it is made known
  /// once the daemon is there again. No event comes within the call, nor after the end of the
  /// publication.
  virtual std::unique_ptr<ServicePublication> publish(const ServiceDescription& service,
                                                      PublicationEvents events) = 0;
  /// Never null. No event comes within the call.
  virtual std::unique_ptr<ServiceBrowsing> browse(const std::string& type,
                                                  const std::string& domain,
                                                  BrowsingEvents events) = 0;
};

}  // namespace corvana
