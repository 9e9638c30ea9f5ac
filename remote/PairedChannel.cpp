#include "remote/PairedChannel.h"

#include <algorithm>
#include <utility>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "platform/Platform.h"

namespace corvana {

namespace {

constexpr std::size_t kLengthBytes = 4;
constexpr const char* kWantsState = "RemoteControlMachineWantsState";
constexpr const char* kReply = "RemoteControlMachineReply";
constexpr const char* kState = "RemoteControlMachineState";

}  // namespace

std::optional<ChannelRequest> ChannelRequest::decode(std::span<const std::byte> data) {
  const auto value = ZAN_Unarchiver::unarchiveObjectWithData(data);
  if (!value || !value->isDictionary()) return std::nullopt;
  if (value->integer(kWantsState) != 0) return ChannelRequest{};
  auto command = RemoteCommand::decode(data);
  if (!command) return std::nullopt;
  return ChannelRequest{std::move(command)};
}

std::vector<std::byte> ChannelRequest::encode() const {
  if (command) return command->encode();
  return ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::dictionary({{kWantsState, 1}}));
}

std::optional<ChannelReply> ChannelReply::decode(std::span<const std::byte> data) {
  const auto value = ZAN_Unarchiver::unarchiveObjectWithData(data);
  if (!value || !value->isDictionary()) return std::nullopt;
  const auto word = CommandReply::wordOf(value->integer(kReply));
  if (!word) return std::nullopt;
  return ChannelReply{*word, (*value)[kState]};
}

std::vector<std::byte> ChannelReply::encode() const {
  ZAN_Value value = ZAN_Value::dictionary({{kReply, static_cast<int>(word)}});
  if (!state.isNull()) value.setValue(kState, state);
  return ZAN_Archiver::archivedDataWithRootObject(value);
}

class PairedChannel::Talk final : public Visit {
 public:
  Talk(PairedChannel& owner, std::unique_ptr<KeyedChannel> channel, Visitor& visitor)
      : mOwner(owner), mChannel(std::move(channel)), mVisitor(visitor) {}

  void heard(std::span<const std::byte> bytes) override {
    const Outcome taken = mChannel->take(bytes);
    const bool goesOn = taken && listen();
    mVisitor.say(mChannel->toNetwork());
    if (!goesOn) mVisitor.leave();
  }

 private:
  /// False at the end of the talk.
  bool listen() {
    if (!mChannel->isSecured()) return true;
    mFrames.take(mChannel->read());
    const auto message = mFrames.next();
    if (!message) return false;
    if (!*message) return true;
    const auto request = ChannelRequest::decode(**message);
    // The machine may have been forgotten since the channel was opened.
    mOwner.mRefresh();
    const auto machine = mOwner.mMachines.find(mChannel->keyName());
    if (!request || machine == mOwner.mMachines.end()) return false;
    const std::string sender = machine->second.sender;
    const ChannelReply reply = mOwner.mAnswers(mVisitor.address(), sender, *request);
    static_cast<void>(mChannel->write(Frames::framed(kLengthBytes, reply.encode())));
    return false;
  }

  PairedChannel& mOwner;
  std::unique_ptr<KeyedChannel> mChannel;
  Visitor& mVisitor;
  Frames mFrames{kLengthBytes, ChannelRequest::kMostBytes};
};

PairedChannel::PairedChannel(const Platform& platform, Accepts accepts,
                             std::function<void()> refresh, Answers answers)
    : m(platform),
      mAccepts(std::move(accepts)),
      mRefresh(std::move(refresh)),
      mAnswers(std::move(answers)) {}

void PairedChannel::setMachines(const std::map<std::string, ControlKey>& keys) {
  mMachines.clear();
  for (const auto& [sender, key] : keys) {
    ChannelKey channelKey = key.channelKey();
    std::string name = channelKey.name;
    mMachines.emplace(std::move(name), Machine{sender, std::move(channelKey)});
  }
}

Outcome PairedChannel::open(std::uint16_t port) {
  if (mSocket && (port == 0 || mSocket->port() == port)) return {};
  close();
  if (m.keyedChannels == nullptr)
    return Error{ErrorKind::unavailable, "encrypted channel: there is none here"};
  const auto keyOf = [this](const std::string& name) -> std::optional<ChannelKey> {
    mRefresh();
    const auto machine = mMachines.find(name);
    if (machine == mMachines.end()) return std::nullopt;
    return machine->second.key;
  };
  // What cannot be had is found out now, not when somebody comes.
  if (const auto tried = m.keyedChannels->answering(keyOf); !tried) return tried.error();
  auto socket = m.serverSockets.listenForVisits(
      port, ServerSockets::VisitLimits{},
      [this, keyOf](Visitor& visitor) -> std::unique_ptr<Visit> {
        if (!mAccepts(visitor.address())) return nullptr;
        auto channel = m.keyedChannels->answering(keyOf);
        if (!channel) return nullptr;
        return std::make_unique<Talk>(*this, std::move(*channel), visitor);
      });
  if (!socket) return socket.error();
  mSocket = std::move(socket).value();
  return {};
}

ChannelCall::ChannelCall(std::unique_ptr<KeyedChannel> channel, const ChannelRequest& request)
    : mChannel(std::move(channel)),
      mRequest(Frames::framed(kLengthBytes, request.encode())),
      mFrames(kLengthBytes, ChannelReply::kMostBytes) {}

std::vector<std::byte> ChannelCall::toNetwork() { return mChannel->toNetwork(); }

Outcome ChannelCall::take(std::span<const std::byte> fromNetwork) {
  const Outcome taken = mChannel->take(fromNetwork);
  if (mChannel->isSecured()) {
    if (!mRequest.empty())
      if (const Outcome said = mChannel->write(std::exchange(mRequest, {})); !said) return said;
    mFrames.take(mChannel->read());
    const auto message = mFrames.next();
    if (!message) return message.error();
    if (*message) {
      mReply = ChannelReply::decode(**message);
      if (mReply) return {};
      return Error{ErrorKind::damaged, "its answer makes no sense"};
    }
  }
  return taken;
}

}  // namespace corvana
