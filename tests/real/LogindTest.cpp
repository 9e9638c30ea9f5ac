#include "platform/qt/Logind.h"

#include <gmock/gmock.h>

#include <QDBusConnection>
#include <QDBusMessage>

#include "platform/simulated/SimulatedMachine.h"
#include "tests/real/LoginManager.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct LogindTest : testing::Test {
  RealLoop real;
  PrivateBus bus{real};
  LoginManager manager{real, bus};
  SimulatedSystemLog log;

  bool until(const std::function<bool()>& condition) { return real.runUntil(condition); }
};

TEST_F(LogindTest, TellsOfSleepAndShutDownAndPowersOff) {
  bus.start();
  manager.start();
  Logind logind(real.loop, log, [this] { return bus.address(); });
  LogindPower power(logind, WakeAlarm({}));
  std::vector<std::string> heard;
  power.observe({[&] { heard.push_back("sleep"); }, [&] { heard.push_back("wake"); },
                 [&] { heard.push_back("off"); }});
  manager.prepareForSleep(true);
  manager.prepareForSleep(false);
  ASSERT_TRUE(until([&] { return heard.size() == 2; }));
  EXPECT_THAT(heard, ElementsAre("sleep", "wake"));

  manager.prepareForShutdown(true);
  ASSERT_TRUE(until([&] { return logind.isShuttingDown(); }));
  EXPECT_TRUE(power.shutDown()) << "it is going down already";
  EXPECT_EQ(manager.calls("PowerOff"), 0);
  manager.prepareForShutdown(false);
  ASSERT_TRUE(until([&] { return heard.size() == 3; }));
  EXPECT_TRUE(power.shutDown());
  EXPECT_EQ(manager.calls("PowerOff"), 1);
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(LogindTest, HoldsAShutDownUpUntilItIsLetGo) {
  bus.start();
  manager.start();
  manager.waitsAtMost(5);
  Logind logind(real.loop, log, [this] { return bus.address(); });
  logind.holdUpShutDown("Corvana 9", "Backups");
  ASSERT_TRUE(until([&] { return logind.isHoldingUpShutDown(); }));
  EXPECT_THAT(manager.inhibitors(), ElementsAre("shutdown Corvana 9 Backups delay"));
  ASSERT_TRUE(until([&] { return !log.lines.empty(); }));
  EXPECT_THAT(log.lines[0], HasSubstr("for 5 s only; for longer set InhibitDelayMaxSec"));
  logind.letShutDown();
  EXPECT_TRUE(until([&] { return manager.inhibitors().empty(); }));
}

TEST_F(LogindTest, BearsTheBusAndTheManagerBeingAway) {
  Logind logind(real.loop, log, [this] { return bus.address(); });
  const Outcome refused = logind.powerOff();
  ASSERT_FALSE(refused);
  EXPECT_THAT(refused.error().text, HasSubstr("switch it off yourself"));
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("No system bus")));
  logind.holdUpShutDown("Corvana 9", "Backups");

  bus.start();
  ASSERT_TRUE(until([&] { return log.lines.size() == 2; })) << "a bus without a manager";
  EXPECT_THAT(log.lines[1], HasSubstr("login manager does not answer"));
  EXPECT_FALSE(logind.powerOff());
  manager.start();
  ASSERT_TRUE(until([&] { return logind.isHoldingUpShutDown(); }));
  bool slept = false;
  logind.setHandlers({[&](bool begins) { slept = begins; }, {}});
  manager.prepareForSleep(true);
  EXPECT_TRUE(until([&] { return slept; }));
  EXPECT_EQ(log.lines.size(), 2U) << "said once";

  manager.stop();
  bus.stop();
  bus.start();
  manager.start();
  // The new manager hears of the hold-up again.
  EXPECT_TRUE(until([&] { return manager.inhibitors().size() == 1; }));
}

}  // namespace
}  // namespace corvana
