#include "platform/linux/LinuxServerSockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <list>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_Descriptor.h"

namespace corvana {

namespace {

/// So many strangers are let in before the loop gets on with other things.
constexpr int kAcceptsAtOnce = 16;
/// Without descriptors left the waiting ones would wake the loop again and again.
constexpr double kPauseWithoutDescriptors = 1;

Error errorOf(ErrorKind kind, const char* what) {
  return {kind, std::string("listening socket: ") + what + ": " + std::strerror(errno)};
}

std::string textOf(const sockaddr_in& address) {
  std::array<char, INET_ADDRSTRLEN> text{};
  inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
  return text.data();
}

class LinuxServerSocket final : public ServerSocket {
 public:
  LinuxServerSocket(RunLoop& runLoop, DescriptorWatch& watch, const ServerSockets::Limits& limits,
                    ServerSockets::Events events)
      : mRunLoop(runLoop), mWatch(watch), mLimits(limits), mEvents(std::move(events)) {}

  ~LinuxServerSocket() override {
    while (!mConnections.empty()) drop(mConnections.begin());
    mWatch.unwatch(mListening);
    mRunLoop.cancel(mPause);
  }

  Outcome open() {
    mSocket = ZAN_Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!mSocket) return errorOf(ErrorKind::unavailable, "cannot be made");
    // The connections inherit it; what nobody reads is not to pile up in the system either.
    const int buffer = static_cast<int>(mLimits.bytes);
    setsockopt(mSocket.get(), SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    socklen_t size = sizeof address;
    if (bind(mSocket.get(), reinterpret_cast<sockaddr*>(&address), size) != 0)
      return errorOf(ErrorKind::refused, "cannot be bound");
    if (getsockname(mSocket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
      return errorOf(ErrorKind::refused, "its port cannot be read");
    if (::listen(mSocket.get(), mLimits.backlog) != 0)
      return errorOf(ErrorKind::unavailable, "cannot listen");
    mPort = ntohs(address.sin_port);
    startAccepting();
    return {};
  }

  std::uint16_t port() const override { return mPort; }

 private:
  struct Connection {
    ZAN_Descriptor socket;
    std::string address;
    DescriptorWatch::WatchId watch = 0;
    RunLoop::TimerId timer = 0;  ///< until it has been silent for too long, then until it is read
    bool isDue = false;          ///< it is read at the next occasion
  };
  using Place = std::list<Connection>::iterator;

  void startAccepting() {
    mPause = 0;
    mListening = mWatch.watch(mSocket.get(), DescriptorWatch::Event::readable,
                              [this] { connectionsWait(); });
  }

  void connectionsWait() {
    for (int i = 0; i < kAcceptsAtOnce; ++i) {
      sockaddr_in from{};
      socklen_t size = sizeof from;
      ZAN_Descriptor accepted(accept4(mSocket.get(), reinterpret_cast<sockaddr*>(&from), &size,
                                      SOCK_CLOEXEC | SOCK_NONBLOCK));
      if (!accepted) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) pause();
        return;
      }
      const std::string address = textOf(from);
      if (mEvents.accepts && !mEvents.accepts(address)) {
        // A hard end, so that the other side can tell that nobody has read it.
        const linger hard{1, 0};
        setsockopt(accepted.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        continue;
      }
      makeRoomFor(address);
      begin(std::move(accepted), address);
    }
  }

  void pause() {
    mWatch.unwatch(std::exchange(mListening, 0));
    mPause = mRunLoop.performAfter(kPauseWithoutDescriptors, [this] { startAccepting(); });
  }

  void makeRoomFor(const std::string& address) {
    const auto isOfIt = [&](const Connection& one) { return !one.isDue && one.address == address; };
    const auto isAny = [](const Connection& one) { return !one.isDue; };
    const auto count = [this](const auto& which) {
      return static_cast<std::size_t>(std::ranges::count_if(mConnections, which));
    };
    if (count(isOfIt) >= mLimits.connectionsPerAddress) {
      makeRoomAmong(isOfIt);
    } else if (count(isAny) >= mLimits.connections) {
      makeRoomAmong(isAny);
    }
    // Nobody who speaks is dropped for having company, unless the reading does not keep up.
    if (mConnections.size() >= 2 * mLimits.connections) drop(mConnections.begin());
  }

  /// The one that has been silent for longest goes; when all have said something the first of them
  /// is read without waiting for more.
  template <typename Which>
  void makeRoomAmong(const Which& which) {
    // The list is in the order of their coming.
    const auto silent = std::ranges::find_if(
        mConnections, [&](const Connection& one) { return which(one) && isSilent(one); });
    if (silent != mConnections.end()) return drop(silent);
    const Place first = std::ranges::find_if(mConnections, which);
    mWatch.unwatch(std::exchange(first->watch, 0));
    mRunLoop.cancel(first->timer);
    first->isDue = true;
    first->timer = mRunLoop.performAfter(0, [this, first] { read(first); });
  }

  static bool isSilent(const Connection& one) {
    int waiting = 0;
    return ioctl(one.socket.get(), FIONREAD, &waiting) != 0 || waiting == 0;
  }

  void begin(ZAN_Descriptor socket, const std::string& address) {
    const Place place =
        mConnections.insert(mConnections.end(), {std::move(socket), address, 0, 0, false});
    place->watch = mWatch.watch(place->socket.get(), DescriptorWatch::Event::readable,
                                [this, place] { arrives(place); });
    place->timer = mRunLoop.performAfter(mLimits.silence, [this, place] { drop(place); });
  }

  void arrives(Place place) {
    mWatch.unwatch(std::exchange(place->watch, 0));
    mRunLoop.cancel(place->timer);
    // A longer command comes in several pieces.
    place->timer = mRunLoop.performAfter(mLimits.gathering, [this, place] { read(place); });
  }

  void read(Place place) {
    std::vector<std::byte> bytes(mLimits.bytes);
    const ssize_t count = recv(place->socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    const std::string address = std::move(place->address);
    drop(place);
    if (count <= 0) return;
    bytes.resize(static_cast<std::size_t>(count));
    // Whoever hears it may end this socket.
    const auto received = mEvents.received;
    received(address, bytes);
  }

  void drop(Place place) {
    mWatch.unwatch(place->watch);
    mRunLoop.cancel(place->timer);
    mConnections.erase(place);
  }

  RunLoop& mRunLoop;
  DescriptorWatch& mWatch;
  const ServerSockets::Limits mLimits;
  const ServerSockets::Events mEvents;
  ZAN_Descriptor mSocket;
  std::uint16_t mPort = 0;
  DescriptorWatch::WatchId mListening = 0;
  RunLoop::TimerId mPause = 0;
  std::list<Connection> mConnections;
};

}  // namespace

Result<std::unique_ptr<ServerSocket>> LinuxServerSockets::listen(const Limits& limits,
                                                                 Events events) {
  auto socket = std::make_unique<LinuxServerSocket>(mRunLoop, mWatch, limits, std::move(events));
  if (const Outcome opened = socket->open(); !opened) return opened.error();
  return std::unique_ptr<ServerSocket>(std::move(socket));
}

}  // namespace corvana
