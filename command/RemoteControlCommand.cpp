#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iostream>
#include <ostream>
#include <utility>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "command/RunningAgent.h"
#include "core/record/Preferences.h"
#include "platform/linux/LinuxNetwork.h"
#include "platform/linux/LinuxServerSockets.h"
#include "platform/qt/AvahiServices.h"
#include "platform/qt/QtRunLoop.h"
#include "remote/Admission.h"
#include "remote/Pairing.h"
#include "remote/PublishedService.h"

// The command that lets other machines control this one, and says how far.

// Two machines get to know each other: one waits for it, the other comes, both show the same
// digits.

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

namespace {

constexpr double kPatience = 120;       ///< until the other machine comes
constexpr double kPatienceOfTalk = 10;  ///< for a message of the other program
constexpr double kPatienceOfFirst = 3;  ///< for those of one that has come by itself
constexpr double kPatienceOfUser = 120;

/// What both programs say to each other.
class Messages {
 public:
  explicit Messages(std::unique_ptr<StreamConnection> stream) : mStream(std::move(stream)) {}

  Outcome say(std::span<const std::byte> message) {
    const auto framed = Frames::framed(Pairing::kLengthBytes, message);
    std::string_view left(reinterpret_cast<const char*>(framed.data()), framed.size());
    const double end = mClock.monotonic() + kPatienceOfTalk;
    while (!left.empty()) {
      const auto event = wait(end, true);
      if (!event) return event.error();
      const auto sent = mStream->send(left);
      if (!sent) return sent.error();
      left.remove_prefix(*sent);
    }
    return {};
  }

  Result<std::vector<std::byte>> hear(double seconds) {
    const double end = mClock.monotonic() + seconds;
    for (;;) {
      auto message = mHeard.next();
      if (!message) return message.error();
      if (*message) return **std::move(message);
      const auto event = wait(end, false);
      if (!event) return event.error();
      if (*event == StreamConnection::Event::received) {
        const std::string bytes = mStream->read(4096);
        mHeard.take(std::as_bytes(std::span(bytes)));
      }
      if (*event == StreamConnection::Event::ended) return hasEnded();
    }
  }
  static Error hasEnded() { return {ErrorKind::refused, "the other machine has ended it"}; }

  /// Waits until there is something to read at `descriptor`; fails when the other one ends it
  /// before. What that one says is kept.
  Outcome waitFor(int descriptor) {
    constexpr int kTurn = 200;  // ms
    pollfd answer{descriptor, POLLIN, 0};
    while (::poll(&answer, 1, kTurn) == 0) {
      const auto event = mStream->wait(0, false);
      if (event == StreamConnection::Event::received) {
        const std::string bytes = mStream->read(4096);
        mHeard.take(std::as_bytes(std::span(bytes)));
      } else if (event == StreamConnection::Event::ended ||
                 event == StreamConnection::Event::failed) {
        return hasEnded();
      }
    }
    return {};
  }

 private:
  Result<StreamConnection::Event> wait(double end, bool wantsSpace) {
    const double left = end - mClock.monotonic();
    if (left <= 0) return Error{ErrorKind::unavailable, "the other machine does not answer"};
    const auto event = mStream->wait(left, wantsSpace);
    if (event == StreamConnection::Event::failed)
      return Error{ErrorKind::unavailable, mStream->failure()};
    return event;
  }

  std::unique_ptr<StreamConnection> mStream;
  SystemClock mClock;
  Frames mHeard{Pairing::kLengthBytes, Pairing::kMostBytes};
};

ZAN_Value asValue(const MachineIdentity& machine) {
  return ZAN_Value::dictionary(
      {{"name", machine.name}, {"identifier", machine.identifier}, {"user", machine.user}});
}

/// Tells the user how it goes on: in lines, or for a program that shows them by objects on `err`.
class Guide {
 public:
  Guide(const Console& console, bool forProgram) : mConsole(console), mForProgram(forProgram) {}

  void waits(const std::string& name) const {
    if (mForProgram)
      tell(ZAN_Value::dictionary({{"waits", name}}));
    else
      mConsole.out << "Waiting for the other machine; there:  corvana9 pair " << printable(name)
                   << std::endl;
  }
  /// Whether the user has seen the same digits on the other machine; fails when that one has ended
  /// it before he has answered.
  Result<bool> confirms(const MachineIdentity& other, const std::string& digits,
                        Messages& messages) const {
    if (mForProgram) {
      ZAN_Value shown = asValue(other);
      shown.setValue("digits", digits);
      tell(shown);
    } else {
      mConsole.out << printable(other.name) + " (machine " + other.identifier + ", user " +
                          std::to_string(other.user) + ")\nThe digits: " + digits.substr(0, 3) +
                          " " + digits.substr(3) + "\nDoes the other machine show the same? [y/N] "
                   << std::flush;
    }
    if (mConsole.in.rdbuf() == std::cin.rdbuf())
      if (const Outcome waited = messages.waitFor(STDIN_FILENO); !waited) return waited.error();
    std::string answer;
    std::getline(mConsole.in, answer);
    return answer == "y" || answer == "yes";
  }

