#include "ui/windows/StatusModels.h"

#include <algorithm>
#include <limits>
#include <unordered_map>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/ActionContext.h"
#include "core/record/SurveyExecution.h"
#include "core/work/ProgressWords.h"
#include "ui/windows/WindowWords.h"

namespace corvana {

namespace {

constexpr double kNotYet = std::numeric_limits<double>::infinity();

}  // namespace

StatusModel::StatusModel(const UserInterfaceSources& sources) : m(sources) { refresh(); }

void StatusModel::refresh() {
  std::unordered_map<std::int64_t, ReferenceTime> dates;
  for (const NextAction& next : m.evaluation.actionsNextList())
    if (next.hasDate) dates.emplace(next.ref, next.date);
  ProgrammedAction::Nodes nodes;
  m.tree.rootItem().getListOfAllProgrammedActions(nodes);
  mActions.clear();
  mActions.reserve(nodes.size());
  for (const ProgrammedAction* node : nodes) {
    Action action{.ref = node->getReference(),
                  .title = node->getTitle(),
                  .folded = foldedCase(node->getTitle()),
                  .last = ActionsTools::getLastExecutionDateForSettings(node->getSettings()),
                  .automatic = node->schedule().automatic};
    if (const auto date = dates.find(action.ref); date != dates.end()) action.next = date->second;
    mActions.push_back(std::move(action));
  }
  sort();
}

void StatusModel::sortBy(std::size_t column, bool descending) {
  mSortColumn = column;
  mDescending = descending;
  sort();
}

void StatusModel::sort() {
  const auto before = [this](const Action& a, const Action& b) {
    if (mSortColumn == 1) return a.last.value_or(-kNotYet) < b.last.value_or(-kNotYet);
    if (mSortColumn == 2) return a.next.value_or(kNotYet) < b.next.value_or(kNotYet);
    return a.folded < b.folded;
  };
  std::ranges::stable_sort(mActions, [&](const Action& a, const Action& b) {
    return mDescending ? before(b, a) : before(a, b);
  });
}

std::vector<std::pair<std::string, std::string>> StatusModel::facts() const {
  std::vector<std::pair<std::string, std::string>> facts;
  const ReferenceTime now = m.platform.clock.now();
  const ActionsTools tools(m.evaluation.calendar(), now);
  if (m.supervisor.isExecuting() && !m.queue.empty()) {
    std::string text = m.tree.titleOf(m.queue.head().ref);
    if (const ReferenceTime start = m.supervisor.startOfCurrentAction(); start != 0)
      text = m.texts.text("StatusSince", {text, m.strings.getShortTime(start)});
    facts.emplace_back(m.texts.text("StatusRunning"), text);
  }
  if (m.statusInformation && !m.statusInformation().empty())
    facts.emplace_back(m.texts.text("StatusNow"), m.statusInformation());
  if (const auto& reports = m.supervisor.latestExecuteCurrentPath();
      m.supervisor.isExecuting() && !reports.empty()) {
    if (std::string words = progressInWords(reports.back(), m.texts, m.strings); !words.empty())
      facts.emplace_back(m.texts.text("StatusProgress"), std::move(words));
  }
  const auto& next = m.evaluation.actionsNextList();
  facts.emplace_back(
      m.texts.text("StatusNext"),
      next.empty() || !next.front().hasDate
          ? m.texts.text("NoNextAction")
          : m.texts.text("StatusNextText",
                         {next.front().name(), tools.getScheduleStringForDate(
                                                   next.front().date, {m.texts, m.strings})}));
  facts.emplace_back(m.texts.text("StatusQueue"),
                     m.queue.empty()
                         ? m.texts.text("QueueEmpty")
                         : m.texts.text("StatusQueueCount", {m.queue.actionsList().size()}));
  if (m.state.mStartedFromNewMachine)
    facts.emplace_back(m.texts.text("StatusCaution"), m.texts.text("StartedOtherMachine"));
  if (m.state.mErrorInExecution != 0)
    facts.emplace_back(m.texts.text("StatusLastError"),
                       m.state.mErrorInExecution == LogCode::message
                           ? m.texts.text("StatusMailFailed")
                           : resultInWords(m.state.mErrorInExecution, m.texts));
  return facts;
}

std::optional<int> StatusModel::progress() const {
  if (!m.supervisor.isExecuting()) return std::nullopt;
  return static_cast<int>(std::clamp(m.state.mProgress.value, 0.0, 100.0));
}

std::vector<std::string> StatusModel::executionChoices() const {
  return {m.texts.text("ExecutionOn"), m.texts.text("ExecutionOffWhenDone"),
          m.texts.text("ExecutionOff")};
}

int StatusModel::execution() const {
  if (m.state.mScheduleDisabled) return 2;
  return m.state.mScheduleDisabledWhenDone ? 1 : 0;
}

void StatusModel::setExecution(int item) const { m.commands.changeExecutionStatus(item); }

std::vector<std::string> StatusModel::contextChoices() const { return contextNames(m.texts); }

int StatusModel::context() const { return m.state.mContext; }
void StatusModel::setContext(int context) const { m.commands.setContext(context); }

std::string StatusModel::pauseTitle() const {
  return m.texts.text(m.state.mPause ? "ContinueButton" : "PauseButton");
}

void StatusModel::pauseOrContinue() const { m.commands.pauseExecution(); }
bool StatusModel::isExecuting() const { return m.supervisor.isExecuting(); }
void StatusModel::stop() const { m.commands.stopExecution(); }

std::vector<WindowTable::Column> StatusModel::columns() const {
  return {{.title = m.texts.text("ColumnAction"), .isWide = true, .sorts = true},
          {.title = m.texts.text("ColumnLastRun"), .sorts = true},
          {.title = m.texts.text("ColumnNextRun"), .sorts = true},
          {.title = m.texts.text("ColumnSchedule")}};
}

std::string StatusModel::text(std::size_t row, std::size_t column) const {
  const Action& action = mActions[row];
  const ActionsTools tools(m.evaluation.calendar(), m.platform.clock.now());
  const ActionsTools::Texts texts{m.texts, m.strings};
  switch (column) {
    case 0:
      return action.title;
    case 1:
      return action.last ? m.strings.getShortTimeDate(*action.last)
                         : m.texts.text("StatusNeverRan");
    case 2:
      if (m.queue.contains(action.ref)) return m.texts.text("NextQueued");
      return action.next ? tools.getScheduleStringForDate(*action.next, texts) : std::string();
    default: {
      const ProgrammedAction* node = m.tree.rootItem().actionForReference(action.ref);
      return node == nullptr ? std::string()
                             : tools.getNextScheduleModeForSettings(node->getSettings(), texts);
    }
  }
}

WindowTable::Tone StatusModel::tone(std::size_t row) const {
  return mActions[row].automatic ? Tone::plain : Tone::dimmed;
}

std::string StatusModel::why(std::size_t row) const { return reasonsText(m, id(row)); }

std::string StatusModel::launch(const std::vector<std::size_t>& rows) const {
  std::vector<std::int64_t> refs;
  for (const std::size_t row : rows)
    if (row < mActions.size()) refs.push_back(id(row));
  return launchByHand(m, refs);
}

SurveyModel::SurveyModel(const UserInterfaceSources& sources) : m(sources) {
  m.survey.showWindow();
}

SurveyModel::~SurveyModel() { m.survey.closeWindow(); }

std::string SurveyModel::title() const { return m.survey.title(); }
std::string SurveyModel::line() const { return m.surveyLine ? m.surveyLine() : std::string(); }
std::string SurveyModel::reply() const { return m.supervisor.executeReply(); }
std::vector<std::string> SurveyModel::timings() const { return m.survey.lines(); }

std::vector<std::string> SurveyModel::modes() const {
  return {m.texts.text("SurveyModeUsual"), m.texts.text("SurveyModeSlow"),
          m.texts.text("SurveyModeVerbose")};
}

int SurveyModel::mode() const { return m.supervisor.executionMode(); }
void SurveyModel::setMode(int mode) const { m.commands.setExecutionMode(mode); }

std::vector<WindowTable::Column> SurveyModel::columns() const {
  return {{.title = m.texts.text("ColumnPath"), .isWide = true}};
}

std::size_t SurveyModel::rowCount() const { return m.supervisor.latestExecuteCurrentPath().size(); }

std::string SurveyModel::text(std::size_t row, std::size_t) const {
  const auto& paths = m.supervisor.latestExecuteCurrentPath();
  return paths[paths.size() - 1 - row].string("CurrentPath");
}

std::string SurveyModel::icon(std::size_t row) const {
  const auto& paths = m.supervisor.latestExecuteCurrentPath();
  return paths[paths.size() - 1 - row].string("CurrentIcon");
}

}  // namespace corvana
