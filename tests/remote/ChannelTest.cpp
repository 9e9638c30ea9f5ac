#include <gmock/gmock.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <memory>
#include <string_view>

#include "platform/keyed/TlsChannels.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "remote/PairedChannel.h"

namespace corvana {
namespace {

using Bytes = std::vector<std::byte>;
using testing::ElementsAre;

ControlKey keyOf(int seed) {
  std::array<std::byte, 32> bytes{};
  bytes.fill(static_cast<std::byte>(seed));
  return *ControlKey::from(bytes);
}

bool holds(const Bytes& bytes, std::string_view text) {
  const auto raw = std::as_bytes(std::span(text));
  return !std::ranges::search(bytes, raw).empty();
}

/// A machine that is paired with the kitchen, and what the kitchen and others say to it.
struct ChannelTest : testing::Test {
  TlsChannels channels;
  SimulatedPlatform machine;
  Platform platform = [this] {
    machine.keyedChannels = &channels;
    return machine.platform();
  }();
  std::vector<std::string> asked;
  int looked = 0;  ///< for a key
  bool knowsTheKitchen = true;
  PairedChannel served{
      platform, [](const std::string& address) { return address != "10.0.0.66"; },
      [this] {
        ++looked;
        if (!knowsTheKitchen) served.setMachines({});
      },
      [this](const std::string& address, const std::string& sender, const ChannelRequest& request) {
        asked.push_back(sender + " from " + address + (request.command ? " tells" : " asks"));
        return ChannelReply{CommandReply::Word::done,
                            ZAN_Value::dictionary({{"title", "Secret letters"}})};
      }};
  Bytes toServer;  ///< what an eavesdropper has heard of the last call
  Bytes toClient;

  void SetUp() override {
    served.setMachines({{"k17c/501", keyOf(1)}});
    ASSERT_TRUE(served.open(0));
  }
  /// One request from its beginning to its end; `carry` may change what goes either way.
  std::optional<ChannelReply> call(
      const ControlKey& key, const ChannelRequest& request,
      const std::function<void(Bytes& bytes, bool toServer, std::size_t at)>& carry = {}) {
    toServer.clear();
    toClient.clear();
    ChannelCall call(std::move(*channels.asking(key.channelKey())), request);
    const auto line = machine.serverSockets.call(served.port(), "10.0.0.2");
    if (!line) return std::nullopt;
    for (int round = 0; round < 10; ++round) {
      for (const bool isToServer : {true, false}) {
        Bytes bytes = isToServer ? call.toNetwork() : line->heard();
        Bytes& all = isToServer ? toServer : toClient;
        if (carry) carry(bytes, isToServer, all.size());
        all.insert(all.end(), bytes.begin(), bytes.end());
        if (bytes.empty()) continue;
        if (isToServer) {
          line->say(bytes);
          machine.runLoop.runFor(0.001);
        } else if (!call.take(bytes)) {
          return call.reply();
        }
      }
    }
    return call.reply();
  }
};

TEST_F(ChannelTest, PairedMachinesTalkAndNobodyElseReadsIt) {
  const auto state = call(keyOf(1), {});
  ASSERT_TRUE(state);
  EXPECT_EQ(state->state.string("title"), "Secret letters");
  EXPECT_FALSE(holds(toClient, "Secret")) << "the network can read it";
  EXPECT_TRUE(call(keyOf(1), {RemoteCommand{RemoteCommand::Message{"Rendezvous", "Kitchen"}}}));
  EXPECT_FALSE(holds(toServer, "Rendezvous"));
  EXPECT_THAT(asked, ElementsAre("k17c/501 from 10.0.0.2 asks", "k17c/501 from 10.0.0.2 tells"));
  EXPECT_EQ(machine.serverSockets.call(served.port(), "10.0.0.66"), nullptr);
}

TEST_F(ChannelTest, WithoutTheKeyNobodyGetsAWordIn) {
  EXPECT_FALSE(call(keyOf(2), {})) << "a key of another pair";
  // Somebody has heard the name of the key, and guesses what it is.
  ChannelKey guessed = keyOf(2).channelKey();
  guessed.name = keyOf(1).channelKey().name;
  ChannelCall guess(std::move(*channels.asking(guessed)), {});
  const auto line = machine.serverSockets.call(served.port(), "10.0.0.3");
  line->say(guess.toNetwork());
  machine.runLoop.runFor(0.001);
  EXPECT_TRUE(line->isOver());
  EXPECT_FALSE(guess.take(line->heard()));

  // All that one side has said, said again to the other.
  ASSERT_TRUE(call(keyOf(1), {}));
  const auto again = machine.serverSockets.call(served.port(), "10.0.0.3");
  again->say(toServer);
  machine.runLoop.runFor(0.001);
  EXPECT_TRUE(again->isOver());
  ChannelCall deceived(std::move(*channels.asking(keyOf(1).channelKey())), {});
  static_cast<void>(deceived.toNetwork());
  EXPECT_FALSE(deceived.take(toClient));
  EXPECT_FALSE(deceived.reply());
  EXPECT_EQ(asked.size(), 1U);

  knowsTheKitchen = false;
  EXPECT_FALSE(call(keyOf(1), {})) << "forgotten while the channel was open";
  EXPECT_EQ(asked.size(), 1U);
}

/// Each name would be looked for in the file of keys, on the main thread.
TEST_F(ChannelTest, AVisitorCannotNameThousandsOfKeys) {
  constexpr std::size_t kNames = 2000;
  constexpr std::size_t kBytesOfName = 7;  // the length, one letter, an age
  ChannelCall stranger(std::move(*channels.asking(keyOf(2).channelKey())), {});
  Bytes hello = stranger.toNetwork();
  // At its end stand one name of 32 letters and the proof that belongs to it.
  constexpr std::size_t kOneName = 2 + 32 + 4;
  constexpr std::size_t kProof = 2 + 1 + 32;
  const std::size_t names = hello.size() - kProof - kOneName;
  const auto number = [&](std::size_t at) {
    return std::to_integer<std::size_t>(hello[at]) << 8U |
           std::to_integer<std::size_t>(hello[at + 1]);
  };
  ASSERT_EQ(number(names - 6), 0x29U) << "the extension with the names";
  ASSERT_EQ(number(names - 2), kOneName);
  const std::size_t more = kNames * kBytesOfName - kOneName;
  std::size_t all = 5 + 4 + 2 + 32;                     // what stands before the session
  all += 1 + std::to_integer<std::size_t>(hello[all]);  // the session
  all += 2 + number(all);                               // ciphers
  all += 1 + std::to_integer<std::size_t>(hello[all]);  // compressions
  for (const std::size_t length : {std::size_t{3}, std::size_t{7}, all, names - 4, names - 2}) {
    const std::size_t longer = number(length) + more;
    hello[length] = static_cast<std::byte>(longer >> 8U);
    hello[length + 1] = static_cast<std::byte>(longer);
  }
  Bytes many(kNames * kBytesOfName, std::byte{});
  for (std::size_t i = 0; i < kNames; ++i) {
    many[i * kBytesOfName + 1] = std::byte{1};
    many[i * kBytesOfName + 2] = static_cast<std::byte>(i);
  }
  const auto place = hello.begin() + static_cast<std::ptrdiff_t>(names);
  hello.insert(hello.erase(place, place + kOneName), many.begin(), many.end());
  const auto line = machine.serverSockets.call(served.port(), "10.0.0.3");
  looked = 0;
  line->say(hello);
  machine.runLoop.runFor(0.001);
  EXPECT_TRUE(line->isOver());
  EXPECT_EQ(looked, 1);
}

/// Somebody who answers in the place of the machine, with a certificate instead of the key.
TEST_F(ChannelTest, ACertificateIsNoKey) {
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), X509_free);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 86400);
  X509_set_pubkey(certificate.get(), key.get());
  ASSERT_NE(X509_sign(certificate.get(), key.get(), EVP_sha256()), 0);
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_server_method()),
                                                                  SSL_CTX_free);
  ASSERT_EQ(SSL_CTX_use_certificate(context.get(), certificate.get()), 1);
  ASSERT_EQ(SSL_CTX_use_PrivateKey(context.get(), key.get()), 1);
  const std::unique_ptr<SSL, decltype(&SSL_free)> server(SSL_new(context.get()), SSL_free);
  SSL_set_bio(server.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));

  ChannelCall call(std::move(*channels.asking(keyOf(1).channelKey())), {});
  const Bytes hello = call.toNetwork();
  BIO_write(SSL_get_rbio(server.get()), hello.data(), static_cast<int>(hello.size()));
  SSL_accept(server.get());
  Bytes answer(BIO_ctrl_pending(SSL_get_wbio(server.get())));
  ASSERT_GT(answer.size(), 500U) << "it would go on by its certificate";
  BIO_read(SSL_get_wbio(server.get()), answer.data(), static_cast<int>(answer.size()));
  EXPECT_FALSE(call.take(answer));
  EXPECT_FALSE(call.isSecured());
}

