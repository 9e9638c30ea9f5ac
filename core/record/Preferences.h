#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "core/record/Deadline.h"
#include "platform/Input.h"

namespace corvana {

/// When status icon and floating icon are shown; each has its own value for never.
namespace IconShown {
inline constexpr int always = 0;
inline constexpr int onHover = 1;
inline constexpr int floatingIconNever = 2;
inline constexpr int statusIconNever = 3;
}  // namespace IconShown

class Machine;
class Preferences;
class SettingsFiles;

/// Abilities of the machine that some preferences need.
enum class Ability { seePointer, seeKeyboard, wake, notices, statusItem, floatOnTop, network };

/// Keys of the settings file that are named outside of the table too.
namespace PreferenceKey {
inline constexpr std::string_view scheduleDisabled = "SchedulerPrefScheduleDisabled";
inline constexpr std::string_view currentContext = "SchedulerPrefCurrentContext";
inline constexpr std::string_view errorInExecution = "SchedulerPrefErrorInExecution";
inline constexpr std::string_view failures = "SchedulerFailuresNotSeen";
inline constexpr std::string_view lacking = "SchedulerLackingNotSeen";
inline constexpr std::string_view showErrorWindows = "SchedulerShowErrorWindows";
inline constexpr std::string_view announcePositionX = "SchedulerPrefShowAnnouncePositionX";
inline constexpr std::string_view announcePositionY = "SchedulerPrefShowAnnouncePositionY";
inline constexpr std::string_view keysForShortcut = "SchedulerPrefKeysForShortcut";
inline constexpr std::string_view lastWakeupTime = "SchedulerLastWakeupTime";
inline constexpr std::string_view nextFreeSpaceCheck = "SchedulerPrefCheckStartupHDFreeSpace";
inline constexpr std::string_view nextPruning = "SchedulerPrefCleanVolumesInfo";
/// Restricts who may connect by remote control; not set, anybody may.
inline constexpr std::string_view allowedAddresses = "SchedulerPrefRemoteControlAllowedAddresses";
inline constexpr std::string_view allowRemoteControl = "SchedulerPrefAllowRemoteControl";
inline constexpr std::string_view remoteName = "SchedulerPrefRemoteControlLocalName";
inline constexpr std::string_view remotePassword = "SchedulerPrefRemoteControlPassword";
/// Without it remote control is as other programs expect it: nobody has to prove anything.
inline constexpr std::string_view remoteProvenOnly = "SchedulerPrefRemoteControlProvenOnly";
inline constexpr std::string_view remoteMayLaunch = "SchedulerPrefRemoteControlMayLaunch";
inline constexpr std::string_view remoteMaySwitch = "SchedulerPrefRemoteControlMaySwitch";
inline constexpr std::string_view remoteMayMessage = "SchedulerPrefRemoteControlMayMessage";
inline constexpr std::string_view remoteHidesTitles = "SchedulerPrefRemoteControlHidesTitles";
inline constexpr std::string_view remotePort = "SchedulerPrefRemoteControlPort";
}  // namespace PreferenceKey

/// One preference: where it is stored and kept, and how the window of the preferences shows it.
struct Preference {
  enum class Page { general, icon, messages, execution, volumes, network };
  enum class Kind {
    checkBox,  ///< 0 or 1
    choice,    ///< the number of the chosen text
    number,    ///< between `least` and `most`
    text,
    password,
    shortcut,  ///< data of 16 bytes, one bit a key
    command,   ///< a button among them that does something; no key and no value
    place,     ///< dragged on the screen; null puts it back where it was at first
    fact,      ///< a date, only to be read
  };
  /// One coordinate of a place, each with a row of its own.
  struct Axis {
    Point Preferences::*place;
    double Point::*axis;
  };
  /// Nothing: looked up under its key whenever it is wanted. A place that may be missing has two
  /// keys, X here and Y in `secondKey`.
  using Field =
      std::variant<std::monostate, int Preferences::*, bool Preferences::*,
                   std::int64_t Preferences::*, double Preferences::*, std::string Preferences::*,
                   Deadline Preferences::*, std::optional<Point> Preferences::*, Axis>;

  using Choices = std::array<std::string_view, 8>;  ///< the first empty one ends them

