#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvana {

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

}  // namespace corvana
