#include "core/work/ExecutionConditions.h"

#include <algorithm>
#include <utility>

#include "core/record/Records.h"
#include "core/work/ActionQueue.h"

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

void Contexts::setContextMode(std::int64_t value) {
  const int context = static_cast<int>(std::clamp<std::int64_t>(value, 0, 3));
  m.state.mContext = context;
  if (context != m.preferences.prefForKey(PreferenceKey::currentContext).integerValue()) {
    const std::string& text = m.texts.text("ReportContextChanged");
    m.store.texts().addToReportFile(text);
    m.messages.sendUserNotification(text);
    m.preferences.setPref(PreferenceKey::currentContext, context);
    m.preferences.savePrefs();
  }
  if (context != 0) mQueue.removeRecordsOfOtherContexts(static_cast<ActionContext>(context));
  m.state.updateMenu();
  // Who is due next is another question now.
  m.state.checkAt(m.platform.clock.now());
  m.changes.note(Change::execution);
}

void Contexts::setContext(std::int64_t tag) {
  m.state.mMenuWasUsed = true;
  setContextMode(tag);
}

}  // namespace corvana
