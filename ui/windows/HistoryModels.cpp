#include "ui/windows/HistoryModels.h"

#include <algorithm>
#include <array>

#include "ZANCocoaFramework/ZAN_Translation.h"
#include "actions/ActionsTools.h"
#include "core/record/Preferences.h"
#include "ui/windows/WindowWords.h"

namespace corvana {

namespace {

constexpr double kSeconds = 7 * 86400.0;
constexpr std::size_t kMost = 200;
constexpr std::array<std::int64_t, 7> kFailures{
    LogCode::volumeNotFound,    LogCode::unexpectedError,     LogCode::crashed,
    LogCode::timeOut,           LogCode::completedWithErrors, LogCode::volumeGone,
    LogCode::volumeNotAvailable};

}  // namespace

LatestActionsModel::LatestActionsModel(const UserInterfaceSources& sources) : m(sources) {
  refresh();
}

void LatestActionsModel::refresh() {
  // They may have come meanwhile.
  if (mResults && !mResults->lists.contains("Header")) mResults.reset();
  m.records.history.reloadProgrammedHistoryList();
  mEntries = m.records.history.getProgrammedHistoryList();
  filter();
}

void LatestActionsModel::setOnlyFailures(bool only) {
  mOnlyFailures = only;
  filter();
}

void LatestActionsModel::filter() {
  mShown.clear();
  for (std::size_t i = mEntries.size(); i-- > 1;)
    if (!mOnlyFailures || RunWords::isFailure(mEntries.at(i))) mShown.push_back(i);
}

std::vector<WindowTable::Column> LatestActionsModel::columns() const {
  return {{.title = m.records.texts.text("ColumnStarted")},
          {.title = m.records.texts.text("ColumnAction"), .isWide = true},
          {.title = m.records.texts.text("ColumnDuration"), .isNumber = true},
          {.title = m.records.texts.text("ColumnResult")},
          {.title = m.records.texts.text("ColumnErrors"), .isNumber = true}};
}

std::string LatestActionsModel::text(std::size_t row, std::size_t column) const {
  const ZAN_Value& one = entry(row);
  const auto start = one["Date"].asDate();
  switch (column) {
    case 0:
      return start ? m.records.strings.getShortTimeDate(*start) : std::string();
    case 1:
      return titleOf(one, m.records.texts);
    case 2: {
      const auto end = one["EndDate"].asDate();
      return start && end ? ZAN_StringUtils::getDuration(static_cast<std::int64_t>(*end - *start))
                          : std::string();
    }
    case 3:
      return RunWords(m.records.texts, m.records.strings).result(one);
    default: {
      const std::int64_t errors = one.integer("ActionErrors");
      return errors == 0 ? std::string() : m.records.strings.getIntegerWithSeparators(errors);
    }
  }
}

WindowTable::Tone LatestActionsModel::tone(std::size_t row) const {
  if (entry(row).integer(RunKey::onlyLacks) != 0) return Tone::caution;
  return RunWords::isFailure(entry(row)) ? Tone::alert : Tone::plain;
}

std::int64_t LatestActionsModel::id(std::size_t row) const {
  return static_cast<std::int64_t>(entry(row)["Date"].asDate().value_or(0) * 1000);
}

const ZAN_Value& LatestActionsModel::resultsOf(const ZAN_Value& entry) const {
  const std::int64_t ref = entry.integer("Ref");
  const ReferenceTime date = entry["Date"].asDate().value_or(0);
  if (mResults && mResults->ref == ref && mResults->date == date) return mResults->lists;
  mResults.emplace(Results{ref, date, RunWords::resultsOf(entry, m.records.history.results())});
  return mResults->lists;
}

std::string LatestActionsModel::details(std::size_t row) const {
  const ZAN_Value& one = entry(row);
  return RunWords(m.records.texts, m.records.strings)
      .details(one, one["Date"].asDate() ? resultsOf(one) : ZAN_Value());
}

std::string LatestActionsModel::launchAgain(std::size_t row) const {
  return launchByHand(m, {entry(row).integer("Ref")});
}

std::string LatestActionsModel::summary() const {
  if (mShown.empty())
    return m.records.texts.text(mOnlyFailures ? "LatestNoFailures" : "LatestNone");
  return m.records.texts.text("LatestCount", {mShown.size()});
}

ErrorSummaryModel::ErrorSummaryModel(const UserInterfaceSources& sources) : m(sources) {
  refresh();
}

void ErrorSummaryModel::refresh() {
  mFailures.clear();
  const ZAN_Value list = m.records.history.log().readLogList();
  const auto entries = list.elements();
  const ReferenceTime oldest = m.records.platform.clock.now() - kSeconds;
  for (std::size_t i = entries.size(); i-- > 0 && mFailures.size() < kMost;) {
    const auto date = entries[i]["M"].asDate();
    if (date && *date < oldest) break;
    if (std::ranges::find(kFailures, entries[i].integer("C")) != kFailures.end())
      mFailures.push_back(entries[i]);
  }
}

std::vector<WindowTable::Column> ErrorSummaryModel::columns() const {
  return {{.title = m.records.texts.text("ColumnWhen")},
          {.title = m.records.texts.text("ColumnAction"), .isWide = true},
          {.title = m.records.texts.text("ColumnResult")}};
}

std::string ErrorSummaryModel::text(std::size_t row, std::size_t column) const {
  const ZAN_Value& one = mFailures[row];
  const auto date = one["M"].asDate();
  if (column == 0) return date ? m.records.strings.getShortTimeDate(*date) : std::string();
  return column == 1 ? titleOf(one, m.records.texts)
                     : RunWords(m.records.texts, m.records.strings).result(one);
}

WindowTable::Tone ErrorSummaryModel::tone(std::size_t row) const {
  return mFailures[row].integer(RunKey::onlyLacks) != 0 ? Tone::caution : Tone::alert;
}

std::int64_t ErrorSummaryModel::id(std::size_t row) const {
  return static_cast<std::int64_t>(mFailures[row]["M"].asDate().value_or(0) * 1000);
}

std::string ErrorSummaryModel::details(std::size_t row) const {
  const ZAN_Value& one = mFailures[row];
  std::string text = RunWords(m.records.texts, m.records.strings).result(one);
  for (const char* key : {"F", "P"})
    if (one[key].isString() && !one.string(key).empty())
      text += '\n' + translated(m.records.texts, one.string(key), ReadAt::window);
  return text;
}

std::string ErrorSummaryModel::launchAgain(std::size_t row) const {
  return launchByHand(m, {mFailures[row].integer("R")});
}

bool ErrorSummaryModel::asksToDelete(std::size_t row) const {
  const ProgrammedAction* action = actionOf(row);
  return action != nullptr && action->getSettings().integer(DeletionKey::toConfirm) > 0;
}

void ErrorSummaryModel::confirmDeletion(std::size_t row,
                                        std::function<void(std::string)> said) const {
  const ProgrammedAction* action = actionOf(row);
  if (action == nullptr) return;
  const std::int64_t ref = action->getReference();
  const std::int64_t count = action->getSettings().integer(DeletionKey::toConfirm);
  m.records.platform.userInterface.ask(
      Window::errorSummary, m.records.texts.text("ConfirmDeletionTitle"),
      m.records.texts.text("ConfirmDeletionText", {action->getTitle(), count}),
      [&sources = m, ref, count, said = std::move(said)](bool deletes) {
        if (!deletes) return;
        ActionTree& tree = sources.records.tree;
        ProgrammedAction* const now = tree.rootItem().actionForReference(ref);
        // Another run may have counted anew while the question was on the screen.
        if (now == nullptr || now->getSettings().integer(DeletionKey::toConfirm) != count)
          return said(sources.records.texts.text("ConfirmDeletionPast"));
        tree.holdChanges();
        tree.addInChangesList(*now, count, DeletionKey::confirmed);
        tree.addInChangesList(*now, 0, DeletionKey::toConfirm);
        tree.storeHeldChanges();
        said(launchByHand(sources, {ref}));
      });
}

bool ErrorSummaryModel::lacksSomething(std::size_t row) const {
  const ProgrammedAction* action = actionOf(row);
  return action != nullptr && !action->getSettings()[CopyKey::notPossible].empty();
}

std::string ErrorSummaryModel::leaveOutMissing(std::size_t row) const {
  const std::int64_t ref = mFailures[row].integer("R");
  ActionTree& tree = m.records.tree;
  ProgrammedAction* const action = tree.rootItem().actionForReference(ref);
  if (action == nullptr) return {};
  ZAN_Value settings = action->getSettings();
  ActionsTools::leaveOutMissing(settings);
  tree.holdChanges();
  for (const auto key : {CopyKey::exclusions, CopyKey::notPossible})
    tree.addInChangesList(*action, settings[key], key);
  tree.storeHeldChanges();
  return launchByHand(m, {ref});
}

const ProgrammedAction* ErrorSummaryModel::actionOf(std::size_t row) const {
  return m.records.tree.rootItem().actionForReference(mFailures[row].integer("R"));
}

void ErrorSummaryModel::showLatestActions() const { m.commands.showLatestActions(); }

bool ErrorSummaryModel::hasUnseen() const {
  return m.records.state.mErrorInExecution != 0 || !m.records.state.mLacking.empty();
}

void ErrorSummaryModel::markAsSeen() const {
  if (hasUnseen()) m.commands.errorsWereSeen();
}

bool ErrorSummaryModel::isShownOnErrors() const {
  return m.records.preferences.mShowErrorWindows != 0;
}

void ErrorSummaryModel::setShownOnErrors(bool shown) const {
  m.commands.setPreference(std::string(PreferenceKey::showErrorWindows), shown ? 1 : 0);
}

std::string ErrorSummaryModel::summary() const {
  return mFailures.empty() ? m.records.texts.text("ErrorsNone")
                           : m.records.texts.text("ErrorsCount", {mFailures.size()});
}

}  // namespace corvana
