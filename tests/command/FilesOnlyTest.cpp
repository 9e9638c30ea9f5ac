#include <gmock/gmock.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <sstream>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/History.h"
#include "command/Commands.h"
#include "platform/linux/SystemClock.h"
#include "tests/actions/TreeHome.h"

namespace corvana {
namespace {

using testing::HasSubstr;

/// What the commands tell when no agent runs. 2024-01-02 12:00 UTC is the date of the records.
class FilesOnlyTest : public testing::Test {
 protected:
  FilesOnlyTest() { ::setenv("TZ", "UTC", 1); }
  int run(std::vector<std::string> words) {
    words.insert(words.end(), {"--home", machine.folder.path()});
    std::istringstream in;
    out.str("");
    err.str("");
    return runCommandLine(words, {in, out, err});
  }
  static ZAN_Value date(double seconds) {
    return ZAN_Value::date(SimulatedPlatform::kFirstDate + seconds);
  }
  ZAN_Value settings() { return TreeHome(machine).store.settings().schedulerSettings(); }

  SimulatedPlatform machine;
  std::ostringstream out, err;
};

TEST_F(FilesOnlyTest, LookingCreatesNothing) {
  for (const char* command : {"status", "queue", "log", "history", "volumes"}) {
    EXPECT_EQ(run({command}), kDone) << command;
    EXPECT_EQ(run({command, "--json"}), kDone) << command;
  }
  EXPECT_EQ(run({"report"}), kCouldNot);
  EXPECT_FALSE(ZAN_FilesUtils::exists(machine.folder.at("Library")));
}

TEST_F(FilesOnlyTest, WhatWasLostIsToldUntilAnEarlierVersionIsBack) {
  TreeHome home(machine);
  ASSERT_TRUE(home.store.settings().saveSchedulerSettings(ZAN_Value::dictionary({{"a", 1}})));
  ASSERT_TRUE(home.store.settings().saveSchedulerSettings(ZAN_Value::dictionary({{"a", 2}})));
  EXPECT_EQ(run({"status"}), kDone);
  EXPECT_EQ(run({"next"}), kDone);
  const std::string path = home.store.folder().pathOf(DataFolder::kSchedulerSettings);
  // A power cut took the contents.
  ASSERT_EQ(::truncate(path.c_str(), 0), 0);
  for (const char* command : {"status", "next"}) {
    EXPECT_EQ(run({command}), kCouldNot) << command;
    EXPECT_THAT(err.str(), HasSubstr("empty, though it was not before"));
    EXPECT_THAT(err.str(), HasSubstr("corvana9 recover"));
  }
  // The agent has put it aside and written a new one: that makes nothing good.
  ActionStore agent(machine.clock, machine.machine, machine.systemLog);
  ASSERT_TRUE(agent.settings().saveSchedulerSettings(ZAN_Value::dictionary({{"b", 1}})));
  EXPECT_EQ(run({"status"}), kCouldNot);

  EXPECT_EQ(run({"recover"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("damaged, kept as"));
  EXPECT_THAT(out.str(), HasSubstr("  3. "));
  EXPECT_EQ(run({"recover", "scheduler-settings", "--version", "9"}), kCouldNot);
  EXPECT_EQ(run({"recover", "everything"}), kWrongWords);
  EXPECT_EQ(settings().integer("b"), 1);
  EXPECT_EQ(run({"recover", "scheduler-settings", "--version", "2"}), kDone) << err.str();
  EXPECT_EQ(settings().integer("a"), 2);
  EXPECT_EQ(run({"status"}), kDone) << err.str();
}

TEST_F(FilesOnlyTest, AVolumeThatIsAwayIsShownWithWhatIsRememberedOfIt) {
  const double now = SystemClock().now();
  ZAN_Value hours = ZAN_Value::array();
  for (int day = 6; day >= 0; --day) {
    hours.append(ZAN_Value::dictionary(
        {{"D", std::floor(now - day * 86'400.0)}, {"E", day > 2 ? 999'000'000 : 1'000'000}}));
  }
  ASSERT_TRUE(TreeHome(machine).store.files().writeListToFile(
      ZAN_Value::array({ZAN_Value::dictionary(
          {{"VolumeFolderName", "Archive"},
           {"VolumeFolderVolumeSize", 1'000'000'000},
           {"VolumeFolderVolumeDate", 1},
           {"E", 1'000'000},
           {"VolumeFreeSizeList",
            ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(hours))}})}),
      DataFolder::kVolumesInfo));
  ASSERT_EQ(run({"volumes", "--weeks", "2"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("Archive, not mounted, last seen "));
  EXPECT_THAT(out.str(), HasSubstr("1 MB of 1 GB free (0 %)"));
  EXPECT_THAT(out.str(), HasSubstr("  free, 7 days   |"));
  EXPECT_THAT(out.str(), HasSubstr("█       █       █       █       ▁       ▁       ▁|\n"));
  EXPECT_THAT(out.str(), HasSubstr("  free, 2 weeks  |"));
  ASSERT_EQ(run({"volumes", "--json"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("\"volName\": \"Archive\""));
}

TEST_F(FilesOnlyTest, EnableAndDisableAreStoredBesideWhatIsThere) {
  ASSERT_TRUE(TreeHome(machine).store.settings().saveSchedulerSettings(
      ZAN_Value::dictionary({{"SchedulerPrefCurrentContext", 2}})));
  ASSERT_EQ(run({"disable"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("will be off when it starts"));
  EXPECT_EQ(settings().integer("SchedulerPrefScheduleDisabled"), 1);
  EXPECT_EQ(settings().integer("SchedulerPrefCurrentContext"), 2);
  ASSERT_EQ(run({"status"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("Automatic execution: off\nContext: home\n"));
  ASSERT_EQ(run({"enable"}), kDone);
  EXPECT_EQ(settings().integer("SchedulerPrefScheduleDisabled"), 0);
}

TEST_F(FilesOnlyTest, WhatNeedsAnAgentSaysSo) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"launch", "5"}, {"pause"}, {"continue"}, {"stop"}, {"skip"}}) {
    EXPECT_EQ(run(words), kCouldNot) << words[0];
    EXPECT_THAT(err.str(), HasSubstr("The agent is not running. Start it")) << words[0];
    EXPECT_EQ(out.str(), "");
  }
  EXPECT_EQ(run({"launch", "Letters"}), kWrongWords);
  EXPECT_EQ(run({"post", "agent"}), kWrongWords);
  EXPECT_EQ(run({"post", "agent", "Object", "[1]"}), kWrongWords);
  EXPECT_EQ(run({"report", "--date", "2024-02-30"}), kWrongWords);
  EXPECT_EQ(run({"log", "--count", "0"}), kWrongWords);
}

TEST_F(FilesOnlyTest, HistoryTellsResultDurationAndLateness) {
  TreeHome home(machine);
  History history(home.store);
  const auto execution = [&](double start, const char* title, int ref, int code, double end,
                             int errors) {
    ZAN_Value entry = ZAN_Value::dictionary({{"Date", date(start)},
                                             {"Title", title},
                                             {"Ref", ref},
                                             {"C", code},
                                             {"ActionErrors", errors}});
    if (end > 0) entry.setValue("EndDate", date(end));
    history.addHistoryEntry(entry);
  };
  const auto launch = [&](double at, int ref, double due) {
    history.log().addLog(
        ZAN_Value::dictionary({{"C", 1}, {"R", ref}, {"M", date(at)}, {"D", date(due)}}));
  };
  execution(-90000, "Old", 1, 2, -89999, 0);
  launch(0, 1, 0);
  execution(0.5, "Letters", 1, 2, 3725.5, 0);
  launch(4000, 2, 400);
  history.log().addLog(ZAN_Value::dictionary(
      {{"C", 6}, {"R", 2}, {"N", "Photos"}, {"M", date(4010)}, {"P", "/a\nb"}}));
  execution(4000.2, "Photos", 2, 1, 0, 0);
  launch(4012, 2, 400);
  execution(4012.1, "Photos", 2, 14, 4013, 2);
  launch(5000, 1, 5000);
  execution(5000, "Letters", 1, 1, 0, 0);

  ASSERT_EQ(run({"history", "--count", "4"}), kDone);
  EXPECT_EQ(out.str(),
            "Tue 2024-01-02 12:00  1:02:05  Letters [1]: completed, on time\n"
            "Tue 2024-01-02 13:06  -:--:--  Photos [2]: crashed, 1 h 0 min late\n"
            "Tue 2024-01-02 13:06  0:00:01  Photos [2]: completed with errors, 2 errors, "
            "1 h 0 min late\n"
            "Tue 2024-01-02 13:23  -:--:--  Letters [1]: not ended, on time\n");
  ASSERT_EQ(run({"history"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("Old [1]: completed\n")) << "nothing is known of its launch";
  ASSERT_EQ(run({"log", "--count", "3"}), kDone);
  EXPECT_EQ(out.str(),
            "Tue 2024-01-02 13:06:50  Action \"Photos\" aborted (crash) - /a b\n"
            "Tue 2024-01-02 13:06:52  Start execution of action \"\"\n"
            "Tue 2024-01-02 13:23:20  Start execution of action \"\"\n");
}

TEST_F(FilesOnlyTest, QueueAndReportAreReadFromTheirFiles) {
  TreeHome home(machine);
  ASSERT_TRUE(home.store.tree().saveActionsTree(
      ZAN_Value::array({ZAN_Value::dictionary({{"Ref", 7}, {"Title", "Letters"}})})));
  ASSERT_TRUE(home.store.settings().saveSchedulerSettings(ZAN_Value::dictionary(
      {{"SchedulerActionsToDoList",
        ZAN_Value::array({ZAN_Value::dictionary({{"Ref", 7}, {"Date", date(0)}}),
                          ZAN_Value::dictionary({{"Ref", 8}})})}})));
  ASSERT_EQ(run({"queue"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("1. Letters [7], waiting since Tue 2024-01-02 12:00\n"
                                   "2. (no such action) [8]\n"));
  home.store.texts().addToReportFile("All is well");
  ASSERT_EQ(run({"report", "--date", "2024-01-02"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("All is well\n"));
  EXPECT_EQ(run({"report", "--date", "2024-01-03"}), kCouldNot);
}

}  // namespace
}  // namespace corvana
