#include "ui/windows/ComingModels.h"

#include <algorithm>
#include <numeric>
#include <sstream>
#include <utility>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/ActionsTools.h"
#include "ui/windows/WindowWords.h"

namespace corvana {

namespace {

constexpr std::size_t kName = 0;
constexpr std::size_t kDate = 1;

}  // namespace

NextActionsModel::NextActionsModel(const UserInterfaceSources& sources) : m(sources) { refresh(); }

void NextActionsModel::refresh() {
  if (m.work.evaluation.actionsNextList() != mAll) {
    mAll = m.work.evaluation.actionsNextList();
    mFolded.clear();
    ++mRevision;
  }
  filter();
}

void NextActionsModel::search(const std::string& text) {
  if (std::exchange(mSearch, text) != text) ++mRevision;
  filter();
}

void NextActionsModel::filter() {
  std::vector<std::string> words;
  std::istringstream stream(foldedCase(mSearch));
  for (std::string word; stream >> word;) words.push_back(word);
  mShown.clear();
  if (words.empty()) {
    mShown.resize(mAll.size());
    std::iota(mShown.begin(), mShown.end(), std::size_t{0});
  } else {
    if (mFolded.size() != mAll.size()) {
      mFolded.clear();
      mFolded.reserve(mAll.size());
      for (const NextAction& one : mAll)
        mFolded.push_back(foldedCase(one.name() + '\n' + one.shortcut()));
    }
    for (std::size_t i = 0; i < mAll.size(); ++i) {
      const bool found = std::ranges::all_of(words, [&](const std::string& word) {
        return mFolded[i].find(word) != std::string::npos;
      });
      if (found) mShown.push_back(i);
    }
  }
  sort();
}

void NextActionsModel::sortBy(std::size_t column, bool descending) {
  mSortColumn = column;
  mDescending = descending;
  // Back to the order of the evaluation, by date, first: it orders what is equal.
  std::ranges::sort(mShown);
  sort();
}

void NextActionsModel::sort() {
  if (mSortColumn == kName) {
    std::vector<std::string> keys(mAll.size());
    for (const std::size_t i : mShown) keys[i] = foldedCase(mAll[i].name());
    std::ranges::stable_sort(mShown,
                             [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
  }
  if (mDescending) std::ranges::reverse(mShown);
}

std::vector<WindowTable::Column> NextActionsModel::columns() const {
  return {{.title = m.records.texts.text("ColumnAction"), .isWide = true, .sorts = true},
          {.title = m.records.texts.text("ColumnNextRun"), .sorts = true},
          {.title = m.records.texts.text("ColumnShortcut")}};
}

std::string NextActionsModel::text(std::size_t row, std::size_t column) const {
  const NextAction& one = action(row);
  if (column == kName)
    return one.isGroup ? m.records.texts.text("NextGroup", {one.name()}) : one.name();
  if (column != kDate) return one.shortcut();
  if (m.work.queue.contains(one.ref)) return m.records.texts.text("NextQueued");
  if (!one.hasDate) return {};
  const ActionsTools tools(m.work.evaluation.calendar(), m.records.platform.clock.now());
  return tools.getScheduleStringForDate(one.date, {m.records.texts, m.records.strings});
}

WindowTable::Tone NextActionsModel::tone(std::size_t row) const {
  const NextAction& one = action(row);
  if (one.isGroup) return Tone::strong;
  return one.hasDate ? Tone::plain : Tone::dimmed;
}

std::string NextActionsModel::launch(const std::vector<std::size_t>& rows) const {
  std::vector<std::int64_t> refs;
  for (const std::size_t row : rows)
    if (row < mShown.size()) refs.push_back(id(row));
  return launchByHand(m, refs);
}

std::string NextActionsModel::why(std::size_t row) const {
  return action(row).isGroup ? std::string() : reasonsText(m, id(row));
}

std::string NextActionsModel::summary() const {
  return mShown.size() == mAll.size()
             ? m.records.texts.text("NextCount", {mAll.size()})
             : m.records.texts.text("NextFound", {mShown.size(), mAll.size()});
}

std::vector<WindowTable::Column> QueueModel::columns() const {
  return {{.title = m.records.texts.text("ColumnAction"), .isWide = true},
          {.title = m.records.texts.text("ColumnWhen")},
          {.title = m.records.texts.text("ColumnState")}};
}

std::size_t QueueModel::rowCount() const { return m.work.queue.actionsList().size(); }

std::int64_t QueueModel::id(std::size_t row) const {
  // Of one action a run may wait, and any number of tasks.
  const auto& records = m.work.queue.actionsList();
  const std::int64_t ref = records[row].ref;
  const auto before =
      std::count_if(records.begin(), records.begin() + static_cast<std::ptrdiff_t>(row),
                    [ref](const QueueRecord& one) { return one.ref == ref; });
  constexpr std::int64_t kBeyondReferences = std::int64_t{1} << 40;
  return ref + before * kBeyondReferences;
}

std::string QueueModel::text(std::size_t row, std::size_t column) const {
  const QueueRecord& record = m.work.queue.actionsList()[row];
  if (column == 0) {
    const std::string title = m.records.tree.titleOf(record.ref);
    if (title.empty()) return m.records.texts.text("WindowActionGone");
    if (record.isTask()) return m.work.queue.titleOf(record);
    return record.estimateSize != 0 ? m.records.texts.text("QueueSizeOnly", {title}) : title;
  }
  if (column == 2) return state(row);
  const ActionsTools tools(m.work.evaluation.calendar(), m.records.platform.clock.now());
  return tools.getScheduleStringForDate(record.date, {m.records.texts, m.records.strings});
}

std::string QueueModel::state(std::size_t row) const {
  if (row == 0 && isExecuting()) {
    if (m.records.state.mPause) return m.records.texts.text("QueueRunningPaused");
    if (const auto stall = m.work.supervisor.stall())
      return m.records.texts.text("QueueStuck", {m.records.strings.getShortTimeDate(stall->since)});
    const int percent = static_cast<int>(std::clamp(m.records.state.mProgress.value, 0.0, 100.0));
    return percent > 0 ? m.records.texts.text("QueueRunningPercent", {percent})
                       : m.records.texts.text("QueueRunning");
  }
  const auto& now = m.work.queue.executeNowActionsList();
  const QueueRecord& record = m.work.queue.actionsList()[row];
  const bool asked = std::ranges::any_of(now, [&](const QueueRecord& one) {
    return one.ref == record.ref && one.request == record.request;
  });
  if (asked) return m.records.texts.text("QueueRunsNow");
  if (m.records.state.mScheduleDisabled) return m.records.texts.text("QueueHeld");
  if (m.records.state.mPause) return m.records.texts.text("QueuePaused");
  return row == 0 || (row == 1 && isExecuting()) ? m.records.texts.text("QueueNext")
                                                 : m.records.texts.text("QueueWaits");
}

WindowTable::Tone QueueModel::tone(std::size_t row) const {
  if (row == 0 && isExecuting()) return Tone::strong;
  return m.records.state.mScheduleDisabled || m.records.state.mPause ? Tone::dimmed : Tone::plain;
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
                       [&](std::size_t row) { return canMove(row); });
  if (!removable.empty()) m.commands.removeFromQueue(removable);
}

void QueueModel::runNow(std::size_t row) {
  if (canMove(row)) m.commands.executeNow(m.work.queue.actionsList()[row].ref);
}

bool QueueModel::isExecuting() const { return m.work.supervisor.isExecuting(); }

std::string QueueModel::pauseTitle() const {
  return m.records.texts.text(m.records.state.mPause ? "ContinueButton" : "PauseButton");
}

void QueueModel::pauseOrContinue() { m.commands.pauseExecution(); }
void QueueModel::stop() { m.commands.stopExecution(); }
void QueueModel::skip() { m.commands.skipItem(); }
void QueueModel::showProgress() { m.commands.showProgress(); }

std::string QueueModel::summary() const {
  if (m.work.queue.empty()) return m.records.texts.text("QueueEmpty");
  if (m.records.state.mPause) return m.records.texts.text("ActionPaused");
  if (m.records.state.mScheduleDisabled) return m.records.texts.text("DisabledInfo");
  if (std::string stuck = m.work.supervisor.stallText(); !stuck.empty()) return stuck;
  const std::size_t waiting = rowCount() - (isExecuting() ? 1 : 0);
  return waiting == 0 ? m.records.texts.text("QueueNoneWaits")
                      : m.records.texts.text("QueueWaiting", {waiting});
}

}  // namespace corvana