 private:
  void tell(const ZAN_Value& news) const { mConsole.err << jsonText(news, true) << std::flush; }

  const Console& mConsole;
  const bool mForProgram;
};

/// The talk of both sides, the user's yes within it.
Result<PairedMachine> talk(Messages& messages, Pairing& pairing, Pairing::Role role,
                           const Guide& guide) {
  if (role == Pairing::Role::asking)
    if (const Outcome said = messages.say(pairing.begin()); !said) return said.error();
  while (!pairing.digits()) {
    const auto heard =
        messages.hear(role == Pairing::Role::asking ? kPatienceOfTalk : kPatienceOfFirst);
    if (!heard) return heard.error();
    const auto answer = pairing.receive(*heard);
    if (!answer) return answer.error();
    if (!answer->empty())
      if (const Outcome said = messages.say(*answer); !said) return said.error();
  }
  const auto confirmed = guide.confirms(pairing.other(), *pairing.digits(), messages);
  if (!confirmed)
    return Error{confirmed.error().kind,
                 "not paired: not confirmed there (" + confirmed.error().text + ")"};
  if (!*confirmed)
    return Error{ErrorKind::refused, "not paired: the digits were not confirmed here"};
  if (const Outcome said = messages.say(pairing.confirm()); !said) return said.error();
  const auto yes = messages.hear(kPatienceOfUser);
  if (!yes)
    return Error{yes.error().kind, "not paired: not confirmed there (" + yes.error().text + ")"};
  const auto nothing = pairing.receive(*yes);
  if (!nothing) return nothing.error();
  return *pairing.paired();
}

/// Finds the other machine, or lets it find this one, and ends with a stream to it.
class Meeting {
 public:
  explicit Meeting(const Console& console) : mLog(console) {}

  /// The first that comes, and with each call the next.
  Result<std::unique_ptr<StreamConnection>> accept(const std::string& name, const Guide& guide) {
    const SystemClock clock;
    if (!mListener) {
      auto listener = StreamListener::open();
      if (!listener) return listener.error();
      mListener.emplace(*std::move(listener));
      mLimit = clock.monotonic() + kPatience;
      publish(name, guide);
    }
    std::unique_ptr<StreamConnection> stream;
    std::string from;
    const auto watch = mLoop.watch(mListener->descriptor(), DescriptorWatch::Event::readable, [&] {
      stream = mListener->accept(from);
      if (stream) mLoop.quit(0);
    });
    if (mFailure.empty()) run(std::max(0.0, mLimit - clock.monotonic()));
    mLoop.unwatch(watch);
    if (stream) return stream;
    return Error{ErrorKind::unavailable,
                 mFailure.empty() ? "no other machine has come within two minutes" : mFailure};
  }

  Result<std::unique_ptr<StreamConnection>> ask(const std::string& name) {
    std::optional<FoundService> found;
    browse(
        [&](const FoundService& service) {
          if (service.name != name) return;
          found = service;
          mLoop.quit(0);
        },
        [] {});
    if (!found)
      return Error{ErrorKind::absent,
                   name + ": " +
                       (mFailure.empty() ? "no such machine waits to be paired; begin there with "
                                           "corvana9 pair --accept"
                                         : mFailure)};
    auto stream = mNetwork.connect(found->address, found->port, Network::Family::any);
    const SystemClock clock;
    const double end = clock.monotonic() + kPatienceOfTalk;
    while (clock.monotonic() < end) {
      const auto event = stream->wait(end - clock.monotonic(), false);
      if (event == StreamConnection::Event::opened) return stream;
      if (event == StreamConnection::Event::failed)
        return Error{ErrorKind::unavailable, name + ": " + stream->failure()};
    }
    return Error{ErrorKind::unavailable, name + ": it does not answer"};
  }

  /// The machines that wait now, by their names.
  Result<std::vector<FoundService>> waiting() {
    std::vector<FoundService> all;
    browse([&](const FoundService& service) { all.push_back(service); }, [this] { mLoop.quit(0); });
    if (!mFailure.empty())
      return Error{ErrorKind::unavailable, "search of the network: " + mFailure};
    std::ranges::sort(all, {}, &FoundService::name);
    return all;
  }

 private:
  void publish(const std::string& name, const Guide& guide) {
    mPublication = mServices.publish(
        {name, kPairingServiceType, kRemoteServiceDomain, mListener->port(), {}},
        {[&guide](const std::string& known) { guide.waits(known); },
         [name, number = 1](const std::string&) mutable {
           return ++number > 9 ? std::string() : name + "-" + std::to_string(number);
         },
         [this](int, const std::string& reason) {
           mFailure = reason;
           mLoop.quit(0);
         }});
  }

