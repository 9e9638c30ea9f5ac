#include "ui/windows/NextActionsModel.h"

#include <algorithm>
#include <numeric>
#include <sstream>
#include <utility>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/ActionTree.h"
#include "core/work/ActionQueue.h"
#include "core/work/TriggerEvaluation.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "ui/windows/LaunchByHand.h"
#include "ui/windows/ReasonsText.h"

namespace corvana {

namespace {

constexpr std::size_t kName = 0;
constexpr std::size_t kDate = 1;

}  // namespace

NextActionsModel::NextActionsModel(const UserInterfaceSources& sources) : m(sources) { refresh(); }

void NextActionsModel::refresh() {
  if (m.evaluation.actionsNextList() != mAll) {
    mAll = m.evaluation.actionsNextList();
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
  return {{.title = m.texts.text("ColumnAction"), .isWide = true, .sorts = true},
          {.title = m.texts.text("ColumnNextRun"), .sorts = true},
          {.title = m.texts.text("ColumnShortcut")}};
}

std::string NextActionsModel::text(std::size_t row, std::size_t column) const {
  const NextAction& one = action(row);
  if (column == kName) return one.isGroup ? m.texts.text("NextGroup", {one.name()}) : one.name();
  if (column != kDate) return one.shortcut();
  if (m.queue.contains(one.ref)) return m.texts.text("NextQueued");
  if (!one.hasDate) return {};
  const ActionsTools tools(m.evaluation.calendar(), m.platform.clock.now());
  return tools.getScheduleStringForDate(one.date, {m.texts, m.strings});
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
  return mShown.size() == mAll.size() ? m.texts.text("NextCount", {mAll.size()})
                                      : m.texts.text("NextFound", {mShown.size(), mAll.size()});
}

}  // namespace corvana
