#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// What two machines share, and the name by which the asking one says which key it means. The name
/// is seen by everybody.
struct ChannelKey {
  std::string name;
  std::array<std::byte, 32> bytes{};
};

/// One end of an encrypted channel between two machines that share a key: each knows that the other
/// has it, nobody else can read or change what is said, and what was recorded cannot be read later
/// by whoever gets the key. It only computes; somebody else carries its bytes over the network.
/// Thread: the one that made it.
class KeyedChannel {
 public:
  virtual ~KeyedChannel() = default;

  /// Takes what has come from the other end, which need not be trusted. Fails for good when that
  /// has not the key, or somebody interferes; what is to be sent then says so to the other end.
  virtual Outcome take(std::span<const std::byte> fromNetwork) = 0;
  /// What is to be sent to the other end now; asked for at the beginning and after each call.
  virtual std::vector<std::byte> toNetwork() = 0;
  /// The other end has proven that it has the key.
  virtual bool isSecured() const = 0;
  /// The name of that key; of use when it is secured.
  virtual const std::string& keyName() const = 0;
  /// What the other end has said.
  virtual std::vector<std::byte> read() = 0;
  /// Says something; only when it is secured.
  virtual Outcome write(std::span<const std::byte> bytes) = 0;
};

/// Makes channels. Thread: main.
class KeyedChannels {
 public:
  /// The key of that name, or nothing when there is none.
  using KeyOf = std::function<std::optional<ChannelKey>(const std::string& name)>;

  virtual ~KeyedChannels() = default;
  /// The end that begins, or why there can be none here.
  virtual Result<std::unique_ptr<KeyedChannel>> asking(const ChannelKey& key) = 0;
  /// The end that is asked.
  virtual Result<std::unique_ptr<KeyedChannel>> answering(KeyOf keyOf) = 0;
};

}  // namespace corvana
