#pragma once

#include <memory>

#include "platform/KeyedChannel.h"

namespace corvana {

/// Channels by TLS 1.3 with a pre-shared key and fresh keys beside it, on the system's OpenSSL.
class TlsChannels final : public KeyedChannels {
 public:
  TlsChannels();
  TlsChannels(const TlsChannels&) = delete;
  TlsChannels& operator=(const TlsChannels&) = delete;
  ~TlsChannels() override;

  Result<std::unique_ptr<KeyedChannel>> asking(const ChannelKey& key) override;
  Result<std::unique_ptr<KeyedChannel>> answering(KeyOf keyOf) override;

 private:
  struct Contexts;
  std::unique_ptr<Contexts> mContexts;
};

/// What the module of that name offers: the channels, which live as long as the process.
using OpenKeyedChannels = KeyedChannels* (*)();
inline constexpr const char* kChannelModule = "Channel.so";
inline constexpr const char* kOpenKeyedChannels = "corvana9KeyedChannels";

}  // namespace corvana
