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

#include "platform/linux/LinuxNetwork.h"

namespace corvana {

namespace {

/// So many strangers are let in before the loop gets on with other things.
constexpr int kAcceptsAtOnce = 16;
constexpr int kBacklogOfVisits = 32;
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

/// Lets strangers in, some at a time.
class Acceptor {
 public:
  using Begin = std::function<void(ZAN_Descriptor socket, const std::string& address)>;

  Acceptor(RunLoop& runLoop, DescriptorWatch& watch, Begin begin)
      : mRunLoop(runLoop), mWatch(watch), mBegin(std::move(begin)) {}
  Acceptor(const Acceptor&) = delete;
  Acceptor& operator=(const Acceptor&) = delete;
  ~Acceptor() {
    mWatch.unwatch(mListening);
    mRunLoop.cancel(mPause);
  }

  Outcome open(std::uint16_t port, int backlog, std::size_t bytes) {
    auto opened = listeningSocket(port, backlog, static_cast<int>(bytes));
    if (!opened) return opened.error();
    mSocket = std::move(opened->socket);
    mPort = opened->port;
    startAccepting();
    return {};
  }
  std::uint16_t port() const { return mPort; }

 private:
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
      mBegin(std::move(accepted), from.text());
    }
  }

  void pause() {
    mWatch.unwatch(std::exchange(mListening, 0));
    mPause = mRunLoop.performAfter(kPauseWithoutDescriptors, [this] { startAccepting(); });
  }

  RunLoop& mRunLoop;
  DescriptorWatch& mWatch;
  const Begin mBegin;
  ZAN_Descriptor mSocket;
  std::uint16_t mPort = 0;
  DescriptorWatch::WatchId mListening = 0;
  RunLoop::TimerId mPause = 0;
};

/// A hard end, so that the other side can tell that nobody has read it.
void reset(const ZAN_Descriptor& socket) {
  const linger hard{1, 0};
  setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
}

class LinuxServerSocket final : public ServerSocket {
 public:
  LinuxServerSocket(RunLoop& runLoop, DescriptorWatch& watch, const ServerSockets::Limits& limits,
                    ServerSockets::Events events)
      : mRunLoop(runLoop),
        mWatch(watch),
        mLimits(limits),
        mEvents(std::move(events)),
        mAcceptor(runLoop, watch, [this](ZAN_Descriptor socket, const std::string& address) {
          comes(std::move(socket), address);
        }) {}

  ~LinuxServerSocket() override {
    while (!mConnections.empty()) drop(mConnections.begin());
  }

  Outcome open(std::uint16_t port) { return mAcceptor.open(port, mLimits.backlog, mLimits.bytes); }

  std::uint16_t port() const override { return mAcceptor.port(); }

 private:
  struct Connection {
    ZAN_Descriptor socket;
    std::string address;
    DescriptorWatch::WatchId watch = 0;
    RunLoop::TimerId timer = 0;  ///< until it has been silent for too long, then until it is read
    bool isDue = false;          ///< it is read at the next occasion
  };
  using Place = std::list<Connection>::iterator;

  void comes(ZAN_Descriptor socket, const std::string& address) {
    if (mEvents.accepts && !mEvents.accepts(address)) return reset(socket);
    makeRoomFor(address);
    begin(std::move(socket), address);
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
  Acceptor mAcceptor;
  std::list<Connection> mConnections;
};

/// A visitor on a socket that never blocks.
class Guest final : public Visitor {
 public:
  Guest(RunLoop& runLoop, DescriptorWatch& watch, ZAN_Descriptor socket, std::string address,
        const ServerSockets::VisitLimits& limits)
      : mRunLoop(runLoop),
        mWatch(watch),
        mLimits(limits),
        mSocket(std::move(socket)),
        mAddress(std::move(address)) {}
  Guest(const Guest&) = delete;
  Guest& operator=(const Guest&) = delete;
  ~Guest() override {
    mWatch.unwatch(mReading);
    mWatch.unwatch(mWriting);
    mRunLoop.cancel(mEnd);
  }

  /// `ended` may destroy this.
  void begin(std::unique_ptr<Visit> visit, std::function<void()> ended) {
    mVisit = std::move(visit);
    mEnded = std::move(ended);
    if (mIsOver) return over();
    mEnd = mRunLoop.performAfter(mLimits.seconds, mEnded);
    mReading = mWatch.watch(mSocket.get(), DescriptorWatch::Event::readable, [this] { read(); });
  }

  const std::string& address() const override { return mAddress; }
  void say(std::span<const std::byte> bytes) override {
    mToSay.insert(mToSay.end(), bytes.begin(), bytes.end());
    if (mWriting == 0) write();
  }
  void leave() override {
    mLeaves = true;
    mWatch.unwatch(std::exchange(mReading, 0));
    if (mToSay.empty()) over();
  }

