#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

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

}  // namespace corvana
