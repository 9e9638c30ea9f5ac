#include "ui/windows/StatusModels.h"

#include <algorithm>
#include <limits>
#include <unordered_map>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/ActionContext.h"
#include "core/work/Announce.h"
#include "ui/StatusItem.h"
#include "ui/windows/WindowWords.h"

namespace corvana {

namespace {

constexpr double kNotYet = std::numeric_limits<double>::infinity();

}  // namespace

StatusModel::StatusModel(const UserInterfaceSources& sources) : m(sources) { refresh(); }

void StatusModel::refresh() {
  std::unordered_map<std::int64_t, ReferenceTime> dates;
  for (const NextAction& next : m.work.evaluation.actionsNextList())
    if (next.hasDate) dates.emplace(next.ref, next.date);
  ProgrammedAction::Nodes nodes;
  m.records.tree.rootItem().getListOfAllProgrammedActions(nodes);
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
  const ReferenceTime now = m.records.platform.clock.now();
  const ActionsTools tools(m.work.evaluation.calendar(), now);
  std::string doing;
  if (m.work.supervisor.isExecuting() && !m.work.queue.empty()) {
    doing = m.work.queue.titleOf(m.work.queue.head());
    if (const ReferenceTime start = m.work.supervisor.startOfCurrentAction(); start != 0)
      doing = m.records.texts.text("StatusSince", {doing, m.records.strings.getShortTime(start)});
  }
  if (const std::string line = m.launchStep.statusInformation(); !line.empty())
    doing += (doing.empty() ? "" : " — ") + line;
  facts.emplace_back(m.records.texts.text("StatusNow"),
                     doing.empty() ? m.records.texts.text("StatusIdle") : doing);
  facts.emplace_back(m.records.texts.text("StatusProgress"),
                     progressInWords(m.work.supervisor, m.records.texts, m.records.strings));
  const auto& next = m.work.evaluation.actionsNextList();
  facts.emplace_back(
      m.records.texts.text("StatusNext"),
      next.empty() || !next.front().hasDate
          ? m.records.texts.text("NoNextAction")
          : m.records.texts.text("StatusNextText",
                                 {next.front().name(),
                                  tools.getScheduleStringForDate(
                                      next.front().date, {m.records.texts, m.records.strings})}));
  facts.emplace_back(
      m.records.texts.text("StatusQueue"),
      m.work.queue.empty()
          ? m.records.texts.text("QueueEmpty")
          : m.records.texts.text("StatusQueueCount", {m.work.queue.actionsList().size()}));
  if (m.records.state.mStartedFromNewMachine)
    facts.emplace_back(m.records.texts.text("StatusCaution"),
                       m.records.texts.text("StartedOtherMachine"));
  return facts;
}

std::string StatusModel::failureText() const {
  const auto& failures = m.records.state.mFailures;
  const ZAN_StringTable& texts = m.records.texts;
  if (failures.empty()) return m.statusItem.lackingText();
  if (failures.size() > 1) return texts.text("StatusFailures", {failures.size()});
  if (failures[0].code == LogCode::message) return texts.text("StatusOtherFailure");
  const std::string result = resultInWords(failures[0].code, texts);
  const std::string title = m.records.tree.titleOf(failures[0].ref);
  return title.empty() ? result : texts.text("StatusFailure", {title, result});
}

void StatusModel::showFailures() const { m.commands.showWindow(Window::errorSummary); }

std::optional<int> StatusModel::progress() const {
  if (!m.work.supervisor.isExecuting()) return std::nullopt;
  return static_cast<int>(std::clamp(m.records.state.mProgress.value, 0.0, 100.0));
}

std::vector<std::string> StatusModel::executionChoices() const {
  return {m.records.texts.text("ExecutionOn"), m.records.texts.text("ExecutionOffWhenDone"),
          m.records.texts.text("ExecutionOff")};
}

int StatusModel::execution() const {
  if (m.records.state.mScheduleDisabled) return 2;
  return m.records.state.mScheduleDisabledWhenDone ? 1 : 0;
}

void StatusModel::setExecution(int item) const { m.commands.changeExecutionStatus(item); }

std::vector<std::string> StatusModel::contextChoices() const {
  return contextNames(m.records.texts);
}

int StatusModel::context() const { return m.records.state.mContext; }
void StatusModel::setContext(int context) const { m.commands.setContext(context); }

std::string StatusModel::pauseTitle() const {
  return m.records.texts.text(m.records.state.mPause ? "ContinueButton" : "PauseButton");
}

void StatusModel::pauseOrContinue() const { m.commands.pauseExecution(); }
bool StatusModel::isExecuting() const { return m.work.supervisor.isExecuting(); }
void StatusModel::stop() const { m.commands.stopExecution(); }

std::vector<WindowTable::Column> StatusModel::columns() const {
  return {{.title = m.records.texts.text("ColumnAction"), .isWide = true, .sorts = true},
          {.title = m.records.texts.text("ColumnLastRun"), .sorts = true},
          {.title = m.records.texts.text("ColumnNextRun"), .sorts = true},
          {.title = m.records.texts.text("ColumnSchedule")}};
}

std::string StatusModel::text(std::size_t row, std::size_t column) const {
  const Action& action = mActions[row];
  const ActionsTools tools(m.work.evaluation.calendar(), m.records.platform.clock.now());
  const ActionsTools::Texts texts{m.records.texts, m.records.strings};
  switch (column) {
    case 0:
      return action.title;
    case 1:
      return action.last ? m.records.strings.getShortTimeDate(*action.last)
                         : m.records.texts.text("StatusNeverRan");
    case 2:
      if (m.work.queue.contains(action.ref)) return m.records.texts.text("NextQueued");
      return action.next ? tools.getScheduleStringForDate(*action.next, texts) : std::string();
    default: {
      const ProgrammedAction* node = m.records.tree.rootItem().actionForReference(action.ref);
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
  m.records.survey.showWindow();
}

SurveyModel::~SurveyModel() { m.records.survey.closeWindow(); }

std::string SurveyModel::title() const { return m.records.survey.title(); }
std::string SurveyModel::line() const { return m.work.supervisor.surveyLine(); }
std::string SurveyModel::reply() const { return m.work.supervisor.executeReply(); }
std::vector<std::string> SurveyModel::timings() const { return m.records.survey.lines(); }

std::vector<std::string> SurveyModel::modes() const {
  return {m.records.texts.text("SurveyModeUsual"), m.records.texts.text("SurveyModeSlow"),
          m.records.texts.text("SurveyModeVerbose")};
}

int SurveyModel::mode() const { return m.work.supervisor.executionMode(); }
void SurveyModel::setMode(int mode) const { m.commands.setExecutionMode(mode); }

std::vector<WindowTable::Column> SurveyModel::columns() const {
  return {{.title = m.records.texts.text("ColumnPath"), .isWide = true}};
}

std::size_t SurveyModel::rowCount() const {
  return m.work.supervisor.latestExecuteCurrentPath().size();
}

std::string SurveyModel::text(std::size_t row, std::size_t) const {
  const auto& paths = m.work.supervisor.latestExecuteCurrentPath();
  return paths[paths.size() - 1 - row].string("CurrentPath");
}

std::string SurveyModel::icon(std::size_t row) const {
  const auto& paths = m.work.supervisor.latestExecuteCurrentPath();
  return paths[paths.size() - 1 - row].string("CurrentIcon");
}

}  // namespace corvana
