#include <gtest/gtest.h>

#include <cmath>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "tests/core_drive/Drive.h"
#include "volumes/ZAN_MountVolume.h"

namespace corvana {
namespace {

/// Something that is looked at four times a second, and when it was another thing than before.
struct Watched {
  const char* name;
  std::function<std::string(Drive&)> what;
  double seconds;
  const char* changes;  ///< "2.5 text", seconds from the beginning
  std::function<void(Drive&)> does = {};
  std::function<void(Drive&)> before = {};
  bool withMainApp = false;
};

std::string changes(const Watched& one) {
  Drive day(one.withMainApp);
  if (one.before) one.before(day);
  day.begin();
  const double begun = day.machine.clock.monotonic();
  std::string last = one.what(day);
  if (one.does) one.does(day);
  std::string changes;
  const auto look = [&] {
    const std::string now = one.what(day);
    if (now == last) return;
    changes += (changes.empty() ? "" : ", ") +
               ZAN_StringUtils::format(
                   "%@ ", {std::round((day.machine.clock.monotonic() - begun) * 100) / 100}) +
               now;
    last = now;
  };
  for (look(); day.machine.clock.monotonic() - begun < one.seconds; look()) day.runFor(0.25);
  return changes;
}

std::string icon(Drive& day) {
  if (!day.ui.statusItem) return "none";
  if (day.ui.countDown) return std::to_string(day.ui.countDown->first);
  return "icon " + std::to_string(static_cast<int>(day.ui.statusIcon->first));
}

void jump(Drive& day, double seconds) {
  day.machine.clock.setNow(day.machine.clock.now() + seconds);
}

std::function<void(Drive&)> prefers(const char* key, int value) {
  return [=](Drive& day) { day.prefer(key, value); };
}

TEST(Ticks, DoEachDutyAtItsTime) {
  const auto queue = [](Drive& day) { return day.queue(); };
  const auto visible = [](Window window) {
    return [window](Drive& day) {
      return std::string(day.ui.isWindowVisible(window) ? "shown" : "hidden");
    };
  };
  const auto said = [](Drive& day) {
    return std::to_string(day.machine.notifications.posts.size());
  };
  const auto nextCheck = [](Drive& day) {
    return day.civil(day.agentObject.answers->status()["nextCheck"].asDate().value()).substr(11);
  };
  const auto activity = [](Drive& day) {
    day.agent->store().finishSaving();
    std::uint64_t minutes = 0;
    const ZAN_Value record = day.agent->store().activity().readActivity()["SchedulerActivity"];
    const auto set = ZAN_Unarchiver::unarchiveObjectWithData(record.bytes());
    for (const ZAN_Value::Range& range : set->ranges()) minutes += range.length;
    return std::to_string(minutes);
  };
  // Due 180 s after the beginning.
  const auto soon = [](Drive& day) {
    day.action("Soon", daily(day.timeOfDay("12:03:05"), day.machine.clock.now()));
  };
  const Watched kWatched[] = {
      {"the main application comes", said, 30, "5.25 1",
       [](Drive& day) {
         day.runFor(1);
         day.startMainApp();
       }},
      {"the survey of the execution", said, 35, "0 1, 5.25 2, 15.25 3, 25.25 4",
       [](Drive& day) {
         day.startExecuteApp();
         day.commands().showWindow(Window::executionSurvey);
       }},
      {"the record of activity", activity, 130, "55.25 2, 115.25 3"},
      {"the complete check", nextCheck, 1300, "596.25 12:20:01, 1196.25 12:30:01"},
      {"the complete check while execution is off",
       nextCheck,
       150,
       "56.25 12:02:01, 116.25 12:03:01",
       {},
       prefers("SchedulerPrefScheduleDisabled", 1)},
      {"the wake-up",
       [](Drive& day) {
         return day.machine.power.events.empty() ? "" : day.machine.power.events.back();
       },
       30, "5.25 schedule 725907590",
       [](Drive& day) { day.commands().setPreference("SchedulerPrefWakeupMachine", 1); }},
      {"the look-ahead",
       queue,
       181,
       "165.25 [{ref=103 title=Soon date=12:03:05}], 180.25 [{ref=103 title=Soon date=12:03:05 "
       "running=1}]",
       {},
       soon},
      {"the count-down", icon, 122, "120.25 59, 120.75 icon 0, 121.25 58, 121.75 icon 0", {}, soon},
      {"the end of the count-down", icon, 182,
       "177.25 2, 177.75 icon 0, 178.25 1, 178.75 icon 0, 179.25 0, 179.75 icon 0, 180.25 icon 4",
       [](Drive& day) { day.runFor(177); }, soon},
      {"the window of the queue", visible(Window::queue), 60, "0 shown, 22.76 hidden",
       [](Drive& day) { day.tell("LaunchAction", info("Ref", 102)); },
       prefers("SchedulerPrefShowActionsQueue", 1)},
      {"the window of the queue that the user opened", visible(Window::queue), 60, "0 shown",
       [](Drive& day) {
         day.tell("LaunchAction", info("Ref", 102));
         day.commands().showWindow(Window::queue);
       },
       prefers("SchedulerPrefShowActionsQueue", 1)},
      {"the status item on hover", icon, 130, "95.25 none",
       [](Drive& day) {
         day.runFor(80);
         day.machine.input.position = Point{1200, 890};
         day.machine.input.use();
         day.runFor(5);
         day.machine.input.position = Point{1200, 600};
         day.machine.input.use();
       },
       prefers("SchedulerPrefDisplayIcon", 1)},
      {"the status item while something runs", icon, 140,
       "80 icon 1, 80.25 icon 4, 100.26 icon 0, 105.76 none",
       [](Drive& day) {
         day.runFor(80);
         day.tell("LaunchAction", info("Ref", 102));
       },
       prefers("SchedulerPrefDisplayIcon", 1)},
      {"the floating icon on hover", visible(Window::floatingIcon), 20, "2 shown, 9.25 hidden",
       [](Drive& day) {
         day.machine.input.position = Point{1200, 890};
         day.machine.input.use();
         day.runFor(2);
         day.machine.input.position = Point{100, 890};
         day.machine.input.use();
       },
       prefers("SchedulerPrefDisplayIconWindow", 1)},
      {"an error and a pause", icon, 3,
       "0.25 icon 5, 0.75 icon 8, 1.25 icon 5, 1.75 icon 8, 2.25 icon 5, 2.75 icon 8",
       [](Drive& day) {
         ZAN_Value entry = info("C", 5);
         day.tell("AddToLog", entry);
         day.commands().pauseExecution();
       }},
      {"free space", visible(Window::lowSpace), 800, "295.75 shown",
       [](Drive& day) { day.machine.volumes.setFree("/", 1'000'000'000); }},
      {"idle time",
       [](Drive& day) { return day.agent->userInterfaceSources().launchStep.statusInformation(); },
       320,
       "115.75 Idle for 2 min, 175.25 Idle for 3 min, 235.25 Idle for 4 min, 295.25 Idle for 5 min",
       {},
       [](Drive& day) {
         day.action("Tidy", ZAN_Value::dictionary(
                                {{"TriggerFrequencyPopup", 40}, {"TriggerScheduleMinutes", 20}}));
       }},
      {"the clock, set back a little", nextCheck, 2, "", [](Drive& day) { jump(day, -1.5); }},
      {"the clock, set back", nextCheck, 2, "0.25 11:10:05", [](Drive& day) { jump(day, -3600); }},
      {"the clock, put forward", nextCheck, 20, "10.25 13:10:15",
       [](Drive& day) { jump(day, 3600); }},
      {"the clock, set back while a message is shown",
       [](Drive& day) { return day.ui.message ? "shown" : "gone"; }, 20, "1 shown, 10.25 gone",
       [](Drive& day) {
         day.tell("Message", info("Title", "Look"));
         day.runFor(1);
         jump(day, -3600);
       }},
  };
  for (const Watched& one : kWatched) {
    SCOPED_TRACE(one.name);
    EXPECT_EQ(changes(one), one.changes);
  }
}

TEST(Ticks, VolumesMountedForActionsGoWhenTheQueueIsEmpty) {
  Drive day;
  day.prefer("SchedulerPrefAutoUnmountVolumes", 1);
  const ZAN_MountVolume tools(day.machine.processes, day.machine.machine, day.machine.systemLog);
  day.machine.volumes.installTool(day.machine.processes, tools.toolsFolder() + "/diskutil");
  const std::string stick = day.machine.volumes.mount({.name = "Stick"});
  day.scripts["Mail"] = {.seconds = 30};
  day.begin();
  day.tell("LaunchAction", info("Ref", 102));
  day.tell("LaunchAction", info("Ref", 101));
  day.tell("UnmountVolume", info("Path", stick));
  day.runFor(45);
  EXPECT_EQ(day.machine.volumes.mounts().size(), 2U);
  day.runFor(25);
  EXPECT_EQ(day.machine.volumes.mounts().size(), 1U);
}

}  // namespace
}  // namespace corvana
