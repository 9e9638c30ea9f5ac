#include "ui/windows/QueueModel.h"

#include <algorithm>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/ActionsTools.h"
#include "core/record/SchedulerCommands.h"
#include "core/record/SchedulerState.h"
#include "core/work/ActionQueue.h"
#include "core/work/ExecuteSupervisor.h"
#include "core/work/TriggerEvaluation.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "ui/windows/LaunchByHand.h"

namespace corvana {

std::vector<WindowTable::Column> QueueModel::columns() const {
  return {{.title = m.texts.text("ColumnAction"), .isWide = true},
          {.title = m.texts.text("ColumnWhen")},
          {.title = m.texts.text("ColumnState")}};
}

std::size_t QueueModel::rowCount() const { return m.queue.actionsList().size(); }

std::int64_t QueueModel::id(std::size_t row) const {
  const std::int64_t ref = m.queue.actionsList()[row].ref;
  return row > 0 && ref == m.queue.head().ref ? -ref : ref;
}

std::string QueueModel::text(std::size_t row, std::size_t column) const {
  const QueueRecord& record = m.queue.actionsList()[row];
  if (column == 0) {
    const std::string title = titleOf(m, record.ref);
    if (title.empty()) return m.texts.text("WindowActionGone");
    return record.estimateSize != 0 ? m.texts.text("QueueSizeOnly", {title}) : title;
  }
  if (column == 2) return state(row);
  const ActionsTools tools(m.evaluation.calendar(), m.platform.clock.now());
  return tools.getScheduleStringForDate(record.date, {m.texts, m.strings});
}

std::string QueueModel::state(std::size_t row) const {
  if (row == 0 && isExecuting()) {
    if (m.state.mPause) return m.texts.text("QueueRunningPaused");
    const int percent = static_cast<int>(std::clamp(m.state.mProgress.value, 0.0, 100.0));
    return percent > 0 ? m.texts.text("QueueRunningPercent", {percent})
                       : m.texts.text("QueueRunning");
  }
  const auto& now = m.queue.executeNowActionsList();
  const bool asked = std::ranges::any_of(
      now, [&](const QueueRecord& one) { return one.ref == m.queue.actionsList()[row].ref; });
  if (asked) return m.texts.text("QueueRunsNow");
  if (m.state.mScheduleDisabled) return m.texts.text("QueueHeld");
  if (m.state.mPause) return m.texts.text("QueuePaused");
  return row == 0 || (row == 1 && isExecuting()) ? m.texts.text("QueueNext")
                                                 : m.texts.text("QueueWaits");
}

WindowTable::Tone QueueModel::tone(std::size_t row) const {
  if (row == 0 && isExecuting()) return Tone::strong;
  return m.state.mScheduleDisabled || m.state.mPause ? Tone::dimmed : Tone::plain;
}

bool QueueModel::canMove(std::size_t row) const {
  return row < rowCount() && !(row == 0 && isExecuting());
}

void QueueModel::move(std::size_t row, std::size_t before) {
  if (!canMove(row)) return;
  const std::size_t first = isExecuting() ? 1 : 0;
  std::size_t to = std::clamp(before, first, rowCount());
  if (to > row) --to;
  if (to != row) m.commands.moveInQueue(row, to);
}

void QueueModel::remove(const std::vector<std::size_t>& rows) {
  std::vector<std::size_t> removable;
  std::ranges::copy_if(rows, std::back_inserter(removable),
                       [&](std::size_t row) { return canRemove(row); });
  if (!removable.empty()) m.commands.removeFromQueue(removable);
}

void QueueModel::runNow(std::size_t row) {
  if (canRunNow(row)) m.commands.executeNow(m.queue.actionsList()[row].ref);
}

bool QueueModel::isExecuting() const { return m.supervisor.isExecuting(); }

std::string QueueModel::pauseTitle() const {
  return m.texts.text(m.state.mPause ? "ContinueButton" : "PauseButton");
}

void QueueModel::pauseOrContinue() { m.commands.pauseExecution(); }
void QueueModel::stop() { m.commands.stopExecution(); }
void QueueModel::skip() { m.commands.skipItem(); }
void QueueModel::showProgress() { m.commands.showProgress(); }

std::string QueueModel::summary() const {
  if (m.queue.empty()) return m.texts.text("QueueEmpty");
  if (m.state.mPause) return m.texts.text("ActionPaused");
  if (m.state.mScheduleDisabled) return m.texts.text("DisabledInfo");
  const std::size_t waiting = rowCount() - (isExecuting() ? 1 : 0);
  return waiting == 0 ? m.texts.text("QueueNoneWaits") : m.texts.text("QueueWaiting", {waiting});
}

}  // namespace corvana
