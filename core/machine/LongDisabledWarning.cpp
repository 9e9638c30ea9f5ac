#include "core/machine/LongDisabledWarning.h"

#include <algorithm>
#include <cstdint>

#include "actions/ProgrammedAction.h"
#include "core/record/Records.h"
#include "core/work/TriggerEvaluation.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr double kDay = 86400;
constexpr double kLongTime = 2 * kDay;

}  // namespace

void LongDisabledWarning::checkIfExecutionIsDisabled() {
  if (!m.state.mScheduleDisabled && !m.state.mStartedFromNewMachine) return;
  if (m.tree.rootItem().numberOfActions() == 0) return;
  const ReferenceTime now = m.platform.clock.now();
  const auto count = static_cast<std::int64_t>(m.history.historyCount());
  const auto latest = m.history.historyEntryAtIndex(count - 1)["Date"].asDate();
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
