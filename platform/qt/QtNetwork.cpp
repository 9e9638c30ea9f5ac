#include "platform/qt/QtNetwork.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "platform/linux/LinuxNetwork.h"
#include "platform/tls/SecureStream.h"

namespace corvana {

namespace {

namespace fs = std::filesystem;

constexpr int kLevels = 4;

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

/// Nobody else may put code into this program.
bool isTrusted(const fs::path& path) {
  struct stat described {};
  return ::stat(path.c_str(), &described) == 0 &&
         (described.st_uid == 0 || described.st_uid == ::geteuid());
}

/// In the agent's bundle, wherever the running program lies beside it. Empty when it is missing.
std::string modulePath() {
  const fs::path module = "Contents/PlugIns/TLS.so";
  const fs::path resources = fs::path("Corvana 9.app/Contents/Resources/Corvana 9 Scheduler.app");
  std::error_code failed;
  fs::path folder = fs::read_symlink("/proc/self/exe", failed).parent_path();
  const fs::path own = folder.parent_path().parent_path() / module;
  if (isTrusted(own)) return own.string();
  for (int level = 0; level < kLevels; ++level, folder = folder.parent_path()) {
    for (const char* inside : {".", "lib/corvana9"}) {
      const fs::path one = folder / inside / resources / module;
      if (isTrusted(one)) return one.string();
    }
  }
  return {};
}

}  // namespace

std::unique_ptr<StreamConnection> secureStream(ZAN_Descriptor socket, const std::string& peerName) {
  const std::string path = modulePath();
  if (path.empty()) return std::make_unique<FailedStream>("TLS.so is not installed");
  // It stays open: its libraries leave objects behind that live until the process ends.
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (module == nullptr) return std::make_unique<FailedStream>(dlerror());
  const auto open = reinterpret_cast<OpenSecureStream>(dlsym(module, kOpenSecureStream));
  if (open == nullptr)
    return std::make_unique<FailedStream>(path + " is not the module of this program");
  return std::unique_ptr<StreamConnection>(open(socket.release(), peerName.c_str()));
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
