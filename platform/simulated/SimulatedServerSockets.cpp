#include "platform/simulated/SimulatedServerSockets.h"

#include <algorithm>
#include <utility>

namespace corvana {

class SimulatedServerSockets::Socket final : public ServerSocket {
 public:
  explicit Socket(std::shared_ptr<Listener> listener) : mListener(std::move(listener)) {}
  std::uint16_t port() const override { return mListener->port; }

 private:
  std::shared_ptr<Listener> mListener;
};

Result<std::unique_ptr<ServerSocket>> SimulatedServerSockets::listen(const Limits& limits,
                                                                     Events events) {
  if (failure) return Error{*failure, "listening socket: the test says so"};
  auto listener = std::make_shared<Listener>(Listener{++mLastPort, limits, std::move(events)});
  mListeners.push_back(listener);
  return std::unique_ptr<ServerSocket>(std::make_unique<Socket>(std::move(listener)));
}

bool SimulatedServerSockets::send(std::uint16_t port, const std::string& address,
                                  std::span<const std::byte> bytes) {
  for (const auto& one : mListeners) {
    const auto listener = one.lock();
    if (!listener || listener->port != port) continue;
    if (listener->events.accepts && !listener->events.accepts(address)) return false;
    const auto read = bytes.first(std::min(bytes.size(), listener->limits.bytes));
    std::vector<std::byte> kept(read.begin(), read.end());
    mRunLoop.performOnMain([one, address, kept = std::move(kept)] {
      const auto still = one.lock();
      if (still && !kept.empty()) still->events.received(address, kept);
    });
    return true;
  }
  return false;
}

std::vector<std::uint16_t> SimulatedServerSockets::ports() const {
  std::vector<std::uint16_t> ports;
  for (const auto& one : mListeners)
    if (const auto listener = one.lock()) ports.push_back(listener->port);
  return ports;
}

}  // namespace corvana
