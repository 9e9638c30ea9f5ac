#include <gmock/gmock.h>

#include "tests/scenario/RemoteControlScenario.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

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
  line.reset();
  day.runFor(5);
  EXPECT_EQ(port(), 0) << "nobody else can come";
  EXPECT_EQ(sources->pairingState(), "Paired with kitchen");

  sources->renamePaired("k17c/501", "Cooking");
  EXPECT_EQ(sources->pairedMachines().at(0).string("name"), "Cooking");
  sources->renamePaired("k17c/501", "");
  EXPECT_TRUE(sources->pairedMachines().empty());
}

TEST_F(PairingAtTheDesktop, WhoIsRefusedOrComesTooLateIsNotPaired) {
  offer();
  Pairing second{Pairing::Role::asking, {"cellar", "ce11a", 501}};
  auto other = day.machine.serverSockets.call(port(), "10.0.0.3");
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
  other.reset();
  day.runFor(0.1);
  EXPECT_EQ(sources->pairingState(), "kitchen wants to be paired");
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

TEST_F(PairingAtTheDesktop, WhoGoesWhileTheDigitsAreComparedIsNotPaired) {
  offer();
  come();
  line.reset();
  day.runFor(0.1);
  EXPECT_EQ(sources->pairingState(), "Not paired: the other machine has ended it");
  EXPECT_TRUE(day.machine.userInterface.answer(Window::preferences, true));
  day.runFor(0.1);
  EXPECT_EQ(sources->pairingState(), "Not paired: the other machine has ended it");
  EXPECT_EQ(port(), 0);
  EXPECT_TRUE(PairedMachines(day.store()).all().empty());
}

}  // namespace
}  // namespace corvana
