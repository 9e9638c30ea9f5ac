#include "core/record/SchedulerLog.h"

#include <algorithm>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_Translation.h"
#include "actions/ActionsTools.h"
#include "actions/History.h"
#include "actions/RecordKeys.h"
#include "actions/TaskRequest.h"
#include "core/record/Changes.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerState.h"
#include "core/record/Siblings.h"
#include "platform/Platform.h"

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
    addFailure(entry.integer("R"), static_cast<int>(code));
    if (mPreferences.mShowErrorWindows != 0) mUserInterface.showWindow(Window::errorSummary);
  }
  if (entry.contains(TaskRequest::kTaskKey)) return tellTask(entry);
  if (const std::string losses = entry.string(CopyKey::losses);
      !losses.empty() && showStandardMessage)
    showStandardMessage(mTexts.text("CopyLosses", {entry.string("N"), losses}), 0);
  switch (code) {
    case LogCode::completed:
      // Whoever has the main application open reads it there.
      if (entry.integer(RunKey::isReadBack) != 0 && showStandardMessage && !mState.mMainAppLaunched)
        showStandardMessage(mTexts.text("FirstBackupDone", {entry.string("N")}), 0);
      succeeded(entry);
      break;
    case LogCode::volumeNotFound:
    case LogCode::volumeNotAvailable:
      if (showStandardMessage) {
        const bool isReached = entry.integer(LogKey::unreachable) == 0;
        showStandardMessage(
            mTexts.text(isReached ? "ActionNotExecutedNoVolume" : "ActionTargetNotReachable",
                        {entry.string("N")}),
            LogCode::message);
      }
      break;
    case LogCode::abortedByUser:
      if (mPreferences.mPrefAlertIfManualInterruption != 0 && showStandardMessage)
        showStandardMessage(mTexts.text("ActionInterrupted", {entry.string("N")}), 0);
      break;
    case LogCode::unexpectedError:
    case LogCode::completedWithErrors:
      if (onlyLacks) {
        succeeded(entry);
        break;
      }
      if (const std::int64_t asked = entry.integer(DeletionKey::toConfirm);
          asked > 0 && showStandardMessage) {
        showStandardMessage(
            mTexts.text("ActionAsksToDelete", {entry.string("N"), asked, entry.integer("R")}),
            LogCode::message);
      } else if (code == LogCode::completedWithErrors && showStandardMessage) {
        // It has a message of its own nowhere else, and not every desktop shows the icon.
        showStandardMessage(mTexts.text("ActionWithErrors", {entry.string("N")}), 0);
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

/// A good one takes back nothing that a run of the action has told.
void SchedulerLog::tellTask(const ZAN_Value& entry) {
  const std::int64_t code = entry.integer("C");
  if (!isFailure(code) || code == LogCode::crashed || !showStandardMessage) return;
  const bool restores = entry.string(TaskRequest::kTaskKey) == TaskRequest::kRestore;
  showStandardMessage(mTexts.text(restores ? "RestoreFailed" : "VerifyFailed",
                                  {entry.string("N"), translated(mTexts, entry.string("F"))}),
                      0);
}

void SchedulerLog::addSchedulerLog(int code, std::string_view text) {
  ZAN_Value entry = ZAN_Value::dictionary({{"C", code}});
  if (!text.empty()) entry.setValue("N", text);
  addSchedulerLog(entry);
}

void SchedulerLog::clearErrorState() {
  if (mState.mErrorInExecution == 0 && mState.mLacking.empty()) return;
  mState.mFailures.clear();
  mState.mLacking.clear();
  failuresChanged();
}

void SchedulerLog::keepLacking(const std::function<bool(std::int64_t reference)>& isThere) {
  if (std::erase_if(mState.mLacking, [&](std::int64_t ref) { return !isThere(ref); }) != 0)
    failuresChanged();
}

void SchedulerLog::addFailure(std::int64_t ref, int code) {
  auto& failures = mState.mFailures;
  if (!failures.empty() && failures.back().ref == ref && failures.back().code == code) return;
  std::erase_if(failures, [ref](const auto& failure) { return failure.ref == ref; });
  failures.push_back({ref, code});
  failuresChanged();
}

void SchedulerLog::succeeded(const ZAN_Value& entry) {
  const std::int64_t ref = entry.integer("R");
  // What is no action's has no success.
  if (ref == 0) return;
  bool changes =
      std::erase_if(mState.mFailures, [ref](const auto& one) { return one.ref == ref; }) != 0;
  if (entry.integer(RunKey::onlyLacks) == 0) {
    changes = std::erase(mState.mLacking, ref) != 0 || changes;
  } else if (entry.integer(RunKey::lacksOthers) != 0 &&
             std::ranges::find(mState.mLacking, ref) == mState.mLacking.end()) {
    mState.mLacking.push_back(ref);
    changes = true;
  }
  if (changes) failuresChanged();
}

void SchedulerLog::failuresChanged() {
  const auto& failures = mState.mFailures;
  mState.mErrorInExecution = failures.empty() ? 0 : failures.back().code;
  mState.updateMenu();
  // Kept in the preferences, so that a failure stays in sight when the agent starts itself anew.
  ZAN_Value stored = ZAN_Value::array();
  for (const SchedulerState::Failure& failure : failures)
    stored.append(ZAN_Value::dictionary({{"R", failure.ref}, {"C", failure.code}}));
  mPreferences.setPref(PreferenceKey::errorInExecution, mState.mErrorInExecution);
  mPreferences.setPref(PreferenceKey::failures, failures.empty() ? ZAN_Value() : stored);
  ZAN_Value lacking = ZAN_Value::array();
  for (const std::int64_t ref : mState.mLacking) lacking.append(ref);
  mPreferences.setPref(PreferenceKey::lacking, lacking.empty() ? ZAN_Value() : lacking);
  // A failure to save is logged by the store, and the state holds for this run.
  mPreferences.savePrefs();
  mChanges.note(Change::execution);
}

void SchedulerLog::restoreErrorState() {
  mState.mFailures.clear();
  mState.mLacking.clear();
  for (const ZAN_Value& ref : mPreferences.prefForKey(PreferenceKey::lacking).elements())
    mState.mLacking.push_back(ref.integerValue());
  for (const ZAN_Value& one : mPreferences.prefForKey(PreferenceKey::failures).elements()) {
    if (isFailure(one.integer("C")) || one.integer("C") == LogCode::message)
      mState.mFailures.push_back({one.integer("R"), static_cast<int>(one.integer("C"))});
  }
  // Of what another program stored, or a damaged list, no more is known than that there is one.
  const int code = mPreferences.integer(PreferenceKey::errorInExecution, 0);
  if (code == 0) mState.mFailures.clear();
  if (code != 0 && mState.mFailures.empty()) mState.mFailures.push_back({0, code});
  mState.mErrorInExecution = mState.mFailures.empty() ? 0 : mState.mFailures.back().code;
}

void SchedulerLog::takeUpUntold() {
  const ZAN_Value log = mHistory.log().readLogList();
  const auto entries = log.elements();
  const auto start = std::find_if(entries.rbegin(), entries.rend(), [](const ZAN_Value& entry) {
    return entry.integer("C") == LogCode::agentStarted;
  });
  for (auto entry = start.base(); entry != entries.end(); ++entry) {
    if (entry->integer(LogKey::untold) == 0) continue;
    const std::int64_t code = entry->integer("C");
    const bool onlyLacks = entry->integer(RunKey::onlyLacks) != 0;
    if (isFailure(code) && !onlyLacks)
      addFailure(entry->integer("R"), static_cast<int>(code));
    else if (!entry->contains(TaskRequest::kTaskKey) && (code == LogCode::completed || onlyLacks))
      succeeded(*entry);
  }
}

}  // namespace corvana
