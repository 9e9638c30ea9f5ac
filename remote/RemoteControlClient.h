#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Network.h"

namespace corvana {

class ActionTree;
struct Platform;

/// This machine as others of the local network see it: a service whose name tells its state and
/// whose texts tell the actions that may be launched, and a socket that takes one command a
/// connection. Thread: main.
class RemoteControlClient {
 public:
  RemoteControlClient(Platform& platform, ActionTree& tree);

  /// What others see beside the name, and where they connect.
  struct Exposure {
    std::vector<std::string> texts = {};  ///< beside those of the actions
    bool showsActions = true;
    std::uint16_t port = 0;  ///< 0: one that the system picks
  };
  /// Publishes under the local name, or the machine's own when that is empty, in place of what was
  /// published before. The socket of an earlier publication goes on being listened to, so that
  /// who has just looked up its port is not turned away, unless another port is wanted. Without a
  /// socket the service has no port; when there is one but no port for it, nothing is published and
  /// the answer is false.
  bool publishClient(std::string_view name, bool active, bool locked, std::uint32_t password,
                     const Exposure& exposure);
  /// Has the others look again, then takes the service back.
  void stopNetServiceRCC();

  /// Whether a machine may connect; without it any may.
  std::function<bool(const std::string& address)> accepts;
  /// A command has come in; gives what is answered, or nothing.
  std::function<std::vector<std::byte>(const std::string& address, std::span<const std::byte> data)>
      received;
  /// How many of all actions the others do not see, after each publication.
  std::function<void(std::size_t leftOut, std::size_t all)> onLeftOut;

 private:
  Outcome listen(std::uint16_t port);

  Platform& m;
  ActionTree& mTree;
  std::unique_ptr<ServicePublication> mNetService;
  std::unique_ptr<ServerSocket> mListeningSocket;
};

}  // namespace corvana
