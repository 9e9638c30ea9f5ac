#include "remote/RemoteControl.h"

#include <algorithm>
#include <random>
#include <utility>
#include <variant>

#include "core/record/Records.h"
#include "core/record/SchedulerCommands.h"

namespace corvana {

namespace {

/// The others need it to see that the service has gone.
constexpr double kPauseBetweenPublications = 0.25;
constexpr double kMessageSeconds = 30;

// A controlling user is far slower. The pace of messages is that at which they are shown, so that
// no more of them wait than come at once.
constexpr Allowance kCommandsOfOne(20, 2);
constexpr Allowance kCommandsOfStrangers(100, 0.05);
constexpr int kMessagesAtOnce = 10;
// Each is carried out for whoever sends it, and leaves a kilobyte or so in log, report and history:
// less than a megabyte a day.
constexpr Allowance kCommandsWithoutProof(30, 180);
/// After so much quiet a flood is a new one.
constexpr double kQuietBetweenBursts = 300;
/// Each takes its time: the loop gets on with other things in between.
constexpr std::size_t kLaunchesAtOnce = 25;
constexpr std::size_t kMostLaunchesWaiting = 100'000;

std::uint32_t decoyCode() {
  // 0 would say that there is no password.
  return std::random_device{}() | 1U;
}

}  // namespace

RemoteControl::RemoteControl(Records& records, SchedulerCommands& commands,
                             std::function<ZAN_Value()> state)
    : m(records),
      mCommander(commands),
      mState(std::move(state)),
      mPaired(records.store),
      mChannel(
          m.platform,
          [this](const std::string& address) { return accepts(address) && isInTime(address); },
          [this] { refreshPaired(); },
          [this](const std::string& address, const std::string& sender,
                 const ChannelRequest& request) { return answerPaired(address, sender, request); }),
      mDecoyCode(decoyCode()),
      mAddresses(kCommandsOfOne, kCommandsOfStrangers),
      mControllers(kCommandsOfOne, kCommandsOfStrangers),
      mPairedControllers(kCommandsOfOne, kCommandsOfStrangers),
      mMessages(kMessagesAtOnce, kMessageSeconds),
      mWithoutProof(kCommandsWithoutProof),
      mRefused(kQuietBetweenBursts),
      mUnproven(kQuietBetweenBursts),
      mNotPermitted(kQuietBetweenBursts),
      mDroppedCommands(kQuietBetweenBursts),
      mDroppedMessages(kQuietBetweenBursts) {
  m.changes.listen([this](ChangeSet changes) { follow(changes); });
}

RemoteControl::~RemoteControl() { stop(); }

void RemoteControl::start() {
  mFollows = true;
  publishRemoteControl();
}

void RemoteControl::follow(ChangeSet changes) {
  if (!mFollows) return;
  const bool switched = mClient && mPublishedAsDisabled != m.state.mScheduleDisabled;
  if (switched || changes.hasAnyOf({Change::tree, Change::preferences})) publishRemoteControl();
}

void RemoteControl::stop() {
  mFollows = false;
  takeBack();
}

void RemoteControl::takeBack() {
  m.platform.runLoop.cancel(std::exchange(mPublication, 0));
  m.platform.runLoop.cancel(std::exchange(mLaunching, 0));
  mToLaunch.clear();
  mChannel.close();
  mClient.reset();
}

void RemoteControl::publishRemoteControl() {
  mPublishedAsDisabled = m.state.mScheduleDisabled;
  const bool allowed = m.preferences.mPrefAllowRemoteControl != 0;
  if (mClient) {
    mClient->stopNetServiceRCC();
    if (!allowed) {
      takeBack();
      return;
    }
    // While one waits, what is published now has not yet been seen by anybody.
    if (mPublication == 0)
      mPublication = m.platform.runLoop.performAfter(kPauseBetweenPublications, [this] {
        mPublication = 0;
        publish();
      });
    return;
  }
  if (!allowed) return;
  mClient = std::make_unique<RemoteControlClient>(m.platform, m.tree);
  mClient->accepts = [this](const std::string& address) { return accepts(address); };
  mClient->received = [this](const std::string& address, std::span<const std::byte> data) {
    return receiveFromRemoteController(address, data);
  };
  mClient->onLeftOut = [this](std::size_t leftOut, std::size_t all) { tellLeftOut(leftOut, all); };
  publish();
}

void RemoteControl::publish() {
  if (!mClient) return;
  mAllowed = AllowedAddresses(m.preferences.prefForKey(PreferenceKey::allowedAddresses));
  for (const std::string& word : mAllowed.wrong())
    m.platform.systemLog.write(word + ": not an address that may control this machine");
  if (m.preferences.mRemoteProvenOnly) return publishProven();
  mChecker.reset();
  mKey.reset();
  mChannel.close();
  publish(UtilsCommon::getPasswordCode(m.preferences.mRemoteControlPassword), {});
}

void RemoteControl::publish(std::uint32_t passwordCode, RemoteControlClient::Exposure exposure) {
  exposure.showsActions = !m.preferences.mRemoteHidesTitles;
  exposure.port = static_cast<std::uint16_t>(std::clamp(m.preferences.mRemotePort, 0, 65535));
  if (!mClient->publishClient(m.preferences.mRemoteControlLocalName, !m.state.mScheduleDisabled,
                              m.preferences.mPrefAllowRemoteControl == 0, passwordCode, exposure) &&
      exposure.port != 0)
    m.log.addSchedulerLog(LogCode::message,
                          m.texts.text("RemoteControlPortTaken", {int{exposure.port}}));
}

void RemoteControl::publishProven() {
  const std::string& password = m.preferences.mRemoteControlPassword;
  const bool knowsMachines = !mPaired.all().empty();
  mChecker.reset();
  if (password.empty() && !knowsMachines) {
    mChannel.close();
    mClient.reset();
    if (!std::exchange(mToldWithoutPassword, true))
      m.log.addSchedulerLog(LogCode::message, m.texts.text("RemoteControlWithoutPassword"));
    return;
  }
  mToldWithoutPassword = false;
  if (password.empty()) mKey.reset();
  if (!password.empty() && (!mKey || mPassword != password)) return computeKey();
  mChecker.emplace(mKey);
  takePaired();
  openChannel();
  std::string permits;
  const auto add = [&](bool permitted, const char* word) {
    if (permitted) permits += (permits.empty() ? "" : ",") + std::string(word);
  };
  add(m.preferences.mRemoteMayLaunch, "launch");
  add(m.preferences.mRemoteMaySwitch, "switch");
  add(m.preferences.mRemoteMayMessage, "message");
  std::vector<std::string> texts{std::string(kChallengeText) + mChecker->challenge(),
                                 std::string(kPermitsText) + permits};
  if (mChannel.port() != 0)
    texts.push_back(std::string(kChannelText) + std::to_string(mChannel.port()));
  publish(mDecoyCode, {texts});
}

void RemoteControl::takePaired() {
  std::map<std::string, ControlKey> keys;
  for (const PairedMachine& one : mPaired.all())
    keys.emplace(one.machine.sender(), one.toBeControlled);
  mChannel.setMachines(keys);
  if (mChecker) mChecker->setPaired(std::move(keys));
}

/// A machine that was forgotten by the command may do nothing from that moment on.
void RemoteControl::refreshPaired() {
  if (mPaired.haveChanged()) takePaired();
}

void RemoteControl::openChannel() {
  if (mPaired.all().empty()) return mChannel.close();
  const int own = std::clamp(m.preferences.mRemotePort, 0, 65535);
  // A firewall opens two ports in a row.
  const auto port = static_cast<std::uint16_t>(own == 0 || own == 65535 ? 0 : own + 1);
  const Outcome opened = mChannel.open(port);
  if (std::exchange(mToldWithoutChannel, !opened) || opened) return;
  m.log.addSchedulerLog(LogCode::message,
                        m.texts.text("RemoteControlWithoutChannel", {opened.error().text}));
}

void RemoteControl::computeKey() {
  mKey.reset();
  const std::string password = m.preferences.mRemoteControlPassword;
  if (std::exchange(mComputesFor, password) == password) return;
  m.platform.runLoop.detachThread("RemoteControlKey",
                                  [this, password, machine = m.platform.machine.machineIdentifier(),
                                   &loop = m.platform.runLoop, alive = std::weak_ptr<int>(mAlive)] {
                                    const auto key = ControlKey::of(password, machine);
                                    loop.performOnMain([this, alive, password, key] {
                                      if (!alive.expired()) keyIsThere(password, key);
                                    });
                                  });
}

void RemoteControl::keyIsThere(const std::string& password, const std::optional<ControlKey>& key) {
  if (mComputesFor == password) mComputesFor.clear();
  if (password != m.preferences.mRemoteControlPassword || !m.preferences.mRemoteProvenOnly) return;
  if (!key) {
    m.log.addSchedulerLog(LogCode::message, m.texts.text("RemoteControlWithoutKey"));
    return;
  }
  mKey = key;
  mPassword = password;
  if (mClient) publish();
}

void RemoteControl::tellLeftOut(std::size_t leftOut, std::size_t all) {
  if (std::exchange(mToldLeftOut, leftOut) == leftOut || leftOut == 0) return;
  m.log.addSchedulerLog(LogCode::message,
                        m.texts.text("RemoteControlActionsLeftOut", {leftOut, all}));
}

bool RemoteControl::accepts(const std::string& address) {
  if (mAllowed.allows(address)) return true;
  tellOnce(mRefused, "RemoteControlRefused", address);
  return false;
}

bool RemoteControl::isInTime(const std::string& address) {
  if (mAddresses.take(address, m.platform.clock.monotonic())) return true;
  tellOnce(mDroppedCommands, "RemoteControlDropped", address);
  return false;
}

void RemoteControl::tellOnce(BurstGate& burst, const char* text, const std::string& sender) {
  if (burst.begins(m.platform.clock.monotonic()))
    m.log.addSchedulerLog(LogCode::message, m.texts.text(text, {sender}));
}

std::vector<std::byte> RemoteControl::receiveFromRemoteController(const std::string& address,
                                                                  std::span<const std::byte> data) {
  if (!isInTime(address)) return {};
  const auto command = RemoteCommand::decode(data);
  if (!command) return {};
  if (m.preferences.mRemoteProvenOnly) return answerProof(address, *command);
  if (mWithoutProof.take(m.platform.clock.monotonic(), weightOf(*command)))
    carryOut(address, *command);
  else
    tellOnce(mDroppedCommands, "RemoteControlDropped", address);
  return {};
}

double RemoteControl::weightOf(const RemoteCommand& command) const {
  const auto* launch = std::get_if<RemoteCommand::Launch>(&command.what);
  if (launch == nullptr) return 1;
  const auto count = std::ranges::count_if(launch->references, [this](std::int64_t ref) {
    return m.tree.rootItem().actionForReference(ref) != nullptr;
  });
  return static_cast<double>(std::max<std::ptrdiff_t>(count, 1));
}

std::vector<std::byte> RemoteControl::answerProof(const std::string& address,
                                                  const RemoteCommand& command) {
  using Verdict = ProofChecker::Verdict;
  if (!mChecker || !command.proof) {
    tellOnce(mUnproven, "RemoteControlUnproven", address);
    return {};
  }
  refreshPaired();
  const CommandProof& proof = *command.proof;
  const ProofChecker::Judgement judgement = mChecker->check(proof, command.proven);
  CommandReply reply;
  switch (judgement.verdict) {
    case Verdict::wrong:
      tellOnce(mUnproven, "RemoteControlUnproven", address);
      reply.word = CommandReply::Word::wrongPassword;
      break;
    case Verdict::staleChallenge:
      reply.word = CommandReply::Word::newChallenge;
      reply.challenge = mChecker->challenge();
      break;
    case Verdict::counterTooLow:
      reply.word = CommandReply::Word::counterTooLow;
      reply.counter = judgement.lastCounter;
      break;
    case Verdict::proven:
      reply.word = carryOutProven(address, proof.sender,
                                  judgement.isPaired ? mPairedControllers : mControllers, command);
      break;
  }
  return CommandReply::encode(reply, proof, judgement.key);
}

CommandReply::Word RemoteControl::carryOutProven(const std::string& address,
                                                 const std::string& sender, Allowances& controllers,
                                                 const RemoteCommand& command) {
  using Word = CommandReply::Word;
  mAddresses.trust(address);
  if (!permits(command)) {
    tellOnce(mNotPermitted, "RemoteControlNotPermitted", address);
    return Word::notPermitted;
  }
  if (!controllers.take(sender, m.platform.clock.monotonic())) {
    tellOnce(mDroppedCommands, "RemoteControlDropped", address);
    return Word::tooQuickly;
  }
  return carryOut(address, command) ? Word::done : Word::tooQuickly;
}

ChannelReply RemoteControl::answerPaired(const std::string& address, const std::string& sender,
                                         const ChannelRequest& request) {
  using Word = CommandReply::Word;
  if (request.command)
    return {carryOutProven(address, sender, mPairedControllers, *request.command)};
  mAddresses.trust(address);
  if (!mPairedControllers.take(sender, m.platform.clock.monotonic())) return {Word::tooQuickly};
  return {Word::done, mState()};
}

bool RemoteControl::permits(const RemoteCommand& command) const {
  const Preferences& permitted = m.preferences;
  if (std::holds_alternative<RemoteCommand::Launch>(command.what))
    return permitted.mRemoteMayLaunch;
  if (std::holds_alternative<RemoteCommand::Message>(command.what))
    return permitted.mRemoteMayMessage;
  return permitted.mRemoteMaySwitch;
}

bool RemoteControl::carryOut(const std::string& address, const RemoteCommand& command) {
  return std::visit([&](const auto& what) { return run(address, what); }, command.what);
}

/// 1 enables a disabled schedule and 0 disables an enabled one.
bool RemoteControl::run(const std::string&, const RemoteCommand::Activate& command) {
  const bool disabled = m.state.mScheduleDisabled;
  if (command.value == (disabled ? 1 : 0)) mCommander.setSchedulerActive(disabled);
  return true;
}

bool RemoteControl::run(const std::string&, const RemoteCommand::Launch& command) {
  bool toldUnknown = false;
  for (const std::int64_t ref : command.references) {
    if (mToLaunch.size() >= kMostLaunchesWaiting) break;
    // Each that is no action becomes a line of the report: one of them tells enough.
    const bool isKnown = m.tree.rootItem().actionForReference(ref) != nullptr;
    if (isKnown || !std::exchange(toldUnknown, true)) mToLaunch.push_back(ref);
  }
  if (mLaunching == 0) launchSome();
  return true;
}

void RemoteControl::launchSome() {
  mLaunching = 0;
  const auto end =
      mToLaunch.begin() + static_cast<std::ptrdiff_t>(std::min(kLaunchesAtOnce, mToLaunch.size()));
  const std::vector<std::int64_t> now(mToLaunch.begin(), end);
  mToLaunch.erase(mToLaunch.begin(), end);
  if (!mToLaunch.empty()) mLaunching = m.platform.runLoop.performAfter(0, [this] { launchSome(); });
  mCommander.launchActionsRemotely(now);
}

bool RemoteControl::run(const std::string& address, const RemoteCommand::Message& command) {
  const std::string sender = command.sender + " (" + address + ")";
  if (!mMessages.take(m.platform.clock.monotonic())) {
    tellOnce(mDroppedMessages, "RemoteMessagesDropped", sender);
    return false;
  }
  const std::string from = m.texts.text("MessageFromDistantController", {sender});
  m.log.addSchedulerLog(LogCode::schedulerMessage, from);
  m.messages.showMessage(command.text, from, kMessageSeconds, true, Messages::Origin::otherMachine);
  return true;
}

}  // namespace corvana
