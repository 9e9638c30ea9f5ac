// What strangers may send is held down, whoever else is served meanwhile.

#include <gmock/gmock.h>

#include "tests/scenario/RemoteControlScenario.h"

namespace corvana {
namespace {

using testing::ElementsAre;

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

TEST_F(PairedRemoteControl, WhoKnowsThePasswordUsesUpNothingOfAPairedMachine) {
  settings.setValue(PreferenceKey::remotePassword, "ab");
  startAgent();
  sender = "k17c/501";
  std::optional<CommandReply> last;
  for (int i = 0; i < 60; ++i)
    last = answer(proven({RemoteCommand::Launch{{photos}}}, challenge()),
                  "10.0.1." + std::to_string(i));
  EXPECT_EQ(last->word, Word::tooQuickly);
  EXPECT_EQ(told("came too quickly"), 1);
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

}  // namespace
}  // namespace corvana
