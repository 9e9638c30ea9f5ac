#pragma once

#include "platform/Network.h"

namespace corvana {

/// The network without encryption, for programs that need none.
class LinuxNetwork final : public Network {
 public:
  bool resolves(const std::string& host) override;
  std::unique_ptr<StreamConnection> connect(const std::string& host, std::int64_t port,
                                            Family family) override;
};

}  // namespace corvana
