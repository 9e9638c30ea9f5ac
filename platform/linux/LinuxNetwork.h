#pragma once

#include <deque>
#include <string>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/Network.h"

namespace corvana {

/// A TCP stream without encryption, on sockets that never block.
class SocketStream final : public StreamConnection {
 public:
  /// Begins to connect; see Network::connect.
  SocketStream(const std::string& host, std::int64_t port, Network::Family family);
  /// Over a connection that another machine has opened.
  explicit SocketStream(ZAN_Descriptor connected);

  Event wait(double seconds, bool wantsSpace) override;
  std::string read(std::size_t limit) override;
  Result<std::size_t> send(std::string_view bytes) override;
  /// It cannot: the stream fails.
  void startTLS(const std::string& peerName) override;
  std::string failure() const override { return mFailure; }
  bool isCertificateRefused() const override { return false; }

  /// Gives the socket away, for somebody who encrypts; what came and was not read is lost.
  ZAN_Descriptor release();

  /// Whether the name service, or the text itself, gives an address.
  static bool resolves(const std::string& host);

 private:
  struct Address {
    int family = 0;
    std::string bytes;  ///< a socket address
  };
  void tryNextAddress(const std::string& reason);
  Event waitForOpening(double seconds);
  Event fail(const std::string& reason);
  /// What poll finds: its events, 0 when the time is over.
  short poll(short events, double seconds);

  static std::vector<Address> lookUp(const std::string& host, std::int64_t port,
                                     Network::Family family, std::string& reason);

  std::deque<Address> mAddresses;  ///< not yet tried
  ZAN_Descriptor mSocket;
  bool mOpened = false;
  bool mEnded = false;
  std::string mFailure;
};

/// The network without encryption, for programs that need none.
class LinuxNetwork final : public Network {
 public:
  bool resolves(const std::string& host) override;
  std::unique_ptr<StreamConnection> connect(const std::string& host, std::int64_t port,
                                            Family family) override;
};

}  // namespace corvana
