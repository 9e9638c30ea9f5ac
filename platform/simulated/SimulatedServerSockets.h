#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/RunLoop.h"
#include "platform/ServerSockets.h"

namespace corvana {

/// Sockets that only the test connects to; ports are numbered from 4001 on.
class SimulatedServerSockets final : public ServerSockets {
 public:
  explicit SimulatedServerSockets(RunLoop& runLoop) : mRunLoop(runLoop) {}

  Result<std::unique_ptr<ServerSocket>> listen(const Limits& limits, Events events) override;

  /// A machine connects to that port and sends, cut as one reading is; it is heard when the loop
  /// next runs. False when nobody listens there or the address is turned away.
  bool send(std::uint16_t port, const std::string& address, std::span<const std::byte> bytes);

  std::optional<ErrorKind> failure;  ///< why `listen` fails
  /// Those that listen now, in the order of their beginning.
  std::vector<std::uint16_t> ports() const;

 private:
  struct Listener {
    std::uint16_t port;
    Limits limits;
    Events events;
  };
  class Socket;

  RunLoop& mRunLoop;
  std::uint16_t mLastPort = 4000;
  std::vector<std::weak_ptr<Listener>> mListeners;
};

}  // namespace corvana
