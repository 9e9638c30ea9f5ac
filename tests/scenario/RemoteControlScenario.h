#pragma once

#include <gmock/gmock.h>

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "platform/keyed/TlsChannels.h"
#include "remote/PairedChannel.h"
#include "remote/Pairing.h"
#include "remote/PublishedService.h"
#include "remote/RemoteCommand.h"
#include "remote/RemoteControl.h"
#include "tests/scenario/Scenario.h"

namespace corvana {

/// An agent that lets itself be controlled, and the machine that controls it.
struct RemoteControlScenario : testing::Test {
  Scenario day;
  std::int64_t letters = 0;
  std::int64_t photos = 0;
  std::int64_t hidden = 0;
  ZAN_Value settings = ZAN_Value::dictionary({{"SchedulerPrefAllowRemoteControl", 1},
                                              {"SchedulerPrefRemoteControlLocalName", "Büro von A"},
                                              {"SchedulerPrefRemoteControlPassword", "ab"}});

  void startAgent() {
    const ZAN_Value byHand = ZAN_Value::dictionary({{"TriggerAutomatic", 0}});
    letters = day.action("Letters", byHand);
    photos = day.action(
        "Photos", ZAN_Value::dictionary({{"TriggerAutomatic", 0},
                                         {"TriggerPreventRemoteLaunch", 0},
                                         {"LastScheduleDate", ZAN_Value::date(725000000.75)}}));
    hidden = day.action("Hidden", ZAN_Value::dictionary({{"TriggerAutomatic", 0},
                                                         {"TriggerPreventRemoteLaunch", 1}}));
    day.writeTree();
    ASSERT_TRUE(day.store().settings().saveSchedulerSettings(settings));
    day.start(true);
    day.runFor(1);
  }
  std::optional<ServiceDescription> published() {
    const auto services = day.machine.services.published();
    EXPECT_LE(services.size(), 1U);
    return services.empty() ? std::nullopt : std::optional(services.front());
  }
  bool send(const ZAN_Value& command, const std::string& address = "10.0.0.2") {
    const auto ports = day.machine.serverSockets.ports();
    if (ports.size() != 1) return false;
    const bool taken = day.machine.serverSockets.send(
        ports.front(), address, ZAN_Archiver::archivedDataWithRootObject(command));
    day.runFor(1);
    return taken;
  }
  bool activate(int value) {
    return send(ZAN_Value::dictionary({{"RemoteControlMachineActivate", value}}));
  }
  bool isActive() { return !day.agent->state().mScheduleDisabled; }
  std::vector<std::int64_t> queued() {
    std::vector<std::int64_t> refs;
    for (const auto& record : day.agent->queue().actionsList()) refs.push_back(record.ref);
    return refs;
  }
  /// Of all that grows.
  std::uintmax_t storedBytes() {
    std::uintmax_t bytes = 0;
    for (const auto& file :
         std::filesystem::recursive_directory_iterator(day.machine.folder.path()))
      if (file.is_regular_file()) bytes += file.file_size();
    return bytes;
  }
  void preferencesChange() {
    ASSERT_TRUE(day.store().settings().saveSchedulerSettings(settings));
    day.machine.notifications.receive("CVA9_SchedulerNotification", "PreferencesDidChange");
    day.runFor(1);
  }
};

/// An agent that wants proofs, and the machine that knows its password.
struct ProvenRemoteControl : RemoteControlScenario {
  using Word = CommandReply::Word;
  std::int64_t counter = 0;
  std::string sender = "kitchen";
  std::optional<ControlKey> key = ControlKey::of("ab", "5eed0123beef");

  ProvenRemoteControl() { settings.setValue(PreferenceKey::remoteProvenOnly, 1); }

  std::string challenge() {
    const auto service = published();
    for (const std::string& text : service->txt)
      if (text.starts_with(kChallengeText)) return text.substr(kChallengeText.size());
    return {};
  }
  std::vector<std::byte> proven(const RemoteCommand& command, const std::string& withChallenge) {
    mProof = {withChallenge, sender, ++counter, {}};
    return command.encode(*key, mProof);
  }
  /// What is answered to bytes that hold the last proof.
  std::optional<CommandReply> answer(const std::vector<std::byte>& data,
                                     const std::string& address = "10.0.0.2") {
    auto& replies = day.machine.serverSockets.replies;
    replies.clear();
    day.machine.serverSockets.send(day.machine.serverSockets.ports().at(0), address, data);
    day.runFor(1);
    if (replies.empty()) return std::nullopt;
    return CommandReply::decode(replies.back(), mProof, *key);
  }
  std::optional<Word> tell(const RemoteCommand& command) {
    const auto reply = answer(proven(command, challenge()));
    return reply ? std::optional(reply->word) : std::nullopt;
  }
  std::ptrdiff_t told(const std::string& words) {
    const ZAN_Value log = ActionLog(day.store()).readLogList();
    return std::ranges::count_if(log.elements(), [&](const ZAN_Value& entry) {
      return entry.integer("C") == 13 && entry.string("N").find(words) != std::string::npos;
    });
  }

 private:
  CommandProof mProof;
};

/// The same, paired with the kitchen, which asks through the encrypted channel.
struct PairedRemoteControl : ProvenRemoteControl {
  TlsChannels channels;
  const std::array<std::byte, 32> bytes{std::byte{7}};
  const ControlKey ours = *ControlKey::from(bytes);

  PairedRemoteControl() {
    day.machine.keyedChannels = &channels;
    settings.setValue(PreferenceKey::remoteHidesTitles, 1);
    settings.removeKey(PreferenceKey::remotePassword);
    EXPECT_TRUE(PairedMachines(day.store()).add({{"kitchen", "k17c", 501}, ours, ours}));
  }
  std::uint16_t channelPort() {
    const auto service = published();
    for (const std::string& text : service->txt)
      if (text.starts_with(kChannelText))
        return static_cast<std::uint16_t>(std::stoi(text.substr(kChannelText.size())));
    return 0;
  }
  std::optional<ChannelReply> ask(const ChannelRequest& request,
                                  const std::string& address = "10.0.0.2") {
    ChannelCall call(std::move(*channels.asking(ours.channelKey())), request);
    const auto line = day.machine.serverSockets.call(channelPort(), address);
    for (int round = 0; line && round < 4; ++round) {
      line->say(call.toNetwork());
      day.runFor(0.01);
      if (!call.take(line->heard())) break;
    }
    return call.reply();
  }
  std::optional<Word> through(const RemoteCommand& command) {
    const auto reply = ask({command});
    return reply ? std::optional(reply->word) : std::nullopt;
  }
};

}  // namespace corvana
