#include "platform/qt/BusNotifications.h"

#include <gmock/gmock.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QVariantMap>
#include <limits>
#include <string>
#include <vector>

#include "platform/simulated/SimulatedMachine.h"
#include "tests/real/PrivateBus.h"
#include "tests/real/RealLoop.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

/// A bus of its own for each test, which may go away and come back.
struct BusNotificationsTest : testing::Test {
  RealLoop real;
  PrivateBus bus{real};
  SimulatedSystemLog log;
  std::vector<DistributedNotification> heard;

  std::string address() const { return bus.address(); }
  void SetUp() override { bus.start(); }

  std::unique_ptr<BusNotifications> program() {
    return std::make_unique<BusNotifications>(real.loop, log, [this] { return address(); });
  }
  DistributedNotifications::Handler hear() {
    return [this](const DistributedNotification& one) { heard.push_back(one); };
  }
  /// Observes, and waits until the bus knows: what others say sooner would pass by.
  void listen(BusNotifications& listener) {
    listener.observe("Agent", hear());
    listener.post({"Agent", "ready", {}});
    ASSERT_TRUE(real.runUntil([&] { return !heard.empty(); }));
    heard.clear();
  }
  bool hearUntil(std::size_t count) {
    return real.runUntil([&] { return heard.size() >= count; });
  }
};

TEST_F(BusNotificationsTest, WhatIsSentArrivesWithItsTypes) {
  const auto agent = program();
  const auto sibling = program();
  listen(*sibling);
  const ZAN_Value inner =
      ZAN_Value::dictionary({{"Text", "é\n"}, {"List", ZAN_Value::array({1, "x"})}});
  const ZAN_Value details =
      ZAN_Value::dictionary({{"Flag", true},
                             {"Letter", ZAN_Value::integer(5, 'c')},
                             {"Number", -3},
                             {"Most", std::numeric_limits<unsigned long long>::max()},
                             {"Real", 0.1},
                             {"Data", ZAN_Value::data(std::string_view("a\0b", 3))},
                             {"Date", ZAN_Value::date(725889600.25)},
                             {"Empty", ZAN_Value::array()},
                             {"Inner", inner}});
  agent->post({"Agent", "Object", details});
  ASSERT_TRUE(hearUntil(1));
  EXPECT_EQ(heard[0].object, "Object");
  EXPECT_EQ(heard[0].userInfo, details);
  EXPECT_EQ(heard[0].userInfo["Flag"].letter(), 'c');
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(BusNotificationsTest, WhatHasNoFormIsLeftOutAndSaidOnce) {
  const auto agent = program();
  agent->observe("Agent", hear());
  ZAN_Value deep = 1;
  for (int i = 0; i < 40; ++i) deep = ZAN_Value::array({deep});
  agent->post({"Agent", "A",
               ZAN_Value::dictionary({{"Null", {}},
                                      {"Set", ZAN_Value::set({1})},
                                      {"Indexes", ZAN_Value::indexSet({{0, 2}})},
                                      {"Nul", std::string("a\0b", 3)},
                                      {std::string_view("k\0", 2), 1},
                                      {"List", ZAN_Value::array({{}, 2})},
                                      {"Deep", deep},
                                      {"Good", 1}})});
  agent->post({"Agent", std::string("B\0", 2), {}});
  agent->post({"Agent", "C", {}});
  ASSERT_TRUE(hearUntil(2));
  ZAN_Value kept = heard[0].userInfo;
  kept.removeKey("Deep");
  EXPECT_EQ(kept, ZAN_Value::dictionary({{"List", ZAN_Value::array({2})}, {"Good", 1}}));
  EXPECT_EQ(heard[1].object, "C");
  EXPECT_TRUE(heard[1].userInfo.isNull());
  EXPECT_THAT(log.lines, SizeIs(1));
}

TEST_F(BusNotificationsTest, OtherProgramsMaySpeakInTypesOfTheirOwn) {
  const auto agent = program();
  listen(*agent);
  auto other = QDBusConnection::connectToBus(QString::fromStdString(address()), "other");
  const auto send = [&](const QList<QVariant>& arguments) {
    QDBusMessage message =
        QDBusMessage::createSignal("/com/zan/corvana9/DistributedNotifications",
                                   "com.zan.corvana9.DistributedNotifications", "Posted");
    message.setArguments(arguments);
    ASSERT_TRUE(other.send(message));
  };
  send({"Agent", "wrong", 5});
  send({"Agent", "too few"});
  QVariantMap map;
  map["y"] = QVariant::fromValue<uchar>(200);
  map["n"] = QVariant::fromValue<short>(-2);
  map["q"] = QVariant::fromValue<ushort>(65535);
  map["u"] = 4000000000U;
  map["as"] = QStringList{"a", "b"};
  send({"Agent", "types", map});
  ASSERT_TRUE(hearUntil(1));
  EXPECT_EQ(heard[0].object, "types");
  EXPECT_EQ(heard[0].userInfo, ZAN_Value::dictionary({{"y", 200},
                                                      {"n", -2},
                                                      {"q", 65535},
                                                      {"u", 4000000000U},
                                                      {"as", ZAN_Value::array({"a", "b"})}}));
  QDBusConnection::disconnectFromBus("other");
}

TEST_F(BusNotificationsTest, OnlyWhatIsObservedIsHeardAndEqualCallsOnce) {
  const auto agent = program();
  const auto sibling = program();
  agent->observe("Gone", hear());
  agent->stopObserving("Gone");
  listen(*agent);
  sibling->post({"Gone", "x", {}});
  sibling->post({"Other", "x", {}});
  for (int i = 0; i < 3; ++i) {
    sibling->post({"Agent", "again", {}});
    sibling->post({"Agent", "counted", ZAN_Value::dictionary({{"i", i}})});
  }
  sibling->post({"Agent", "last", {}});
  // All of it waits before the loop runs for the first time.
  real.clock.sleep(0.5);
  ASSERT_TRUE(real.runUntil([&] { return !heard.empty() && heard.back().object == "last"; }));
  std::vector<std::string> objects;
  for (const auto& one : heard) objects.push_back(one.object);
  EXPECT_EQ(std::count(objects.begin(), objects.end(), "counted"), 3);
  EXPECT_GE(std::count(objects.begin(), objects.end(), "again"), 1);
  EXPECT_LT(std::count(objects.begin(), objects.end(), "again"), 3);
  EXPECT_EQ(std::count(objects.begin(), objects.end(), "x"), 0);
}

TEST_F(BusNotificationsTest, GoesOnWithoutABusAndFindsItAgain) {
  bus.stop();
  const auto agent = program();
  agent->observe("Agent", hear());
  EXPECT_FALSE(agent->isConnected());
  agent->post({"Agent", "lost", {}});
  EXPECT_THAT(log.lines, SizeIs(1));
  bus.start();
  ASSERT_TRUE(real.runUntil([&] { return agent->isConnected(); }));
  agent->post({"Agent", "first", {}});
  ASSERT_TRUE(hearUntil(1));

  bus.stop();
  ASSERT_TRUE(real.runUntil([&] { return !agent->isConnected(); }));
  agent->post({"Agent", "lost", {}});
  bus.start();
  ASSERT_TRUE(real.runUntil([&] { return agent->isConnected(); }));
  agent->post({"Agent", "second", {}});
  ASSERT_TRUE(hearUntil(2));
  EXPECT_EQ(heard[0].object, "first");
  EXPECT_EQ(heard[1].object, "second");
}

}  // namespace
}  // namespace corvana
