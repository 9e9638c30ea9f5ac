#include <gmock/gmock.h>

#include <filesystem>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "platform/keyed/TlsChannels.h"
#include "remote/Frames.h"
#include "remote/LaunchableActions.h"
#include "remote/PairedChannel.h"
#include "remote/Pairing.h"
#include "remote/RemoteCommand.h"
#include "remote/RemoteControl.h"
#include "remote/ServiceName.h"
#include "tests/scenario/Scenario.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

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

TEST_F(RemoteControlScenario, NothingIsPublishedUnlessItIsAllowed) {
  settings.removeKey("SchedulerPrefAllowRemoteControl");
  startAgent();
  EXPECT_FALSE(published());
  EXPECT_TRUE(day.machine.serverSockets.ports().empty());
  settings.setValue("SchedulerPrefAllowRemoteControl", 1);
  preferencesChange();
  EXPECT_TRUE(published());
  settings.setValue("SchedulerPrefAllowRemoteControl", 0);
  preferencesChange();
  EXPECT_FALSE(published());
  EXPECT_TRUE(day.machine.serverSockets.ports().empty());
  EXPECT_THAT(day.machine.services.laterTexts,
              ElementsAre(ElementsAre("RemoteControlMachineUpdated=YES")));
}

TEST_F(RemoteControlScenario, TheServiceTellsStateAndActions) {
  startAgent();
  ASSERT_TRUE(published());
  EXPECT_EQ(published()->name, "Buro-von-A&&5eed0123beef&&501&&1&&0&&790084125");
  EXPECT_EQ(published()->type, "_rcfz9._udp");
  EXPECT_EQ(published()->port, day.machine.serverSockets.ports().at(0));
  EXPECT_THAT(published()->txt,
              ElementsAre("Ref-101=Letters\t2\t101\t0", "Ref-102=Photos\t2\t102\t725000000"));

  day.removeAction(letters);
  day.machine.notifications.receive("CVA9_SchedulerNotification", "ActionListChanged");
  day.runFor(0.125);
  EXPECT_FALSE(published()) << "a quarter of a second without it";
  day.runFor(0.25);
  EXPECT_EQ(published()->txt.size(), 1U);

  day.machine.services.taken.insert("Buro-von-A&&5eed0123beef&&501&&0&&0&&790084125");
  day.agent->commands().disableSchedule();
  day.runFor(1);
  EXPECT_EQ(published()->name, "Buro-von-A-2&&5eed0123beef&&501&&0&&0&&790084125")
      << "only the first field differs from the other machine's";
  day.quit();
  EXPECT_TRUE(day.machine.services.published().empty());
}

TEST_F(RemoteControlScenario, ActivatingTogglesOnlyWhatIsOtherwise) {
  startAgent();
  ASSERT_TRUE(activate(1));
  EXPECT_TRUE(isActive()) << "it was on";
  EXPECT_THAT(day.report(), testing::Not(testing::Contains(HasSubstr("turned"))));
  activate(0);
  EXPECT_FALSE(isActive());
  EXPECT_EQ(ServiceName::parse(published()->name)->active, false) << "the others see it";
  activate(0);
  activate(2);
  EXPECT_FALSE(isActive());
  send(ZAN_Value::dictionary({{"RemoteControlMachineActivate", "1"}}));
  EXPECT_FALSE(isActive()) << "a text is no number";
  activate(1);
  EXPECT_TRUE(isActive());
}

TEST_F(RemoteControlScenario, ActionsAreLaunchedFiveSecondsLater) {
  startAgent();
  const std::string refs =
      std::to_string(photos) + ",0,x," + std::to_string(letters) + "," + std::to_string(hidden);
  day.agent->commands().pauseExecution();
  send(ZAN_Value::dictionary({{"RemoteControlMachineLaunchAction", refs + ",9999"}}));
  EXPECT_THAT(queued(), ElementsAre(photos, letters));
  EXPECT_NEAR(day.agent->queue().actionsList().at(0).date, day.machine.clock.now() - 1 + 5, 0.01);
  day.agent->commands().pauseExecution();
  day.runFor(120);
  EXPECT_EQ(day.executionsOf("Photos"), 1U);
  EXPECT_EQ(day.executionsOf("Letters"), 1U);
}

