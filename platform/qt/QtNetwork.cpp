#include "platform/qt/QtNetwork.h"

#include <utility>

#include "platform/linux/LinuxNetwork.h"
#include "platform/linux/Modules.h"
#include "platform/tls/SecureStream.h"

namespace corvana {

namespace {

/// What is left where encryption cannot be had.
class FailedStream final : public StreamConnection {
 public:
  explicit FailedStream(std::string reason)
      : mFailure("TLS handshake failed: " + std::move(reason)) {}

  Event wait(double, bool) override { return Event::failed; }
  std::string read(std::size_t) override { return {}; }
  Result<std::size_t> send(std::string_view) override { return std::size_t{0}; }
  void startTLS(const std::string&) override {}
  std::string failure() const override { return mFailure; }
  bool isCertificateRefused() const override { return false; }

 private:
  const std::string mFailure;
};

}  // namespace

std::unique_ptr<StreamConnection> secureStream(ZAN_Descriptor socket, const std::string& peerName) {
  const auto open = functionOfModule<OpenSecureStream>("TLS.so", kOpenSecureStream);
  if (!open) return std::make_unique<FailedStream>(open.error().text);
  return std::unique_ptr<StreamConnection>((*open)(socket.release(), peerName.c_str()));
}

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
