#include "platform/qt/QtNetwork.h"

#include "platform/linux/SocketStream.h"
#include "platform/qt/SecureStreams.h"

namespace corvana {
namespace {

/// In clear at first, then encrypted over the same socket.
class UpgradedStream final : public StreamConnection {
 public:
  UpgradedStream(const std::string& host, std::int64_t port, Network::Family family)
      : mClear(host, port, family) {}

  Event wait(double seconds, bool wantsSpace) override {
    return current().wait(seconds, wantsSpace);
  }
  std::string read(std::size_t limit) override { return current().read(limit); }
  Result<std::size_t> send(std::string_view bytes) override { return current().send(bytes); }
  void startTLS(const std::string& peerName) override {
    if (mSecure == nullptr) mSecure = secureStream(mClear.release(), peerName);
  }
  std::string failure() const override {
    return mSecure != nullptr ? mSecure->failure() : mClear.failure();
  }
  bool isCertificateRefused() const override {
    return mSecure != nullptr && mSecure->isCertificateRefused();
  }

 private:
  StreamConnection& current() { return mSecure != nullptr ? *mSecure : mClear; }

  SocketStream mClear;
  std::unique_ptr<StreamConnection> mSecure;
};

}  // namespace

bool QtNetwork::resolves(const std::string& host) { return SocketStream::resolves(host); }

std::unique_ptr<StreamConnection> QtNetwork::connect(const std::string& host, std::int64_t port,
                                                     Family family) {
  return std::make_unique<UpgradedStream>(host, port, family);
}

}  // namespace corvana
