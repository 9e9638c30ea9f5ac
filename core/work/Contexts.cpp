#include "core/work/Contexts.h"

#include <algorithm>

#include "core/record/Records.h"
#include "core/work/ActionQueue.h"
#include "platform/Clock.h"

namespace corvana {

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
