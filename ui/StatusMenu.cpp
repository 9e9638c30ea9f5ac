#include "ui/StatusMenu.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionSort.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ProgrammedAction.h"
#include "core/machine/VolumeMounter.h"
#include "core/record/Messages.h"
#include "core/record/SchedulerCommands.h"
#include "core/record/SchedulerState.h"
#include "core/work/ActionQueue.h"
#include "core/work/ExecuteSupervisor.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
#include "platform/Processes.h"
#include "platform/Volumes.h"
#include "ui/FolderContents.h"
#include "ui/LaunchByHand.h"
#include "ui/StatusItem.h"

namespace corvana {

namespace {

constexpr double kRefusalSeconds = 5.0;

std::string fileName(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

}  // namespace

const std::string& StatusMenu::text(std::string_view key) const { return m.texts.text(key); }

MenuItem::List StatusMenu::items() const {
  MenuItem::List items{titleItem(), executionStatusItem(), MenuItem::separator()};
  for (MenuItem& item : executionItems()) items.push_back(std::move(item));
  items.push_back(MenuItem::submenu(text("ContextMenu"), [this] { return contextItems(); }));
  items.push_back(MenuItem::separator());
  for (MenuItem& item : runningItems()) items.push_back(std::move(item));
  items.push_back(
      MenuItem::submenu(text("LaunchMenu"), [this] { return launchItems(m.tree.rootItem()); }));
  items.push_back(MenuItem::submenu(text("FavouritesMenu"), [this] { return favouriteItems(); }));
  items.push_back(MenuItem::separator());
  for (MenuItem& item : windowItems()) items.push_back(std::move(item));
  items.push_back(MenuItem::separator());
  items.push_back(MenuItem::submenu(text("MountVolumesMenu"), [this] { return volumeItems(); }));
  items.push_back(MenuItem::submenu(text("GoToMenu"), [this] { return goToItems(); }));
  items.push_back(
      MenuItem::submenu(text("NotificationsMenu"), [this] { return notificationItems(); }));
  items.push_back(MenuItem::separator());
  items.push_back(MenuItem::command(text("OpenMainAppMenu"), [this] { m.commands.openMainApp(); }));
  items.push_back(windowItem("PreferencesMenu", Window::preferences));
  items.push_back(MenuItem::command(text("QuitMenu"), [this] { m.commands.quitScheduler(); }));
  return items;
}

MenuItem::List StatusMenu::floatingItems() const {
  MenuItem::List items{titleItem(), MenuItem::separator()};
  const bool disabled = m.state.mScheduleDisabled;
  items.push_back(MenuItem::command(text(disabled ? "EnableExecutionMenu" : "DisableExecutionMenu"),
                                    [this, disabled] { m.commands.setSchedulerActive(disabled); }));
  for (MenuItem& item : runningItems()) items.push_back(std::move(item));
  items.push_back(
      MenuItem::submenu(text("LaunchMenu"), [this] { return launchItems(m.tree.rootItem()); }));
  items.push_back(MenuItem::submenu(text("FavouritesMenu"), [this] { return favouriteItems(); }));
  items.push_back(MenuItem::separator());
  items.push_back(windowItem("NextActionsMenu", Window::nextActions));
  items.push_back(windowItem("QueueMenu", Window::queue));
  items.push_back(windowItem("LatestActionsMenu", Window::latestActions));
  items.push_back(MenuItem::separator());
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

MenuItem StatusMenu::executionStatusItem() const {
  if (m.state.mStartedFromNewMachine) {
    MenuItem item = MenuItem::command(text("CheckStartupDiskMenu"),
                                      [this] { m.commands.askAboutStartupDiskChange(); });
    item.colour = MenuColour::alarm;
    return item;
  }
  return windowItem("ExecutionStatusMenu", Window::status);
}

MenuItem::List StatusMenu::executionItems() const {
  const bool disabled = m.state.mScheduleDisabled;
  MenuItem::List items{
      MenuItem::check(text("EnableScheduleMenu"), !disabled && !m.state.mScheduleDisabledWhenDone,
                      [this] { m.commands.enableSchedule(); }),
      MenuItem::check(text("DisableWhenDoneMenu"), false,
                      [this] { m.commands.disableScheduleWhenAllDone(); }),
      MenuItem::check(text("DisableScheduleMenu"), disabled,
                      [this] { m.commands.disableSchedule(); })};
  if (!m.state.mSurveyFolderResult.isNull()) {
    items.push_back(MenuItem::command(text("SurveyResultsMenu"),
                                      [this] { m.commands.showSurveyFolderResults(); }));
  }
  return items;
}

MenuItem::List StatusMenu::runningItems() const {
  MenuItem::List items;
  items.push_back(MenuItem::command(text(m.state.mPause ? "ContinueMenu" : "PauseMenu"),
                                    [this] { m.commands.pauseExecution(); }));
  items.push_back(MenuItem::command(text("StopMenu"), [this] { m.commands.stopExecution(); }));
  items.push_back(MenuItem::command(text("SkipMenu"), [this] { m.commands.skipItem(); }));
  items.push_back(
      MenuItem::command(text("ShowProgressMenu"), [this] { m.commands.showProgress(); }));
  const bool queued = !m.queue.empty();
  items[1].enabled = queued;
  items[2].enabled = m.supervisor.isExecuting();
  items[3].enabled = queued;
  return items;
}

MenuItem::List StatusMenu::contextItems() const {
  MenuItem::List items;
  int context = 0;
  for (const char* key : {"NoContextMenu", "OfficeContext", "HomeContext", "NomadContext"}) {
    items.push_back(MenuItem::check(text(key), context == m.state.mContext,
                                    [this, context] { m.commands.setContext(context); }));
    ++context;
  }
  return items;
}

void StatusMenu::launch(std::int64_t ref) const {
  if (const std::string refusal = queueByHand(m, ref); !refusal.empty())
    m.messages.showMessage(text("LaunchRefusedTitle"), refusal, kRefusalSeconds, true);
}

MenuItem StatusMenu::launchItem(const ProgrammedAction& action) const {
  const std::int64_t ref = action.getReference();
  MenuItem item = MenuItem::command(action.getTitle(), [this, ref] { launch(ref); });
  item.enabled = !m.queue.contains(ref);
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
    if (!node->isGroup()) {
      items.push_back(launchItem(*node));
      continue;
    }
    // By reference: the tree may be read anew before the submenu is opened.
    const std::int64_t ref = node->getReference();
    items.push_back(MenuItem::submenu(node->getTitle(), [this, ref] {
      const ProgrammedAction* found = m.tree.rootItem().actionOrGroupForReference(ref);
      return found == nullptr ? MenuItem::List() : launchItems(*found);
    }));
  }
  if (items.empty()) items.push_back(MenuItem::note(text("NoActionsMenu")));
  return items;
}

MenuItem::List StatusMenu::favouriteItems() const {
  MenuItem::List items;
  ProgrammedAction::Nodes favourites;
  m.tree.rootItem().getListOfFavoriteActions(favourites);
  for (const ProgrammedAction* action : favourites) items.push_back(launchItem(*action));
  if (items.empty()) items.push_back(MenuItem::note(text("NoFavouritesMenu")));
  return items;
}

MenuItem StatusMenu::windowItem(const char* key, Window window) const {
  return MenuItem::command(text(key), [this, window] { m.commands.showWindow(window); });
}

MenuItem::List StatusMenu::windowItems() const {
  return {windowItem("NextActionsMenu", Window::nextActions),
          windowItem("QueueMenu", Window::queue),
          windowItem("LatestActionsMenu", Window::latestActions),
          MenuItem::command(text("AllDisksMenu"), [this] { m.commands.showAllDisksInformation(); }),
          windowItem("ExecutionSurveyMenu", Window::executionSurvey)};
}

void StatusMenu::open(const std::string& path) const {
  if (const Outcome opened = m.platform.processes.open(path); !opened) {
    m.platform.systemLog.write(opened.error().text);
  }
}

MenuItem StatusMenu::placeItem(const std::string& title, const std::string& path,
                               bool withContents) const {
  MenuItem item = MenuItem::command(title, [this, path] { open(path); });
  item.icon = MenuIcon::folder;
  if (withContents) {
    item.kind = MenuItem::Kind::submenu;
    item.read = [this, path] {
      return folderItems(m.platform.processes, path,
                         [this](const std::string& chosen) { open(chosen); });
    };
  }
  return item;
}

MenuItem::List StatusMenu::goToItems() const {
  MenuItem::List items{
      placeItem(text("SettingsFolder"), m.store.folder().dataFolderPathWithFileName(), false)};
  const std::string home = m.platform.machine.homeFolder();
  items.push_back(placeItem(fileName(home), home, true));
  items.back().icon = MenuIcon::home;
  // The table of mounts alone: nothing here waits for a volume.
  for (const Mount& mount : m.platform.volumes.mounts()) {
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
  for (const std::string& notification : m.messages.lastNotifications()) {
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
  for (const MountCandidate& candidate : m.mounter.volumesToMountList()) {
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
    } else if (m.platform.volumes.exists(candidate.volPath)) {
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
