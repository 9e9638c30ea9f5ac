#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "remote/CommandProof.h"

namespace corvana {

/// What one machine tells another: an archived dictionary with one of three keys, and maybe a proof
/// that it may. Thread: any.
struct RemoteCommand {
  /// Longer texts are cut between two characters.
  static constexpr std::size_t kMostBytesOfMessage = 4000;
  static constexpr std::size_t kMostBytesOfSender = 255;

  struct Activate {
    std::int64_t value = 0;  ///< 1 switches automatic execution on, 0 off; others do nothing
  };
  struct Launch {
    std::vector<std::int64_t> references;  ///< none is 0, none comes twice
  };
  struct Message {
    std::string text;
    std::string sender;  ///< "???" when it did not say its name
  };
  std::variant<Activate, Launch, Message> what;
  std::optional<CommandProof> proof{};
  std::vector<std::byte> proven{};  ///< with a proof: the archive of the rest, which it is about

  /// Reads bytes that need not be trusted, the sequential archive first, the keyed one else. The
  /// first of the keys that is there counts, in the order above; nothing when its value is of
  /// another kind, without any of them, with a proof that is none, and for anything but a
  /// dictionary.
  static std::optional<RemoteCommand> decode(std::span<const std::byte> data);

  /// The bytes to send, without a proof.
  std::vector<std::byte> encode() const;
  /// The same with a proof, whose code is computed by that key.
  std::vector<std::byte> encode(const ControlKey& key, CommandProof& proof) const;
};

}  // namespace corvana
