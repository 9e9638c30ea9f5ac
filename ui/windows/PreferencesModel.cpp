#include "ui/windows/PreferencesModel.h"

#include <algorithm>

#include "mail/smtp/MailSettings.h"
#include "ui/windows/WindowWords.h"

namespace corvana {

namespace {

/// Names of the keys by their code; empty: by its number.
constexpr std::array<std::string_view, 128> kKeys{
    "",      "Esc", "1",     "2",  "3",      "4",     "5",     "6",     "7",      "8",
    "9",     "0",   "-",     "=",  "⌫",      "Tab",   "Q",     "W",     "E",      "R",
    "T",     "Y",   "U",     "I",  "O",      "P",     "[",     "]",     "Return", "Ctrl",
    "A",     "S",   "D",     "F",  "G",      "H",     "J",     "K",     "L",      ";",
    "'",     "`",   "Shift", "\\", "Z",      "X",     "C",     "V",     "B",      "N",
    "M",     ",",   ".",     "/",  "Shift",  "*",     "Alt",   "Space", "",       "F1",
    "F2",    "F3",  "F4",    "F5", "F6",     "F7",    "F8",    "F9",    "F10",    "Num",
    "",      "7",   "8",     "9",  "-",      "4",     "5",     "6",     "+",      "1",
    "2",     "3",   "0",     ".",  "",       "",      "<",     "F11",   "F12",    "",
    "",      "",    "",      "",   "",       "",      "Enter", "Ctrl",  "/",      "Print",
    "AltGr", "",    "Home",  "↑",  "Page ↑", "←",     "→",     "End",   "↓",      "Page ↓",
    "Ins",   "Del", "",      "",   "",       "",      "",      "",      "",       "Pause",
    "",      "",    "",      "",   "",       "Super", "Super", "Menu"};
constexpr std::array kModifiers{29, 97, 42, 54, 56, 100, 125, 126};

/// As it stands on the user's keyboard.
std::string keyName(std::string_view name, const ZAN_StringTable& t) {
  if (name == "Return") return t.text("KeyReturn");
  if (name == "Enter") return t.text("KeyEnter");
  if (name == "Ctrl") return t.text("KeyCtrl");
  if (name == "Shift") return t.text("KeyShift");
  if (name == "Space") return t.text("KeySpace");
  if (name == "Print") return t.text("KeyPrint");
  if (name == "Home") return t.text("KeyHome");
  if (name == "End") return t.text("KeyEnd");
  if (name == "Page ↑") return t.text("KeyPageUp");
  if (name == "Page ↓") return t.text("KeyPageDown");
  if (name == "Ins") return t.text("KeyInsert");
  if (name == "Del") return t.text("KeyDelete");
  if (name == "Menu") return t.text("KeyMenu");
  return std::string(name);
}

/// Of them those that do not go with typing, as Shift and AltGr do.
constexpr std::array<std::size_t, 5> kCommanding{29, 97, 56, 125, 126};
constexpr std::array<std::size_t, 3> kLocks{58, 69, 70};
constexpr std::size_t kFirstFunctionKey = 59, kTenthFunctionKey = 68, kEleventhFunctionKey = 87,
                      kTwelfthFunctionKey = 88;

bool isFunctionKey(std::size_t code) {
  return (code >= kFirstFunctionKey && code <= kTenthFunctionKey) || code == kEleventhFunctionKey ||
         code == kTwelfthFunctionKey;
}

bool isDown(const ZAN_Value& keys, std::size_t code) {
  const auto bytes = keys.bytes();
  return code / 8 < bytes.size() && (std::to_integer<int>(bytes[code / 8]) >> (code % 8) & 1) != 0;
}

bool isModifier(std::size_t code) {
  for (const int one : kModifiers)
    if (static_cast<std::size_t>(one) == code) return true;
  return false;
}

}  // namespace

std::vector<PreferencesModel::Page> PreferencesModel::pages() const {
  const ZAN_StringTable& t = m.records.texts;
  std::vector<Page> pages{{t.text("PrefPageGeneral"), {}},  {t.text("PrefPageIcon"), {}},
                          {t.text("PrefPageMessages"), {}}, {t.text("PrefPageExecution"), {}},
                          {t.text("PrefPageVolumes"), {}},  {t.text("PrefPageNetwork"), {}}};
  for (const Preference& one : Preferences::table())
    pages[static_cast<std::size_t>(one.page)].items.push_back(item(one));
  addPairing(pages.back());
  pages.push_back(mailPage());
  return pages;
}

void PreferencesModel::addPairing(Page& page) const {
  const ZAN_StringTable& t = m.records.texts;
  Item offer;
  offer.kind = Kind::command;
  offer.label = t.text("PrefPair");
  offer.help = t.text("PrefPairHelp");
  offer.perform = [this] { m.offerPairing(); };
  page.items.push_back(std::move(offer));
  Item state;
  state.kind = Kind::fact;
  state.label = t.text("PrefPairState");
  state.read = [this] {
    const std::string text = m.pairingState();
    return ZAN_Value(text.empty() ? m.records.texts.text("PrefPairNot") : text);
  };
  page.items.push_back(std::move(state));
  Item machines;
  machines.kind = Kind::fact;
  machines.label = t.text("PrefPaired");
  machines.help = t.text("PrefPairedHelp");
  machines.read = [this] { return m.pairedMachines(); };
  machines.rename = m.renamePaired;
  page.items.push_back(std::move(machines));
}

PreferencesModel::Page PreferencesModel::mailPage() const {
  const ZAN_StringTable& t = m.records.texts;
  Page page{t.text("PrefPageMail"), {}};
  const auto stored = [this](std::string_view key) {
    return m.records.store.settings().mainAppSettings().value(key);
  };
  const auto add = [&](Kind kind, std::string_view key, std::string_view label,
                       std::string_view help = {},
                       std::initializer_list<std::string_view> choices = {}) -> Item& {
    Item item;
    item.key = std::string(key);
    item.kind = kind;
    item.label = t.text(label);
    item.help = t.text(help);
    item.read = [stored, kind, key = item.key] {
      const ZAN_Value value = stored(key);
      return kind == Kind::text || kind == Kind::password ? ZAN_Value(value.string())
                                                          : ZAN_Value(value.integerValue());
    };
    item.write = [this, key = item.key](const ZAN_Value& value) { m.setMailSetting(key, value); };
    for (const std::string_view choice : choices) item.choices.push_back(t.text(choice));
    page.items.push_back(std::move(item));
    return page.items.back();
  };
  add(Kind::checkBox, "SendEmailReport", "PrefMailOn", "PrefMailOnHelp");
  add(Kind::text, "SendReportEmailSender", "PrefMailFrom", "PrefMailFromHelp");
  add(Kind::text, "SendReportEmailAddress", "PrefMailTo", "PrefMailToHelp");
  add(Kind::text, "SendReportEmailSMTPServer", "PrefMailServer");
  add(Kind::text, "SendReportEmailSMTPServerPort", "PrefMailPort");
  add(Kind::choice, MailKey::security, "PrefMailSecurity", {},
      {"PrefMailClear", "PrefMailStartTls", "PrefMailTls"});
  add(Kind::text, "SendReportEmailSMTPServerLogin", "PrefMailUser", "PrefMailUserHelp");
  Item& password = add(Kind::password, "SendReportEmailSMTPServerPassword", "PrefMailPassword",
                       "PrefMailPasswordHelp");
  // It is never shown.
  password.read = [] { return ZAN_Value(std::string()); };
  add(Kind::choice, MailKey::frequency, "PrefMailEvery", {},
      {"PrefMailDaily", "PrefMailMondays", "PrefMailFailures"});
  Item& time = add(Kind::text, MailKey::time, "PrefMailTime", "PrefMailTimeHelp");
  time.read = [stored] {
    const ZAN_Value value = stored(MailKey::time);
    return ZAN_Value(clockOfSeconds(value.isNull() ? MailKey::kUsualTime : value.integerValue()));
  };
  time.write = [this](const ZAN_Value& value) {
    if (const auto seconds = secondsOfClock(value.string()))
      m.setMailSetting(std::string(MailKey::time), *seconds);
  };
  add(Kind::command, {}, "PrefMailTest").perform = [this] { m.sendTestMail(); };
  add(Kind::fact, {}, "PrefMailTestResult").read = [this] {
    const std::string result = m.testMailResult();
    return ZAN_Value(result.empty() ? m.records.texts.text("PrefNotYet") : result);
  };
  return page;
}

PreferencesModel::Item PreferencesModel::item(const Preference& one) const {
  const ZAN_StringTable& t = m.records.texts;
  Item item{.key = std::string(one.key),
            .kind = one.kind,
            .label = t.text(one.label),
            .help = t.text(one.help),
            .read = [this, &one] { return read(one); },
            .choices = {},
            .least = one.least,
            .most = one.most,
            .unit = t.text(one.unit),
            .perform = {},
            .lacking = lacking(one.needs)};
  for (const std::string_view choice : one.choices)
    if (!choice.empty()) item.choices.push_back(t.text(choice));
  if (one.kind == Kind::command) item.perform = [this] { m.commands.sendDailyReportNow(); };
  const std::string note = lacking(one.notes);
  if (!note.empty() && !item.help.empty()) item.help += '\n';
  item.help += note;
  return item;
}

std::string PreferencesModel::lacking(std::optional<Ability> ability) const {
  return ability ? m.lacking(*ability) : std::string();
}

ZAN_Value PreferencesModel::read(const Preference& one) const {
  if (one.key == PreferenceKey::currentContext) return m.records.state.mContext;
  const ZAN_Value value = m.records.preferences.valueOf(one);
  switch (one.kind) {
    case Kind::checkBox:
      return value.boolValue() ? 1 : 0;
    case Kind::text: {
      // Written by hand the addresses may also be a list.
      std::string text = value.string();
      for (const ZAN_Value& element : value.elements())
        text += (text.empty() ? "" : ", ") + element.string();
      return text;
    }
    case Kind::fact: {
      const ReferenceTime date = value.doubleValue();
      return date <= 0 ? m.records.texts.text("PrefNotYet")
                       : m.records.strings.getShortTimeDate(date);
    }
    case Kind::place: {
      const auto& at = m.records.preferences.mShowMiniProgressPosition;
      return at ? m.records.texts.text("PrefPlaceAt",
                                       {static_cast<int>(at->x), static_cast<int>(at->y)})
                : m.records.texts.text("PrefPlaceUsual");
    }
    default:
      return value;
  }
}

void PreferencesModel::change(const Item& item, const ZAN_Value& value) const {
  // Who is let in from now on has to prove the password; that can be switched off by itself.
  if (item.key == PreferenceKey::allowRemoteControl && value.boolValue())
    m.commands.setPreference(std::string(PreferenceKey::remoteProvenOnly), 1);
  if (item.write) return item.write(value);
  m.commands.setPreference(item.key, value);
}

bool PreferencesModel::isLock(std::size_t code) {
  return std::ranges::find(kLocks, code) != kLocks.end();
}

bool PreferencesModel::isShortcut(const ZAN_Value& keys) {
  const bool commands =
      std::ranges::any_of(kCommanding, [&](std::size_t code) { return isDown(keys, code); });
  for (std::size_t code = 0; code < kKeys.size(); ++code) {
    if (!isDown(keys, code) || isModifier(code) || isLock(code)) continue;
    if (commands || isFunctionKey(code)) return true;
  }
  return false;
}

std::string PreferencesModel::shortcutText(const ZAN_Value& keys) const {
  std::string text;
  const auto append = [&](std::size_t code) {
    if (!text.empty()) text += '+';
    text += kKeys[code].empty() ? std::to_string(code) : keyName(kKeys[code], m.records.texts);
  };
  for (const int code : kModifiers)
    if (isDown(keys, static_cast<std::size_t>(code))) append(static_cast<std::size_t>(code));
  for (std::size_t code = 0; code < kKeys.size(); ++code)
    if (isDown(keys, code) && !isModifier(code)) append(code);
  return text;
}

}  // namespace corvana
