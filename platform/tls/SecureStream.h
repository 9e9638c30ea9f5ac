#pragma once

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/Network.h"

namespace corvana {

class StreamConnection;

/// What the module that encrypts offers by the name below: it goes on encrypted over a connected
/// socket, which is the stream's from now on; -1 makes a stream that has failed. See
/// StreamConnection::startTLS. The stream belongs to the caller. Thread: any.
using OpenSecureStream = StreamConnection* (*)(int socket, const char* peerName);
inline constexpr const char* kOpenSecureStream = "corvana9OpenSecureStream";

/// A stream encrypted by Qt over a connected socket. Works on any thread, with or without an event
/// loop.
class SecureStream final : public StreamConnection {
 public:
  /// Begins the handshake; an empty socket is a failure.
  SecureStream(ZAN_Descriptor socket, const std::string& peerName);
  ~SecureStream() override;

  Event wait(double seconds, bool wantsSpace) override;
  std::string read(std::size_t limit) override;
  Result<std::size_t> send(std::string_view bytes) override;
  void startTLS(const std::string&) override {}  ///< it has already
  std::string failure() const override { return mFailure; }
  bool isCertificateRefused() const override { return mIsRefused; }

 private:
  class Socket;
  Event waitForHandshake(int milliseconds);
  Event brokenOr(Event event);
  std::string handshakeFailure() const;

  std::unique_ptr<Socket> mSocket;
  std::string mPeerName;
  bool mSecured = false;
  bool mIsRefused = false;
  std::string mFailure;
};

}  // namespace corvana