  /// Until one of both ends it, or nobody answers.
  void browse(std::function<void(const FoundService&)> found, std::function<void()> settled) {
    const auto browsing =
        mServices.browse(kPairingServiceType, kRemoteServiceDomain,
                         {std::move(found), [](const std::string&) {},
                          [](const std::string&, int, const std::string&) {}, std::move(settled),
                          [this](const std::string& reason) {
                            mFailure = reason;
                            mLoop.quit(0);
                          }});
    run(kPatienceOfTalk);
  }
  void run(double seconds) {
    const auto limit = mLoop.performAfter(seconds, [this] { mLoop.quit(0); });
    mLoop.run();
    mLoop.cancel(limit);
  }

  QtApplication mApplication;
  QtRunLoop mLoop;
  ConsoleLog mLog;
  AvahiServices mServices{mLoop, mLog};
  LinuxNetwork mNetwork;
  std::optional<StreamListener> mListener;
  double mLimit = 0;  ///< monotonic time until which another machine may come
  std::unique_ptr<ServicePublication> mPublication;
  std::string mFailure;
};

Answer listed(CommandHome& home) {
  ZAN_Value list = ZAN_Value::array();
  if (home.isThere())
    for (const PairedMachine& one : PairedMachines(home.store()).all())
      list.append(asValue(one.machine));
  return {list, TextForm(home.calendar())
                    .fill("{!No machine is paired with this one.\n}"
                          "{*{name}: machine {identifier}, user {user}\n}",
                          list)};
}

Answer waiting(Meeting& meeting, const ZAN_DateUtils& calendar) {
  const auto found = meeting.waiting();
  if (!found) return found.error();
  ZAN_Value list = ZAN_Value::array();
  for (const FoundService& one : *found)
    list.append(ZAN_Value::dictionary({{"name", one.name}, {"address", one.address}}));
  return {list, TextForm(calendar).fill("{!No machine waits to be paired.\n}{*{name}, {address}\n}",
                                        list)};
}

/// An agent that runs takes it over.
Outcome tellAgent(CommandHome& home) {
  RunningAgent agent(home);
  if (!agent.answers()) return {};
  return agent.client().post({kAgentName, "PreferencesDidChange", {}});
}

Answer forgotten(CommandHome& home, const std::string& name) {
  const auto done = home.isThere() ? PairedMachines(home.store()).forget(name) : Result(false);
  if (!done) return Error{done.error().kind, name + ": " + done.error().text};
  if (!*done)
    return Error{ErrorKind::absent, name + ": not paired; corvana9 pair --list shows who is"};
  if (const Outcome told = tellAgent(home); !told) return told.error();
  return Answer::ofText(name + " is forgotten here; forget this machine there, too.\n");
}

Answer renamed(CommandHome& home, const std::string& name, const std::string& newName) {
  const auto done =
      home.isThere() ? PairedMachines(home.store()).rename(name, newName) : Result(false);
  if (!done) return Error{done.error().kind, name + ": " + done.error().text};
  if (!*done)
    return Error{ErrorKind::absent, name + ": not paired; corvana9 pair --list shows who is"};
  return Answer::ofText(name + " is called " + printable(newName) + " here from now on.\n");
}

}  // namespace

Answer pairCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const bool accepts = arguments.flag("--accept");
  const bool lists = arguments.flag("--list");
  const bool looks = arguments.flag("--waiting");
  const auto forget = arguments.option("--forget");
  const auto rename = arguments.option("--rename");
  const bool asks = !accepts && !lists && !looks && !forget && !rename;
  const std::size_t names = asks || rename ? 1 : 0;
  const auto words = arguments.words(names, names);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  if (lists) return listed(home);
  if (forget) return forgotten(home, *forget);
  if (rename) return renamed(home, *rename, words->front());
  Meeting meeting(console);
  if (looks) return waiting(meeting, home.calendar());
  const Pairing::Role role = accepts ? Pairing::Role::accepting : Pairing::Role::asking;
  const Guide guide(console, arguments.wantsJson());
  const MachineIdentity own = MachineIdentity::of(home.machine());
  const auto paired = [&]() -> Result<PairedMachine> {
    for (;;) {
      auto stream = accepts ? meeting.accept(ServiceName::machineName({}, own.name), guide)
                            : meeting.ask(words->front());
      if (!stream) return stream.error();
      Pairing pairing(role, own);
      Messages messages(std::move(*stream));
      auto talked = talk(messages, pairing, role, guide);
      // Who comes and has nothing to show does not end it for the one that is meant.
      if (talked || !accepts || pairing.digits()) return talked;
    }
  }();
  if (!paired) return paired.error();
  if (const Outcome kept = PairedMachines(home.store()).add(*paired); !kept) return kept.error();
  if (const Outcome told = tellAgent(home); !told) return told.error();
  return {
      asValue(paired->machine),
      "Paired with " + printable(paired->machine.name) +
          ". Each may control the other as far as its preferences permit; corvana9 remote shows "
          "that.\n"};
}

}  // namespace corvana
