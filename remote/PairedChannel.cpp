#include "remote/PairedChannel.h"

#include <algorithm>
#include <utility>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/ActionsTools.h"
#include "core/work/Work.h"

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

namespace {

ZAN_Value attentionOf(Records& m, const Work& work, const ProgrammedAction::Nodes& actions) {
  ZAN_Value list = ZAN_Value::array();
  for (const auto& failure : m.state.mFailures)
    list.append(ZAN_Value::dictionary({{"kind", "failed"},
                                       {"ref", failure.ref},
                                       {"title", m.tree.titleOf(failure.ref)},
                                       {"code", failure.code}}));
  for (const ProgrammedAction* action : actions)
    if (const auto since =
            AgeAlarm::overdueSince(*action, work.evaluation.calendar(), m.platform.clock.now()))
      list.append(ZAN_Value::dictionary({{"kind", "overdue"},
                                         {"ref", action->getReference()},
                                         {"title", action->getTitle()},
                                         {"since", ZAN_Value::date(*since)}}));
  for (const ZAN_Value& text : m.storage.lasting().elements())
    list.append(ZAN_Value::dictionary({{"kind", "storage"}, {"text", text}}));
  return list;
}

}  // namespace

ZAN_Value MachineGlance::of(Records& m, const Work& work, AgentAnswers& answers) {
  const ZAN_Value status = answers.status();
  ZAN_Value glance = ZAN_Value::dictionary({{"date", ZAN_Value::date(m.platform.clock.now())}});
  for (const char* key : {"enabled", "disabledWhenDone", "paused", "context", "executing",
                          "queueCount", "nextDate", "hold", "current"})
    if (status.contains(key)) glance.setValue(key, status[key]);

  std::map<std::int64_t, ZAN_Value> next;
  const ZAN_Value coming = answers.next();
  for (const ZAN_Value& one : coming.elements())
    if (one.contains("date")) next.emplace(one.integer("ref"), one["date"]);

  ProgrammedAction::Nodes actions;
  m.tree.rootItem().getListOfAllProgrammedActions(actions);
  const std::size_t leftOut = actions.size() - std::min(actions.size(), kMostActions);
  actions.resize(actions.size() - leftOut);
  ZAN_Value list = ZAN_Value::array();
  for (const ProgrammedAction* action : actions) {
    const ZAN_Value& settings = action->getSettings();
    ZAN_Value one = ZAN_Value::dictionary(
        {{"ref", action->getReference()},
         {"title", action->getTitle()},
         {"mode", action->actionType()},
         {"launchable", settings.integer("TriggerPreventRemoteLaunch") == 0}});
    if (const auto success = ActionsTools::getLastSuccessDateForSettings(settings))
      one.setValue("lastSuccess", ZAN_Value::date(*success));
    const auto date = next.find(action->getReference());
    if (date != next.end()) one.setValue("next", date->second);
    list.append(std::move(one));
  }
  glance.setValue("actions", std::move(list));
  glance.setValue("leftOut", static_cast<std::int64_t>(leftOut));
  glance.setValue("attention", attentionOf(m, work, actions));
  return glance;
}

}  // namespace corvana
