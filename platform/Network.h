#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// A two-way stream to another machine. It is passive: things are done with it inside `wait` and
/// nowhere else. Closed when it goes. Thread: the one that made it.
class StreamConnection {
 public:
  enum class Event {
    nothing,   ///< the time is over
    opened,    ///< the other machine has accepted; once
    secured,   ///< what is sent and received from now on is encrypted; once after `startTLS`
    received,  ///< there is something to read
    space,     ///< something may be sent
    ended,     ///< the other side has closed, and all it sent was read
    failed,    ///< `failure` says why; nothing comes after it
  };

  virtual ~StreamConnection() = default;

  /// Waits until something happens, `seconds` at most. Space to send counts only when wanted.
  /// "Received" comes again until everything was read.
  virtual Event wait(double seconds, bool wantsSpace) = 0;
  /// What has come, at most `limit` bytes, without waiting; empty when there is nothing.
  virtual std::string read(std::size_t limit) = 0;
  /// How many of the bytes were taken, without waiting; 0 when there is no space.
  virtual Result<std::size_t> send(std::string_view bytes) = 0;
  /// Goes on encrypted. What came in clear and was not yet read is thrown away. The other side has
  /// to prove, by a certificate that leads to an authority which this machine trusts, that it is
  /// `peerName`; otherwise the stream fails, and `failure` says what was wrong with the certificate
  /// and begins with "TLS handshake".
  virtual void startTLS(const std::string& peerName) = 0;
  virtual std::string failure() const = 0;
  /// Whether it failed since the other side did not prove who it is.
  virtual bool isCertificateRefused() const = 0;
};

/// Machines elsewhere. Thread: any.
class Network {
 public:
  virtual ~Network() = default;

  /// Whether there is a machine of that name or address. Waits for the name service.
  virtual bool resolves(const std::string& host) = 0;
  enum class Family { any, ipv4 };
  /// Begins to connect, to one address of the host after the other. Whatever goes wrong is told by
  /// the stream. Waits for the name service. Never null.
  virtual std::unique_ptr<StreamConnection> connect(const std::string& host, std::int64_t port,
                                                    Family family = Family::any) = 0;
};

/// A socket that listens until this goes. Thread: main.
class ServerSocket {
 public:
  virtual ~ServerSocket() = default;
  virtual std::uint16_t port() const = 0;
};

/// A machine that has connected, for as long as it stays. Thread: main.
class Visitor {
 public:
  virtual ~Visitor() = default;
  virtual const std::string& address() const = 0;
  /// Sent as the connection takes it.
  virtual void say(std::span<const std::byte> bytes) = 0;
  /// The connection ends once all that was said is sent, or when its time is over; nothing is heard
  /// any more.
  virtual void leave() = 0;
};

/// What is talked about with a visitor; it goes with the connection, never within its own calls.
class Visit {
 public:
  virtual ~Visit() = default;
  virtual void heard(std::span<const std::byte> bytes) = 0;
};

/// Sockets that other machines connect to. Thread: main.
class ServerSockets {
 public:
  /// What strangers may take. A connection over a bound takes the place of the one that has been
  /// silent for longest; when each has said something, one is read at once to make room.
  struct Limits {
    int backlog = 1;                        ///< waiting to be accepted
    std::size_t connections = 32;           ///< open at a time
    std::size_t connectionsPerAddress = 4;  ///< of one machine
    std::size_t bytes = 65536;              ///< of one reading
    double silence = 5;                     ///< seconds until one that says nothing is dropped
    double gathering = 0.05;                ///< seconds from the first bytes to the reading
  };
  struct Events {
    /// Whether that machine may connect; otherwise its connection is reset unread.
    std::function<bool(const std::string& address)> accepts;
    /// What had arrived when the connection was read, once, and not empty. Gives what is answered,
    /// a few hundred bytes at most, or nothing; the connection is closed afterwards.
    std::function<std::vector<std::byte>(const std::string& address,
                                         std::span<const std::byte> bytes)>
        received;
  };

  virtual ~ServerSockets() = default;

  /// Listens for TCP at any address, over IPv6 as well where the machine has it; an address that
  /// came over IPv4 is told as such. With port 0 the system picks one. Fails with `refused` when
  /// the port cannot be had, with `unavailable` when there can be no such socket at all. No event
  /// comes within the call.
  virtual Result<std::unique_ptr<ServerSocket>> listen(std::uint16_t port, const Limits& limits,
                                                       Events events) = 0;

  /// What visitors may take. One over a bound takes the place of the one that came first, unless it
  /// is turned away.
  struct VisitLimits {
    std::size_t connections = 16;           ///< open at a time
    std::size_t connectionsPerAddress = 4;  ///< of one machine
    std::size_t bytes = 65536;              ///< heard of one visitor in all
    double seconds = 10;                    ///< of a visit, whatever is said
  };
  /// Begins the visit of a machine; null turns it away.
  using Comes = std::function<std::unique_ptr<Visit>(Visitor& visitor)>;
  /// Listens in the same way for machines that stay for a talk.
  virtual Result<std::unique_ptr<ServerSocket>> listenForVisits(std::uint16_t port,
                                                                const VisitLimits& limits,
                                                                Comes comes) = 0;
};

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
  std::string address;  ///< of IPv4 where it has one, else of IPv6 ("fe80::1%2" on a link)
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
    /// There are more than are looked at, which are `most`; once.
    std::function<void(std::size_t most)> full{};
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
