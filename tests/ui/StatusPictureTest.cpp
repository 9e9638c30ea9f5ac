#include "ui/StatusItem.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace corvana {
namespace {

TEST(StatusPicture, pieShrinksWithTheMinutesAndTurnsRed) {
  const StatusPie far = StatusPicture::pie(59, 22, 22);
  EXPECT_DOUBLE_EQ(far.centreX, 11);
  EXPECT_DOUBLE_EQ(far.centreY, 10);
  EXPECT_DOUBLE_EQ(far.radius, 7.5);
  EXPECT_DOUBLE_EQ(far.from, 90);
  EXPECT_DOUBLE_EQ(far.to, 91 + 359.0 * 59 / 60);
  EXPECT_NEAR(far.sweep(), 5.98, 0.01);
  EXPECT_DOUBLE_EQ(StatusPicture::pie(0, 22, 22).sweep(), 359);

  for (const int minutes : {0, 9, 10}) {
    const StatusPie near = StatusPicture::pie(minutes, 22, 22);
    EXPECT_EQ(near.red, 1) << minutes;
    EXPECT_EQ(near.green, 0) << minutes;
    EXPECT_EQ(near.blue, 0) << minutes;
  }
  const StatusPie between = StatusPicture::pie(40, 22, 22);
  EXPECT_DOUBLE_EQ(between.red, 0.5);
  EXPECT_DOUBLE_EQ(between.green, 0.25);
  EXPECT_NEAR(between.blue, 0.333, 0.001);
}

TEST(StatusPicture, onlyTheNormalPictureHasABadgeAndOnlyTheAlarmHasNoStyle) {
  EXPECT_EQ(StatusPicture::ofCountDown(59, 2, 1), (StatusPicture{"MenuNormalTimerBlack", "", 59}));
  EXPECT_EQ(StatusPicture::ofCountDown(60, 2, 1),
            (StatusPicture{"MenuNormalBlack", "BadgeHome", {}}));
  EXPECT_EQ(StatusPicture::of(StatusIcon::running, 2, 0), (StatusPicture{"MenuRunning", "", {}}));
  EXPECT_EQ(StatusPicture::of(StatusIcon::error, 1, 2), (StatusPicture{"MenuRed", "", {}}));
  EXPECT_EQ(StatusPicture::of(StatusIcon::lacking, 2, 1),
            (StatusPicture{"MenuAmber", "BadgeHome", {}}));
  EXPECT_EQ(StatusPicture::of(StatusIcon::normal, 1, 2).badge, "BadgeOffice");
  EXPECT_EQ(StatusPicture::of(StatusIcon::normal, 7, 2).badge, "BadgeNomad");
  EXPECT_EQ(StatusPicture::of(StatusIcon::normal, 0, 2).badge, "");
  EXPECT_EQ(StatusPicture::badgeLeft(22, 11), 12);
}

TEST(StatusPicture, everyPictureHasADrawing) {
  for (const StatusIcon icon : {StatusIcon::normal, StatusIcon::disabled, StatusIcon::diskChanged,
                                StatusIcon::willDisable, StatusIcon::running, StatusIcon::pause,
                                StatusIcon::surveyResult, StatusIcon::lacking, StatusIcon::error}) {
    for (const int context : {1, 2, 3}) {
      const StatusPicture picture = StatusPicture::of(icon, context, 0);
      const std::string icons = CORVANA_SOURCE_FOLDER "/resources/icons/";
      EXPECT_TRUE(std::ifstream(icons + picture.image + ".svg")) << picture.image;
      if (picture.badge.empty()) continue;
      EXPECT_TRUE(std::ifstream(icons + picture.badge + ".svg")) << picture.badge;
    }
  }
}

}  // namespace
}  // namespace corvana
