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

template <class... Calls>
struct Visitor : Calls... {
  using Calls::operator()...;
};
// Clang 14, which builds the fuzzers, does not find it by itself.
template <class... Calls>
Visitor(Calls...) -> Visitor<Calls...>;

using P = Preferences;
using Page = Preference::Page;
using Kind = Preference::Kind;

constexpr Preference check(Page page, std::string_view key, Preference::Field field, int builtIn,
                           std::string_view label, std::string_view help = {},
                           std::optional<Ability> notes = {}) {
  return {.key = key,
          .field = field,
          .builtIn = double(builtIn),
          .page = page,
          .kind = Kind::checkBox,
          .label = label,
          .help = help,
          .notes = notes};
}

constexpr Preference choice(Page page, std::string_view key, Preference::Field field, int builtIn,
                            std::string_view label, std::string_view help,
                            const Preference::Choices& choices, std::optional<Ability> needs = {},
                            std::optional<Ability> notes = {}) {
  return {.key = key,
          .field = field,
          .builtIn = double(builtIn),
          .page = page,
          .kind = Kind::choice,
          .label = label,
          .help = help,
          .choices = choices,
          .needs = needs,
          .notes = notes};
}

constexpr Preference number(Page page, std::string_view key, Preference::Field field,
                            double builtIn, std::string_view label, double least, double most,
                            std::string_view unit, std::optional<Ability> needs = {}) {
  return {.key = key,
          .field = field,
          .builtIn = builtIn,
          .page = page,
          .kind = Kind::number,
          .label = label,
          .unit = unit,
          .least = least,
          .most = most,
          .needs = needs};
}

constexpr Preference of(Kind kind, Page page, std::string_view key, Preference::Field field,
                        std::string_view label, std::string_view help = {},
                        std::optional<Ability> needs = {}) {
  return {.key = key,
          .field = field,
          .page = page,
          .kind = kind,
          .label = label,
          .help = help,
          .needs = needs};
}

/// The notices of the desktop are always off on systems that have none.
constexpr Preference sinceSystem(int version, Preference preference) {
  preference.sinceSystem = version;
  return preference;
}

constexpr Preference withSecondKey(std::string_view key, Preference preference) {
  preference.secondKey = key;
  return preference;
}

