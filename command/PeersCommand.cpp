// The commands for other machines: peers lists them, peer controls one.

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "command/ActionWords.h"
#include "command/NetworkPeers.h"
#include "platform/linux/Modules.h"
#include "remote/Pairing.h"
#include "remote/PublishedService.h"

namespace corvana {

namespace {

/// As many as the other machine takes in with one reading, however long their numbers are.
constexpr std::size_t kMostReferences = 3000;
constexpr double kPatienceForChange = 10;

bool isThat(const NetworkPeer& peer, const PairedMachine& paired) {
  return paired.machine.identifier == peer.name.identifier && paired.machine.user == peer.name.user;
}

std::vector<PairedMachine> pairedMachines(CommandHome& home) {
  return home.isThere() ? PairedMachines(home.store()).all() : std::vector<PairedMachine>();
}

/// What this machine and that one agreed on, if they are paired.
std::optional<PairedMachine> pairedWith(const NetworkPeer& peer, CommandHome& home) {
  for (const PairedMachine& one : pairedMachines(home))
    if (isThat(peer, one)) return one;
  return std::nullopt;
}

ZAN_Value asValue(const NetworkPeer& peer, CommandHome& home) {
  ZAN_Value actions = ZAN_Value::array();
  for (const LaunchableAction& action : peer.actions) {
    ZAN_Value one = ZAN_Value::dictionary(
        {{"ref", action.ref}, {"title", action.title}, {"mode", action.mode}});
    if (action.lastScheduleDate != 0)
      one.setValue("lastScheduleDate",
                   ZAN_Value::date(static_cast<double>(action.lastScheduleDate)));
    actions.append(one);
  }
  const auto paired = pairedWith(peer, home);
  const MachineIdentity own = MachineIdentity::of(home.machine());
  ZAN_Value machine = ZAN_Value::dictionary({{"name", peer.name.machine},
                                             {"identifier", peer.name.identifier},
                                             {"user", peer.name.user},
                                             {"active", peer.name.active},
                                             {"locked", peer.name.locked},
                                             {"password", peer.name.passwordCode != 0},
                                             {"proven", !peer.challenge.empty()},
                                             {"permits", peer.permits},
                                             {"paired", paired.has_value()},
                                             {"encrypted", peer.channelPort != 0},
                                             {"host", peer.service.host},
                                             {"address", peer.service.address},
                                             {"port", static_cast<int>(peer.service.port)},
                                             {"service", peer.service.name},
                                             {"actions", actions}});
  if (peer.name.identifier == own.identifier && peer.name.user == own.user)
    machine.setValue("own", true);
  if (paired) {
    machine.setValue("pairedAs", paired->machine.name);
    if (const Outcome tried = ModuleChannels::tried(); !tried)
      machine.setValue("trouble", tried.error().text);
  }
  return machine;
}

/// Paired machines that do not answer.
void addAbsent(ZAN_Value& list, const std::vector<NetworkPeer>& peers, CommandHome& home) {
  for (const PairedMachine& one : pairedMachines(home))
    if (std::ranges::none_of(peers, [&](const NetworkPeer& peer) { return isThat(peer, one); }))
      list.append(ZAN_Value::dictionary({{"name", one.machine.name},
                                         {"identifier", one.machine.identifier},
                                         {"user", one.machine.user},
                                         {"paired", true},
                                         {"absent", true}}));
}

constexpr std::string_view kPeerLines =
    "{!No machine of the network can be controlled.\n}"
    "{*{absent?{name}: paired with this machine, but not to be seen on the network; user {user}, "
    "machine {identifier}\n}{absent!{name}: {own?this machine itself, "
    "}{active?active}{active!switched off}{locked?, locked}"
    "{paired?, paired with this machine{trouble?, but this machine cannot talk with it: "
    "{trouble}}{trouble!{encrypted!, but offers no encrypted channel}}}"
    "{proven?, {paired!asks for a proof of its password and }permits: {permits}}"
    "{proven!, unproven: anybody on the network may control it}; user {user}, machine "
    "{identifier}, {address}\n"
    "{actions*  {:action}{lastScheduleDate?, last on {lastScheduleDate:date}}\n}}}";

/// Of several that call themselves by the identity of one paired machine, the one that has its key.
std::optional<NetworkPeer> provenAmong(const std::vector<NetworkPeer>& named, CommandHome& home) {
  constexpr std::size_t kMostTries = 5;
  const auto paired = pairedWith(named.front(), home);
  if (!paired ||
      !std::ranges::all_of(named, [&](const NetworkPeer& peer) { return isThat(peer, *paired); }))
    return std::nullopt;
  std::size_t tries = 0;
  for (const NetworkPeer& peer : named)
    if (peer.channelPort != 0 && ++tries <= kMostTries &&
        NetworkPeers::ask(peer, paired->toControl, {}))
      return peer;
  return std::nullopt;
}

/// A machine that this one is paired with goes before all that only call themselves so.
Result<NetworkPeer> peerNamed(NetworkPeers& network, const std::string& name, CommandHome& home) {
  const auto peers = network.all();
  if (!peers) return peers.error();
  std::vector<PairedMachine> paired = pairedMachines(home);
  std::erase_if(paired, [&](const PairedMachine& one) { return one.machine.name != name; });
  std::vector<NetworkPeer> named;
  std::vector<NetworkPeer> others;
  for (const NetworkPeer& peer : *peers) {
    if (peer.service.name == name) return peer;
    const bool isPaired =
        std::ranges::any_of(paired, [&](const PairedMachine& one) { return isThat(peer, one); });
    if (isPaired || peer.name.machine == name || peer.name.identifier == name)
      (isPaired || paired.empty() ? named : others).push_back(peer);
  }
  if (named.empty() && !others.empty())
    return Error{ErrorKind::refused,
                 name +
                     ": the machine that this one is paired with does not answer. Another one "
                     "calls itself so; if it is the one you mean, take its whole name: " +
                     printable(others.front().service.name)};
  if (named.empty())
    return Error{ErrorKind::absent, name + ": no such machine answers; corvana9 peers lists them"};
  if (named.size() > 1) {
    if (auto proven = provenAmong(named, home)) return *std::move(proven);
    std::string text = name + ": several machines answer; take one of these names:";
    for (const NetworkPeer& peer : named) text += "\n  " + printable(peer.service.name);
    return Error{ErrorKind::refused, text};
  }
  return named.front();
}

/// Nothing where none is wanted.
Result<std::string> passwordFor(const NetworkPeer& peer, const std::optional<std::string>& file) {
  if (peer.name.passwordCode == 0) return std::string();
  Result<std::string> password = std::string();
  if (file) {
    std::ifstream in(*file);
    if (!in) return Error{ErrorKind::unreadable, *file + ": cannot be read"};
    std::getline(in, *password);
  } else {
    password = typedPassword(peer.name.machine);
    if (!password) return password.error();
  }
  // A machine that wants proofs answers by itself whether it is right.
  if (peer.challenge.empty() &&
      static_cast<std::int32_t>(UtilsCommon::getPasswordCode(*password)) != peer.name.passwordCode)
    return Error{ErrorKind::refused, printable(peer.name.machine) + ": the password is wrong"};
  return password;
}

/// What proves the command there.
Result<ControlKey> keyFor(const NetworkPeer& peer, const std::optional<PairedMachine>& paired,
                          const std::optional<std::string>& passwordFile) {
  if (paired && !passwordFile) return paired->toControl;
  const auto password = passwordFor(peer, passwordFile);
  if (!password) return password.error();
  const auto key = ControlKey::of(*password, peer.name.identifier);
  if (key) return *key;
  return Error{ErrorKind::refused,
               printable(peer.name.machine) + (password->empty()
                                                   ? ": it wants a password"
                                                   : ": there is not enough memory for the proof")};
}

/// How a command goes there.
struct Way {
  std::optional<PairedMachine> paired{};
  bool inClear = false;  ///< also to a paired machine
  std::optional<std::string> passwordFile{};
};

/// Through the channel of paired machines, which is never given up for something else by itself.
Result<ChannelReply> askPaired(const NetworkPeer& peer, const PairedMachine& paired,
                               const ChannelRequest& request) {
  if (peer.channelPort == 0)
    return Error{
        ErrorKind::refused,
        printable(peer.name.machine) +
            ": it is paired with this machine, but offers no encrypted channel. Its "
            "program is older, OpenSSL is missing there (its status says so), it is set to "
            "check nobody, it does not know this machine any more, or another machine answers in "
            "its place"};
  return NetworkPeers::ask(peer, paired.toControl, request);
}

/// Commands of all kinds of machines.
Outcome sendTo(const NetworkPeer& peer, const RemoteCommand& command, const Way& way,
               const Machine& own) {
  if (way.paired && !way.inClear) {
    const auto reply = askPaired(peer, *way.paired, {command});
    if (reply) return {};
    const bool mayBeOlder = peer.channelPort == 0;
    return Error{reply.error().kind,
                 reply.error().text +
                     (mayBeOlder ? "; --in-clear sends it so that others can read it" : "")};
  }
  if (peer.challenge.empty()) {
    const auto password = passwordFor(peer, way.passwordFile);
    return password ? NetworkPeers::send(peer, command) : Outcome(password.error());
  }
  const auto key = keyFor(peer, way.paired, way.passwordFile);
  if (!key) return key.error();
  return NetworkPeers::sendProven(peer, command, *key, MachineIdentity::of(own).sender());
}

constexpr std::string_view kStateLines =
    "{name}: {enabled?active{disabledWhenDone?, off when all is done}}{enabled!switched off}"
    "{paused?, paused}\n"
    "{attention?Wants attention:\n"
    "{attention*  {code?failed: {title?{:action}}{title!something that is no action}}"
    "{since?no success since {since:date}: {:action}}{text}\n}}"
    "{current?Runs {current:action}{current.progress?, {current.progress} %}"
    "{current.progressText?, {current.progressText}}{current.stuck?; {current.stuck}}\n}"
    "{current!Nothing runs\n}"
    "{queueCount?In the queue: {queueCount}\n}{hold?{hold.text}\n}"
    "{actions*  {:action}: {lastSuccess?last success {lastSuccess:date}}{lastSuccess!no success "
    "yet}{next?, next {next:date}}{launchable!, not to be launched from here}\n}"
    "{leftOut?and {leftOut} more\n}";

Answer stateOf(const NetworkPeer& peer, const Way& way, const ZAN_DateUtils& calendar) {
  const std::string name = printable(peer.name.machine);
  if (!way.paired)
    return Error{ErrorKind::refused,
                 name + ": only machines that are paired with it see its state; corvana9 pair " +
                     name + ", while corvana9 pair --accept waits there"};
  const auto reply = askPaired(peer, *way.paired, {});
  if (!reply) return reply.error();
  ZAN_Value state = reply->state;
  if (!state.isDictionary()) return Error{ErrorKind::damaged, name + ": its answer makes no sense"};
  state.setValue("name", peer.name.machine);
  return {state, TextForm(calendar).fill(kStateLines, state)};
}

struct Wish {
  std::optional<RemoteCommand> command{};  ///< nothing: to see how it stands
  std::string done{};
  std::optional<bool> active{};  ///< what the other machine should show afterwards
};

Result<Wish> wishOf(const std::vector<std::string>& words, const std::string& ownName) {
  const std::string& verb = words[1];
  Wish wish;
  if (verb == "status" && words.size() == 2) return wish;
  if (verb == "launch" && words.size() > 2) {
    wish.command.emplace(RemoteCommand{RemoteCommand::Launch{}});
    auto& launch = std::get<RemoteCommand::Launch>(wish.command->what);
    for (std::size_t i = 2; i < words.size(); ++i) {
      const auto ref = referenceFrom(words[i]);
      if (!ref) return ref.error();
      launch.references.push_back(*ref);
    }
    wish.done = "was asked to launch";
    return wish;
  }
  if ((verb == "activate" || verb == "deactivate") && words.size() == 2) {
    wish.active = verb == "activate";
    wish.command.emplace(RemoteCommand{RemoteCommand::Activate{*wish.active ? 1 : 0}});
    wish.done = *wish.active ? "is active" : "is switched off";
    return wish;
  }
  if (verb == "message" && words.size() == 3) {
    wish.command.emplace(RemoteCommand{RemoteCommand::Message{words[2], ownName}});
    wish.done = "was sent the message";
    return wish;
  }
  return Error{
      ErrorKind::refused,
      "what NAME shall do is one of status, launch REF…, activate, deactivate, message TEXT"};
}

void tellUnknown(const RemoteCommand& command, const NetworkPeer& peer, const Console& console) {
  const auto* launch = std::get_if<RemoteCommand::Launch>(&command.what);
  // Who shows no titles has nothing to compare with.
  if (launch == nullptr || peer.actions.empty()) return;
  for (const std::int64_t ref : launch->references) {
    if (std::ranges::find(peer.actions, ref, &LaunchableAction::ref) == peer.actions.end())
      Writer(console, false)
          .complain(std::to_string(ref) + ": not among the actions that " +
                    printable(peer.name.machine) + " shows; asked for all the same");
  }
}

}  // namespace

/// Asks at the terminal without showing what is typed.
Result<std::string> typedPassword(const std::string& machine) {
  const ZAN_Descriptor terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC));
  termios before{};
  if (!terminal || tcgetattr(terminal.get(), &before) != 0)
    return Error{ErrorKind::unavailable,
                 "there is no terminal to ask for the password; --password-file names a file"};
  const std::string question = "Password of " + printable(machine) + ": ";
  termios silent = before;
  silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  tcsetattr(terminal.get(), TCSAFLUSH, &silent);
  static_cast<void>(!::write(terminal.get(), question.data(), question.size()));
  std::string typed;
  char c = 0;
  while (typed.size() < 1024 && ::read(terminal.get(), &c, 1) == 1 && c != '\n') typed += c;
  tcsetattr(terminal.get(), TCSAFLUSH, &before);
  static_cast<void>(!::write(terminal.get(), "\n", 1));
  return typed;
}

