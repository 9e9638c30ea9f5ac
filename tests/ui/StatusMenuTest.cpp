#include "ui/StatusMenu.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "core/machine/VolumeMounter.h"
#include "tests/scenario/Scenario.h"
#include "ui/FloatingIcon.h"
#include "volumes/ZAN_MountVolume.h"

namespace corvana {
namespace {

/// The agent's menu on a simulated desktop.
class StatusMenuTest : public testing::Test {
 protected:
  void start() {
    day.writeTree();
    day.start(true);
    sources.emplace(day.agent->userInterfaceSources());
    menu.emplace(*sources);
  }
  void TearDown() override {
    // What it reads in the background is not left alone.
    day.machine.time.finishThreads();
    day.quit();
  }

  static const MenuItem* find(const MenuItem::List& items, const std::string& title) {
    const auto found = std::ranges::find(items, title, &MenuItem::title);
    return found == items.end() ? nullptr : &*found;
  }
  /// The menu with what it holds below "More".
  MenuItem::List items() const {
    MenuItem::List items = menu->items();
    for (MenuItem& item : find(items, "More")->fill()) items.push_back(std::move(item));
    return items;
  }
  void choose(const std::string& title) {
    const MenuItem::List items = this->items();
    const MenuItem* item = find(items, title);
    ASSERT_NE(item, nullptr) << title;
    ASSERT_TRUE(item->enabled) << title;
    item->action();
  }
  std::vector<std::string> checked() {
    std::vector<std::string> titles;
    for (const MenuItem& item : items()) {
      if (item.checked) titles.push_back(item.title);
    }
    return titles;
  }
  static std::vector<std::string> titlesOf(const MenuItem::List& items) {
    std::vector<std::string> titles;
    for (const MenuItem& item : items) titles.push_back(item.title);
    return titles;
  }