  std::string_view key = {};
  Field field = {};
  double builtIn = 0;  ///< without a stored value
  Page page = Page::general;
  Kind kind = Kind::checkBox;
  // Keys of the string table; empty for none.
  std::string_view label = {};
  std::string_view help = {};
  Choices choices = {};
  std::string_view unit = {};
  double least = 0, most = 0;
  std::optional<Ability> needs = {};  ///< cannot be used without it
  std::optional<Ability> notes = {};  ///< can, since it may be mended, but says what is lacking
  int sinceSystem = 0;                ///< always 0 on systems older than this
  std::string_view secondKey = {};
};

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

  /// Every preference, in the order of the window.
  static std::span<const Preference> table();
  /// What a preference is as of the last `loadPrefs`; null for a place, a command and without a
  /// value.
  ZAN_Value valueOf(const Preference& preference);

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
  /// Not for a date that the clock alone moves: that goes with the next save, at the latest when
  /// the agent ends. A failure is logged by the store, and the next save tries again.
  void savePrefs();

  /// 16 bytes of the shortcut; all zero without one.
  KeyMap keysForShortcut();

  // The known values as of the last `loadPrefs`; the table names key and built-in value of each. A
  // duty that changes one stores it by `setPref` too.
  int mPrefScheduleDisabled = 0;  ///< the user has switched automatic execution off
  int mPrefShowWelcomeMessage = 0;
  int mPrefStackWindows = 0;
  int mSurveyVolumesFolder = 0;  ///< 0 no survey, 1 tells of stray folders, 2 tells and deletes
  int mShortcutOperation = 0;
  bool mCheckWakeupMachine = false;
  /// Whole seconds since the reference date, 0: none programmed.
  std::int64_t mSchedulerLastWakeupTime = 0;
  bool mCheckFreeSpace = false;
  int mPrefAllowRemoteControl = 0;
  int mPrefShowMountMessage = 0;
  int mPrefShowActionProgress = 0;
  int mPrefSetFrontProcess = 0;
  int mPrefAlertIfManualInterruption = 0;
  int mPrefShowMessageInNotificationCenter = 0;
  int mPrefShowActionsQueue = 0;
  int mShowIconMenuMode = IconShown::always;      ///< or onHover, statusIconNever
  int mShowIconMenuType = 0;                      ///< 1 black, 2 white
  int mShowFloatingIconMode = IconShown::always;  ///< or onHover, floatingIconNever
  int mPrefShowMessageBeforeAction = 0;
  int mPrefNoProgressMinutes = 0;  ///< so long without progress is too long; 0: any
  int mPrefShowMessageColor = 0;
  int mPrefKeepQueueAtShutdown = 0;
  int mPrefFloatingIconNbLines = 0;
  double mPrefFloatingIconTransparency = 0;  ///< percent
  double mPrefShowMessageTransparency = 0;   ///< percent
  Point mShowMessagePosition;
  std::optional<Point> mShowMiniProgressPosition;
  /// The machine's network name with blanks for dashes unless the user gave one.
  std::string mRemoteControlLocalName;
  std::string mRemoteControlPassword;
  bool mRemoteProvenOnly = false;  ///< who controls has to prove the password
  // What proven commands may do; unproven ones may do it all.
  bool mRemoteMayLaunch = true;
  bool mRemoteMaySwitch = false;
  bool mRemoteMayMessage = false;
  bool mRemoteHidesTitles = false;  ///< others see no actions
  int mRemotePort = 0;              ///< 0: any
  int mShowErrorWindows = 0;
  int mAutoUnmountVolumes = 0;
  Deadline mCheckStartupDiskFreeSpace;   ///< next check of the start-up disk's free space
  Deadline mSchedulerCleanVolumesInfos;  ///< next pruning of volume information

 private:
  ZAN_Value& cache();
  void readCache();
  void moveSavedDates(double jump, ReferenceTime now);
  double real(std::string_view key, double builtIn);
  std::optional<Point> place(const Preference& preference);
  void load(const Preference& preference);

  SettingsFiles& mSettings;
  Machine& mMachine;
  ReferenceTime mFirstPruning;
  std::optional<ZAN_Value> mSchedulerPrefs;  ///< nothing: read at the next lookup
  /// What was set since the last save; null: removed.
  std::map<std::string, ZAN_Value, std::less<>> mUnsaved;
};

}  // namespace corvana
