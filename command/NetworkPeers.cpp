#include "command/NetworkPeers.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <set>
#include <tuple>

#include "command/CommandHome.h"
#include "platform/linux/LinuxNetwork.h"
#include "platform/linux/Modules.h"
#include "platform/qt/AvahiServices.h"
#include "platform/qt/QtRunLoop.h"

namespace corvana {

namespace {

constexpr double kPatienceForAll = 8;
constexpr double kPatienceForTwins = 3;
constexpr double kPatienceForOne = 10;

std::optional<NetworkPeer> peerOf(const FoundService& service) {
  auto name = ServiceName::parse(service.name);
  if (!name) return std::nullopt;
  NetworkPeer peer{*std::move(name), service, {}};
  for (const std::string& text : service.txt) {
    if (auto action = LaunchableAction::parse(text)) peer.actions.push_back(*std::move(action));
    if (text.starts_with(kChallengeText)) peer.challenge = text.substr(kChallengeText.size());
    if (text.starts_with(kPermitsText)) peer.permits = text.substr(kPermitsText.size());
    if (text.starts_with(kChannelText)) {
      const std::string_view port = std::string_view(text).substr(kChannelText.size());
      std::from_chars(port.data(), port.data() + port.size(), peer.channelPort);
    }
  }
  // The texts come in any order.
  std::ranges::sort(peer.actions, {}, &LaunchableAction::ref);
  return peer;
}

}  // namespace

class NetworkPeers::Search {
 public:
  explicit Search(const Console& console) : mLog(console) {
    mBrowsing = mServices.browse(
        kRemoteServiceType, kRemoteServiceDomain,
        {[this](const FoundService& service) { found(service); },
         [this](const std::string& name) {
           mPeers.erase(name);
           if (onLost) onLost();
         },
         [this](const std::string& name, int code, const std::string& reason) {
           mLog.write(name + ": NetService did not resolve: " + std::to_string(code) + " (" +
                      reason + ")");
         },
         [this] { end(); },
         [this](const std::string& reason) {
           mFailure = reason;
           end();
         },
         [this](std::size_t most) { mMost = most; }});
  }

  /// The loop runs until something ends it, so many seconds at most.
  void run(double seconds) {
    const auto limit = mLoop.performAfter(seconds, [this] { end(); });
    mLoop.run();
    mLoop.cancel(limit);
  }
  void end() { mLoop.quit(0); }

  void found(const FoundService& service) {
    auto peer = peerOf(service);
    if (!peer) return;
    const NetworkPeer& kept = mPeers.insert_or_assign(service.name, *std::move(peer)).first->second;
    if (onFound) onFound(kept);
  }

  /// Whether one machine is seen in two states: it has just changed, and the old one fades away.
  bool hasTwins() const {
    std::set<std::tuple<std::string, std::string, std::int64_t>> seen;
    return std::ranges::any_of(mPeers, [&](const auto& entry) {
      const ServiceName& name = entry.second.name;
      return !seen.emplace(name.machine, name.identifier, name.user).second;
    });
  }

  std::function<void(const NetworkPeer&)> onFound;
  std::function<void()> onLost;
  std::map<std::string, NetworkPeer> mPeers;
  std::string mFailure;
  std::optional<std::size_t> mMost;

