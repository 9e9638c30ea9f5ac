#include <cmath>

#include "tests/core_record/RecordFixture.h"

namespace corvana {
namespace {

using MessagesTest = RecordTest;

TEST_F(MessagesTest, OneWindowAtATimeEachForItsOwnTime) {
  RecordedAgent agent(p);
  Messages& messages = agent.messages;
  messages.showMessage("first", "a", 10, true);
  messages.showMessage("second", "b", 0.5, false);
  messages.showMessageImmediatly("third", "c", 7, false);
  ASSERT_EQ(p.userInterface.messages.size(), 1U);
  EXPECT_EQ(p.userInterface.paints, 0) << "what waits is not painted";
  EXPECT_GT(messages.endOfMessage(), agent.now() + 10);
  EXPECT_LT(messages.endOfMessage(), agent.now() + 10.1);

  messages.closeMessageWindow();
  EXPECT_FALSE(p.userInterface.message);
  EXPECT_FALSE(messages.isShown());
  messages.showNextPendingMessage();
  EXPECT_EQ(p.userInterface.message->title, "second");
  EXPECT_EQ(p.userInterface.message->seconds, 2.0);
  EXPECT_LT(messages.endOfMessage(), agent.now() + 2.1);
  EXPECT_TRUE(messages.hasPending());
  messages.showNextPendingMessage();
  EXPECT_EQ(p.userInterface.message->text, "c");
  EXPECT_FALSE(messages.hasPending());
  messages.closeMessageWindow();
  messages.showNextPendingMessage();
  EXPECT_FALSE(p.userInterface.message);

  messages.showMessageImmediatly("now", "", 1, false);
  EXPECT_EQ(p.userInterface.paints, 1);
}

TEST_F(MessagesTest, AStandardMessageIsLoggedRememberedAndShown) {
  RecordedAgent agent(p);
  int changes = 0;
  agent.records.changes.listen(
      [&changes](ChangeSet what) { changes += what.has(Change::messages) ? 1 : 0; });
  agent.messages.displayStandardMessage("Something happened", 13);
  EXPECT_EQ(agent.lastLogEntry().string("N"), "Something happened");
  EXPECT_EQ(agent.lastLogEntry().integer("C"), 13);
  EXPECT_EQ(p.userInterface.message->title, "Something happened");
  EXPECT_EQ(p.userInterface.message->seconds, 5.0);
  EXPECT_TRUE(p.userInterface.message->closeButton);
  p.runLoop.runFor(0);
  EXPECT_EQ(changes, 1);
  EXPECT_EQ(agent.messages.lastNotifications(),
            std::vector<std::string>{"2024-01-02 12:00 - Something happened"});

  agent.messages.displayStandardMessage("Only shown", 0);
  p.runLoop.runFor(0);
  EXPECT_EQ(changes, 1);
  EXPECT_EQ(agent.log.readLogList().size(), 1U);
  std::ifstream report(agent.store.texts().reportFileNameForDate({}));
  const std::string lines{std::istreambuf_iterator<char>(report), {}};
  EXPECT_NE(lines.find(" - Something happened\n"), std::string::npos) << lines;
  EXPECT_NE(lines.find(" - Only shown\n"), std::string::npos) << lines;
}

TEST_F(MessagesTest, TheLastNotificationsAreBounded) {
  {
    RecordedAgent agent(p);
    for (int i = 1; i <= 25; ++i) agent.messages.displayStandardMessage(std::to_string(i), 12);
  }
  RecordedAgent agent(p);
  const auto texts = agent.messages.lastNotifications();
  ASSERT_EQ(texts.size(), 21U);
  EXPECT_TRUE(texts.front().ends_with(" - 25"));
  EXPECT_TRUE(texts.back().ends_with(" - 5"));
  agent.preferences.setPref("SchedulerPrefLastNotifications", ZAN_Value::data("damaged"));
  EXPECT_TRUE(agent.messages.lastNotifications().empty());
}

TEST_F(MessagesTest, NoticesOfTheDesktopReplaceTheWindowWhenWanted) {
  RecordedAgent agent(p);
  agent.messages.sendUserNotification("unwanted");
  p.runLoop.runUntilIdle();
  EXPECT_TRUE(p.userInterface.notifications.empty());

  agent.preferences.mPrefShowMessageInNotificationCenter = 1;
  agent.messages.displayStandardMessage("news", 12);
  agent.messages.sendUserNotification("with button", "Show");
  EXPECT_TRUE(p.userInterface.notifications.empty()) << "delivered by the loop";
  p.runLoop.runUntilIdle();
  ASSERT_EQ(p.userInterface.notifications.size(), 2U);
  EXPECT_EQ(p.userInterface.notifications[0].title, "Corvana 9");
  EXPECT_EQ(p.userInterface.notifications[1].button, "Show");

  p.machine.version = 100705;
  agent.messages.displayStandardMessage("old system", 12);
  p.runLoop.runUntilIdle();
  EXPECT_EQ(p.userInterface.notifications.size(), 2U);
  EXPECT_FALSE(p.userInterface.message);
  EXPECT_EQ(agent.messages.lastNotifications().size(), 2U);
  EXPECT_EQ(agent.lastLogEntry().string("N"), "old system");
}

/// Until when launches are held back, in seconds from now; -1: not at all.
TEST_F(MessagesTest, HoldLaunchesBackForSoLongAsAReaderNeeds) {
  RecordedAgent agent(p);
  Messages& messages = agent.messages;
  const auto held = [&] {
    const double seconds = std::round(messages.holdsLaunchingUntil() - agent.now());
    return seconds > 0 ? seconds : -1;
  };
  const auto show = [&](double seconds, double waits = 0) {
    messages.closeMessageWindow();
    p.clock.sleep(waits);
    messages.showMessage("Look", "", seconds, true);
    return held();
  };
  EXPECT_EQ(held(), -1);
  EXPECT_EQ(show(10), 10);
  messages.closeMessageWindow();
  EXPECT_EQ(held(), -1) << "read and closed";
  EXPECT_EQ(show(1e300, 10), 60);
  EXPECT_EQ(p.userInterface.message->seconds, 3600);
  for (const double odd : {-1e300, std::nan(""), 0.0}) {
    EXPECT_EQ(show(odd, 10), 2) << odd;
    EXPECT_EQ(p.userInterface.message->seconds, 2) << odd;
  }

  // One after the other, each for the time that it is up.
  EXPECT_EQ(show(50, 10), 50);
  p.clock.sleep(50);
  EXPECT_EQ(show(50, 0.5), 50);
  p.clock.sleep(50);
  EXPECT_EQ(show(50, 0.5), 19) << "two minutes in a row";
  p.clock.sleep(50);
  EXPECT_EQ(show(50), 50) << "there was time for a launch";
  messages.closeMessageWindow();

  messages.showMessage("From elsewhere", "", 30, true, Messages::Origin::otherMachine);
  EXPECT_EQ(held(), -1);
  messages.showMessage("Waits", "", 30, true);
  EXPECT_EQ(held(), -1) << "nobody sees it yet";
  messages.showNextPendingMessage();
  EXPECT_EQ(held(), 30);
  p.userInterface.screen = false;
  EXPECT_EQ(show(30, 10), -1) << "nobody ever sees it";
}

}  // namespace
}  // namespace corvana
