#include "platform/linux/LinuxServerSockets.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <fstream>
#include <thread>
#include <vector>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "tests/real/RealLoop.h"

namespace corvana {
namespace {

ZAN_Descriptor connectTo(std::uint16_t port) {
  ZAN_Descriptor made(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(made.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    return ZAN_Descriptor();
  return made;
}

bool say(const ZAN_Descriptor& socket, const std::string& text) {
  return ::send(socket.get(), text.data(), text.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(text.size());
}

std::size_t residentKilobytes() {
  std::ifstream file("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  file >> total >> resident;
  return resident * 4;
}

struct LinuxServerSocketsTest : testing::Test {
  RealLoop real;
  LinuxServerSockets sockets{real.loop, real.loop};
  std::vector<std::string> received;
  std::string reply;
  std::unique_ptr<ServerSocket> server;

  void listen(const ServerSockets::Limits& limits, bool accepts = true) {
    auto made = sockets.listen(
        0, limits,
        {[accepts](const std::string&) { return accepts; },
         [this](const std::string& address, std::span<const std::byte> bytes) {
           EXPECT_EQ(address, "127.0.0.1");
           received.emplace_back(reinterpret_cast<const char*>(bytes.data()), bytes.size());
           const auto said = std::as_bytes(std::span(reply));
           return std::vector<std::byte>(said.begin(), said.end());
         }});
    ASSERT_TRUE(made);
    server = std::move(made).value();
    ASSERT_NE(server->port(), 0);
  }
  /// Whether the other side has closed, however.
  static bool isClosed(const ZAN_Descriptor& socket) {
    char c = 0;
    const ssize_t count = ::recv(socket.get(), &c, 1, MSG_DONTWAIT);
    return count == 0 || (count < 0 && errno != EAGAIN);
  }
};

TEST_F(LinuxServerSocketsTest, ReadsOnceWhatHasArrivedAndCloses) {
  listen({});
  const ZAN_Descriptor client = connectTo(server->port());
  ASSERT_TRUE(say(client, "one"));
  ASSERT_TRUE(say(client, " command"));
  ASSERT_TRUE(real.runUntil([&] { return isClosed(client); }));
  EXPECT_EQ(received, std::vector<std::string>{"one command"});
}

TEST_F(LinuxServerSocketsTest, ManyQuickCommandsOfOneMachineAreAllRead) {
  ServerSockets::Limits limits;
  limits.backlog = 32;
  listen(limits);
  const ZAN_Descriptor silent = connectTo(server->port());
  std::vector<ZAN_Descriptor> clients;
  for (int i = 0; i < 12; ++i) {
    clients.push_back(connectTo(server->port()));
    ASSERT_TRUE(say(clients.back(), "command " + std::to_string(i)));
  }
  ASSERT_TRUE(real.runUntil([&] { return received.size() == 12; })) << received.size();
  EXPECT_TRUE(std::ranges::count(received, "command 0") == 1);
  EXPECT_TRUE(isClosed(silent)) << "it made room";
}

TEST_F(LinuxServerSocketsTest, WhoIsSilentOrUnwantedIsDropped) {
  ServerSockets::Limits limits;
  limits.silence = 0.2;
  listen(limits);
  const ZAN_Descriptor silent = connectTo(server->port());
  ASSERT_TRUE(real.runUntil([&] { return isClosed(silent); }));
  listen({}, false);
  const ZAN_Descriptor unwanted = connectTo(server->port());
  say(unwanted, "let me in");
  ASSERT_TRUE(real.runUntil([&] { return isClosed(unwanted); }));
  EXPECT_TRUE(received.empty());
}

TEST_F(LinuxServerSocketsTest, AnEndlessStreamAndThousandsOfConnectionsAreBounded) {
  ServerSockets::Limits limits;
  limits.backlog = 128;  // with a short one the attacker itself is held up
  listen(limits);
  const std::size_t before = residentKilobytes();
  bool ended = false;
  std::thread attacker([&] {
    // Megabytes, in streams that are each cut off after the first reading.
    const std::string block(1 << 20, 'x');
    for (std::size_t sent = 0; sent < 64;) {
      const ZAN_Descriptor stream = connectTo(server->port());
      while (sent < 64 && say(stream, block)) ++sent;
      ++sent;
    }
    // Those that say nothing stay open on this side.
    std::vector<ZAN_Descriptor> silent;
    for (int i = 0; i < 3000; ++i) {
      silent.push_back(connectTo(server->port()));
      if (silent.size() > 200) silent.erase(silent.begin());
    }
    real.loop.performOnMain([&] { ended = true; });
  });
  double longest = 0;
  double last = real.clock.monotonic();
  const auto pulse = real.loop.repeat(0.01, [&] {
    longest = std::max(longest, real.clock.monotonic() - last);
    last = real.clock.monotonic();
  });
  EXPECT_TRUE(real.runUntil([&] { return ended; }, 120));
  real.loop.cancel(pulse);
  attacker.join();
  EXPECT_LT(longest, 1.0) << "the loop went on";
  EXPECT_LT(residentKilobytes(), before + 64 * 1024);
  EXPECT_TRUE(std::ranges::all_of(received, [](const auto& one) { return one.size() <= 65536; }));
  RecordProperty("readings", static_cast<int>(received.size()));
  RecordProperty("longest_pause_ms", static_cast<int>(longest * 1000));

  received.clear();
  const ZAN_Descriptor honest = connectTo(server->port());
  ASSERT_TRUE(say(honest, "still there?"));
  ASSERT_TRUE(real.runUntil([&] { return !received.empty(); }));
  EXPECT_EQ(received.back(), "still there?");
}

/// Answers each byte with a thousand, and leaves at a full stop.
struct Echo final : Visit {
  explicit Echo(Visitor& guest, int& living) : visitor(guest), alive(living) { ++alive; }
  ~Echo() override { --alive; }
  void heard(std::span<const std::byte> bytes) override {
    for (const std::byte byte : bytes) {
      visitor.say(std::vector<std::byte>(1000, byte));
      if (byte == std::byte{'.'}) visitor.leave();
    }
  }
  Visitor& visitor;
  int& alive;
};

TEST_F(LinuxServerSocketsTest, VisitorsAreHeardAndAnsweredUntilTheirTimeIsOver) {
  int alive = 0;
  bool turnsAway = false;
  ServerSockets::VisitLimits limits;
  limits.connections = 3;
  limits.bytes = 6000;
  limits.seconds = 0.5;
  auto made = sockets.listenForVisits(0, limits, [&](Visitor& visitor) {
    EXPECT_EQ(visitor.address(), "127.0.0.1");
    return turnsAway ? nullptr : std::make_unique<Echo>(visitor, alive);
  });
  ASSERT_TRUE(made);
  server = std::move(made).value();
  std::string heard;
  const auto hear = [&](const ZAN_Descriptor& socket) {
    std::vector<char> bytes(1 << 16);
    const ssize_t count = ::recv(socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count > 0) heard.append(bytes.data(), static_cast<std::size_t>(count));
    return count == 0;
  };
  // Five megabytes do not fit into a connection at once.
  const ZAN_Descriptor client = connectTo(server->port());
  ASSERT_TRUE(say(client, std::string(4999, 'a')));
  ASSERT_TRUE(say(client, "."));
  ASSERT_TRUE(real.runUntil([&] { return hear(client); }));
  EXPECT_EQ(heard.size(), 5'000'000U);
  EXPECT_EQ(heard.back(), '.');

  const ZAN_Descriptor talkative = connectTo(server->port());
  ASSERT_TRUE(say(talkative, std::string(7000, 'b')));
  ASSERT_TRUE(real.runUntil([&] { return isClosed(talkative) || (hear(talkative), false); }));
  std::vector<ZAN_Descriptor> silent;
  for (int i = 0; i < 5; ++i) silent.push_back(connectTo(server->port()));
  ASSERT_TRUE(real.runUntil([&] { return isClosed(silent[0]) && isClosed(silent[1]); }));
  EXPECT_LE(alive, 3);
  turnsAway = true;
  for (int i = 0; i < 5; ++i) {
    const ZAN_Descriptor unwanted = connectTo(server->port());
    ASSERT_TRUE(real.runUntil([&] { return isClosed(unwanted); }));
  }
  EXPECT_EQ(alive, 3) << "somebody had to go for one that was turned away";
  turnsAway = false;
  ASSERT_TRUE(real.runUntil([&] { return isClosed(silent[4]); })) << "its time is over";
  EXPECT_EQ(alive, 0);
  const ZAN_Descriptor last = connectTo(server->port());
  ASSERT_TRUE(real.runUntil([&] { return alive == 1; }));
  server.reset();
  EXPECT_EQ(alive, 0);
}

}  // namespace
}  // namespace corvana