 private:
  QtApplication mApplication;
  QtRunLoop mLoop;
  ConsoleLog mLog;
  AvahiServices mServices{mLoop, mLog};
  std::unique_ptr<ServiceBrowsing> mBrowsing;
};

NetworkPeers::NetworkPeers(const Console& console) : mSearch(std::make_unique<Search>(console)) {}

NetworkPeers::~NetworkPeers() = default;

Result<std::vector<NetworkPeer>> NetworkPeers::all() {
  mSearch->run(kPatienceForAll);
  if (!mSearch->mFailure.empty())
    return Error{ErrorKind::unavailable, "search of the network: " + mSearch->mFailure};
  if (mSearch->hasTwins()) {
    mSearch->onLost = [this] {
      if (!mSearch->hasTwins()) mSearch->end();
    };
    mSearch->run(kPatienceForTwins);
    mSearch->onLost = nullptr;
  }
  std::vector<NetworkPeer> peers;
  for (const auto& [name, peer] : mSearch->mPeers) peers.push_back(peer);
  return peers;
}

std::optional<std::size_t> NetworkPeers::limit() const { return mSearch->mMost; }

bool NetworkPeers::waitFor(const std::function<bool(const NetworkPeer&)>& condition,
                           double seconds) {
  bool holds = std::ranges::any_of(mSearch->mPeers,
                                   [&](const auto& entry) { return condition(entry.second); });
  if (holds) return true;
  mSearch->onFound = [&](const NetworkPeer& peer) {
    if (!condition(peer)) return;
    holds = true;
    mSearch->end();
  };
  mSearch->run(seconds);
  mSearch->onFound = nullptr;
  return holds;
}

namespace {

/// Replies are some hundred bytes.
constexpr std::size_t kMostBytesOfReply = 4096;
/// The challenge or the counter may be old once each, and both again while the other machine
/// changes.
constexpr int kMostAttempts = 4;

constexpr std::size_t kMostBytesOfReading = 65536;

/// Why there is no answer through the channel.
std::string withoutChannel(bool wasSecured, const std::string& reason) {
  if (wasSecured)
    return "it gave no answer; whether it has carried out the command is not known (" + reason +
           ")";
  return "no encrypted channel: it does not know this machine any more, or another machine answers "
         "in its place (" +
         reason + "); corvana9 pair makes both known to each other again";
}

/// Sends the bytes and gives what was said until the other machine closed.
Result<std::string> conversation(const NetworkPeer& peer, std::span<const std::byte> data) {
  using Event = StreamConnection::Event;
  LinuxNetwork network;
  const SystemClock clock;
  const std::string name = printable(peer.name.machine);
  const auto stream =
      network.connect(peer.service.address, peer.service.port, Network::Family::any);
  std::string_view left(reinterpret_cast<const char*>(data.data()), data.size());
  std::string heard;
  bool opened = false;
  const double end = clock.monotonic() + kPatienceForOne;
  while (clock.monotonic() < end) {
    switch (stream->wait(end - clock.monotonic(), opened && !left.empty())) {
      case Event::opened:
        opened = true;
        [[fallthrough]];
      case Event::space: {
        const auto taken = stream->send(left);
        if (!taken) return Error{taken.error().kind, name + ": " + taken.error().text};
        left.remove_prefix(*taken);
        break;
      }
      case Event::received:
        heard += stream->read(kMostBytesOfReply);
        if (heard.size() > kMostBytesOfReply)
          return Error{ErrorKind::damaged, name + ": its answer makes no sense"};
        break;
      case Event::ended:
        // It has read and closed.
        if (left.empty()) return heard;
        return Error{ErrorKind::refused, name + ": it does not listen to this machine"};
      case Event::failed:
        if (opened && left.empty())
          return Error{ErrorKind::refused,
                       name +
                           ": it has closed the connection; maybe it does not let this machine "
                           "control it"};
        return Error{ErrorKind::unavailable, name + ": " + stream->failure()};
      case Event::secured:
      case Event::nothing:
        break;
    }
  }
  return Error{ErrorKind::unavailable, name + ": it does not answer"};
}

}  // namespace

Outcome NetworkPeers::send(const NetworkPeer& peer, const RemoteCommand& command) {
  const auto heard = conversation(peer, command.encode());
  return heard ? Outcome() : Outcome(heard.error());
}

namespace {

Outcome outcomeOf(CommandReply::Word word, const std::string& name) {
  using Word = CommandReply::Word;
  switch (word) {
    case Word::done:
      return {};
    case Word::wrongPassword:
      return Error{ErrorKind::refused,
                   name + ": the password is wrong, or it does not know this machine any more"};
    case Word::notPermitted:
      return Error{ErrorKind::refused,
                   name + ": its preferences do not permit other machines to do that"};
    case Word::tooQuickly:
      return Error{ErrorKind::refused, name + ": commands came too quickly; try again in a minute"};
    case Word::newChallenge:
    case Word::counterTooLow:
      break;
  }
  return Error{ErrorKind::unavailable, name + ": it changes too quickly; try again"};
}

}  // namespace

Outcome NetworkPeers::sendProven(const NetworkPeer& peer, const RemoteCommand& command,
                                 const ControlKey& key, const std::string& sender) {
  using Word = CommandReply::Word;
  const std::string name = printable(peer.name.machine);
  // Counting on by the clock needs no memory of the last time; where the clock was set back the
  // other machine says how far it is.
  const auto byTheClock = [] { return static_cast<std::int64_t>(SystemClock().now() * 1'000'000); };
  CommandProof proof{peer.challenge, sender, byTheClock(), {}};
  Word last = Word::newChallenge;
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    const auto heard = conversation(peer, command.encode(key, proof));
    if (!heard) return heard.error();
    const auto reply = CommandReply::decode(std::as_bytes(std::span(*heard)), proof, key);
    if (!reply)
      return Error{ErrorKind::unavailable,
                   name +
                       ": it gave no answer that proves anything; whether it has carried out the "
                       "command is not known"};
    last = reply->word;
    if (last == Word::newChallenge) {
      proof.challenge = reply->challenge;
      proof.counter = byTheClock();
    } else if (last == Word::counterTooLow &&
               reply->counter < std::numeric_limits<std::int64_t>::max()) {
      proof.counter = reply->counter + 1;
    } else {
      break;
    }
  }
  return outcomeOf(last, name);
}

