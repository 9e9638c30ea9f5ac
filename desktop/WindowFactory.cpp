#include "desktop/WindowFactory.h"

#include "desktop/AllDisksWindow.h"
#include "desktop/ErrorSummaryWindow.h"
#include "desktop/LatestActionsWindow.h"
#include "desktop/MountVolumesWindow.h"
#include "desktop/NextActionsWindow.h"
#include "desktop/NoticeWindows.h"
#include "desktop/PreferencesWindow.h"
#include "desktop/QueueWindow.h"
#include "desktop/StatusWindow.h"
#include "desktop/SurveyWindow.h"

namespace corvana {

namespace {

template <class Made>
std::unique_ptr<AgentWindow> make(const UserInterfaceSources& sources) {
  return std::make_unique<Made>(sources);
}

struct Row {
  Window which;
  std::unique_ptr<AgentWindow> (*maker)(const UserInterfaceSources& sources);
};

constexpr Row kRows[] = {
    {Window::queue, &make<QueueWindow>},
    {Window::nextActions, &make<NextActionsWindow>},
    {Window::latestActions, &make<LatestActionsWindow>},
    {Window::status, &make<StatusWindow>},
    {Window::mountVolumes, &make<MountVolumesWindow>},
    {Window::allDisks, &make<AllDisksWindow>},
    {Window::volumesFolderError, &make<StrayFoldersWindow>},
    {Window::lowSpace, &make<LowSpaceWindow>},
    {Window::errorSummary, &make<ErrorSummaryWindow>},
    {Window::executionSurvey, &make<SurveyWindow>},
    {Window::preferences, &make<PreferencesWindow>},
};

}  // namespace

std::unique_ptr<AgentWindow> makeWindow(Window which, const UserInterfaceSources& sources) {
  for (const Row& row : kRows) {
    if (row.which == which) return row.maker(sources);
  }
  return nullptr;
}

}  // namespace corvana