 private:
  void read() {
    std::vector<std::byte> bytes(kReading);
    const ssize_t count = recv(mSocket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    mHeard += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    if (count <= 0 || mHeard > mLimits.bytes) return over();
    bytes.resize(static_cast<std::size_t>(count));
    mVisit->heard(bytes);
  }

  void write() {
    while (!mToSay.empty()) {
      const ssize_t count =
          ::send(mSocket.get(), mToSay.data(), mToSay.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      if (count < 0 && errno != EAGAIN && errno != EINTR) return over();
      if (count <= 0) break;
      mToSay.erase(mToSay.begin(), mToSay.begin() + count);
    }
    if (mToSay.empty()) {
      mWatch.unwatch(std::exchange(mWriting, 0));
      if (mLeaves) over();
    } else if (mWriting == 0) {
      mWriting = mWatch.watch(mSocket.get(), DescriptorWatch::Event::writable, [this] { write(); });
    }
  }

  /// The visit may be on the stack.
  void over() {
    mIsOver = true;
    if (!mEnded) return;
    mWatch.unwatch(std::exchange(mReading, 0));
    mWatch.unwatch(std::exchange(mWriting, 0));
    mRunLoop.cancel(mEnd);
    mEnd = mRunLoop.performAfter(0, mEnded);
  }

  static constexpr std::size_t kReading = 16384;

  RunLoop& mRunLoop;
  DescriptorWatch& mWatch;
  const ServerSockets::VisitLimits mLimits;
  ZAN_Descriptor mSocket;
  std::string mAddress;
  std::unique_ptr<Visit> mVisit;
  std::function<void()> mEnded;
  std::vector<std::byte> mToSay;
  std::size_t mHeard = 0;
  bool mLeaves = false;
  bool mIsOver = false;
  DescriptorWatch::WatchId mReading = 0;
  DescriptorWatch::WatchId mWriting = 0;
  RunLoop::TimerId mEnd = 0;
};

class VisitingSocket final : public ServerSocket {
 public:
  VisitingSocket(RunLoop& runLoop, DescriptorWatch& watch, const ServerSockets::VisitLimits& limits,
                 ServerSockets::Comes comes)
      : mRunLoop(runLoop),
        mWatch(watch),
        mLimits(limits),
        mComes(std::move(comes)),
        mAcceptor(runLoop, watch, [this](ZAN_Descriptor socket, const std::string& address) {
          begin(std::move(socket), address);
        }) {}

  Outcome open(std::uint16_t port) { return mAcceptor.open(port, kBacklogOfVisits, mLimits.bytes); }
  std::uint16_t port() const override { return mAcceptor.port(); }

 private:
  void begin(ZAN_Descriptor socket, const std::string& address) {
    std::list<Guest> come;
    come.emplace_back(mRunLoop, mWatch, std::move(socket), address, mLimits);
    auto visit = mComes(come.front());
    // Nobody has to go for one that is turned away.
    if (visit == nullptr) return;
    makeRoomFor(address);
    const auto guest = come.begin();
    mGuests.splice(mGuests.end(), come);
    guest->begin(std::move(visit), [this, guest] { mGuests.erase(guest); });
  }

  void makeRoomFor(const std::string& address) {
    const auto isOfIt = [&](const Guest& one) { return one.address() == address; };
    if (static_cast<std::size_t>(std::ranges::count_if(mGuests, isOfIt)) >=
        mLimits.connectionsPerAddress)
      mGuests.erase(std::ranges::find_if(mGuests, isOfIt));
    else if (mGuests.size() >= mLimits.connections)
      mGuests.pop_front();
  }

  RunLoop& mRunLoop;
  DescriptorWatch& mWatch;
  const ServerSockets::VisitLimits mLimits;
  const ServerSockets::Comes mComes;
  std::list<Guest> mGuests;  ///< in the order of their coming
  Acceptor mAcceptor;
};

}  // namespace

Result<std::unique_ptr<ServerSocket>> LinuxServerSockets::listen(std::uint16_t port,
                                                                 const Limits& limits,
                                                                 Events events) {
  auto socket = std::make_unique<LinuxServerSocket>(mRunLoop, mWatch, limits, std::move(events));
  if (const Outcome opened = socket->open(port); !opened) return opened.error();
  return std::unique_ptr<ServerSocket>(std::move(socket));
}

Result<std::unique_ptr<ServerSocket>> LinuxServerSockets::listenForVisits(std::uint16_t port,
                                                                          const VisitLimits& limits,
                                                                          Comes comes) {
  auto socket = std::make_unique<VisitingSocket>(mRunLoop, mWatch, limits, std::move(comes));
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
