#include "platform/linux/LinuxNetwork.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
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

}  // namespace corvana
