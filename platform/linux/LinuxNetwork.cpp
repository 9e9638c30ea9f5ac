#include "platform/linux/LinuxNetwork.h"

#include "platform/linux/SocketStream.h"

namespace corvana {

bool LinuxNetwork::resolves(const std::string& host) { return SocketStream::resolves(host); }

std::unique_ptr<StreamConnection> LinuxNetwork::connect(const std::string& host, std::int64_t port,
                                                        Family family) {
  return std::make_unique<SocketStream>(host, port, family);
}

}  // namespace corvana
