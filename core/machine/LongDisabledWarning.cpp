#include "core/machine/LongDisabledWarning.h"

#include <algorithm>
#include <cstdint>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/ActionTree.h"
#include "actions/History.h"
#include "actions/ProgrammedAction.h"
#include "core/record/Messages.h"
#include "core/record/SchedulerLog.h"
#include "core/record/SchedulerState.h"
#include "core/work/TriggerEvaluation.h"
#include "platform/Clock.h"
#include "platform/Platform.h"

namespace corvana {

namespace {

constexpr double kDay = 86400;
constexpr double kLongTime = 2 * kDay;

}  // namespace

LongDisabledWarning::LongDisabledWarning(const WorkSurroundings& surroundings, History& history,
                                         const TriggerEvaluation& evaluation)
    : m(surroundings), mHistory(history), mEvaluation(evaluation) {}

void LongDisabledWarning::checkIfExecutionIsDisabled() {
  if (!m.state.mScheduleDisabled && !m.state.mStartedFromNewMachine) return;
  if (m.tree.rootItem().numberOfActions() == 0) return;
  const ReferenceTime now = m.platform.clock.now();
  const auto count = static_cast<std::int64_t>(mHistory.historyCount());
  const auto latest = mHistory.historyEntryAtIndex(count - 1)["Date"].asDate();
  if (!latest || now - *latest <= kLongTime) return;
  const bool anyWasDue = std::ranges::any_of(
      mEvaluation.actionsNextList(),
      [now](const NextAction& action) { return action.hasDate && action.date < now; });
  if (!anyWasDue) return;
  const auto days = static_cast<std::int64_t>((now - *latest) / kDay);
  m.messages.displayStandardMessage(m.texts.text("ReportNoExecutionSince", {days}),
                                    LogCode::schedulerMessage);
}

}  // namespace corvana
