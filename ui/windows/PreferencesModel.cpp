#include "ui/windows/PreferencesModel.h"

#include <utility>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerCommands.h"
#include "core/record/SchedulerState.h"

namespace corvana {

PreferencesModel::Item PreferencesModel::item(std::string key, Kind kind, std::string label,
                                              std::string help,
                                              std::function<ZAN_Value()> read) const {
  Item made;
  made.key = std::move(key);
  made.kind = kind;
  made.label = std::move(label);
  made.help = std::move(help);
  made.read = std::move(read);
  return made;
}

template <class T>
PreferencesModel::Item PreferencesModel::check(std::string key, T Preferences::*field,
                                               std::string label, std::string help) const {
  return item(std::move(key), Kind::checkBox, std::move(label), std::move(help),
              [&prefs = m.preferences, field] { return ZAN_Value(prefs.*field != T{} ? 1 : 0); });
}

PreferencesModel::Item PreferencesModel::choice(std::string key, int Preferences::*field,
                                                std::string label, std::string help,
                                                std::vector<std::string> choices) const {
  Item made = item(std::move(key), Kind::choice, std::move(label), std::move(help),
                   [&prefs = m.preferences, field] { return ZAN_Value(prefs.*field); });
  made.choices = std::move(choices);
  return made;
}

template <class T>
PreferencesModel::Item PreferencesModel::number(std::string key, T Preferences::*field,
                                                std::string label, std::string help, double least,
                                                double most, std::string unit) const {
  Item made = item(std::move(key), Kind::number, std::move(label), std::move(help),
                   [&prefs = m.preferences, field] { return ZAN_Value(prefs.*field); });
  made.least = least;
  made.most = most;
  made.unit = std::move(unit);
  return made;
}

PreferencesModel::Item PreferencesModel::needing(Ability ability, Item item) const {
  if (m.lacking) item.lacking = m.lacking(ability);
  return item;
}

PreferencesModel::Item PreferencesModel::noting(Ability ability, Item item) const {
  const std::string lacking = m.lacking ? m.lacking(ability) : std::string();
  if (!lacking.empty() && !item.help.empty()) item.help += '\n';
  item.help += lacking;
  return item;
}

std::string PreferencesModel::dateText(ReferenceTime date) const {
  return date <= 0 ? m.texts.text("PrefNotYet") : m.strings.getShortTimeDate(date);
}

void PreferencesModel::change(const Item& item, const ZAN_Value& value) const {
  m.commands.setPreference(item.key, value);
}

std::vector<PreferencesModel::Page> PreferencesModel::pages() const {
  return {generalPage(), iconPage(), messagesPage(), executionPage(), volumesPage(), networkPage()};
}

PreferencesModel::Page PreferencesModel::generalPage() const {
  const ZAN_StringTable& t = m.texts;
  Page page{t.text("PrefPageGeneral"), {}};
  page.items.push_back(item("SchedulerPrefScheduleDisabled", Kind::checkBox, t.text("PrefDisabled"),
                            t.text("PrefDisabledHelp"), [&prefs = m.preferences] {
                              return ZAN_Value(prefs.mPrefScheduleDisabled != 0 ? 1 : 0);
                            }));
  Item context =
      item("SchedulerPrefCurrentContext", Kind::choice, t.text("PrefContext"),
           t.text("PrefContextHelp"), [&state = m.state] { return ZAN_Value(state.mContext); });
  context.choices = {t.text("NoContext"), t.text("OfficeContext"), t.text("HomeContext"),
                     t.text("NomadContext")};
  page.items.push_back(std::move(context));
  page.items.push_back(check("SchedulerPrefKeepQueueAtShutdown",
                             &Preferences::mPrefKeepQueueAtShutdown, t.text("PrefKeepQueue"),
                             t.text("PrefKeepQueueHelp")));
  page.items.push_back(check("SchedulerPrefShowWelcomeMessage",
                             &Preferences::mPrefShowWelcomeMessage, t.text("PrefWelcome"), {}));
  page.items.push_back(needing(
      Ability::seeKeyboard,
      item("SchedulerPrefKeysForShortcut", Kind::shortcut, t.text("PrefShortcut"),
           t.text("PrefShortcutHelp"),
           [&prefs = m.preferences] { return prefs.prefForKey("SchedulerPrefKeysForShortcut"); })));
  page.items.push_back(needing(
      Ability::seeKeyboard, choice("SchedulerPrefShortcutOperation",
                                   &Preferences::mShortcutOperation, t.text("PrefShortcutDoes"), {},
                                   {t.text("PrefShortcutNext"), t.text("PrefShortcutWindows"),
                                    t.text("PrefShortcutBoth")})));
  return page;
}

PreferencesModel::Page PreferencesModel::iconPage() const {
  const ZAN_StringTable& t = m.texts;
  Page page{t.text("PrefPageIcon"), {}};
  page.items.push_back(needing(Ability::statusItem,
                               choice("SchedulerPrefDisplayIcon", &Preferences::mShowIconMenuMode,
                                      t.text("PrefIcon"), t.text("PrefIconHelp"),
                                      {t.text("PrefIconAlways"), t.text("PrefIconHover"),
                                       t.text("PrefIconNeeded"), t.text("PrefIconNever")})));
  page.items.push_back(needing(
      Ability::statusItem,
      choice("SchedulerPrefDisplayIconType", &Preferences::mShowIconMenuType,
             t.text("PrefIconStyle"), {},
             {t.text("PrefStyleColour"), t.text("PrefStyleBlack"), t.text("PrefStyleWhite")})));
  page.items.push_back(
      needing(Ability::floatOnTop,
              choice("SchedulerPrefDisplayIconWindow", &Preferences::mShowFloatingIconMode,
                     t.text("PrefFloating"), t.text("PrefFloatingHelp"),
                     {t.text("PrefFloatingAlways"), t.text("PrefFloatingHover"),
                      t.text("PrefFloatingNever")})));
  page.items.push_back(
      needing(Ability::floatOnTop,
              number("SchedulerPrefFloatingIconNbLines", &Preferences::mPrefFloatingIconNbLines,
                     t.text("PrefFloatingLines"), {}, 1, 20, {})));
  page.items.push_back(needing(
      Ability::floatOnTop,
      number("SchedulerPrefFloatingIconTransparency", &Preferences::mPrefFloatingIconTransparency,
             t.text("PrefFloatingOpacity"), {}, 10, 100, t.text("PrefPercent"))));
  // Only one of their choices is lost without the pointer.
  for (Item& one : page.items) {
    if (one.key == "SchedulerPrefDisplayIcon" || one.key == "SchedulerPrefDisplayIconWindow")
      one = noting(Ability::seePointer, std::move(one));
  }
  return page;
}

PreferencesModel::Page PreferencesModel::messagesPage() const {
  const ZAN_StringTable& t = m.texts;
  Page page{t.text("PrefPageMessages"), {}};
  page.items.push_back(
      noting(Ability::notices, check("SchedulerPrefShowMessageInNotificationCenter",
                                     &Preferences::mPrefShowMessageInNotificationCenter,
                                     t.text("PrefNotices"), t.text("PrefNoticesHelp"))));
  page.items.push_back(choice("SchedulerPrefShowMessageColor", &Preferences::mPrefShowMessageColor,
                              t.text("PrefMessageColour"), {},
                              {t.text("ColourSlate"), t.text("ColourBlue"), t.text("ColourGreen"),
                               t.text("ColourRed"), t.text("ColourAmber"), t.text("ColourPurple"),
                               t.text("ColourGrey"), t.text("ColourBlack")}));
  page.items.push_back(number("SchedulerPrefShowMessageTransparency",
                              &Preferences::mPrefShowMessageTransparency,
                              t.text("PrefMessageOpacity"), {}, 10, 100, t.text("PrefPercent")));
  const auto position = [this](double Point::*axis) {
    return [&prefs = m.preferences, axis] { return ZAN_Value(prefs.mShowMessagePosition.*axis); };
  };
  Item x = item("SchedulerPrefShowMessagePositionX", Kind::number, t.text("PrefMessageX"), {},
                position(&Point::x));
  Item y = item("SchedulerPrefShowMessagePositionY", Kind::number, t.text("PrefMessageY"), {},
                position(&Point::y));
  for (Item* one : {&x, &y}) {
    one->most = 100;
    one->unit = t.text("PrefPercent");
    page.items.push_back(needing(Ability::floatOnTop, std::move(*one)));
  }
  page.items.push_back(
      check("SchedulerPrefStackWindows", &Preferences::mPrefStackWindows, t.text("PrefStack"), {}));
  page.items.push_back(check("SchedulerPrefShowMountMessage", &Preferences::mPrefShowMountMessage,
                             t.text("PrefMountMessage"), {}));
  page.items.push_back(check("SchedulerShowErrorWindows", &Preferences::mShowErrorWindows,
                             t.text("PrefErrorWindows"), {}));
  Item report = item({}, Kind::command, t.text("PrefReportNow"), t.text("PrefReportNowHelp"), {});
  report.perform = [this] { m.commands.sendDailyReportNow(); };
  page.items.push_back(std::move(report));
  return page;
}

PreferencesModel::Page PreferencesModel::executionPage() const {
  const ZAN_StringTable& t = m.texts;
  Page page{t.text("PrefPageExecution"), {}};
  page.items.push_back(check("SchedulerPrefShowMessageBeforeAction",
                             &Preferences::mPrefShowMessageBeforeAction, t.text("PrefAnnounce"),
                             t.text("PrefAnnounceHelp")));
  Item place = item("SchedulerPrefShowAnnouncePositionX", Kind::place, t.text("PrefAnnouncePlace"),
                    t.text("PrefAnnouncePlaceHelp"), [this] {
                      const auto& at = m.preferences.mShowMiniProgressPosition;
                      return at ? ZAN_Value(m.texts.text("PrefPlaceAt", {static_cast<int>(at->x),
                                                                         static_cast<int>(at->y)}))
                                : ZAN_Value(m.texts.text("PrefPlaceUsual"));
                    });
  page.items.push_back(needing(Ability::floatOnTop, std::move(place)));
  page.items.push_back(check("SchedulerPrefShowActionProgress",
                             &Preferences::mPrefShowActionProgress, t.text("PrefProgress"), {}));
  page.items.push_back(check("SchedulerPrefShowActionsQueue", &Preferences::mPrefShowActionsQueue,
                             t.text("PrefShowQueue"), {}));
  page.items.push_back(check("SchedulerPrefSetFrontProcess", &Preferences::mPrefSetFrontProcess,
                             t.text("PrefFront"), {}));
  page.items.push_back(check("SchedulerPrefAlertIfManualInterruption",
                             &Preferences::mPrefAlertIfManualInterruption,
                             t.text("PrefInterruption"), {}));
  page.items.push_back(
      noting(Ability::wake, check("SchedulerPrefWakeupMachine", &Preferences::mCheckWakeupMachine,
                                  t.text("PrefWake"), t.text("PrefWakeHelp"))));
  page.items.push_back(
      item("SchedulerLastWakeupTime", Kind::fact, t.text("PrefLastWake"), {}, [this] {
        return ZAN_Value(
            dateText(static_cast<ReferenceTime>(m.preferences.mSchedulerLastWakeupTime)));
      }));
  return page;
}

PreferencesModel::Page PreferencesModel::volumesPage() const {
  const ZAN_StringTable& t = m.texts;
  Page page{t.text("PrefPageVolumes"), {}};
  page.items.push_back(
      choice("SchedulerPrefSurveyVolumesFolder", &Preferences::mSurveyVolumesFolder,
             t.text("PrefStray"), t.text("PrefStrayHelp"),
             {t.text("PrefStrayNo"), t.text("PrefStrayTell"), t.text("PrefStrayDelete")}));
  page.items.push_back(check("SchedulerPrefSurveyFreeSpace", &Preferences::mCheckFreeSpace,
                             t.text("PrefFreeSpace"), t.text("PrefFreeSpaceHelp")));
  page.items.push_back(check("SchedulerPrefAutoUnmountVolumes", &Preferences::mAutoUnmountVolumes,
                             t.text("PrefAutoUnmount"), t.text("PrefAutoUnmountHelp")));
  page.items.push_back(
      item("SchedulerPrefCheckStartupHDFreeSpace", Kind::fact, t.text("PrefNextSpaceCheck"), {},
           [this] { return ZAN_Value(dateText(m.preferences.mCheckStartupDiskFreeSpace.at())); }));
  page.items.push_back(
      item("SchedulerPrefCleanVolumesInfo", Kind::fact, t.text("PrefNextPruning"), {},
           [this] { return ZAN_Value(dateText(m.preferences.mSchedulerCleanVolumesInfos.at())); }));
  return page;
}

PreferencesModel::Page PreferencesModel::networkPage() const {
  const ZAN_StringTable& t = m.texts;
  Page page{t.text("PrefPageNetwork"), {}};
  page.items.push_back(
      noting(Ability::network,
             check("SchedulerPrefAllowRemoteControl", &Preferences::mPrefAllowRemoteControl,
                   t.text("PrefRemote"), t.text("PrefRemoteHelp"))));
  page.items.push_back(
      item("SchedulerPrefRemoteControlLocalName", Kind::text, t.text("PrefRemoteName"),
           t.text("PrefRemoteNameHelp"),
           [&prefs = m.preferences] { return ZAN_Value(prefs.mRemoteControlLocalName); }));
  page.items.push_back(
      item("SchedulerPrefRemoteControlPassword", Kind::password, t.text("PrefRemotePassword"), {},
           [&prefs = m.preferences] { return ZAN_Value(prefs.mRemoteControlPassword); }));
  constexpr const char* kAddresses = "SchedulerPrefRemoteControlAllowedAddresses";
  page.items.push_back(item(kAddresses, Kind::text, t.text("PrefRemoteAddresses"),
                            t.text("PrefRemoteAddressesHelp"), [&prefs = m.preferences] {
                              const ZAN_Value stored = prefs.prefForKey(kAddresses);
                              // Written by hand it may also be a list.
                              std::string text = stored.string();
                              for (const ZAN_Value& one : stored.elements())
                                text += (text.empty() ? "" : ", ") + one.string();
                              return ZAN_Value(text);
                            }));
  return page;
}

}  // namespace corvana
