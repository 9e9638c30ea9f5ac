#pragma once

#include "ZANCocoaFramework/ZAN_Value.h"
#include "platform/KeyedChannel.h"
#include "platform/Network.h"
#include "remote/Pairing.h"
#include "remote/RemoteCommand.h"

namespace corvana {

class AgentAnswers;
struct Platform;
struct Records;
struct Work;

/// What a machine asks of one that it is paired with, through the encrypted channel: one command,
/// or how everything stands. Thread: any.
struct ChannelRequest {
  static constexpr std::size_t kMostBytes = 60'000;

  std::optional<RemoteCommand> command;  ///< without a proof; nothing: the state is wanted

  /// Nothing when the bytes make no sense.
  static std::optional<ChannelRequest> decode(std::span<const std::byte> data);
  std::vector<std::byte> encode() const;
};

/// What is answered. Thread: any.
struct ChannelReply {
  static constexpr std::size_t kMostBytes = 1'000'000;

  CommandReply::Word word = CommandReply::Word::done;
  ZAN_Value state{};  ///< where it was asked for; see `MachineGlance`

  /// Nothing when the bytes make no sense.
  static std::optional<ChannelReply> decode(std::span<const std::byte> data);
  std::vector<std::byte> encode() const;
};

/// The port at which paired machines find the encrypted channel, and what is done with those who
/// come. Who has not the key of a paired machine gets no word in. Thread: main.
class PairedChannel {
 public:
  /// Whether a machine may connect now.
  using Accepts = std::function<bool(const std::string& address)>;
  /// What is answered to a paired machine.
  using Answers = std::function<ChannelReply(const std::string& address, const std::string& sender,
                                             const ChannelRequest& request)>;

  /// `refresh` is called before a key is looked for.
  PairedChannel(const Platform& platform, Accepts accepts, std::function<void()> refresh,
                Answers answers);

  /// From now on these machines are let in, by sender.
  void setMachines(const std::map<std::string, ControlKey>& keys);
  /// Listens, at a port that the system picks for 0; goes on listening at the port that it has
  /// unless another is wanted. `refused` when the port cannot be had, `unavailable` when there can
  /// be no encryption here.
  Outcome open(std::uint16_t port);
  void close() { mSocket.reset(); }
  /// 0 while it is closed.
  std::uint16_t port() const { return mSocket ? mSocket->port() : std::uint16_t{0}; }

 private:
  struct Machine {
    std::string sender;
    ChannelKey key;
  };
  class Talk;

  const Platform& m;
  const Accepts mAccepts;
  const std::function<void()> mRefresh;
  const Answers mAnswers;
  std::map<std::string, Machine> mMachines;  ///< by the name of the key
  std::unique_ptr<ServerSocket> mSocket;
};

/// The other end: one request and its answer. It only computes, as the channel does. Thread: any.
class ChannelCall {
 public:
  ChannelCall(std::unique_ptr<KeyedChannel> channel, const ChannelRequest& request);

  /// Takes what the other machine has sent.
  Outcome take(std::span<const std::byte> fromNetwork);
  /// What is to be sent now.
  std::vector<std::byte> toNetwork();
  bool isSecured() const { return mChannel->isSecured(); }
  const std::optional<ChannelReply>& reply() const { return mReply; }

 private:
  std::unique_ptr<KeyedChannel> mChannel;
  std::vector<std::byte> mRequest;  ///< not said yet
  Frames mFrames;
  std::optional<ChannelReply> mReply;
};

/// How everything stands on this machine, for those that are paired with it.
struct MachineGlance {
  /// Of so many actions at most, in the order of the tree.
  static constexpr std::size_t kMostActions = 500;

  /// "date" (now, there), of the agent's status "enabled", "disabledWhenDone", "paused", "context",
  /// "executing", "queueCount", "nextDate", "hold", "current"; "actions": {"ref", "title", "mode",
  /// "launchable", "lastSuccess", "next"} each, dates that do not exist left out; "leftOut"
  /// (actions beyond the bound); and "attention": what its user should look at, {"kind"} each with
  /// "failed"
  /// ("ref", "title", "code" of the log), "overdue" ("ref", "title", "since") or "storage"
  /// ("text"). Thread: main.
  static ZAN_Value of(Records& records, const Work& work, AgentAnswers& answers);
};

}  // namespace corvana
