#include "ui/MessagePlacement.h"

#include <gtest/gtest.h>

namespace corvana {
namespace {

constexpr Rect kVisible{0, 0, 1440, 876};

TEST(MessagePlacement, messagesStandInPerCentOfTheFreeRoomAndNeverLeaveIt) {
  EXPECT_EQ(MessagePlacement::message(440, 76, {50, 10}, kVisible), (Point{500, 720}));
  EXPECT_EQ(MessagePlacement::message(440, 76, {0, 0}, kVisible), (Point{0, 800}));
  EXPECT_EQ(MessagePlacement::message(440, 76, {900, -5}, kVisible), (Point{1000, 800}));
  EXPECT_EQ(MessagePlacement::messageWidth(2000, {0, 0, 1440, 900}), 1408);
  EXPECT_EQ(MessagePlacement::closeButton({500, 720, 440, 76}).y, 780);
}

TEST(MessagePlacement, theAnnounceMakesRoomForAMessageAndComesBackFromBeyondTheScreen) {
  const Point own{510, 730};
  EXPECT_EQ(MessagePlacement::announce(own, kVisible, {}), own);
  const Rect message{500, 720, 440, 76};
  const Point moved = MessagePlacement::announce(own, kVisible, message);
  EXPECT_LE(moved.y + MessagePlacement::kAnnounceHeight, message.y);
  const Rect low{500, 4, 440, 76};
  EXPECT_GE(MessagePlacement::announce(Point{510, 8}, kVisible, low).y, low.y + low.height);
  // The second screen that it stood on is gone.
  EXPECT_EQ(MessagePlacement::announce(Point{3000, 2000}, kVisible, {}), (Point{1090, 858}));
}

}  // namespace
}  // namespace corvana
