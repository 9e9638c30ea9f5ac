#include "ui/StatusMenu.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "core/machine/MachineDuties.h"
#include "core/record/SchedulerCommands.h"
#include "ui/StatusItem.h"

namespace corvana {

namespace {

constexpr double kRefusalSeconds = 5.0;
constexpr std::size_t kMostActions = 30;

std::string fileName(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

}  // namespace

const std::string& StatusMenu::text(std::string_view key) const {
  return m.records.texts.text(key);
}

MenuItem::List StatusMenu::beginning() const {
  MenuItem::List items{titleItem()};
  for (MenuItem& item : attentionItems()) items.push_back(std::move(item));
  items.push_back(MenuItem::separator());
  items.push_back(pauseItem());
  items.push_back(stopItem());
  items.push_back(runItem());
  return items;
}

MenuItem::List StatusMenu::items() const {
  MenuItem::List items = beginning();
  items.push_back(MenuItem::separator());
  items.push_back(MenuItem::command(text("OverviewMenu"), [this] { m.commands.showOverview(); }));
  items.push_back(MenuItem::command(text("RestoreMenu"), [this] { m.commands.showRestore(); }));
  items.push_back(windowItem("PreferencesMenu", Window::preferences));
  items.push_back(MenuItem::submenu(text("MoreMenu"), [this] { return moreItems(); }));
  items.push_back(MenuItem::separator());
  items.push_back(MenuItem::command(text("QuitMenu"), [this] { m.commands.quitScheduler(); }));
  return items;
}

MenuItem::List StatusMenu::moreItems() const {
  MenuItem::List items = executionItems();
  items.push_back(MenuItem::submenu(text("ContextMenu"), [this] { return contextItems(); }));
  items.push_back(MenuItem::separator());
  items.push_back(MenuItem::command(text("SkipMenu"), [this] { m.commands.skipItem(); }));
  items.back().enabled = m.work.supervisor.isExecuting();
  items.push_back(
      MenuItem::command(text("ShowProgressMenu"), [this] { m.commands.showProgress(); }));
  items.back().enabled = !m.work.queue.empty();
  items.push_back(MenuItem::submenu(text("FavouritesMenu"), [this] { return favouriteItems(); }));
  items.push_back(MenuItem::separator());
  items.push_back(windowItem("ExecutionStatusMenu", Window::status));
  items.push_back(windowItem("NextActionsMenu", Window::nextActions));
  items.push_back(windowItem("QueueMenu", Window::queue));
  items.push_back(windowItem("LatestActionsMenu", Window::latestActions));
  items.push_back(windowItem("ErrorsMenu", Window::errorSummary));
  items.push_back(MenuItem::separator());
  items.push_back(MenuItem::submenu(text("MountVolumesMenu"), [this] { return volumeItems(); }));
  items.push_back(MenuItem::submenu(text("GoToMenu"), [this] { return goToItems(); }));
  items.push_back(
      MenuItem::submenu(text("NotificationsMenu"), [this] { return notificationItems(); }));
  items.push_back(MenuItem::command(text("OpenMainAppMenu"), [this] { m.commands.openMainApp(); }));
  items.push_back(MenuItem::separator());
  items.push_back(
      MenuItem::command(text("AllDisksMenu"), [this] { m.commands.showAllDisksInformation(); }));
  items.push_back(windowItem("ExecutionSurveyMenu", Window::executionSurvey));
  return items;
}

MenuItem::List StatusMenu::floatingItems() const {
  MenuItem::List items = beginning();
  items.push_back(MenuItem::submenu(text("FavouritesMenu"), [this] { return favouriteItems(); }));
  items.push_back(MenuItem::separator());
  items.push_back(MenuItem::command(text("OverviewMenu"), [this] { m.commands.showOverview(); }));
  items.push_back(windowItem("NextActionsMenu", Window::nextActions));
  items.push_back(windowItem("QueueMenu", Window::queue));
  items.push_back(windowItem("LatestActionsMenu", Window::latestActions));
  items.push_back(MenuItem::separator());
  const bool disabled = m.records.state.mScheduleDisabled;
  items.push_back(MenuItem::command(text(disabled ? "EnableExecutionMenu" : "DisableExecutionMenu"),
                                    [this, disabled] { m.commands.setSchedulerActive(disabled); }));
  items.push_back(windowItem("PreferencesMenu", Window::preferences));
  return items;
}

MenuItem StatusMenu::titleItem() const {
  MenuItem item;
  item.kind = MenuItem::Kind::heading;
  item.enabled = false;
  item.title = m.statusItem.shownTitle();
  item.colour = m.statusItem.titleColour();
  return item;
}

MenuItem::List StatusMenu::attentionItems() const {
  const SchedulerState& state = m.records.state;
  MenuItem::List items;
  if (state.mStartedFromNewMachine) {
    items.push_back(MenuItem::command(text("CheckStartupDiskMenu"),
                                      [this] { m.commands.askAboutStartupDiskChange(); }));
    items.back().colour = MenuColour::alarm;
  }
  if (!state.mFailures.empty()) {
    items.push_back(
        MenuItem::command(m.records.texts.text("ErrorsPendingMenu", {state.mFailures.size()}),
                          [this] { m.commands.showWindow(Window::errorSummary); }));
    items.back().colour = MenuColour::alarm;
  }
  if (const std::string lacking = m.statusItem.lackingText(); !lacking.empty()) {
    items.push_back(
        MenuItem::command(lacking + "…", [this] { m.commands.showWindow(Window::errorSummary); }));
    items.back().colour = MenuColour::warning;
  }
  if (!state.mSurveyFolderResult.isNull()) {
    items.push_back(MenuItem::command(text("SurveyResultsMenu"),
                                      [this] { m.commands.showSurveyFolderResults(); }));
    items.back().colour = MenuColour::warning;
  }
  return items;
}

MenuItem::List StatusMenu::executionItems() const {
  const SchedulerState& state = m.records.state;
  const bool disabled = state.mScheduleDisabled;
  const bool whenDone = !disabled && state.mScheduleDisabledWhenDone;
  return {MenuItem::choice(text("EnableScheduleMenu"), !disabled && !whenDone,
                           [this] { m.commands.enableSchedule(); }),
          MenuItem::choice(text("DisableWhenDoneMenu"), whenDone,
                           [this] { m.commands.disableScheduleWhenAllDone(); }),
          MenuItem::choice(text("DisableScheduleMenu"), disabled,
                           [this] { m.commands.disableSchedule(); })};
}

MenuItem StatusMenu::pauseItem() const {
  return MenuItem::command(text(m.records.state.mPause ? "ContinueMenu" : "PauseMenu"),
                           [this] { m.commands.pauseExecution(); });
}

MenuItem StatusMenu::stopItem() const {
  MenuItem item = MenuItem::command(text("StopMenu"), [this] { m.commands.stopExecution(); });
  item.enabled = !m.work.queue.empty();
  return item;
}

MenuItem StatusMenu::runItem() const {
  return MenuItem::submenu(text("LaunchMenu"), [this] {
    MenuItem::List items = launchItems(m.records.tree.rootItem());
    items.insert(items.begin(), MenuItem::separator());
    items.insert(items.begin(), windowItem("FindActionMenu", Window::nextActions));
    return items;
  });
}

MenuItem::List StatusMenu::contextItems() const {
  MenuItem::List items;
  int context = 0;
  for (const char* key : {"NoContextMenu", "OfficeContext", "HomeContext", "NomadContext"}) {
    items.push_back(MenuItem::choice(text(key), context == m.records.state.mContext,
                                     [this, context] { m.commands.setContext(context); }));
    ++context;
  }
  return items;
}

void StatusMenu::launch(std::int64_t ref) const {
  if (const std::string refusal = queueByHand(m, ref); !refusal.empty())
    m.records.messages.showMessage(text("LaunchRefusedTitle"), refusal, kRefusalSeconds, true);
}

MenuItem StatusMenu::launchItem(const ProgrammedAction& action) const {
  const std::int64_t ref = action.getReference();
  MenuItem item = MenuItem::command(action.getTitle(), [this, ref] { launch(ref); });
  item.enabled = !m.work.queue.contains(ref);
  return item;
}

MenuItem::List StatusMenu::launchItems(const ProgrammedAction& group) const {
  MenuItem::List items;
  std::vector<const ProgrammedAction*> nodes;
  for (const auto& child : group.getChildrenList()) nodes.push_back(&*child);
  std::ranges::stable_sort(nodes, [](const auto* a, const auto* b) {
    return sortProgrammedActionsByNameFunction(*a, *b) < 0;
  });
  for (const ProgrammedAction* node : nodes) {
    // Nobody finds anything in a longer menu.
    if (items.size() == kMostActions) {
      items.push_back(
          MenuItem::command(m.records.texts.text("MoreActionsMenu", {nodes.size() - items.size()}),
                            [this] { m.commands.showWindow(Window::nextActions); }));
      break;
    }
    if (!node->isGroup()) {
      items.push_back(launchItem(*node));
      continue;
    }
    // By reference: the tree may be read anew before the submenu is opened.
    const std::int64_t ref = node->getReference();
    items.push_back(MenuItem::submenu(node->getTitle(), [this, ref] {
      const ProgrammedAction* found = m.records.tree.rootItem().actionOrGroupForReference(ref);
      return found == nullptr ? MenuItem::List() : launchItems(*found);
    }));
  }
  if (items.empty()) items.push_back(MenuItem::note(text("NoActionsMenu")));
  return items;
}

MenuItem::List StatusMenu::favouriteItems() const {
  MenuItem::List items;
  ProgrammedAction::Nodes favourites;
  m.records.tree.rootItem().getListOfFavoriteActions(favourites);
  for (const ProgrammedAction* action : favourites) items.push_back(launchItem(*action));
  if (items.empty()) items.push_back(MenuItem::note(text("NoFavouritesMenu")));
  return items;
}

MenuItem StatusMenu::windowItem(const char* key, Window window) const {
  return MenuItem::command(text(key), [this, window] { m.commands.showWindow(window); });
}

void StatusMenu::open(const std::string& path) const {
  if (const Outcome opened = m.records.platform.processes.open(path); !opened) {
    m.records.platform.systemLog.write(opened.error().text);
  }
}

MenuItem StatusMenu::placeItem(const std::string& title, const std::string& path,
                               bool withContents) const {
  MenuItem item = MenuItem::command(title, [this, path] { open(path); });
  item.icon = MenuIcon::folder;
  if (withContents) {
    item.kind = MenuItem::Kind::submenu;
    item.read = [this, path] {
      return folderItems(m.records.platform.processes, path,
                         [this](const std::string& chosen) { open(chosen); });
    };
  }
  return item;
}

MenuItem::List StatusMenu::goToItems() const {
  MenuItem::List items{placeItem(text("SettingsFolder"),
                                 m.records.store.folder().dataFolderPathWithFileName(), false)};
  const std::string home = m.records.platform.machine.homeFolder();
  items.push_back(placeItem(fileName(home), home, true));
  items.back().icon = MenuIcon::home;
  // The table of mounts alone: nothing here waits for a volume.
  for (const Mount& mount : m.records.platform.volumes.mounts()) {
    if (!mount.isVolume) continue;
    std::string name = mount.name.empty() ? fileName(mount.target) : mount.name;
    if (name.empty()) name = text("StartupDiskMenu");
    items.push_back(placeItem(name, mount.target, true));
    items.back().icon = MenuIcon::volume;
  }
  return items;
}

MenuItem::List StatusMenu::notificationItems() const {
  MenuItem::List items;
  for (const std::string& notification : m.records.messages.lastNotifications()) {
    const std::size_t index = items.size();
    items.push_back(MenuItem::command(
        notification, [this, index] { m.commands.openNotificationInMainApp(index); }));
  }
  if (items.empty()) {
    items.push_back(MenuItem::command(text("NotificationsEmpty"),
                                      [this] { m.commands.openNotificationInMainApp(0); }));
  }
  return items;
}

MenuItem::List StatusMenu::volumeItems() const {
  MenuItem::List items;
  std::size_t row = 0;
  bool separated = false;
  for (const MountCandidate& candidate : m.machine.mounter.volumesToMountList()) {
    // Also when no alias stands above it.
    if (!candidate.isAlias && !std::exchange(separated, true))
      items.push_back(MenuItem::separator());
    std::string title =
        candidate.volName + " (" + text(candidate.isAlias ? "Alias" : "UnmountedVolume") + ")";
    if (!candidate.isAlias && !candidate.bsdName.empty()) title += " - " + candidate.bsdName;
    items.push_back(
        MenuItem::command(std::move(title), [this, row] { m.commands.mountVolume(row); }));
    if (!candidate.isAlias) {
      items.back().icon = MenuIcon::volume;
    } else if (m.records.platform.volumes.exists(candidate.volPath)) {
      items.back().icon = MenuIcon::file;
    }
    ++row;
  }
  if (items.empty()) items.push_back(MenuItem::note(text("NoVolumesToMountMenu")));
  items.push_back(MenuItem::separator());
  items.push_back(
      MenuItem::command(text("MountVolumesWindowMenu"), [this] { m.commands.mountVolumes(); }));
  return items;
}

}  // namespace corvana