constexpr Preference kTable[] = {
    check(Page::general, PreferenceKey::scheduleDisabled, &P::mPrefScheduleDisabled, 0,
          "PrefDisabled", "PrefDisabledHelp"),
    choice(Page::general, PreferenceKey::currentContext, {}, 0, "PrefContext", "PrefContextHelp",
           {"NoContext", "OfficeContext", "HomeContext", "NomadContext"}),
    check(Page::general, "SchedulerPrefKeepQueueAtShutdown", &P::mPrefKeepQueueAtShutdown, 1,
          "PrefKeepQueue", "PrefKeepQueueHelp"),
    check(Page::general, "SchedulerPrefShowWelcomeMessage", &P::mPrefShowWelcomeMessage, 0,
          "PrefWelcome"),
    of(Kind::shortcut, Page::general, PreferenceKey::keysForShortcut, {}, "PrefShortcut",
       "PrefShortcutHelp", Ability::seeKeyboard),
    choice(Page::general, "SchedulerPrefShortcutOperation", &P::mShortcutOperation, 0,
           "PrefShortcutDoes", {}, {"PrefShortcutNext", "PrefShortcutWindows", "PrefShortcutBoth"},
           Ability::seeKeyboard),

    // Only one choice of an icon is lost without the pointer.
    choice(Page::icon, "SchedulerPrefDisplayIcon", &P::mShowIconMenuMode, 0, "PrefIcon",
           "PrefIconHelp", {"PrefIconAlways", "PrefIconHover", "PrefIconNeeded", "PrefIconNever"},
           Ability::statusItem, Ability::seePointer),
    choice(Page::icon, "SchedulerPrefDisplayIconType", &P::mShowIconMenuType, 0, "PrefIconStyle",
           {}, {"PrefStyleColour", "PrefStyleBlack", "PrefStyleWhite"}, Ability::statusItem),
    choice(Page::icon, "SchedulerPrefDisplayIconWindow", &P::mShowFloatingIconMode, 0,
           "PrefFloating", "PrefFloatingHelp",
           {"PrefFloatingAlways", "PrefFloatingHover", "PrefFloatingNever"}, Ability::floatOnTop,
           Ability::seePointer),
    number(Page::icon, "SchedulerPrefFloatingIconNbLines", &P::mPrefFloatingIconNbLines, 5,
           "PrefFloatingLines", 1, 20, {}, Ability::floatOnTop),
    number(Page::icon, "SchedulerPrefFloatingIconTransparency", &P::mPrefFloatingIconTransparency,
           80, "PrefFloatingOpacity", 10, 100, "PrefPercent", Ability::floatOnTop),

    sinceSystem(kFirstSystemWithNotifications,
                check(Page::messages, "SchedulerPrefShowMessageInNotificationCenter",
                      &P::mPrefShowMessageInNotificationCenter, 0, "PrefNotices", "PrefNoticesHelp",
                      Ability::notices)),
    choice(Page::messages, "SchedulerPrefShowMessageColor", &P::mPrefShowMessageColor, 0,
           "PrefMessageColour", {},
           {"ColourSlate", "ColourBlue", "ColourGreen", "ColourRed", "ColourAmber", "ColourPurple",
            "ColourGrey", "ColourBlack"}),
    number(Page::messages, "SchedulerPrefShowMessageTransparency", &P::mPrefShowMessageTransparency,
           80, "PrefMessageOpacity", 10, 100, "PrefPercent"),
    number(Page::messages, "SchedulerPrefShowMessagePositionX",
           Preference::Axis{&P::mShowMessagePosition, &Point::x}, 50, "PrefMessageX", 0, 100,
           "PrefPercent", Ability::floatOnTop),
    number(Page::messages, "SchedulerPrefShowMessagePositionY",
           Preference::Axis{&P::mShowMessagePosition, &Point::y}, 10, "PrefMessageY", 0, 100,
           "PrefPercent", Ability::floatOnTop),
    check(Page::messages, "SchedulerPrefStackWindows", &P::mPrefStackWindows, 0, "PrefStack"),
    check(Page::messages, "SchedulerPrefShowMountMessage", &P::mPrefShowMountMessage, 0,
          "PrefMountMessage"),
    check(Page::messages, PreferenceKey::showErrorWindows, &P::mShowErrorWindows, 0,
          "PrefErrorWindows"),
    of(Kind::command, Page::messages, {}, {}, "PrefReportNow", "PrefReportNowHelp"),

    check(Page::execution, "SchedulerPrefShowMessageBeforeAction", &P::mPrefShowMessageBeforeAction,
          0, "PrefAnnounce", "PrefAnnounceHelp"),
    withSecondKey(PreferenceKey::announcePositionY,
                  of(Kind::place, Page::execution, PreferenceKey::announcePositionX,
                     &P::mShowMiniProgressPosition, "PrefAnnouncePlace", "PrefAnnouncePlaceHelp",
                     Ability::floatOnTop)),
    check(Page::execution, "SchedulerPrefShowActionProgress", &P::mPrefShowActionProgress, 0,
          "PrefProgress"),
    check(Page::execution, "SchedulerPrefShowActionsQueue", &P::mPrefShowActionsQueue, 0,
          "PrefShowQueue"),
    check(Page::execution, "SchedulerPrefSetFrontProcess", &P::mPrefSetFrontProcess, 0,
          "PrefFront"),
    check(Page::execution, "SchedulerPrefAlertIfManualInterruption",
          &P::mPrefAlertIfManualInterruption, 0, "PrefInterruption"),
    number(Page::execution, "SchedulerPrefNoProgressMinutes", &P::mPrefNoProgressMinutes, 10,
           "PrefNoProgress", 0, 10'080, "PrefMinutes"),
    check(Page::execution, "SchedulerPrefWakeupMachine", &P::mCheckWakeupMachine, 0, "PrefWake",
          "PrefWakeHelp", Ability::wake),
    of(Kind::fact, Page::execution, PreferenceKey::lastWakeupTime, &P::mSchedulerLastWakeupTime,
       "PrefLastWake"),

    choice(Page::volumes, "SchedulerPrefSurveyVolumesFolder", &P::mSurveyVolumesFolder, 1,
           "PrefStray", "PrefStrayHelp", {"PrefStrayNo", "PrefStrayTell", "PrefStrayDelete"}),
    check(Page::volumes, "SchedulerPrefSurveyFreeSpace", &P::mCheckFreeSpace, 1, "PrefFreeSpace",
          "PrefFreeSpaceHelp"),
    check(Page::volumes, "SchedulerPrefAutoUnmountVolumes", &P::mAutoUnmountVolumes, 0,
          "PrefAutoUnmount", "PrefAutoUnmountHelp"),
    of(Kind::fact, Page::volumes, PreferenceKey::nextFreeSpaceCheck, &P::mCheckStartupDiskFreeSpace,
       "PrefNextSpaceCheck"),
    of(Kind::fact, Page::volumes, PreferenceKey::nextPruning, &P::mSchedulerCleanVolumesInfos,
       "PrefNextPruning"),

    check(Page::network, PreferenceKey::allowRemoteControl, &P::mPrefAllowRemoteControl, 0,
          "PrefRemote", "PrefRemoteHelp", Ability::network),
    of(Kind::text, Page::network, PreferenceKey::remoteName, &P::mRemoteControlLocalName,
       "PrefRemoteName", "PrefRemoteNameHelp"),
    of(Kind::password, Page::network, PreferenceKey::remotePassword, &P::mRemoteControlPassword,
       "PrefRemotePassword"),
    check(Page::network, PreferenceKey::remoteProvenOnly, &P::mRemoteProvenOnly, 0,
          "PrefRemoteProven", "PrefRemoteProvenHelp"),
    check(Page::network, PreferenceKey::remoteMayLaunch, &P::mRemoteMayLaunch, 1,
          "PrefRemoteMayLaunch"),
    check(Page::network, PreferenceKey::remoteMaySwitch, &P::mRemoteMaySwitch, 0,
          "PrefRemoteMaySwitch"),
    check(Page::network, PreferenceKey::remoteMayMessage, &P::mRemoteMayMessage, 0,
          "PrefRemoteMayMessage"),
    check(Page::network, PreferenceKey::remoteHidesTitles, &P::mRemoteHidesTitles, 0,
          "PrefRemoteHidesTitles"),
    of(Kind::text, Page::network, PreferenceKey::allowedAddresses, {}, "PrefRemoteAddresses",
       "PrefRemoteAddressesHelp"),
    number(Page::network, PreferenceKey::remotePort, &P::mRemotePort, 0, "PrefRemotePort", 0,
           65'535, "PrefRemotePortUnit"),
};

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

std::span<const Preference> Preferences::table() { return kTable; }

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

void Preferences::savePrefs() {
  const auto lock = mSettings.lockSchedulerSettings();
  readCache();
  if (mSettings.saveSchedulerSettings(*mSchedulerPrefs)) mUnsaved.clear();
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

std::optional<Point> Preferences::place(const Preference& preference) {
  const ZAN_Value x = prefForKey(preference.key);
  const ZAN_Value y = prefForKey(preference.secondKey);
  if (x.isNull() || y.isNull()) return std::nullopt;
  return Point{x.doubleValue(), y.doubleValue()};
}

void Preferences::load(const Preference& one) {
  const bool tooOld = one.sinceSystem > 0 && mMachine.systemVersion() < one.sinceSystem;
  const auto whole = [&] { return tooOld ? 0 : integer(one.key, static_cast<int>(one.builtIn)); };
  std::visit(
      Visitor{
          [](std::monostate) {},
          [&](int Preferences::*field) { this->*field = whole(); },
          [&](bool Preferences::*field) { this->*field = whole() != 0; },
          [&](std::int64_t Preferences::*field) {
            this->*field = prefForKey(one.key).integerValue();
          },
          [&](double Preferences::*field) { this->*field = real(one.key, one.builtIn); },
          [&](std::string Preferences::*field) { this->*field = prefForKey(one.key).string(); },
          [&](Deadline Preferences::*field) { (this->*field).set(real(one.key, one.builtIn)); },
          [&](std::optional<Point> Preferences::*field) { this->*field = place(one); },
          [&](const Preference::Axis& field) {
            (this->*field.place).*field.axis = real(one.key, one.builtIn);
          },
      },
      one.field);
}

void Preferences::loadPrefs() {
  mSchedulerPrefs.reset();
  for (const Preference& one : kTable) load(one);
  // What these are without a stored value depends on the machine and on the run.
  if (!prefForKey(PreferenceKey::remoteName).isString()) {
    mRemoteControlLocalName = mMachine.networkName();
    std::ranges::replace(mRemoteControlLocalName, '-', ' ');
  }
  if (prefForKey(PreferenceKey::nextPruning).isNull())
    mSchedulerCleanVolumesInfos.set(mFirstPruning);
}

ZAN_Value Preferences::valueOf(const Preference& one) {
  return std::visit(
      Visitor{
          [&](std::monostate) { return one.key.empty() ? ZAN_Value() : prefForKey(one.key); },
          [&](bool Preferences::*field) { return ZAN_Value(this->*field ? 1 : 0); },
          [&](Deadline Preferences::*field) { return ZAN_Value((this->*field).at()); },
          [](std::optional<Point> Preferences::*) { return ZAN_Value(); },
          [&](const Preference::Axis& field) {
            return ZAN_Value((this->*field.place).*field.axis);
          },
          [&](auto Preferences::*field) { return ZAN_Value(this->*field); },
      },
      one.field);
}

KeyMap Preferences::keysForShortcut() {
  KeyMap keys{};
  const ZAN_Value stored = prefForKey(PreferenceKey::keysForShortcut);
  const auto bytes = stored.bytes();
  for (std::size_t i = 0; i < std::min(keys.size(), bytes.size()); ++i) {
    keys[i] = std::to_integer<std::uint8_t>(bytes[i]);
  }
  return keys;
}

void Preferences::moveSavedDates(double jump, ReferenceTime now) {
  if (mFirstPruning > now) mFirstPruning += jump;
  bool moved = false;
  for (const std::string_view key :
       {PreferenceKey::nextFreeSpaceCheck, PreferenceKey::nextPruning}) {
    const double date = cache().value(key).doubleValue();
    if (date <= now) continue;
    setPref(key, date + jump);
    moved = true;
  }
  if (moved) savePrefs();
}

}  // namespace corvana
