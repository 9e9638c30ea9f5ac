#include "remote/RemoteControl.h"

#include <algorithm>
#include <utility>
#include <variant>
#include <vector>

#include "core/record/Records.h"
#include "core/record/SchedulerCommands.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "remote/RemoteControlClient.h"
#include "remote/UtilsCommon.h"

namespace corvana {

namespace {

/// The others need it to see that the service has gone.
constexpr double kPauseBetweenPublications = 0.25;
constexpr double kMessageSeconds = 30;

// A controlling user is far slower. The pace of messages is that at which they are shown, so that
// no more of them wait than come at once.
constexpr int kCommandsAtOnce = 20;
constexpr double kSecondsPerCommand = 2;
constexpr int kMessagesAtOnce = 10;
constexpr int kRefusalsAtOnce = 20;
constexpr double kSecondsPerRefusal = 10;
/// After so much quiet a flood is a new one.
constexpr double kQuietBetweenBursts = 300;
/// Each is a line of the report: the loop gets on with other things in between.
constexpr std::size_t kLaunchesAtOnce = 25;
constexpr std::size_t kMostLaunchesWaiting = 100'000;

}  // namespace

RemoteControl::RemoteControl(Records& records, SchedulerCommands& commands)
    : m(records),
      mCommander(commands),
      mCommands(kCommandsAtOnce, kSecondsPerCommand),
      mMessages(kMessagesAtOnce, kMessageSeconds),
      mRefusals(kRefusalsAtOnce, kSecondsPerRefusal),
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
    receive(address, data);
  };
  mClient->onLeftOut = [this](std::size_t leftOut, std::size_t all) { tellLeftOut(leftOut, all); };
  publish();
}

void RemoteControl::publish() {
  mAllowed = AllowedAddresses(m.preferences.prefForKey(PreferenceKey::allowedAddresses));
  for (const std::string& word : mAllowed.wrong())
    m.platform.systemLog.write(word + ": not an address that may control this machine");
  mClient->publishClient(m.preferences.mRemoteControlLocalName, !m.state.mScheduleDisabled,
                         m.preferences.mPrefAllowRemoteControl == 0,
                         UtilsCommon::getPasswordCode(m.preferences.mRemoteControlPassword));
}

void RemoteControl::tellLeftOut(std::size_t leftOut, std::size_t all) {
  if (std::exchange(mToldLeftOut, leftOut) == leftOut || leftOut == 0) return;
  m.log.addSchedulerLog(LogCode::message,
                        m.texts.text("RemoteControlActionsLeftOut", {leftOut, all}));
}

bool RemoteControl::accepts(const std::string& address) {
  if (mAllowed.allows(address)) return true;
  // Each entry rewrites the log.
  if (mRefusals.take(m.platform.clock.monotonic()))
    m.log.addSchedulerLog(LogCode::message, m.texts.text("RemoteControlRefused", {address}));
  return false;
}

void RemoteControl::receive(const std::string& address, std::span<const std::byte> data) {
  if (mCommands.take(m.platform.clock.monotonic())) return receiveFromRemoteController(data);
  tellDropped(mDroppedCommands, "RemoteControlDropped", address);
}

void RemoteControl::tellDropped(BurstGate& burst, const char* text, const std::string& sender) {
  if (burst.begins(m.platform.clock.monotonic()))
    m.log.addSchedulerLog(LogCode::message, m.texts.text(text, {sender}));
}

void RemoteControl::receiveFromRemoteController(std::span<const std::byte> data) {
  const auto command = RemoteCommand::decode(data);
  if (!command) return;
  std::visit([this](const auto& what) { run(what); }, command->what);
}

/// 1 enables a disabled schedule and 0 disables an enabled one.
void RemoteControl::run(const RemoteCommand::Activate& command) {
  const bool disabled = m.state.mScheduleDisabled;
  if (command.value == (disabled ? 1 : 0)) mCommander.setSchedulerActive(disabled);
}

void RemoteControl::run(const RemoteCommand::Launch& command) {
  const std::size_t room = kMostLaunchesWaiting - std::min(kMostLaunchesWaiting, mToLaunch.size());
  const auto& refs = command.references;
  mToLaunch.insert(mToLaunch.end(), refs.begin(),
                   refs.begin() + static_cast<std::ptrdiff_t>(std::min(room, refs.size())));
  if (mLaunching == 0) launchSome();
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

void RemoteControl::run(const RemoteCommand::Message& command) {
  if (!mMessages.take(m.platform.clock.monotonic()))
    return tellDropped(mDroppedMessages, "RemoteMessagesDropped", command.sender);
  const std::string from = m.texts.text("MessageFromDistantController", {command.sender});
  m.log.addSchedulerLog(LogCode::schedulerMessage, from);
  m.messages.showMessage(command.text, from, kMessageSeconds, true, Messages::Origin::otherMachine);
}

}  // namespace corvana
