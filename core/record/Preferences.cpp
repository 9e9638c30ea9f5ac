#include "core/record/Preferences.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "actions/SettingsFiles.h"
#include "platform/Machine.h"

namespace corvana {

namespace {

constexpr double kFirstPruningAfter = 257.0;
constexpr int kFirstSystemWithNotifications = 100800;
constexpr std::string_view kNextFreeSpaceCheck = "SchedulerPrefCheckStartupHDFreeSpace";
constexpr std::string_view kNextPruning = "SchedulerPrefCleanVolumesInfo";

}  // namespace

Preferences::Preferences(SettingsFiles& settings, Machine& machine, DeadlineList& deadlines,
                         ReferenceTime now)
    : mCheckStartupDiskFreeSpace(deadlines),
      mSchedulerCleanVolumesInfos(deadlines),
      mSettings(settings),
      mMachine(machine),
      mFirstPruning(now + kFirstPruningAfter) {
  deadlines.whenMoved([this](double jump, ReferenceTime at) { moveSavedDates(jump, at); });
}

ZAN_Value& Preferences::cache() {
  if (!mSchedulerPrefs) readCache();
  return *mSchedulerPrefs;
}

/// Takes what the file holds now, under what was not saved yet. Without a readable file the cache
/// stays as it is.
void Preferences::readCache() {
  ZAN_Value stored = mSettings.schedulerSettings();
  if (!stored.isDictionary()) stored = mSchedulerPrefs.value_or(ZAN_Value::dictionary());
  for (const auto& [key, value] : mUnsaved) {
    if (value.isNull()) {
      stored.removeKey(key);
    } else {
      stored.setValue(key, value);
    }
  }
  mSchedulerPrefs = std::move(stored);
}

ZAN_Value Preferences::prefForKey(std::string_view key) {
  const ZAN_Value& stored = cache().value(key);
  if (!stored.isNull()) return stored;
  ZAN_Value fromDefaults = mMachine.userDefault(std::string(key));
  if (!fromDefaults.isNull()) setPref(key, fromDefaults);
  return fromDefaults;
}

void Preferences::setPref(std::string_view key, const ZAN_Value& value) {
  if (value.isNull()) {
    cache().removeKey(key);
  } else {
    cache().setValue(key, value);
  }
  mUnsaved.insert_or_assign(std::string(key), value);
}

void Preferences::savePrefs(bool synchronise) {
  const auto lock = mSettings.lockSchedulerSettings();
  readCache();
  if (mSettings.saveSchedulerSettings(*mSchedulerPrefs, synchronise)) mUnsaved.clear();
}

int Preferences::integer(std::string_view key, int builtIn) {
  const ZAN_Value value = prefForKey(key);
  using Int = std::numeric_limits<int>;
  return value.isNull() ? builtIn
                        : static_cast<int>(std::clamp<std::int64_t>(value.integerValue(),
                                                                    Int::min(), Int::max()));
}

double Preferences::real(std::string_view key, double builtIn) {
  const ZAN_Value value = prefForKey(key);
  return value.isNull() ? builtIn : value.doubleValue();
}

void Preferences::loadPrefs() {
  mSchedulerPrefs.reset();
  mPrefScheduleDisabled = integer("SchedulerPrefScheduleDisabled", 0);
  mPrefShowWelcomeMessage = integer("SchedulerPrefShowWelcomeMessage", 0);
  mPrefStackWindows = integer("SchedulerPrefStackWindows", 0);
  mSurveyVolumesFolder = integer("SchedulerPrefSurveyVolumesFolder", 1);
  mShortcutOperation = integer("SchedulerPrefShortcutOperation", 0);
  mCheckWakeupMachine = integer("SchedulerPrefWakeupMachine", 0) != 0;
  mSchedulerLastWakeupTime = prefForKey("SchedulerLastWakeupTime").integerValue();
  mCheckFreeSpace = integer("SchedulerPrefSurveyFreeSpace", 1) != 0;
  mPrefAllowRemoteControl = integer("SchedulerPrefAllowRemoteControl", 0);
  mPrefShowMountMessage = integer("SchedulerPrefShowMountMessage", 0);
  mPrefShowActionProgress = integer("SchedulerPrefShowActionProgress", 0);
  mPrefSetFrontProcess = integer("SchedulerPrefSetFrontProcess", 0);
  mPrefAlertIfManualInterruption = integer("SchedulerPrefAlertIfManualInterruption", 0);
  mPrefShowMessageInNotificationCenter =
      mMachine.systemVersion() >= kFirstSystemWithNotifications
          ? integer("SchedulerPrefShowMessageInNotificationCenter", 0)
          : 0;
  mPrefShowActionsQueue = integer("SchedulerPrefShowActionsQueue", 0);
  mShowIconMenuMode = integer("SchedulerPrefDisplayIcon", 0);
  mShowIconMenuType = integer("SchedulerPrefDisplayIconType", 0);
  mShowFloatingIconMode = integer("SchedulerPrefDisplayIconWindow", 0);
  mPrefShowMessageBeforeAction = integer("SchedulerPrefShowMessageBeforeAction", 0);
  mPrefShowMessageColor = integer("SchedulerPrefShowMessageColor", 0);
  mPrefKeepQueueAtShutdown = integer("SchedulerPrefKeepQueueAtShutdown", 1);
  mPrefFloatingIconNbLines = integer("SchedulerPrefFloatingIconNbLines", 5);
  mPrefFloatingIconTransparency = real("SchedulerPrefFloatingIconTransparency", 80.0);
  mPrefShowMessageTransparency = real("SchedulerPrefShowMessageTransparency", 80.0);
  mShowMessagePosition = {real("SchedulerPrefShowMessagePositionX", 50.0),
                          real("SchedulerPrefShowMessagePositionY", 10.0)};
  mShowMiniProgressPosition.reset();
  const ZAN_Value x = prefForKey("SchedulerPrefShowAnnouncePositionX");
  const ZAN_Value y = prefForKey("SchedulerPrefShowAnnouncePositionY");
  if (!x.isNull() && !y.isNull()) mShowMiniProgressPosition = {x.doubleValue(), y.doubleValue()};

  if (const auto name = prefForKey("SchedulerPrefRemoteControlLocalName").asString()) {
    mRemoteControlLocalName = *name;
  } else {
    mRemoteControlLocalName = mMachine.networkName();
    std::ranges::replace(mRemoteControlLocalName, '-', ' ');
  }
  mRemoteControlPassword = prefForKey("SchedulerPrefRemoteControlPassword").string();

  mCheckStartupDiskFreeSpace.set(real(kNextFreeSpaceCheck, 0));
  mSchedulerCleanVolumesInfos.set(real(kNextPruning, mFirstPruning));
  mShowErrorWindows = integer("SchedulerShowErrorWindows", 0);
  mAutoUnmountVolumes = integer("SchedulerPrefAutoUnmountVolumes", 0);
}

KeyMap Preferences::keysForShortcut() {
  KeyMap keys{};
  const ZAN_Value stored = prefForKey("SchedulerPrefKeysForShortcut");
  const auto bytes = stored.bytes();
  for (std::size_t i = 0; i < std::min(keys.size(), bytes.size()); ++i) {
    keys[i] = std::to_integer<std::uint8_t>(bytes[i]);
  }
  return keys;
}

void Preferences::moveSavedDates(double jump, ReferenceTime now) {
  if (mFirstPruning > now) mFirstPruning += jump;
  bool moved = false;
  for (const std::string_view key : {kNextFreeSpaceCheck, kNextPruning}) {
    const double date = cache().value(key).doubleValue();
    if (date <= now) continue;
    setPref(key, date + jump);
    moved = true;
  }
  if (moved) savePrefs();
}

}  // namespace corvana
