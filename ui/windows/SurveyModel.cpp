#include "ui/windows/SurveyModel.h"

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "core/record/SchedulerCommands.h"
#include "core/record/SurveyExecution.h"
#include "core/work/ExecuteSupervisor.h"

namespace corvana {

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
