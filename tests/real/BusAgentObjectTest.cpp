#include "platform/qt/BusAgentObject.h"

#include <gmock/gmock.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/qt/BusAgentClient.h"
#include "platform/qt/BusNotifications.h"
#include "platform/simulated/SimulatedMachine.h"
#include "tests/real/PrivateBus.h"
#include "tests/real/RealLoop.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// An agent that knows two actions and counts.
struct FewAnswers final : AgentAnswers {
  ZAN_Value status() override {
    ++asked;
    return ZAN_Value::dictionary({{"enabled", enabled},
                                  {"started", ZAN_Value::date(725889600.5)},
                                  {"current", ZAN_Value::dictionary({{"ref", 7}})}});
  }
  ZAN_Value queue() override {
    return ZAN_Value::array({ZAN_Value::dictionary({{"ref", 7}, {"title", "é"}}),
                             ZAN_Value::dictionary({{"ref", 8}, {"title", ""}})});
  }
  ZAN_Value next() override { return ZAN_Value::array(); }
  Result<std::vector<std::string>> why(std::int64_t ref) override {
    if (ref != 7) return Error{ErrorKind::absent, "action " + std::to_string(ref) + ": none"};
    return std::vector<std::string>{"It waits.", "It rains."};
  }
  bool together(const std::function<bool()>& body) override {
    const bool moreFollow = body();
    if (!moreFollow) stored = launched;
    return moreFollow;
  }
  Outcome launch(std::int64_t ref) override {
    ++launched;
    std::this_thread::sleep_for(launchTakes);
    if (ref != 7) return Error{ErrorKind::absent, "there is no such action"};
    return {};
  }

  bool enabled = true;
  int asked = 0;
  std::chrono::microseconds launchTakes{0};
  int launched = 0;
  int stored = 0;
};

struct BusAgentObjectTest : testing::Test {
  RealLoop real;
  PrivateBus bus{real};
  SimulatedSystemLog log;
  FewAnswers answers;
  std::unique_ptr<BusConnection> connection;
  std::unique_ptr<BusAgentObject> object;
  QDBusConnection caller{QString()};
  int names = 0;

  void SetUp() override {
    bus.start();
    connection = std::make_unique<BusConnection>(real.loop, log, [this] { return bus.address(); });
    object = std::make_unique<BusAgentObject>(*connection, real.loop, real.clock);
    object->appear(answers);
    connect();
  }
  void TearDown() override { QDBusConnection::disconnectFromBus(caller.name()); }

