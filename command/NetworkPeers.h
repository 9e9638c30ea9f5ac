#pragma once

#include <optional>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "command/Commands.h"
#include "platform/Network.h"
#include "remote/PairedChannel.h"
#include "remote/PublishedService.h"
#include "remote/RemoteCommand.h"

namespace corvana {

/// A machine of the local network that may be controlled.
struct NetworkPeer {
  ServiceName name;
  FoundService service;
  std::vector<LaunchableAction> actions;  ///< that it offers
  std::string challenge{};                ///< what a proof is made for; empty: it wants none
  std::string permits{};                  ///< with proofs: some of "launch,switch,message"
  std::uint16_t channelPort = 0;          ///< of the encrypted channel; 0: it offers none
};

/// The machines of the local network that may be controlled, for a program that waits for them.
class NetworkPeers {
 public:
  /// Searches from now on; what is wrong goes to the console's `err`.
  explicit NetworkPeers(const Console& console);
  NetworkPeers(const NetworkPeers&) = delete;
  NetworkPeers& operator=(const NetworkPeers&) = delete;
  ~NetworkPeers();

  /// Waits until all that answer have answered, 8 seconds at most, and gives them in order of their
  /// names.
  Result<std::vector<NetworkPeer>> all();
  /// As many services as were looked at, where there are more: anybody can make them up. Else
  /// nothing.
  std::optional<std::size_t> limit() const;
  /// Goes on looking until the condition holds for one of them; false when it does for none within
  /// so many seconds.
  bool waitFor(const std::function<bool(const NetworkPeer&)>& condition, double seconds);
  /// Sends it a command. Nobody answers those: it is done when the other machine has taken it.
  static Outcome send(const NetworkPeer& peer, const RemoteCommand& command);
  /// Sends it a command with a proof by that key, in the name of this machine's `sender`, and waits
  /// for the answer: it is done when the other machine says that it was carried out.
  static Outcome sendProven(const NetworkPeer& peer, const RemoteCommand& command,
                            const ControlKey& key, const std::string& sender);
  /// Asks it something through the encrypted channel of machines that share that key.
  static Result<ChannelReply> ask(const NetworkPeer& peer, const ControlKey& key,
                                  const ChannelRequest& request);

 private:
  class Search;
  std::unique_ptr<Search> mSearch;
};

}  // namespace corvana