Answer peersCommand(Arguments& arguments, const Console& console) {
  const bool isForProgram = arguments.json();
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  NetworkPeers network(console);
  const auto peers = network.all();
  if (!peers) return peers.error();
  CommandHome home(console);
  ZAN_Value list = ZAN_Value::array();
  for (const NetworkPeer& peer : *peers) list.append(asValue(peer, home));
  addAbsent(list, *peers, home);
  std::string text = TextForm(home.calendar()).fill(kPeerLines, list);
  if (const auto limit = network.limit()) {
    text += "There are more than " + std::to_string(*limit) +
            " of them on the network, and the others were not looked at: somebody may be making "
            "them up.\n";
    if (isForProgram)
      console.err << jsonText(ZAN_Value::dictionary({{"limit", static_cast<std::int64_t>(*limit)}}),
                              true);
  }
  return {list, text};
}

Answer peerCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  Way way;
  way.inClear = arguments.flag("--in-clear");
  way.passwordFile = arguments.option("--password-file");
  const auto words = arguments.words(2, 2 + kMostReferences);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  const auto wish = wishOf(*words, home.machine().networkName());
  if (!wish) return wrongWords(wish.error());
  NetworkPeers network(console);
  const auto peer = peerNamed(network, words->front(), home);
  if (!peer) return peer.error();
  const std::string name = printable(peer->name.machine);
  if (peer->name.locked)
    return Error{ErrorKind::refused, name + ": it does not let itself be controlled"};
  way.paired = pairedWith(*peer, home);
  if (!wish->command) return stateOf(*peer, way, home.calendar());
  tellUnknown(*wish->command, *peer, console);
  const Outcome sent = sendTo(*peer, *wish->command, way, home.machine());
  if (!sent) return sent.error();
  if (wish->active) {
    const auto follows = [&](const NetworkPeer& other) {
      return other.name.identifier == peer->name.identifier && other.name.user == peer->name.user &&
             other.name.active == *wish->active;
    };
    if (!network.waitFor(follows, kPatienceForChange))
      return Error{ErrorKind::refused, name + ": it was told, and has not followed"};
  }
  return {ZAN_Value::dictionary({{"name", peer->name.machine}, {"command", (*words)[1]}}),
          name + ' ' + wish->done +
              (peer->challenge.empty() && (!way.paired || way.inClear)
                   ? ", but nothing proves that it is the machine you mean.\n"
                   : ".\n")};
}

}  // namespace corvana
