#include <gmock/gmock.h>

#include "tests/scenario/RemoteControlScenario.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

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
  EXPECT_EQ(told("did not prove the password"), 1);
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
