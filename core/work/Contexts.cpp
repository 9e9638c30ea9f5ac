#include "core/work/Contexts.h"

#include <algorithm>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/ActionStore.h"
#include "core/record/Messages.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerState.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
#include "platform/UserInterface.h"

namespace corvana {

Contexts::Contexts(const WorkSurroundings& surroundings, ActionQueue& queue)
    : m(surroundings), mQueue(queue) {}

void Contexts::setContextMode(std::int64_t value) {
  const int context = static_cast<int>(std::clamp<std::int64_t>(value, 0, 3));
  m.state.mContext = context;
  m.platform.userInterface.menusChanged();
  if (context != m.preferences.prefForKey(PreferenceKey::currentContext).integerValue()) {
    const std::string& text = m.texts.text("ReportContextChanged");
    m.store.texts().addToReportFile(text);
    m.messages.sendUserNotification(text);
    m.preferences.setPref(PreferenceKey::currentContext, context);
    m.preferences.savePrefs();
  }
  if (context != 0) mQueue.removeRecordsOfOtherContexts(static_cast<ActionContext>(context));
  if (onContextChanged) onContextChanged();
}

void Contexts::setContext(std::int64_t tag) {
  m.state.mMenuWasUsed = true;
  setContextMode(tag);
}

}  // namespace corvana
