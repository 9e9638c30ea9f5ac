#include "core/record/SchedulerLog.h"

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/ActionsTools.h"
#include "actions/History.h"
#include "core/record/Changes.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerState.h"
#include "core/record/SiblingChannel.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "platform/UserInterface.h"

namespace corvana {

namespace {

bool isFailure(std::int64_t code) {
  switch (code) {
    case LogCode::volumeNotFound:
    case LogCode::unexpectedError:
    case LogCode::crashed:
    case LogCode::timeOut:
    case LogCode::completedWithErrors:
    case LogCode::volumeGone:
    case LogCode::volumeNotAvailable:
      return true;
    default:
      return false;
  }
}

}  // namespace

SchedulerLog::SchedulerLog(const Platform& platform, History& history, SiblingChannel& channel,
                           Preferences& preferences, SchedulerState& state, Changes& changes,
                           const ZAN_StringTable& texts)
    : mClock(platform.clock),
      mUserInterface(platform.userInterface),
      mHistory(history),
      mChannel(channel),
      mPreferences(preferences),
      mState(state),
      mChanges(changes),
      mTexts(texts) {}

void SchedulerLog::addSchedulerLog(const ZAN_Value& entry) {
  if (!entry.isDictionary()) return;
  ZAN_Value dated = entry;
  dated.setValue("M", ZAN_Value::date(mClock.now()));
  mHistory.log().addLog(dated);
  // Who hears of it looks at the file.
  mHistory.log().whenSaved([this, here = std::weak_ptr(mHere)] {
    if (!here.expired()) mChannel.postToMainApp("LogChanged");
  });

  const std::int64_t code = entry.integer("C");
  // What only lacks what cannot be copied is told in yellow where runs are shown, and is no alarm.
  const bool onlyLacks = entry.integer(RunKey::onlyLacks) != 0;
  if (isFailure(code) && !onlyLacks) {
    setErrorState(static_cast<int>(code));
    if (mPreferences.mShowErrorWindows != 0) mUserInterface.showWindow(Window::errorSummary);
  }
  switch (code) {
    case LogCode::volumeNotFound:
    case LogCode::volumeNotAvailable:
      if (showStandardMessage) {
        showStandardMessage(mTexts.text("ActionNotExecutedNoVolume", {entry.string("N")}),
                            LogCode::message);
      }
      break;
    case LogCode::abortedByUser:
      if (mPreferences.mPrefAlertIfManualInterruption != 0 && showStandardMessage)
        showStandardMessage(mTexts.text("ActionInterrupted", {entry.string("N")}), 0);
      break;
    case LogCode::unexpectedError:
    case LogCode::completedWithErrors:
      if (onlyLacks) break;
      if (const std::int64_t asked = entry.integer(DeletionKey::toConfirm);
          asked > 0 && showStandardMessage) {
        showStandardMessage(
            mTexts.text("ActionAsksToDelete", {entry.string("N"), asked, entry.integer("R")}),
            LogCode::message);
      }
      mHistory.counters().incrementCounter(ExecutionCounters::kErrors, entry.integer("R"));
      break;
    case LogCode::crashed:
      mHistory.counters().incrementCounter(ExecutionCounters::kCrashes, entry.integer("R"));
      break;
    default:
      break;
  }
}

void SchedulerLog::addSchedulerLog(int code, std::string_view text) {
  ZAN_Value entry = ZAN_Value::dictionary({{"C", code}});
  if (!text.empty()) entry.setValue("N", text);
  addSchedulerLog(entry);
}

void SchedulerLog::clearErrorState() { setErrorState(0); }

void SchedulerLog::setErrorState(int code) {
  if (mState.mErrorInExecution == code) return;
  mState.mErrorInExecution = code;
  mState.updateMenu();
  // Kept in the preferences, so that a failure stays in sight when the agent starts itself anew.
  mPreferences.setPref(PreferenceKey::errorInExecution, code);
  // A failure to save is logged by the store, and the state holds for this run.
  mPreferences.savePrefs();
  mChanges.note(Change::execution);
}

}  // namespace corvana
