// The command that lets other machines control this one, and says how far.

#include <algorithm>
#include <array>
#include <fstream>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "command/CommandHome.h"
#include "command/RunningAgent.h"
#include "core/record/Preferences.h"
#include "remote/AllowedAddresses.h"
#include "remote/ServiceName.h"

namespace corvana {

namespace {

struct Permission {
  std::string_view word;
  std::string_view key;
  int builtIn;
};
constexpr std::array kPermissions{Permission{"launch", PreferenceKey::remoteMayLaunch, 1},
                                  Permission{"switch", PreferenceKey::remoteMaySwitch, 0},
                                  Permission{"message", PreferenceKey::remoteMayMessage, 0}};

constexpr std::string_view kLines =
    "{on!Other machines cannot control this one.\n}"
    "{on?Other machines of the network see this one as {name}.\n"
    "{proven?They have to prove the password with each command{password!, and there is none yet: "
    "corvana9 remote --on asks for it, and paired machines need none}.\n"
    "Permitted: {permits}\n}"
    "{proven!UNPROVEN: anybody on the network may run actions, switch the schedule off and show "
    "messages here.\ncorvana9 remote --on makes it safe.\n}"
    "Only from: {from}\nPort: {port}\n{hidesTitles?The actions are not shown to the network.\n}}";

ZAN_Value shownState(const ZAN_Value& settings, const Machine& machine) {
  const auto number = [&](std::string_view key, int builtIn) {
    return settings.contains(key) ? settings.integer(key) : builtIn;
  };
  std::string permits;
  for (const Permission& one : kPermissions)
    if (number(one.key, one.builtIn) != 0)
      permits += (permits.empty() ? "" : ",") + std::string(one.word);
  const std::int64_t port = number(PreferenceKey::remotePort, 0);
  std::string from = settings.string(PreferenceKey::allowedAddresses);
  for (const ZAN_Value& one : settings[PreferenceKey::allowedAddresses].elements())
    from += (from.empty() ? "" : " ") + one.string();
  return ZAN_Value::dictionary(
      {{"on", number(PreferenceKey::allowRemoteControl, 0) != 0},
       {"proven", number(PreferenceKey::remoteProvenOnly, 0) != 0},
       {"password", !settings.string(PreferenceKey::remotePassword).empty()},
       {"permits", permits.empty() ? "nothing" : permits},
       {"name", ServiceName::machineName(settings.string(PreferenceKey::remoteName),
                                         machine.networkName())},
       {"from", from.empty() ? "every address" : from},
       {"port", port == 0 ? std::string("any") : std::to_string(port)},
       {"hidesTitles", number(PreferenceKey::remoteHidesTitles, 0) != 0}});
}

/// What was asked for.
struct Wanted {
  std::optional<bool> on, unproven, hidesTitles;
  std::optional<std::string> passwordFile, permits, name, from;
  std::optional<std::int64_t> port;