  void connect() {
    QDBusConnection::disconnectFromBus(caller.name());
    caller = QDBusConnection::connectToBus(QString::fromStdString(bus.address()),
                                           QString("caller %1").arg(++names));
    ASSERT_TRUE(caller.isConnected());
  }
  static QDBusMessage question(const char* method, const QList<QVariant>& arguments = {},
                               const char* interface = "com.zan.corvana9.Scheduler") {
    QDBusMessage message = QDBusMessage::createMethodCall(
        "com.zan.corvana9.Scheduler", "/com/zan/corvana9/Scheduler", interface, method);
    message.setArguments(arguments);
    return message;
  }
  /// Asks while the loop runs, since the agent answers from there.
  QDBusMessage ask(const QDBusMessage& message) {
    const QDBusPendingCall call = caller.asyncCall(message, 20'000);
    EXPECT_TRUE(real.runUntil([&] { return call.isFinished(); }));
    return call.reply();
  }
  bool answersStatus() { return ask(question("Status")).type() == QDBusMessage::ReplyMessage; }
};

TEST_F(BusAgentObjectTest, AnswersInTheTypesItPromises) {
  const QDBusMessage status = ask(question("Status"));
  EXPECT_EQ(status.signature(), "a{sv}");
  EXPECT_EQ(ask(question("Queue")).signature(), "aa{sv}");
  EXPECT_EQ(ask(question("Next")).signature(), "aa{sv}");
  const QDBusMessage why = ask(question("Why", {7LL}));
  EXPECT_EQ(why.signature(), "as");
  EXPECT_EQ(why.arguments()[0].toStringList(), (QStringList{"It waits.", "It rains."}));
  EXPECT_EQ(ask(question("Launch", {7LL})).arguments()[0].toString(), "queued");
  EXPECT_EQ(ask(question("Launch", {-1LL})).arguments()[0].toString(), "there is no such action");
  EXPECT_EQ(ask(question("Why", {8LL})).errorMessage(), "action 8: none");
}

TEST_F(BusAgentObjectTest, WrongQuestionsGetAnError) {
  const std::vector<std::pair<QDBusMessage, const char*>> wrong{
      {question("Launch"), "InvalidArgs"},
      {question("Launch", {"7"}), "InvalidArgs"},
      {question("Launch", {7}), "InvalidArgs"},
      {question("Launch", {7LL, 7LL}), "InvalidArgs"},
      {question("Why", {QVariant(QVariantList{7LL})}), "InvalidArgs"},
      {question("Status", {7LL}), "InvalidArgs"},
      {question("Quit"), "UnknownMethod"},
      {question("Status", {}, "com.zan.corvana9.Other"), "Unknown"},
      {question("Get", {"com.zan.corvana9.Scheduler", "Status"}, "org.freedesktop.DBus.Properties"),
       "Unknown"}};
  for (const auto& [message, name] : wrong) {
    const QDBusMessage reply = ask(message);
    EXPECT_EQ(reply.type(), QDBusMessage::ErrorMessage) << message.member().toStdString();
    EXPECT_THAT(reply.errorName().toStdString(), HasSubstr(name));
  }
  EXPECT_EQ(answers.asked, 0);
  EXPECT_TRUE(answersStatus());
}

TEST_F(BusAgentObjectTest, AFloodIsRefusedAndOthersAreServed) {
  constexpr int kCalls = 10'000;
  std::vector<QDBusPendingCall> calls;
  calls.reserve(kCalls);
  for (int i = 0; i < kCalls; ++i) calls.push_back(caller.asyncCall(question("Status"), 60'000));
  // All of them wait before the loop runs.
  ASSERT_TRUE(real.runUntil([&] { return calls.back().isFinished(); }, 60));
  ASSERT_TRUE(real.runUntil([&] {
    return std::all_of(calls.begin(), calls.end(),
                       [](const auto& one) { return one.isFinished(); });
  }));
  std::map<QString, int> kinds;
  for (const QDBusPendingCall& call : calls) ++kinds[call.reply().errorName()];
  EXPECT_EQ(kinds[""], answers.asked);
  EXPECT_GE(answers.asked, 32);
  EXPECT_EQ(kinds[""] + kinds["org.freedesktop.DBus.Error.LimitsExceeded"], kCalls);
  EXPECT_GT(kinds["org.freedesktop.DBus.Error.LimitsExceeded"], 0);
  connect();
  EXPECT_TRUE(answersStatus());
}

TEST_F(BusAgentObjectTest, ManyLaunchesAreStoredBeforeTheirAnswersAndHoldNobodyUp) {
  constexpr int kLaunches = 3'000;
  answers.launchTakes = std::chrono::microseconds(100);
  int answered = 0;
  std::vector<std::unique_ptr<QDBusPendingCallWatcher>> calls;
  for (int i = 0; i < kLaunches; ++i) {
    calls.push_back(std::make_unique<QDBusPendingCallWatcher>(
        caller.asyncCall(question("Launch", {7LL}), 60'000)));
    QObject::connect(calls.back().get(), &QDBusPendingCallWatcher::finished, [&](auto* call) {
      ++answered;
      EXPECT_EQ(QDBusReply<QString>(*call).value(), "queued");
      EXPECT_LE(answered, answers.stored);
    });
  }
  ASSERT_TRUE(real.runUntil([&] { return answers.launched > 0; }));
  EXPECT_TRUE(answersStatus());
  const int before = answers.launched;
  ASSERT_TRUE(real.runUntil([&] { return answered == kLaunches; }, 60));
  EXPECT_LT(before, kLaunches);
}

TEST_F(BusAgentObjectTest, ChangesOfOnePassAreToldOnce) {
  BusConnection other(real.loop, log, [this] { return bus.address(); });
  int changes = 0;
  std::vector<bool> presence;
  const BusWatch watch(other, {[](const DistributedNotification&) {}, [&] { ++changes; },
                               [&](bool on) { presence.push_back(on); }});
  // What listens is known to the bus once an answer came over the same connection.
  other.bus().call(question("Ping", {}, "org.freedesktop.DBus.Peer"));
  for (int i = 0; i < 100; ++i) object->changed();
  ASSERT_TRUE(real.runUntil([&] { return changes > 0; }));
  object->changed();
  ASSERT_TRUE(real.runUntil([&] { return changes > 1; }));
  EXPECT_TRUE(answersStatus());
  EXPECT_EQ(changes, 2);

  object->disappear();
  ASSERT_TRUE(real.runUntil([&] { return !presence.empty(); }));
  EXPECT_EQ(ask(question("Status")).errorName(), "org.freedesktop.DBus.Error.ServiceUnknown");
  object->appear(answers);
  ASSERT_TRUE(real.runUntil([&] { return presence.size() > 1; }));
  EXPECT_THAT(presence, ElementsAre(false, true));
  EXPECT_TRUE(answersStatus());
}

TEST_F(BusAgentObjectTest, AQuestionIsAnsweredAfterTheMessageBeforeIt) {
  BusNotifications notifications(*connection, real.loop, log);
  notifications.observe("Agent", [&](const DistributedNotification&) { answers.enabled = false; });
  ASSERT_TRUE(answersStatus());
  QDBusMessage post =
      QDBusMessage::createSignal("/com/zan/corvana9/DistributedNotifications",
                                 "com.zan.corvana9.DistributedNotifications", "Posted");
  post << "Agent"
       << "Disable" << QVariantMap();
  // Questions of others are under way already.
  const QDBusPendingCall before = caller.asyncCall(question("Queue"));
  ASSERT_TRUE(caller.send(post));
  const QDBusMessage reply = ask(question("Status"));
  const QVariantMap status = qdbus_cast<QVariantMap>(reply.arguments()[0]);
  EXPECT_FALSE(status["enabled"].toBool());
}

TEST_F(BusAgentObjectTest, IsFoundAgainWhenTheBusHasComeBack) {
  ASSERT_TRUE(answersStatus());
  bus.stop();
  ASSERT_TRUE(real.runUntil([&] { return !connection->isConnected(); }));
  object->changed();
  bus.start();
  ASSERT_TRUE(real.runUntil([&] { return connection->isConnected(); }));
  connect();
  EXPECT_TRUE(answersStatus());
}

TEST_F(BusAgentObjectTest, WaitsForItsNameWhileAnotherHasIt) {
  BusConnection second(real.loop, log, [this] { return bus.address(); });
  FewAnswers others;
  BusAgentObject successor(second, real.loop, real.clock);
  ASSERT_TRUE(answersStatus());
  successor.appear(others);
  ASSERT_TRUE(answersStatus());
  EXPECT_EQ(others.asked, 0);
  object.reset();
  for (int i = 0; i < 100 && others.asked == 0; ++i) EXPECT_TRUE(answersStatus());
  EXPECT_GT(others.asked, 0);
}

}  // namespace
}  // namespace corvana