Result<ChannelReply> NetworkPeers::ask(const NetworkPeer& peer, const ControlKey& key,
                                       const ChannelRequest& request) {
  using Event = StreamConnection::Event;
  const std::string name = printable(peer.name.machine);
  const auto failed = [&](const std::string& reason) {
    return Error{ErrorKind::unavailable, name + ": " + reason};
  };
  ModuleChannels channels;
  auto channel = channels.asking(key.channelKey());
  if (!channel) return failed(channel.error().text);
  ChannelCall call(std::move(*channel), request);
  LinuxNetwork network;
  const SystemClock clock;
  const auto stream = network.connect(peer.service.address, peer.channelPort, Network::Family::any);
  std::string left;
  bool opened = false;
  const double end = clock.monotonic() + kPatienceForOne;
  while (clock.monotonic() < end) {
    for (const std::byte byte : call.toNetwork()) left += static_cast<char>(byte);
    switch (stream->wait(end - clock.monotonic(), opened && !left.empty())) {
      case Event::opened:
        opened = true;
        [[fallthrough]];
      case Event::space: {
        const auto taken = stream->send(left);
        if (!taken) return failed(taken.error().text);
        left.erase(0, *taken);
        break;
      }
      case Event::received: {
        const std::string heard = stream->read(kMostBytesOfReading);
        const Outcome taken = call.take(std::as_bytes(std::span(heard)));
        if (call.reply()) {
          const Outcome outcome = outcomeOf(call.reply()->word, name);
          if (!outcome) return outcome.error();
          return *call.reply();
        }
        if (!taken) return failed(withoutChannel(call.isSecured(), taken.error().text));
        break;
      }
      case Event::ended:
        return failed(withoutChannel(call.isSecured(), "it has ended the connection"));
      case Event::failed:
        return failed(opened ? withoutChannel(call.isSecured(), stream->failure())
                             : stream->failure());
      case Event::secured:
      case Event::nothing:
        break;
    }
  }
  return failed("it does not answer through the encrypted channel");
}

}  // namespace corvana
