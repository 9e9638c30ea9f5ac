#pragma once

#include "platform/RunLoop.h"
#include "platform/ServerSockets.h"
#include "platform/linux/DescriptorWatch.h"

namespace corvana {

/// Listening sockets of the system, served from the main loop without ever waiting.
class LinuxServerSockets final : public ServerSockets {
 public:
  LinuxServerSockets(RunLoop& runLoop, DescriptorWatch& watch) : mRunLoop(runLoop), mWatch(watch) {}

  Result<std::unique_ptr<ServerSocket>> listen(const Limits& limits, Events events) override;

 private:
  RunLoop& mRunLoop;
  DescriptorWatch& mWatch;
};

}  // namespace corvana
