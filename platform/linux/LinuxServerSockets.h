#pragma once

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/Network.h"
#include "platform/RunLoop.h"
#include "platform/linux/DescriptorWatch.h"

namespace corvana {

/// Takes streams from other machines one by one, for a program that does nothing else meanwhile.
class StreamListener {
 public:
  /// On any address, at a port that the system picks.
  static Result<StreamListener> open();

  std::uint16_t port() const { return mPort; }
  /// Readable when somebody waits.
  int descriptor() const { return mSocket.get(); }
  /// Whoever waits, with the address in `from`; null when nobody does any more.
  std::unique_ptr<StreamConnection> accept(std::string& from);

 private:
  StreamListener() = default;
  ZAN_Descriptor mSocket;
  std::uint16_t mPort = 0;
};

/// Listening sockets of the system, served from the main loop without ever waiting.
class LinuxServerSockets final : public ServerSockets {
 public:
  LinuxServerSockets(RunLoop& runLoop, DescriptorWatch& watch) : mRunLoop(runLoop), mWatch(watch) {}

  Result<std::unique_ptr<ServerSocket>> listen(std::uint16_t port, const Limits& limits,
                                               Events events) override;
  Result<std::unique_ptr<ServerSocket>> listenForVisits(std::uint16_t port,
                                                        const VisitLimits& limits,
                                                        Comes comes) override;

 private:
  RunLoop& mRunLoop;
  DescriptorWatch& mWatch;
};

}  // namespace corvana
