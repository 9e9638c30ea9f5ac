#include "core/work/AutomaticExecution.h"

#include <utility>

#include "core/record/Records.h"
#include "platform/Clock.h"

namespace corvana {

void AutomaticExecution::enableQuietly() {
  m.state.mScheduleDisabled = false;
  m.state.checkAt(m.platform.clock.now() + 1.0);
  m.executionStatusChanged();
}

void AutomaticExecution::setActive(bool active) {
  const bool wasToEnd = std::exchange(m.state.mScheduleDisabledWhenDone, false);
  // What the last evaluation found is right no more; one that was to end has waited meanwhile.
  if (active == !m.state.mScheduleDisabled) {
    if (wasToEnd) {
      m.state.checkAt(m.platform.clock.now());
      changed();
    }
    return;
  }
  m.state.mScheduleDisabled = !active;
  m.preferences.mPrefScheduleDisabled = active ? 0 : 1;
  m.state.checkAt(m.platform.clock.now());
  m.messages.displayStandardMessage(
      m.texts.text(active ? "ReportEnableScheduler" : "ReportDisableScheduler"),
      LogCode::schedulerMessage);
  m.preferences.setPref(PreferenceKey::scheduleDisabled, m.preferences.mPrefScheduleDisabled);
  m.preferences.savePrefs();
  changed();
}

void AutomaticExecution::disableWhenAllDone() {
  m.state.mScheduleDisabledWhenDone = true;
  changed();
}

void AutomaticExecution::changed() {
  m.state.updateMenu();
  m.executionStatusChanged();
  m.state.mMenuWasUsed = true;
}

}  // namespace corvana