  bool changesAnything() const {
    return on || unproven || hidesTitles || passwordFile || permits || name || from || port;
  }
};

Wanted wantedFrom(Arguments& arguments) {
  Wanted wanted;
  const auto either = [&](std::string_view yes, std::string_view no) -> std::optional<bool> {
    const bool isYes = arguments.flag(yes);
    const bool isNo = arguments.flag(no);
    if (isYes && isNo)
      arguments.complain(std::string(yes) + " and " + std::string(no) + " exclude each other");
    if (!isYes && !isNo) return std::nullopt;
    return isYes;
  };
  wanted.on = either("--on", "--off");
  wanted.hidesTitles = either("--hide-titles", "--show-titles");
  if (arguments.flag("--unproven")) wanted.unproven = true;
  wanted.passwordFile = arguments.option("--password-file");
  wanted.permits = arguments.option("--permit");
  wanted.name = arguments.option("--name");
  wanted.from = arguments.option("--from");
  wanted.port = arguments.number("--port", 0, 65534);
  if (wanted.unproven && !wanted.on.value_or(false))
    arguments.complain("--unproven goes with --on");
  if (wanted.permits && *wanted.permits != "nothing") {
    std::string_view left = *wanted.permits;
    while (!left.empty()) {
      const std::string_view word = left.substr(0, left.find(','));
      left.remove_prefix(std::min(word.size() + 1, left.size()));
      if (std::ranges::find(kPermissions, word, &Permission::word) == kPermissions.end())
        arguments.complain("--permit is a list of launch, switch and message, or nothing, not \"" +
                           std::string(word) + "\"");
    }
  }
  if (wanted.from) {
    const AllowedAddresses addresses{ZAN_Value(*wanted.from)};
    if (!addresses.wrong().empty())
      arguments.complain("--from: \"" + addresses.wrong().front() +
                         "\" is no address and no network such as 192.168.1.0/24 or fd00::/8");
  }
  return wanted;
}

/// From the file, or asked for where none is stored yet; nothing where the stored one stays.
Result<std::optional<std::string>> passwordFor(const Wanted& wanted, const ZAN_Value& settings,
                                               const Machine& machine) {
  std::optional<std::string> password;
  if (wanted.passwordFile) {
    std::ifstream in(*wanted.passwordFile);
    if (!in) return Error{ErrorKind::unreadable, *wanted.passwordFile + ": cannot be read"};
    std::getline(in, password.emplace());
  } else if (wanted.on.value_or(false) && !wanted.unproven &&
             settings.string(PreferenceKey::remotePassword).empty()) {
    auto typed = typedPassword(machine.networkName());
    if (!typed) return typed.error();
    password = *std::move(typed);
  }
  if (password && password->empty())
    return Error{ErrorKind::refused, "an empty password protects nothing"};
  return password;
}

void apply(const Wanted& wanted, const std::optional<std::string>& password, ZAN_Value& settings) {
  if (password) settings.setValue(PreferenceKey::remotePassword, *password);
  if (wanted.on) {
    settings.setValue(PreferenceKey::allowRemoteControl, *wanted.on ? 1 : 0);
    if (*wanted.on)
      settings.setValue(PreferenceKey::remoteProvenOnly, wanted.unproven.value_or(false) ? 0 : 1);
  }
  if (wanted.permits) {
    const std::string list = "," + *wanted.permits + ",";
    for (const Permission& one : kPermissions) {
      const bool permitted = list.find("," + std::string(one.word) + ",") != std::string::npos;
      settings.setValue(one.key, permitted ? 1 : 0);
    }
  }
  if (wanted.name) settings.setValue(PreferenceKey::remoteName, *wanted.name);
  if (wanted.from) settings.setValue(PreferenceKey::allowedAddresses, *wanted.from);
  if (wanted.port) settings.setValue(PreferenceKey::remotePort, static_cast<int>(*wanted.port));
  if (wanted.hidesTitles)
    settings.setValue(PreferenceKey::remoteHidesTitles, *wanted.hidesTitles ? 1 : 0);
}

}  // namespace

Answer remoteCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const Wanted wanted = wantedFrom(arguments);
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  SettingsFiles& files = home.store().settings();
  ZAN_Value settings = home.isThere() ? files.schedulerSettings() : ZAN_Value();
  if (!settings.isDictionary()) settings = ZAN_Value::dictionary();
  std::string before;
  if (wanted.changesAnything()) {
    // Asked for before the settings are held.
    const auto password = passwordFor(wanted, settings, home.machine());
    if (!password) return password.error();
    {
      const auto held = files.lockSchedulerSettings();
      settings = files.schedulerSettings();
      if (!settings.isDictionary()) settings = ZAN_Value::dictionary();
      apply(wanted, *password, settings);
      if (const Outcome saved = files.saveSchedulerSettings(settings); !saved) return saved.error();
    }
    RunningAgent agent(home);
    if (agent.answers()) {
      const Outcome posted = agent.client().post({kAgentName, "PreferencesDidChange", {}});
      if (!posted) return posted.error();
    } else {
      before = agent.absence() + "\nIt will take this over when it starts.\n";
    }
  }
  const ZAN_Value state = shownState(settings, home.machine());
  return {state, before + TextForm(home.calendar()).fill(kLines, state)};
}

}  // namespace corvana
