#include "platform/linux/LinuxNetwork.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <list>
#include <memory>
#include <system_error>

namespace corvana {

namespace {

std::string textOf(int error) { return std::system_category().message(error); }

struct AddressList {
  addrinfo* first = nullptr;
  AddressList() = default;
  AddressList(const AddressList&) = delete;
  AddressList& operator=(const AddressList&) = delete;
  ~AddressList() {
    if (first != nullptr) freeaddrinfo(first);
  }
  /// 0, or an error of the resolver.
  int find(const std::string& host, const char* service, int family) {
    addrinfo hints{};
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    return getaddrinfo(host.c_str(), service, &hints, &first);
  }
};

}  // namespace

std::vector<SocketStream::Address> SocketStream::lookUp(const std::string& host, std::int64_t port,
                                                        Network::Family family,
                                                        std::string& reason) {
  std::vector<Address> addresses;
  if (port < 1 || port > 65535) {
    reason = "port " + std::to_string(port) + ": there is no such port";
    return addresses;
  }
  AddressList list;
  const int error = list.find(host, std::to_string(port).c_str(),
                              family == Network::Family::ipv4 ? AF_INET : AF_UNSPEC);
  if (error != 0) {
    reason = host + ": " + gai_strerror(error);
    return addresses;
  }
  for (const addrinfo* one = list.first; one != nullptr; one = one->ai_next)
    addresses.push_back({one->ai_family, std::string(static_cast<const char*>(
                                                         static_cast<const void*>(one->ai_addr)),
                                                     one->ai_addrlen)});
  return addresses;
}

bool SocketStream::resolves(const std::string& host) {
  AddressList list;
  return !host.empty() && list.find(host, nullptr, AF_UNSPEC) == 0;
}

SocketStream::SocketStream(const std::string& host, std::int64_t port, Network::Family family) {
  std::string reason;
  auto found = lookUp(host, port, family, reason);
  mAddresses.assign(std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
  tryNextAddress(reason);
}

SocketStream::SocketStream(ZAN_Descriptor connected)
    : mSocket(std::move(connected)), mOpened(true) {}

void SocketStream::tryNextAddress(const std::string& reason) {
  std::string last = reason;
  while (!mAddresses.empty()) {
    const Address address = std::move(mAddresses.front());
    mAddresses.pop_front();
    mSocket =
        ZAN_Descriptor(::socket(address.family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!mSocket) {
      last = textOf(errno);
      continue;
    }
    const int yes = 1;
    setsockopt(mSocket.get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    const auto* bytes =
        static_cast<const sockaddr*>(static_cast<const void*>(address.bytes.data()));
    if (::connect(mSocket.get(), bytes, static_cast<socklen_t>(address.bytes.size())) == 0 ||
        errno == EINPROGRESS)
      return;
    last = textOf(errno);
  }
  fail(last);
}

StreamConnection::Event SocketStream::fail(const std::string& reason) {
  if (mFailure.empty()) mFailure = reason.empty() ? "the connection failed" : reason;
  mSocket.close();
  return Event::failed;
}

short SocketStream::poll(short events, double seconds) {
  pollfd one{mSocket.get(), events, 0};
  const double milliseconds = std::clamp(std::ceil(seconds * 1000), 0.0, 1e6);
  // Interrupted counts as too early a return; the caller waits again.
  return ::poll(&one, 1, static_cast<int>(milliseconds)) > 0 ? one.revents : short{0};
}

StreamConnection::Event SocketStream::waitForOpening(double seconds) {
  if (poll(POLLOUT, seconds) == 0) return Event::nothing;
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(mSocket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
  if (error == 0) {
    mOpened = true;
    mAddresses.clear();
    return Event::opened;
  }
  tryNextAddress(textOf(error));
  return mFailure.empty() ? Event::nothing : Event::failed;
}

StreamConnection::Event SocketStream::wait(double seconds, bool wantsSpace) {
  if (!mFailure.empty()) return Event::failed;
  if (mEnded) return Event::ended;
  if (!mOpened) return waitForOpening(seconds);
  const short happened = poll(static_cast<short>(POLLIN | (wantsSpace ? POLLOUT : 0)), seconds);
  if (happened == 0) return Event::nothing;
  if ((happened & (POLLIN | POLLHUP | POLLERR)) != 0) {
    int waiting = 0;
    if (ioctl(mSocket.get(), FIONREAD, &waiting) == 0 && waiting > 0) return Event::received;
    // Nothing to read where something can be read is the end, or an error.
    char probe = 0;
    const ssize_t count = ::recv(mSocket.get(), &probe, 1, MSG_PEEK);
    if (count > 0) return Event::received;
    if (count == 0) {
      mEnded = true;
      return Event::ended;
    }
    if (errno != EAGAIN && errno != EINTR) return fail(textOf(errno));
  }
  return (happened & POLLOUT) != 0 ? Event::space : Event::nothing;
}

std::string SocketStream::read(std::size_t limit) {
  if (!mSocket || !mOpened) return {};
  std::string bytes(limit, '\0');
  const ssize_t count = ::recv(mSocket.get(), bytes.data(), limit, 0);
  bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return bytes;
}

Result<std::size_t> SocketStream::send(std::string_view bytes) {
  if (!mFailure.empty()) return Error{ErrorKind::unavailable, mFailure};
  if (!mSocket || !mOpened) return std::size_t{0};
  const ssize_t count = ::send(mSocket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (count >= 0) return static_cast<std::size_t>(count);
  if (errno == EAGAIN || errno == EINTR) return std::size_t{0};
  return Error{ErrorKind::unavailable, textOf(errno)};
}

void SocketStream::startTLS(const std::string&) {
  fail("TLS handshake failed: there is no encryption here");
}

ZAN_Descriptor SocketStream::release() {
  std::string dropped(4096, '\0');
  while (mSocket && ::recv(mSocket.get(), dropped.data(), dropped.size(), 0) > 0) {
  }
  mEnded = true;
  return std::move(mSocket);
}

bool LinuxNetwork::resolves(const std::string& host) { return SocketStream::resolves(host); }

std::unique_ptr<StreamConnection> LinuxNetwork::connect(const std::string& host, std::int64_t port,
                                                        Family family) {
  return std::make_unique<SocketStream>(host, port, family);
}

namespace {

/// So many strangers are let in before the loop gets on with other things.
constexpr int kAcceptsAtOnce = 16;
/// Without descriptors left the waiting ones would wake the loop again and again.
constexpr double kPauseWithoutDescriptors = 1;

Error errorOf(ErrorKind kind, const char* what) {
  return {kind, std::string("listening socket: ") + what + ": " + std::strerror(errno)};
}

/// A socket address of either family.
struct AnyAddress {
  sockaddr_storage bytes{};
  socklen_t size = sizeof bytes;

  sockaddr* raw() { return reinterpret_cast<sockaddr*>(&bytes); }
  static AnyAddress wildcard(int family, std::uint16_t port) {
    AnyAddress address;
    address.bytes.ss_family = static_cast<sa_family_t>(family);
    address.size = family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    // The port has the same place in both.
    reinterpret_cast<sockaddr_in*>(&address.bytes)->sin_port = htons(port);
    return address;
  }
  std::uint16_t port() const {
    return ntohs(reinterpret_cast<const sockaddr_in*>(&bytes)->sin_port);
  }
  std::string text() const {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (bytes.ss_family == AF_INET6) {
      const in6_addr& six = reinterpret_cast<const sockaddr_in6*>(&bytes)->sin6_addr;
      if (IN6_IS_ADDR_V4MAPPED(&six))
        inet_ntop(AF_INET, &six.s6_addr[12], text.data(), text.size());
      else
        inet_ntop(AF_INET6, &six, text.data(), text.size());
    } else {
      inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(&bytes)->sin_addr, text.data(),
                text.size());
    }
    return text.data();
  }
};

struct Listening {
  ZAN_Descriptor socket;
  std::uint16_t port = 0;
};

/// `bytes` bounds what piles up in the system of a connection that nobody reads.
Result<Listening> listeningSocket(int family, std::uint16_t port, int backlog, int bytes) {
  Listening opened;
  opened.socket = ZAN_Descriptor(socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int descriptor = opened.socket.get();
  const int no = 0;
  if (!opened.socket || (family == AF_INET6 &&
                         setsockopt(descriptor, IPPROTO_IPV6, IPV6_V6ONLY, &no, sizeof no) != 0))
    return errorOf(ErrorKind::unavailable, "cannot be made");
  const int yes = 1;
  // A port of one's own is to be had again right after a restart.
  if (port != 0) setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  // The connections inherit it.
  setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
  AnyAddress address = AnyAddress::wildcard(family, port);
  if (bind(descriptor, address.raw(), address.size) != 0)
    return errorOf(errno == EADDRNOTAVAIL ? ErrorKind::unavailable : ErrorKind::refused,
                   "cannot be bound");
  if (getsockname(descriptor, address.raw(), &address.size) != 0)
    return errorOf(ErrorKind::refused, "its port cannot be read");
  if (::listen(descriptor, backlog) != 0) return errorOf(ErrorKind::unavailable, "cannot listen");
  opened.port = address.port();
  return opened;
}

Result<Listening> listeningSocket(std::uint16_t port, int backlog, int bytes) {
  auto both = listeningSocket(AF_INET6, port, backlog, bytes);
  // A machine may have IPv6 switched off.
  if (both || both.error().kind == ErrorKind::refused) return both;
  return listeningSocket(AF_INET, port, backlog, bytes);
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

  Outcome open(std::uint16_t port) {
    auto opened = listeningSocket(port, mLimits.backlog, static_cast<int>(mLimits.bytes));
    if (!opened) return opened.error();
    mSocket = std::move(opened->socket);
    mPort = opened->port;
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
      AnyAddress from;
      ZAN_Descriptor accepted(
          accept4(mSocket.get(), from.raw(), &from.size, SOCK_CLOEXEC | SOCK_NONBLOCK));
      if (!accepted) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) pause();
        return;
      }
      const std::string address = from.text();
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
    const ZAN_Descriptor socket = std::move(place->socket);
    mWatch.unwatch(std::exchange(place->watch, 0));
    drop(place);
    if (count <= 0) return;
    bytes.resize(static_cast<std::size_t>(count));
    // Whoever hears it may end this socket.
    const auto received = mEvents.received;
    const std::vector<std::byte> reply = received(address, bytes);
    // There is room for that much in a fresh connection.
    if (!reply.empty())
      static_cast<void>(
          ::send(socket.get(), reply.data(), reply.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
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

Result<std::unique_ptr<ServerSocket>> LinuxServerSockets::listen(std::uint16_t port,
                                                                 const Limits& limits,
                                                                 Events events) {
  auto socket = std::make_unique<LinuxServerSocket>(mRunLoop, mWatch, limits, std::move(events));
  if (const Outcome opened = socket->open(port); !opened) return opened.error();
  return std::unique_ptr<ServerSocket>(std::move(socket));
}

Result<StreamListener> StreamListener::open() {
  constexpr int kBytes = 65536;
  auto opened = listeningSocket(0, 1, kBytes);
  if (!opened) return opened.error();
  StreamListener listener;
  listener.mSocket = std::move(opened->socket);
  listener.mPort = opened->port;
  return listener;
}

std::unique_ptr<StreamConnection> StreamListener::accept(std::string& from) {
  AnyAddress address;
  ZAN_Descriptor accepted(
      accept4(mSocket.get(), address.raw(), &address.size, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!accepted) return nullptr;
  from = address.text();
  return std::make_unique<SocketStream>(std::move(accepted));
}

}  // namespace corvana
