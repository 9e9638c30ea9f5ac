#include "ui/windows/NoticeModels.h"

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "core/record/SchedulerCommands.h"

namespace corvana {

std::string StrayFoldersModel::text() const { return m.texts.text("StrayFoldersText"); }

std::string StrayFoldersModel::names() const {
  return m.strayFolders ? m.strayFolders() : std::string();
}

std::string StrayFoldersModel::dateText() const {
  return m.strayFoldersDate ? m.texts.text("StrayFoldersDate", {m.strayFoldersDate()})
                            : std::string();
}

std::string StrayFoldersModel::progressText() const {
  return m.strayFoldersProgress ? m.strayFoldersProgress() : std::string();
}

void StrayFoldersModel::repairAndContinue() const {
  if (m.repairAndContinue) m.repairAndContinue();
}

void StrayFoldersModel::continueAnyway() const { m.commands.continueExecution(); }

std::string LowSpaceModel::text() const { return m.texts.text("LowSpaceText", {freePercent()}); }

}  // namespace corvana
