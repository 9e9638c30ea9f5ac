#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// A socket that listens until this goes. Thread: main.
class ServerSocket {
 public:
  virtual ~ServerSocket() = default;
  virtual std::uint16_t port() const = 0;
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
    /// What had arrived when the connection was read, once, and not empty. It is closed afterwards.
    std::function<void(const std::string& address, std::span<const std::byte> bytes)> received;
  };

  virtual ~ServerSockets() = default;

  /// Listens for TCP over IPv4 at any address, on a port that the system picks. Fails with
  /// `refused` when no port can be had, with `unavailable` when there can be no such socket at all.
  /// No event comes within the call.
  virtual Result<std::unique_ptr<ServerSocket>> listen(const Limits& limits, Events events) = 0;
};

}  // namespace corvana