TEST_F(ChannelTest, AByteChangedAnywhereEndsIt) {
  ASSERT_TRUE(call(keyOf(1), {}));
  for (const bool way : {true, false}) {
    const std::size_t size = way ? toServer.size() : toClient.size();
    for (std::size_t at = 0; at < size; at += 3) {
      const auto before = asked.size();
      const auto reply = call(keyOf(1), {}, [&](Bytes& bytes, bool isToServer, std::size_t gone) {
        if (isToServer == way && at >= gone && at - gone < bytes.size())
          bytes[at - gone] ^= std::byte{0x10};
      });
      // What differs may be the version of a record, which nobody reads.
      if (reply) {
        EXPECT_EQ(reply->state.string("title"), "Secret letters") << at;
      }
      // The request itself comes last.
      if (way && at + 100 > size) {
        EXPECT_EQ(asked.size(), before) << at;
      }
    }
  }
}

TEST_F(ChannelTest, LongMessagesAndSlowSendersAreTakenAsFarAsTheyMay) {
  ChannelRequest launch{RemoteCommand{RemoteCommand::Launch{}}};
  auto& references = std::get<RemoteCommand::Launch>(launch.command->what).references;
  for (int ref = 1; ref <= 3000; ++ref) references.push_back(ref + 1'000'000);
  EXPECT_TRUE(call(keyOf(1), launch));
  for (int ref = 1; ref <= 6000; ++ref) references.push_back(ref + 2'000'000);
  EXPECT_FALSE(call(keyOf(1), launch));

  Frames frames(4, 10);
  const Bytes whole = Frames::framed(4, Bytes(10, std::byte{7}));
  for (const std::byte byte : whole) {
    EXPECT_FALSE(*frames.next());
    frames.take(std::span(&byte, 1));
  }
  EXPECT_EQ((*frames.next())->size(), 10U);
  frames.take(Frames::framed(4, Bytes(11)));
  EXPECT_FALSE(frames.next()) << "longer than allowed";
}

}  // namespace
}  // namespace corvana
