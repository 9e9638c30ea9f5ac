#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "command/Commands.h"
#include "tests/actions/TreeHome.h"

namespace corvana {
namespace {

using testing::HasSubstr;

TEST(WhyCommand, ReadsTheAgentsFiles) {
  SimulatedPlatform machine;
  TreeHome home(machine);
  const ZAN_Value folder = ZAN_Value::dictionary({{"VolumeFolderPath", machine.folder.path()}});
  const auto action = [&](int ref, const std::string& title) {
    return ZAN_Value::dictionary({{"Ref", ref},
                                  {"Title", title},
                                  {"TriggerContextPopup", 2},
                                  {"ItemsVolumeTolerance", 1},
                                  {"ItemsSource", folder},
                                  {"ItemsDestination", folder}});
  };
  ZAN_Value daily = action(14, "Music");
  daily.setValue("TriggerAutomatic", 1);
  daily.setValue("TriggerFrequencyPopup", 1);
  daily.setValue("TriggerScheduleTime", ZAN_Value::date(0));
  daily.setValue("LastScheduleDate", ZAN_Value::date(4e9));  // reads as now: due tomorrow
  ASSERT_TRUE(home.store.tree().saveActionsTree(
      ZAN_Value::array({action(11, "Letters"), action(12, "Photos"), daily})));
  ZAN_Value queue = ZAN_Value::array(
      {ZAN_Value::dictionary({{"Ref", 12}}), ZAN_Value::dictionary({{"Ref", 11}})});
  ASSERT_TRUE(home.store.settings().saveSchedulerSettings(
      ZAN_Value::dictionary({{"SchedulerPrefScheduleDisabled", 1},
                             {"SchedulerPrefCurrentContext", 1},
                             {"SchedulerActionsToDoList", queue}})));

  std::istringstream in;
  std::ostringstream out, err;
  const auto why = [&](const std::string& ref) {
    out.str("");
    return runCommandLine({"why", ref, "--home", machine.folder.path()}, {in, out, err});
  };
  EXPECT_EQ(why("11"), kDone);
  EXPECT_THAT(out.str(), HasSubstr("11: Letters\n- The scheduler is not running.\n"));
  EXPECT_THAT(out.str(), HasSubstr("- It waits in the queue behind “Photos”.\n"));
  EXPECT_THAT(out.str(),
              HasSubstr("- Automatic execution is off.\n  Turn it on: corvana9 enable\n"));
  EXPECT_THAT(out.str(), HasSubstr("the context Home, and the context is now Office"));
  EXPECT_EQ(why("14"), kDone);
  EXPECT_THAT(out.str(), HasSubstr("- It is not due yet. Next run: "));
  EXPECT_EQ(why("13"), kCouldNot);
  EXPECT_THAT(err.str(), HasSubstr("13: no action has this reference"));
}

}  // namespace
}  // namespace corvana