TEST_F(RemoteControlScenario, OneCommandLaunchesManyActionsWithoutHoldingTheAgentUp) {
  std::string refs;
  for (int i = 0; i < 300; ++i)
    refs += std::to_string(day.action("Action " + std::to_string(i),
                                      ZAN_Value::dictionary({{"TriggerAutomatic", 0}}))) +
            ",";
  startAgent();
  day.agent->commands().pauseExecution();
  send(ZAN_Value::dictionary({{"RemoteControlMachineLaunchAction", refs}}));
  EXPECT_EQ(queued().size(), 300U);
}

TEST_F(RemoteControlScenario, AMessageIsShownAndLogged) {
  startAgent();
  send(ZAN_Value::dictionary(
      {{"RemoteControlMachineMessage", "Lunch?"}, {"RemoteControllerMachineName", "Kitchen"}}));
  ASSERT_TRUE(day.machine.userInterface.message);
  const MessageWindow& message = *day.machine.userInterface.message;
  EXPECT_EQ(message.title, "Lunch?");
  EXPECT_EQ(message.text, "Message from Kitchen (10.0.0.2)");
  EXPECT_EQ(message.seconds, 30);
  EXPECT_TRUE(message.closeButton);
  const ZAN_Value log = ActionLog(day.store()).readLogList();
  EXPECT_EQ(log.at(log.size() - 1).integer("C"), 12);
  EXPECT_EQ(log.at(log.size() - 1).string("N"), "Message from Kitchen (10.0.0.2)");
}

TEST_F(RemoteControlScenario, AFloodIsHeldDown) {
  startAgent();
  const std::size_t before = day.logCodes().size();
  const auto data = RemoteCommand{RemoteCommand::Message{"Hello", "Flood"}}.encode();
  for (int i = 0; i < 1000; ++i)
    day.machine.serverSockets.send(day.machine.serverSockets.ports().at(0), "10.0.0.2", data);
  day.runFor(0.25);
  // Ten messages, one entry for those not shown, one for the commands not even read.
  EXPECT_EQ(day.logCodes().size(), before + 12);
  const auto told = [&](const char* words) {
    const ZAN_Value log = ActionLog(day.store()).readLogList();
    return std::ranges::count_if(log.elements(), [&](const ZAN_Value& entry) {
      return entry.integer("C") == 13 && entry.string("N").starts_with(words);
    });
  };
  EXPECT_EQ(told("Commands from 10.0.0.2 came too quickly"), 1);
  EXPECT_EQ(told("Messages from Flood (10.0.0.2) came too quickly"), 1);
  day.runFor(600);
  EXPECT_FALSE(day.agent->messages().hasPending()) << "all that was let in has been shown";
  ASSERT_TRUE(activate(0));
  EXPECT_FALSE(isActive());
}

