#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "core/record/Deadline.h"
#include "platform/Input.h"

namespace corvana {

class Machine;
class SettingsFiles;

/// The agent's preferences: a cache of its settings file, and the known values taken out of it.
///
/// The settings file is written whole from the cache, into which is taken what another program has
/// changed in the file meanwhile; one that is there but cannot be read is kept aside by the store
/// before that. Thread: main.
class Preferences {
 public:
  /// `now` gives the built-in date of the first pruning of volume information.
  Preferences(SettingsFiles& settings, Machine& machine, DeadlineList& deadlines,
              ReferenceTime now);

  /// The value under a key, null for none. A key that the file lacks is looked up in the user
  /// defaults, and what is found there becomes part of the cache. A lookup never writes a default.
  ZAN_Value prefForKey(std::string_view key);
  /// The nearest `int` of a number, `builtIn` without a value.
  int integer(std::string_view key, int builtIn);
  /// Into the cache only; null removes the key. Call `savePrefs` when it has to last.
  void setPref(std::string_view key, const ZAN_Value& value);
  /// Reads the file again and takes over every value below; a key without a value gives the
  /// built-in default. What was set and could not be saved yet stays.
  void loadPrefs();
  /// Writes the whole cache to the settings file. The values below stay as of the last `loadPrefs`.
  /// What is saved by the clock need not be synchronised, so that the disk of an idle machine may
  /// sleep. A failure is logged by the store, and the next save tries again.
  void savePrefs(bool synchronise = true);

  /// 16 bytes of the shortcut; all zero without one.
  KeyMap keysForShortcut();

  // The known values as of the last `loadPrefs`. A duty that changes one stores it by `setPref`
  // too. Those without a comment: "SchedulerPref" and the name without its "mPref", 0 without a
  // value.
  int mPrefScheduleDisabled = 0;  ///< the user has switched automatic execution off
  int mPrefShowWelcomeMessage = 0;
  int mPrefStackWindows = 0;
  int mSurveyVolumesFolder = 1;  ///< 0 no survey, 1 tells of stray folders, 2 tells and deletes
  int mShortcutOperation = 0;
  bool mCheckWakeupMachine = false;
  std::int64_t mSchedulerLastWakeupTime =
      0;  ///< whole seconds since the reference date, 0: none programmed
  bool mCheckFreeSpace = true;
  int mPrefAllowRemoteControl = 0;
  int mPrefShowMountMessage = 0;
  int mPrefShowActionProgress = 0;
  int mPrefSetFrontProcess = 0;
  int mPrefAlertIfManualInterruption = 0;
  /// Always 0 on systems older than 10.8.
  int mPrefShowMessageInNotificationCenter = 0;
  int mPrefShowActionsQueue = 0;
  int mShowIconMenuMode = 0;      ///< 0 always, 1 on hover, 3 never
  int mShowIconMenuType = 0;      ///< 1 black, 2 white
  int mShowFloatingIconMode = 0;  ///< 0 always, 1 on hover, 2 never
  int mPrefShowMessageBeforeAction = 0;
  int mPrefShowMessageColor = 0;
  int mPrefKeepQueueAtShutdown = 1;
  int mPrefFloatingIconNbLines = 5;
  double mPrefFloatingIconTransparency = 80.0;  ///< percent
  double mPrefShowMessageTransparency = 80.0;   ///< percent
  Point mShowMessagePosition{50.0, 10.0};
  std::optional<Point> mShowMiniProgressPosition;
  /// The machine's network name with blanks for dashes unless the user gave one.
  std::string mRemoteControlLocalName;
  std::string mRemoteControlPassword;
  int mShowErrorWindows = 0;
  int mAutoUnmountVolumes = 0;
  Deadline mCheckStartupDiskFreeSpace;   ///< next check of the start-up disk's free space
  Deadline mSchedulerCleanVolumesInfos;  ///< next pruning of volume information

 private:
  ZAN_Value& cache();
  void readCache();
  void moveSavedDates(double jump, ReferenceTime now);
  double real(std::string_view key, double builtIn);

  SettingsFiles& mSettings;
  Machine& mMachine;
  ReferenceTime mFirstPruning;
  std::optional<ZAN_Value> mSchedulerPrefs;  ///< nothing: read at the next lookup
  /// What was set since the last save; null: removed.
  std::map<std::string, ZAN_Value, std::less<>> mUnsaved;
};

}  // namespace corvana
