#pragma once

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/Network.h"

namespace corvana {

/// The network with TLS. The authorities trusted are those of the system and, beside them, those in
/// the file that the variable SSL_CERT_FILE names. Only streams that go on encrypted need Qt's
/// application object.
class QtNetwork final : public Network {
 public:
  bool resolves(const std::string& host) override;
  std::unique_ptr<StreamConnection> connect(const std::string& host, std::int64_t port,
                                            Family family = Family::any) override;
};

/// Goes on encrypted over a connected socket, by a module that is opened with the first stream and
/// stays open. Without the module the stream has failed, and says so. Never null. Thread: any.
std::unique_ptr<StreamConnection> secureStream(ZAN_Descriptor socket, const std::string& peerName);

}  // namespace corvana