TEST_F(RemoteControlScenario, WhatStrangersMayDoWritesLessThanAMegabyteADay) {
  startAgent();
  const auto before = storedBytes();
  const std::string name(300, 'x');
  constexpr int kHour = 3600;
  for (int i = 0; i < kHour + 5 * 360; ++i) {
    const std::string address = "10.0.1." + std::to_string(i % 200);
    for (const RemoteCommand& command : {RemoteCommand{RemoteCommand::Launch{{letters, photos}}},
                                         RemoteCommand{RemoteCommand::Activate{i % 2}},
                                         RemoteCommand{RemoteCommand::Message{"Hello", name}}})
      day.machine.serverSockets.send(day.machine.serverSockets.ports().at(0), address,
                                     command.encode());
    // All of it every second for an hour, then for another five at leisure.
    day.runFor(i < kHour ? 1 : 10);
  }
  const auto grown = storedBytes() - before;
  EXPECT_GT(grown, 10'000U) << "it does something";
  EXPECT_LT(grown, 250'000U) << "in a quarter of a day";
}

TEST_F(RemoteControlScenario, OnlyAllowedAddressesConnectAndOthersAreLogged) {
  settings.setValue(PreferenceKey::allowedAddresses, "10.0.0.3 192.168.0.0/24");
  startAgent();
  EXPECT_FALSE(activate(0));
  EXPECT_TRUE(isActive());
  const ZAN_Value log = ActionLog(day.store()).readLogList();
  EXPECT_EQ(log.at(log.size() - 1).integer("C"), 13);
  EXPECT_THAT(log.at(log.size() - 1).string("N"), HasSubstr("10.0.0.2"));
  EXPECT_TRUE(send(ZAN_Value::dictionary({{"RemoteControlMachineActivate", 0}}), "10.0.0.3"));
  EXPECT_FALSE(isActive());
}

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

TEST_F(ProvenRemoteControl, OnlyAProofLaunchesAndOnlyOnce) {
  startAgent();
  const RemoteCommand launch{RemoteCommand::Launch{{photos}}};
  day.agent->commands().pauseExecution();
  send(ZAN_Value::dictionary({{"RemoteControlMachineLaunchAction", std::to_string(letters)}}));
  EXPECT_THAT(queued(), ElementsAre()) << "a command without a proof";
  EXPECT_EQ(told("did not prove the password"), 1);
  auto guessed = ControlKey::of("abc", "5eed0123beef");
  std::swap(key, guessed);
  EXPECT_EQ(tell(launch), Word::wrongPassword);
  std::swap(key, guessed);
  EXPECT_THAT(queued(), ElementsAre());
  EXPECT_EQ(told("did not prove the password"), 1) << "one entry a burst";

  const auto data = proven(launch, challenge());
  EXPECT_EQ(answer(data)->word, Word::done);
  EXPECT_THAT(queued(), ElementsAre(photos));
  day.agent->commands().removeFromQueue({0});
  EXPECT_EQ(answer(data, "10.0.0.66")->word, Word::counterTooLow) << "recorded by somebody else";
  EXPECT_THAT(queued(), ElementsAre());
}

TEST_F(ProvenRemoteControl, TheServiceTellsNothingThatThePasswordMakes) {
  startAgent();
  const auto code = [&] { return ServiceName::parse(published()->name)->passwordCode; };
  EXPECT_NE(code(), 0);
  EXPECT_NE(code(), 790084125);
  EXPECT_THAT(published()->txt, testing::Contains("Permits=launch"));
  EXPECT_THAT(published()->txt, testing::Contains(HasSubstr("Letters")));
  settings.setValue(PreferenceKey::remoteHidesTitles, 1);
  settings.setValue(PreferenceKey::remotePort, 4711);
  preferencesChange();
  EXPECT_THAT(published()->txt, testing::Not(testing::Contains(HasSubstr("Letters"))));
  EXPECT_EQ(published()->port, 4711);

  settings.removeKey(PreferenceKey::remotePassword);
  preferencesChange();
  EXPECT_FALSE(published()) << "without a password nobody could prove anything";
  EXPECT_EQ(told("it has no password yet"), 1);
  settings.setValue(PreferenceKey::remotePassword, "abc");
  preferencesChange();
  ASSERT_TRUE(published());
  const RemoteCommand launch{RemoteCommand::Launch{{photos}}};
  EXPECT_EQ(tell(launch), Word::wrongPassword) << "the old password";
  key = ControlKey::of("abc", "5eed0123beef");
  EXPECT_EQ(tell(launch), Word::done);
}

TEST_F(ProvenRemoteControl, EachKindOfCommandIsPermittedByItself) {
  startAgent();
  EXPECT_EQ(tell({RemoteCommand::Activate{0}}), Word::notPermitted);
  EXPECT_TRUE(isActive());
  EXPECT_EQ(tell({RemoteCommand::Message{"Lunch?", "Kitchen"}}), Word::notPermitted);
  EXPECT_FALSE(day.machine.userInterface.message);
  settings.setValue(PreferenceKey::remoteMayLaunch, 0);
  settings.setValue(PreferenceKey::remoteMaySwitch, 1);
  settings.setValue(PreferenceKey::remoteMayMessage, 1);
  preferencesChange();
  EXPECT_EQ(tell({RemoteCommand::Launch{{photos}}}), Word::notPermitted);
  EXPECT_THAT(queued(), ElementsAre());
  EXPECT_EQ(tell({RemoteCommand::Message{"Lunch?\nYes", "Kit\nchen"}}), Word::done);
  ASSERT_TRUE(day.machine.userInterface.message);
  EXPECT_EQ(day.machine.userInterface.message->title, "Lunch? Yes");
  EXPECT_EQ(tell({RemoteCommand::Activate{0}}), Word::done);
  EXPECT_FALSE(isActive());
}

TEST_F(ProvenRemoteControl, ACommandUnderWayWhileTheChallengeChangesIsSentAgain) {
  startAgent();
  const std::string old = challenge();
  preferencesChange();
  ASSERT_NE(challenge(), old);
  const RemoteCommand launch{RemoteCommand::Launch{{photos}}};
  const auto reply = answer(proven(launch, old));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->word, Word::newChallenge);
  EXPECT_THAT(queued(), ElementsAre());
  EXPECT_EQ(answer(proven(launch, reply->challenge))->word, Word::done);
}

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

TEST_F(PairedRemoteControl, TheChannelTellsTheStateAndCarriesWhatIsPermitted) {
  startAgent();
  ASSERT_NE(channelPort(), 0);
  EXPECT_THAT(published()->txt, testing::Not(testing::Contains(HasSubstr("Letters"))));
  const auto reply = ask({});
  ASSERT_TRUE(reply);
  const ZAN_Value& state = reply->state;
  EXPECT_TRUE(state["enabled"].boolValue());
  ASSERT_EQ(state["actions"].size(), 3U);
  EXPECT_EQ(state["actions"].at(0).string("title"), "Letters");
  EXPECT_FALSE(state["actions"].at(2)["launchable"].boolValue());
  EXPECT_TRUE(state["attention"].empty());

  day.agent->commands().pauseExecution();
  EXPECT_EQ(through({RemoteCommand::Launch{{photos}}}), Word::done);
  EXPECT_THAT(queued(), ElementsAre(photos));
  EXPECT_EQ(through({RemoteCommand::Activate{0}}), Word::notPermitted);
  EXPECT_TRUE(isActive());

  ASSERT_TRUE(*PairedMachines(day.store()).forget("kitchen"));
  EXPECT_FALSE(ask({})) << "forgotten by the command, and nobody has told the agent yet";
  preferencesChange();
  EXPECT_FALSE(published()) << "neither a password nor a machine that could prove anything";
  EXPECT_EQ(told("it has no password yet"), 1);
}

TEST_F(PairedRemoteControl, WhoKnowsThePasswordUsesUpNothingOfAPairedMachine) {
  settings.setValue(PreferenceKey::remotePassword, "ab");
  startAgent();
  sender = "k17c/501";
  std::optional<CommandReply> last;
  for (int i = 0; i < 60; ++i)
    last = answer(proven({RemoteCommand::Launch{{photos}}}, challenge()),
                  "10.0.1." + std::to_string(i));
  EXPECT_EQ(last->word, Word::tooQuickly);
  EXPECT_EQ(through({RemoteCommand::Launch{{photos}}}), Word::done)
      << "in its name, but not by its key";
}

TEST_F(PairedRemoteControl, ChannelAndOwnerOutliveAFloodOfStrangers) {
  settings.setValue(PreferenceKey::remotePort, 4711);
  startAgent();
  day.agent->commands().pauseExecution();
  EXPECT_EQ(channelPort(), 4712) << "the one after that of commands";
  ASSERT_TRUE(ask({}));
  const std::vector<std::byte> rubbish(60'000, std::byte{0x16});
  for (int minute = 0; minute < 10; ++minute) {
    for (int i = 0; i < 300; ++i)
      if (const auto line =
              day.machine.serverSockets.call(4712, "10.0.1." + std::to_string(i % 100)))
        line->say(rubbish);
    day.agent->commands().removeFromQueue({0});
    EXPECT_EQ(through({RemoteCommand::Launch{{photos}}}), Word::done) << minute;
    EXPECT_THAT(queued(), ElementsAre(photos));
    day.runFor(59);
  }
}

/// A machine that comes to be paired while the user of the agent waits for it.
struct PairingAtTheDesktop : RemoteControlScenario {
  Pairing kitchen{Pairing::Role::asking, {"kitchen", "k17c", 501}};
  Frames frames{Pairing::kLengthBytes, Pairing::kMostBytes};
  std::unique_ptr<SimulatedServerSockets::Caller> line;

  std::optional<UserInterfaceSources> sources;

  void offer() {
    startAgent();
    sources.emplace(day.agent->userInterfaceSources());
    sources->offerPairing();
    day.runFor(1);
  }
  std::uint16_t port() {
    for (const ServiceDescription& one : day.machine.services.published())
      if (one.type == kPairingServiceType) return one.port;
    return 0;
  }
  void say(std::span<const std::byte> message) {
    line->say(Frames::framed(Pairing::kLengthBytes, message));
    day.runFor(0.1);
    frames.take(line->heard());
  }
  void come() {
    line = day.machine.serverSockets.call(port(), "10.0.0.2");
    ASSERT_TRUE(line);
    say(kitchen.begin());
    const auto opening = frames.next();
    ASSERT_TRUE(*opening);
    say(*kitchen.receive(**opening));
    ASSERT_EQ(day.machine.userInterface.questions.size(), 1U);
  }
  void answer(bool accepts) {
    EXPECT_TRUE(day.machine.userInterface.answer(Window::preferences, accepts));
    day.runFor(0.1);
    frames.take(line->heard());
  }
};

TEST_F(PairingAtTheDesktop, TheUserComparesTheDigitsAndBothKnowEachOther) {
  EXPECT_EQ(port(), 0);
  offer();
  ASSERT_NE(port(), 0);
  come();
  const std::string digits = *kitchen.digits();
  EXPECT_THAT(day.machine.userInterface.questions.back().text,
              HasSubstr(digits.substr(0, 3) + " " + digits.substr(3)));
  say(kitchen.confirm());
  EXPECT_TRUE(PairedMachines(day.store()).all().empty()) << "one yes is not enough";
  answer(true);
  const auto yes = frames.next();
  ASSERT_TRUE(*yes);
  ASSERT_TRUE(kitchen.receive(**yes));
  ASSERT_TRUE(kitchen.paired());
  const auto known = PairedMachines(day.store()).all();
  ASSERT_EQ(known.size(), 1U);
  EXPECT_TRUE(
      std::ranges::equal(known[0].toBeControlled.bytes(), kitchen.paired()->toControl.bytes()));
  EXPECT_TRUE(line->isOver());
  EXPECT_EQ(sources->pairingState(), "Paired with kitchen");
  day.runFor(5);
  EXPECT_EQ(port(), 0) << "nobody else can come";

  sources->renamePaired("k17c/501", "Cooking");
  EXPECT_EQ(sources->pairedMachines().at(0).string("name"), "Cooking");
  sources->renamePaired("k17c/501", "");
  EXPECT_TRUE(sources->pairedMachines().empty());
}

TEST_F(PairingAtTheDesktop, WhoIsRefusedOrComesTooLateIsNotPaired) {
  offer();
  Pairing second{Pairing::Role::asking, {"cellar", "ce11a", 501}};
  const auto other = day.machine.serverSockets.call(port(), "10.0.0.3");
  come();
  EXPECT_EQ(day.machine.serverSockets.call(port(), "10.0.0.4"), nullptr)
      << "it could push out the one whose digits are shown";
  other->say(Frames::framed(Pairing::kLengthBytes, second.begin()));
  day.runFor(0.1);
  Frames heard{Pairing::kLengthBytes, Pairing::kMostBytes};
  heard.take(other->heard());
  other->say(Frames::framed(Pairing::kLengthBytes, *second.receive(**heard.next())));
  day.runFor(0.1);
  EXPECT_TRUE(other->isOver()) << "one at a time";
  EXPECT_EQ(day.machine.userInterface.questions.size(), 1U);
  say(kitchen.confirm());
  answer(false);
  EXPECT_EQ(sources->pairingState(), "Not paired with kitchen");
  EXPECT_EQ(port(), 0);

  sources->offerPairing();
  day.runFor(60);
  EXPECT_NE(port(), 0);
  day.runFor(61);
  EXPECT_EQ(port(), 0);
  EXPECT_TRUE(PairedMachines(day.store()).all().empty());
}

/// A hundred machines that guess, flood and send rubbish for an hour.
TEST_F(ProvenRemoteControl, TheOwnersCommandsArriveDuringAnAttack) {
  startAgent();
  day.agent->commands().pauseExecution();
  tell({RemoteCommand::Launch{{photos}}});
  const auto before = storedBytes();
  const auto port = day.machine.serverSockets.ports().at(0);
  const auto unproven = RemoteCommand{RemoteCommand::Launch{{letters}}}.encode();
  const std::vector<std::byte> rubbish(60'000, std::byte{0x42});
  for (int minute = 0; minute < 60; ++minute) {
    for (int i = 0; i < 100; ++i)
      for (const auto* data : {&unproven, &rubbish, &unproven})
        day.machine.serverSockets.send(port, "10.0.1." + std::to_string(i), *data);
    day.agent->commands().removeFromQueue({0});
    EXPECT_EQ(tell({RemoteCommand::Launch{{photos}}}), Word::done) << minute;
    EXPECT_THAT(queued(), ElementsAre(photos));
    day.runFor(58);
  }
  EXPECT_EQ(told("did not prove the password"), 1);
  EXPECT_LT(storedBytes() - before, 40'000U) << "a megabyte a day would be 43,690 bytes";
}

TEST_F(RemoteControlScenario, WhatFailsIsLoggedAndTheAgentGoesOn) {
  day.machine.services.failure = -1;
  day.machine.serverSockets.failure = ErrorKind::unavailable;
  startAgent();
  EXPECT_FALSE(published());
  EXPECT_THAT(day.machine.systemLog.lines, testing::Contains("NetService did not publish: -1"));
  day.machine.services.failure = 0;
  preferencesChange();
  ASSERT_TRUE(published());
  EXPECT_EQ(published()->port, 0) << "without a socket it is known all the same";
  day.machine.serverSockets.failure = ErrorKind::refused;
  preferencesChange();
  EXPECT_FALSE(published());
  day.machine.serverSockets.failure.reset();
  preferencesChange();
  EXPECT_NE(published()->port, 0);
}

TEST_F(RemoteControlScenario, ManyActionsAreCutToTheLatestWhichIsSaidOnce) {
  for (int i = 0; i < 100; ++i)
    day.action("Action number " + std::to_string(i),
               ZAN_Value::dictionary({{"TriggerAutomatic", 0}}));
  startAgent();
  EXPECT_THAT(published()->txt, testing::Contains(HasSubstr("Photos")))
      << "the only one that ever ran";
  const auto told = [&] {
    const ZAN_Value log = ActionLog(day.store()).readLogList();
    return std::ranges::count_if(log.elements(), [](const ZAN_Value& entry) {
      return entry.string("N").find("of the 102 actions") != std::string::npos;
    });
  };
  EXPECT_EQ(told(), 1);
  preferencesChange();
  EXPECT_EQ(told(), 1);
}

}  // namespace
}  // namespace corvana
