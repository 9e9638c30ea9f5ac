#include "desktop/AgentWindow.h"

#include <QtWidgets>
#include <algorithm>
#include <array>

#include "core/record/Records.h"
#include "core/record/SchedulerCommands.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

/// Those that the user arranges; the others have a size and a place of their own.
constexpr std::array kArranged{Window::queue,       Window::nextActions,    Window::latestActions,
                               Window::status,      Window::allDisks,       Window::errorSummary,
                               Window::preferences, Window::executionSurvey};

// Of what window managers draw around a window, before it is known.
constexpr int kFrame = 6;
constexpr int kTitleBar = 32;

struct Row {
  Window which;
  WindowMaker* maker;
};

constexpr Row kRows[] = {
    {Window::queue, &makeQueueWindow},
    {Window::nextActions, &makeNextActionsWindow},
    {Window::latestActions, &makeLatestActionsWindow},
    {Window::status, &makeStatusWindow},
    {Window::mountVolumes, &makeMountVolumesWindow},
    {Window::allDisks, &makeAllDisksWindow},
    {Window::volumesFolderError, &makeStrayFoldersWindow},
    {Window::lowSpace, &makeLowSpaceWindow},
    {Window::errorSummary, &makeErrorSummaryWindow},
    {Window::executionSurvey, &makeSurveyWindow},
    {Window::preferences, &makePreferencesWindow},
};

std::string placeKey(Window which) {
  return "WindowPlace" + std::to_string(static_cast<int>(which));
}

}  // namespace

std::unique_ptr<AgentWindow> makeWindow(Window which, const UserInterfaceSources& sources) {
  for (const Row& row : kRows) {
    if (row.which == which) return row.maker(sources);
  }
  return nullptr;
}

AgentWindow::AgentWindow(Window which, const UserInterfaceSources& sources)
    : QWidget(nullptr, Qt::Window), mWhich(which), mSources(sources) {
  setAttribute(Qt::WA_QuitOnClose, false);
}

QString AgentWindow::text(std::string_view key) const {
  return qt(mSources.records.texts.text(key));
}

void AgentWindow::rememberPlace() const {
  if (!isVisible() || std::ranges::find(kArranged, mWhich) == kArranged.end()) return;
  const QByteArray place = saveGeometry();
  const ZAN_Value value =
      ZAN_Value::data(std::string_view(place.constData(), static_cast<std::size_t>(place.size())));
  Machine& machine = mSources.records.platform.machine;
  if (machine.userDefault(placeKey(mWhich)) != value)
    machine.setUserDefault(placeKey(mWhich), value);
}

void AgentWindow::restorePlace() {
  const ZAN_Value value = mSources.records.platform.machine.userDefault(placeKey(mWhich));
  const auto bytes = value.bytes();
  if (bytes.empty()) return;
  restoreGeometry(QByteArray(reinterpret_cast<const char*>(bytes.data()),
                             static_cast<qsizetype>(bytes.size())));
}

void AgentWindow::fitToScreen() {
  const QMargins frame(kFrame, kTitleBar, kFrame, kFrame);
  const QRect room = screen()->availableGeometry().marginsRemoved(frame);
  resize(size().boundedTo(room.size()));
}

void AgentWindow::closeEvent(QCloseEvent* event) {
  event->ignore();
  mSources.commands.hideWindow(mWhich);
}

void AgentWindow::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape || event->matches(QKeySequence::Close)) {
    close();
  } else {
    QWidget::keyPressEvent(event);
  }
}

}  // namespace corvana
