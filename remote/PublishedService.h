#pragma once

#include <optional>
#include <string>

#include "platform/Network.h"

namespace corvana {

class ActionTree;
class ProgrammedAction;
struct Platform;

/// What machines with remote control are known as on the local network.
inline constexpr const char* kRemoteServiceType = "_rcfz9._udp";
inline constexpr const char* kRemoteServiceDomain = "local";

/// What a machine that wants proofs publishes beside its actions: what the next proof is made for,
/// and what it permits ("launch,switch,message"); with paired machines the port of the encrypted
/// channel as well.
inline constexpr std::string_view kChallengeText = "Challenge=";
inline constexpr std::string_view kPermitsText = "Permits=";
inline constexpr std::string_view kChannelText = "Channel=";

/// The name of a machine's service, which also tells its identity and state: six fields with "&&"
/// between them. Thread: any.
struct ServiceName {
  static constexpr std::size_t kMostBytes = 63;

  std::string machine;
  std::string identifier;
  std::int64_t user = 0;
  bool active = false;  ///< automatic execution is on
  bool locked = false;  ///< remote control is not allowed
  std::int32_t passwordCode = 0;

  /// At most 63 bytes of UTF-8: the name of the machine is cut between two characters as needed.
  std::string text() const;
  /// The same, told apart from others of that name by a number behind the machine's name.
  std::string text(int number) const;
  /// Nothing when the text has not six fields; the machine's name may itself hold "&&".
  static std::optional<ServiceName> parse(std::string_view text);

  /// The first field as it is published: the local name when there is one, without accents and with
  /// "-" for each blank, else the machine's name on the network. Never empty.
  static std::string machineName(std::string_view localName, std::string_view networkName);
};

/// What the machines that control each other have to compute alike. Thread: any.
class UtilsCommon {
 public:
  UtilsCommon() = delete;

  /// The code that stands for a password on the network, which the password itself never leaves
  /// for; 0 for an empty one. It is computed from the UTF-16 units of the password, made longer by
  /// "*" and itself until it has 32 of them or more.
  static std::uint32_t getPasswordCode(std::string_view password);
};

/// An action as other machines see it. Thread: main.
struct LaunchableAction {
  std::int64_t ref = 0;
  std::string title;
  std::int64_t mode = 0;
  std::int64_t lastScheduleDate = 0;  ///< whole seconds since 2001-01-01 UTC; 0: never

  /// "Ref-12=Letters\t2\t12\t725889600" in 255 bytes at most: the title is cut between two
  /// characters as needed, and has blanks for its control characters.
  std::string text() const;
  /// Nothing when it is no such text.
  static std::optional<LaunchableAction> parse(std::string_view text);
};

/// The actions of a tree that other machines may launch, in its order.
std::vector<LaunchableAction> launchableActions(ProgrammedAction& root);

/// The texts of the service: those given first, then one for each action, 1,300 bytes in all at
/// most, as more does not travel. When the actions do not all fit, those scheduled most recently
/// are taken.
struct LaunchableTexts {
  std::vector<std::string> texts;
  std::size_t leftOut = 0;

  explicit LaunchableTexts(const std::vector<LaunchableAction>& actions,
                           std::vector<std::string> before = {});
};

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