  Scenario day;
  std::optional<UserInterfaceSources> sources;
  std::optional<StatusMenu> menu;
};

using testing::ElementsAre;

TEST_F(StatusMenuTest, marksFollowTheScheduleAndPauseGoesFirstInTheTitle) {
  start();
  EXPECT_THAT(checked(), ElementsAre("Execute automatically"));
  choose("Turn off when all is done");
  EXPECT_THAT(checked(), ElementsAre("Turn off when all is done"));
  choose("Do not execute automatically");
  EXPECT_THAT(checked(), ElementsAre("Do not execute automatically"));
  EXPECT_EQ(menu->items()[0].title, "Automatic execution is off");
  EXPECT_EQ(menu->items()[0].colour, MenuColour::secondary);

  choose("Pause");
  day.runFor(2);
  EXPECT_EQ(menu->items()[0].title, "Paused");
  EXPECT_EQ(menu->items()[0].colour, MenuColour::warning);
  EXPECT_EQ(day.machine.userInterface.statusIcon->first, StatusIcon::disabled);
  choose("Continue");
  choose("Execute automatically");
  EXPECT_EQ(menu->items()[0].colour, MenuColour::information);
}

TEST_F(StatusMenuTest, actionsAreRunFromTheSubmenusOfTheirGroups) {
  const std::int64_t letters =
      day.action("letters & more", ZAN_Value::dictionary({{"Favorite", 1}}));
  day.action("Photos", ZAN_Value::dictionary());
  start();
  const MenuItem::List items = this->items();
  const MenuItem::List run = find(items, "Run an action")->fill();
  EXPECT_THAT(titlesOf(run), ElementsAre("Find an action…", "", "letters & more", "Photos"));
  EXPECT_THAT(titlesOf(find(items, "Favourites")->fill()), ElementsAre("letters & more"));
  EXPECT_FALSE(find(items, "Stop")->enabled);

  // The tree may be another one by the time that the user chooses.
  day.agent->tree().releaseRootItem();
  run[2].action();
  EXPECT_TRUE(day.agent->queue().contains(letters));
  EXPECT_TRUE(find(menu->items(), "Stop")->enabled);
  EXPECT_FALSE(find(menu->items(), "Run an action")->fill()[2].enabled);
  // Chosen again all the same, it says why not.
  run[2].action();
  EXPECT_EQ(day.machine.userInterface.message->title, "The action was not started");
  EXPECT_EQ(day.machine.userInterface.message->text, "“letters & more” is in the queue already.");
}

TEST_F(StatusMenuTest, failuresStandOnTopUntilTheyAreSeenOrMadeGood) {
  const std::int64_t letters = day.action("Letters", ZAN_Value::dictionary());
  start();
  const auto isTold = [&] { return menu->items()[1].colour == MenuColour::alarm; };
  EXPECT_FALSE(isTold());
  const auto log = [&](int code) {
    sources->records.log.addSchedulerLog(
        ZAN_Value::dictionary({{"C", code}, {"R", letters}, {"N", "Letters"}}));
  };
  log(5);
  sources->records.log.showErrorState(13);
  EXPECT_EQ(menu->items()[1].title, "2 failures have not been seen…");
  // Opening the menu brings their window up somewhere, which is not seeing it.
  sources->commands.menuWillOpen();
  EXPECT_TRUE(isTold());
  log(2);
  EXPECT_EQ(menu->items()[1].title, "1 failure has not been seen…");
  sources->commands.errorsWereSeen();
  EXPECT_FALSE(isTold());
}

TEST_F(StatusMenuTest, aLargeGroupEndsWithTheWayToFindTheRest) {
  for (int i = 0; i < 40; ++i) day.action("Action " + std::to_string(i), ZAN_Value::dictionary());
  start();
  const MenuItem::List run = find(menu->items(), "Run an action")->fill();
  ASSERT_EQ(run.size(), 33U);
  EXPECT_EQ(run.back().title, "10 more…");
  run.back().action();
  EXPECT_TRUE(day.machine.userInterface.windows.contains(Window::nextActions));
}

TEST_F(StatusMenuTest, volumesToMountAreNamedWithWhatTheyAre) {
  const ZAN_MountVolume tools(day.machine.processes, day.machine.machine, day.machine.systemLog);
  day.machine.volumes.installTool(day.machine.processes, tools.toolsFolder() + "/diskutil");
  day.machine.volumes.plugIn({.name = "Photos_2"});
  start();
  const auto offered = [&] {
    sources->machine.mounter.updateListOfVolumesToMount();
    day.runFor(2);
    MenuItem::List items = find(this->items(), "Mount a volume")->fill();
    items.resize(items.size() - 2);  // the window of its own and what parts it off
    return items;
  };
  // It opens with the line that parts partitions from aliases.
  EXPECT_THAT(titlesOf(offered()), ElementsAre("", "Photos_2 (not mounted) - sdb1"));

  const std::string share = day.store().folder().aliasFolderPath() + "/share.desktop";
  std::ofstream(share) << "[Desktop Entry]\nType=Link\nURL=smb://server/share\n";
  day.machine.volumes.plugIn({.name = "Music"});
  const MenuItem::List items = offered();
  EXPECT_THAT(titlesOf(items),
              ElementsAre("share.desktop (alias)", "", "Photos_2 (not mounted) - sdb1",
                          "Music (not mounted) - sdc1"));
  EXPECT_EQ(items[0].icon, MenuIcon::file);
  items[3].action();
  day.runFor(2);
  EXPECT_TRUE(std::filesystem::exists(day.machine.volumes.folder + "/Music"));
  EXPECT_TRUE(day.agent->state().mMenuWasUsed);
}

TEST_F(StatusMenuTest, everyChoiceLeadsToWhatItNames) {
  start();
  sources->records.tree.rootItem().addGroup("Letters", "", 0);
  SimulatedUserInterface& screen = day.machine.userInterface;
  const std::pair<const char*, Window> windows[] = {
      {"Preferences…", Window::preferences},
      {"Status and automatic execution…", Window::status},
      {"Next actions…", Window::nextActions},
      {"Queue…", Window::queue},
      {"Latest actions…", Window::latestActions},
      {"Errors…", Window::errorSummary},
      {"Execution survey…", Window::executionSurvey},
      {"Volumes to mount…", Window::mountVolumes}};
  for (const auto& [title, window] : windows) {
    SCOPED_TRACE(title);
    MenuItem::List items = this->items();
    for (MenuItem& item : find(items, "Mount a volume")->fill()) items.push_back(std::move(item));
    for (MenuItem& item : menu->floatingItems()) items.push_back(std::move(item));
    screen.windows.clear();
    int times = 0;
    for (const MenuItem& item : items) {
      if (item.title != title) continue;
      item.action();
      ++times;
    }
    EXPECT_GE(times, 1);
    EXPECT_EQ(screen.windows, std::set{window});
  }
  EXPECT_THAT(titlesOf(menu->items()),
              ElementsAre("No action is scheduled", "", "Pause", "Stop", "Run an action", "",
                          "Overview…", "Restore…", "Preferences…", "More", "", "Quit…"));
  EXPECT_THAT(
      titlesOf(find(menu->items(), "More")->fill()),
      ElementsAre("Execute automatically", "Turn off when all is done",
                  "Do not execute automatically", "Context", "", "Skip this item", "Show progress",
                  "Favourites", "", "Status and automatic execution…", "Next actions…", "Queue…",
                  "Latest actions…", "Errors…", "", "Mount a volume", "Go to", "Last notifications",
                  "Open Corvana 9", "", "All disks…", "Execution survey…"));
  EXPECT_THAT(titlesOf(menu->floatingItems()),
              ElementsAre("No action is scheduled", "", "Pause", "Stop", "Run an action",
                          "Favourites", "", "Overview…", "Next actions…", "Queue…",
                          "Latest actions…", "", "Turn automatic execution off", "Preferences…"));
  MenuItem::List items = this->items();
  const auto filled = [&](const char* title) { return titlesOf(find(items, title)->fill()); };
  EXPECT_THAT(filled("Favourites"), ElementsAre("No favourites"));
  EXPECT_THAT(titlesOf(find(items, "Run an action")->fill()[2].fill()), ElementsAre("No actions"));
  const MenuItem::List places = find(items, "Go to")->fill();
  EXPECT_THAT(titlesOf(places),
              ElementsAre("Settings folder",
                          std::filesystem::path(day.machine.folder.path()).filename().string(),
                          "Start-up disk"));
  for (const char* name : {"b/inside.txt", ".hidden", "A.txt", "c.txt"})
    day.machine.folder.write(std::string("Many/") + name, "");
  const MenuItem::List files =
      folderItems(day.machine.processes, day.machine.folder.at("Many"),
                  [&](const std::string& path) { (void)day.machine.processes.open(path); });
  EXPECT_THAT(titlesOf(files), ElementsAre("A.txt", "b", "c.txt"));
  EXPECT_EQ(files[0].icon, MenuIcon::file);
  EXPECT_FALSE(files[0].read);
  EXPECT_EQ(files[1].icon, MenuIcon::folder);
  files[1].read()[0].action();
  EXPECT_EQ(day.machine.processes.opened.back(), day.machine.folder.at("Many/b/inside.txt"));
  for (int i = 0; i < 70; ++i) day.machine.folder.write("Many/b/" + std::to_string(i), "");
  EXPECT_EQ(files[1].read().size(), 60U);
  for (const char* title : {"Stop", "Skip this item", "Show progress"})
    EXPECT_FALSE(find(items, title)->enabled) << title;
  find(items, "Context")->fill()[2].action();
  EXPECT_EQ(day.agent->state().mContext, 2);
  EXPECT_TRUE(find(items, "Context")->fill()[2].checked);

  // What needs the user's attention stands behind the title, the worst first.
  SchedulerState& state = sources->records.state;
  state.mStartedFromNewMachine = true;
  state.mSurveyFolderResult = ZAN_Value("found");
  state.mLacking = {1, 2};
  items = menu->items();
  EXPECT_EQ(items[0].colour, MenuColour::alarm);
  EXPECT_EQ(items[1].colour, MenuColour::alarm);
  EXPECT_EQ(items[2].colour, MenuColour::warning);
  EXPECT_EQ(items[3].colour, MenuColour::warning);
  EXPECT_TRUE(items[4].title.empty());
  items[2].action();
  EXPECT_TRUE(screen.windows.contains(Window::errorSummary));
}

TEST_F(StatusMenuTest, theFloatingIconNamesWhatIsGoingOnAndWhatComes) {
  const auto add = [&](const char* title, double from) {
    const ReferenceTime at = day.machine.clock.now() + from;
    return day.action(title, daily(at, at - 86400));
  };
  add("Soon", 3600);
  const std::int64_t later = add("Later", 7200);
  start();
  day.runFor(5);
  const auto lines = [&](std::size_t count) { return floatingIconLines(*sources, count); };
  EXPECT_THAT(lines(0), testing::IsEmpty());
  EXPECT_THAT(lines(2), ElementsAre(testing::HasSubstr("Soon"), "2:00 PM  Later"));
  EXPECT_EQ(lines(1).size(), 1U);
  sources->work.queue.addActionToQueue(later, day.machine.clock.now() + 600, -1, true, false,
                                       false);
  EXPECT_THAT(lines(9), testing::Contains("1:00 PM  Soon")) << "it is not the title any more";
  choose("Pause");
  EXPECT_EQ(lines(9)[0], "Paused");
}

TEST_F(StatusMenuTest, allDisksAreReadBeforeTheirWindowComesUp) {
  const ZAN_MountVolume tools(day.machine.processes, day.machine.machine, day.machine.systemLog);
  day.machine.volumes.installTool(day.machine.processes, tools.toolsFolder() + "/diskutil");
  day.machine.volumes.plugIn({.name = "Archive"});
  start();
  choose("All disks…");
  day.runFor(1);
  EXPECT_THAT(day.machine.userInterface.texts[Window::allDisks], testing::HasSubstr("Archive"));
  EXPECT_TRUE(day.machine.userInterface.windows.contains(Window::allDisks));
}

TEST_F(StatusMenuTest, notificationsAreListedAsStored) {
  start();
  const auto notifications = [&] { return find(items(), "Last notifications")->fill(); };
  EXPECT_THAT(titlesOf(notifications()), ElementsAre("No notifications"));
  for (int i = 1; i <= 30; ++i) {
    day.agent->messages().displayStandardMessage("message " + std::to_string(i), 13);
  }
  const MenuItem::List listed = notifications();
  ASSERT_EQ(listed.size(), 21U);
  EXPECT_THAT(listed.front().title, testing::EndsWith("message 30"));
  EXPECT_THAT(listed.back().title, testing::EndsWith("message 10"));
}

}  // namespace
}  // namespace corvana
