#include "platform/linux/SystemClock.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>

#include "platform/simulated/TemporaryFolder.h"
#include "tests/real/RealLoop.h"

namespace corvana {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

/// That the machine wakes cannot be shown; that the alarm goes off at its time can.
struct WakeAlarmTest : testing::Test {
  RealLoop real;
  TemporaryFolder folder;
  SystemClock clock;
  WakeAlarm alarm{{CORVANA_WAKEUP, folder.at("alarms"), folder.at("rtc")}};

  void SetUp() override {
    folder.write("rtc/rtc0/device/power/wakeup", "enabled\n");
    if (const Outcome set = alarm.set(in(3600)); !set) GTEST_SKIP() << set.error().text;
  }
  void TearDown() override {
    for (const std::int64_t time : mTimes) alarm.cancel(time);
  }
  std::int64_t in(double seconds) {
    mTimes.push_back(static_cast<std::int64_t>(std::ceil(clock.now() + seconds)));
    return mTimes.back();
  }
  /// The processes that hold an alarm of this test.
  int holders() const {
    int count = 0;
    for (const auto& entry : fs::directory_iterator("/proc")) {
      std::error_code ignored;
      if (fs::read_symlink(entry.path() / "fd/1", ignored).empty()) continue;
      for (const auto& file : fs::directory_iterator(entry.path() / "fd", ignored)) {
        if (fs::read_symlink(file, ignored) == folder.at("alarms/Wakeup")) ++count;
      }
    }
    return count;
  }

 private:
  std::vector<std::int64_t> mTimes;
};

TEST_F(WakeAlarmTest, HoldsOneAlarmAndCancelsItByItsTime) {
  const std::int64_t time = in(7200);
  ASSERT_TRUE(alarm.set(time));
  EXPECT_TRUE(alarm.set(time));
  EXPECT_EQ(holders(), 1) << "in place of the first";
  alarm.cancel(time + 1);
  EXPECT_EQ(holders(), 1) << "another one";
  // As a restarted program does.
  WakeAlarm({CORVANA_WAKEUP, folder.at("alarms"), folder.at("rtc")}).cancel(time);
  EXPECT_EQ(holders(), 0);
}

TEST_F(WakeAlarmTest, EachHomeHasItsOwnAndNoneLiesWhereOthersWrite) {
  const WakeAlarm second({CORVANA_WAKEUP, folder.makeFolder("second"), folder.at("rtc")});
  const std::int64_t time = in(4000);
  ASSERT_TRUE(second.set(time));
  second.cancel(time);
  EXPECT_EQ(holders(), 1) << "the alarm of another home was touched";
  fs::permissions(folder.at("second"), fs::perms::all);
  EXPECT_FALSE(second.set(time));
}

TEST_F(WakeAlarmTest, WritesThroughNoLink) {
  const WakeAlarm other({CORVANA_WAKEUP, folder.makeFolder("others"), folder.at("rtc")});
  const std::string file = folder.at("others/Wakeup");
  const std::string precious = folder.write("precious", "text");
  for (const bool isHard : {false, true}) {
    fs::remove(file);
    if (isHard)
      fs::create_hard_link(precious, file);
    else
      fs::create_symlink(precious, file);
    EXPECT_FALSE(other.set(in(5000)));
    EXPECT_EQ(fs::file_size(precious), 4U);
  }
}

TEST_F(WakeAlarmTest, GoesOffAtItsTime) {
  const std::int64_t time = in(1);
  ASSERT_TRUE(alarm.set(time));
  EXPECT_TRUE(real.runUntil([&] { return !fs::exists(folder.at("alarms/Wakeup")); }));
  EXPECT_GE(clock.now(), static_cast<double>(time));
  EXPECT_EQ(holders(), 0);
}

TEST_F(WakeAlarmTest, SaysWhatIsMissing) {
  const WakeAlarm without({CORVANA_WAKEUP, folder.at("alarms"), folder.at("none")});
  EXPECT_THAT(without.set(in(100)).error().text, HasSubstr("no clock that could wake it"));
  folder.write("rtc/rtc0/device/power/wakeup", "disabled\n");
  EXPECT_FALSE(alarm.set(in(100)));
}

}  // namespace
}  // namespace corvana
