#pragma once

#include <deque>

#include "core/record/Deadline.h"
#include "platform/RunLoop.h"
#include "platform/UserInterface.h"
#include "remote/Admission.h"
#include "remote/PairedChannel.h"
#include "remote/Pairing.h"
#include "remote/PublishedService.h"
#include "remote/RemoteCommand.h"

namespace corvana {

class SchedulerCommands;
struct Records;

/// Lets other machines of the local network see this one and control it, as long as the user allows
/// it. As a rule they have to prove the password with each command, and may do what is permitted;
/// without that preference anybody may do everything, as other programs expect it. What they send
/// is not trusted: it is bounded in size, number and pace, and what comes too quickly is dropped
/// unread, which the log says once for each burst. Machines that are paired with this one have an
/// encrypted channel beside it, which also tells them how everything stands. Thread: main.
class RemoteControl {
 public:
  /// `state` gives what paired machines may see.
  RemoteControl(Records& records, SchedulerCommands& commands, std::function<ZAN_Value()> state);
  ~RemoteControl();
  RemoteControl(const RemoteControl&) = delete;
  RemoteControl& operator=(const RemoteControl&) = delete;

  /// Begins to publish this machine, and follows what changes.
  void start();
  /// Publishes this machine, or takes it back, as the preferences want it. What was published
  /// before is taken back first; then the new name follows a quarter of a second later. Where
  /// proofs are wanted there is nothing to see before their key was computed, nor without a
  /// password or a paired machine.
  void publishRemoteControl();
  /// Does what another machine wants, if it may; anything that is no command is ignored. Gives what
  /// is answered.
  std::vector<std::byte> receiveFromRemoteController(const std::string& address,
                                                     std::span<const std::byte> data);
  /// Takes the machine back for good.
  void stop();

  bool isPublished() const { return mClient != nullptr; }

 private:
  void follow(ChangeSet changes);
  void publish();
  void publish(std::uint32_t passwordCode, RemoteControlClient::Exposure exposure);
  void publishProven();
  void takePaired();
  void refreshPaired();
  void openChannel();
  void computeKey();
  void keyIsThere(const std::string& password, const std::optional<ControlKey>& key);
  void takeBack();
  std::vector<std::byte> answerProof(const std::string& address, const RemoteCommand& command);
  ChannelReply answerPaired(const std::string& address, const std::string& sender,
                            const ChannelRequest& request);
  /// What has come of a command that somebody has proven or said through the channel.
  CommandReply::Word carryOutProven(const std::string& address, const std::string& sender,
                                    Allowances& controllers, const RemoteCommand& command);
  /// How many lines of the records a command is good for, in runs of an action.
  double weightOf(const RemoteCommand& command) const;
  bool permits(const RemoteCommand& command) const;
  /// False when it came too quickly after others.
  bool carryOut(const std::string& address, const RemoteCommand& command);
  void tellOnce(BurstGate& burst, const char* text, const std::string& sender);
  void launchSome();
  bool accepts(const std::string& address);
  /// Whether that address may say something again, which is counted.
  bool isInTime(const std::string& address);
  void tellLeftOut(std::size_t leftOut, std::size_t all);
  bool run(const std::string& address, const RemoteCommand::Activate& command);
  bool run(const std::string& address, const RemoteCommand::Launch& command);
  bool run(const std::string& address, const RemoteCommand::Message& command);

  Records& m;
  SchedulerCommands& mCommander;
  const std::function<ZAN_Value()> mState;
  std::unique_ptr<RemoteControlClient> mClient;
  bool mFollows = false;
  bool mPublishedAsDisabled = false;
  RunLoop::TimerId mPublication = 0;  ///< not 0: it is published then
  AllowedAddresses mAllowed;
  std::size_t mToldLeftOut = 0;
  PairedMachines mPaired;
  PairedChannel mChannel;
  bool mToldWithoutChannel = false;
  std::optional<ProofChecker> mChecker;  ///< nothing: no command can be proven
  std::optional<ControlKey> mKey;        ///< of the password below
  std::string mPassword;
  std::string mComputesFor;  ///< the password whose key is being computed; empty: none
  bool mToldWithoutPassword = false;
  std::uint32_t mDecoyCode;  ///< stands where others expect a code of the password
  Allowances mAddresses;
  Allowances mControllers;        ///< whoever knows the password takes any name for itself
  Allowances mPairedControllers;  ///< whose names are their own
  Allowance mMessages;
  Allowance mWithoutProof;
  BurstGate mRefused;
  BurstGate mUnproven;
  BurstGate mNotPermitted;
  BurstGate mDroppedCommands;
  BurstGate mDroppedMessages;
  std::deque<std::int64_t> mToLaunch;
  RunLoop::TimerId mLaunching = 0;  ///< not 0: goes on with those that are to be launched
  std::shared_ptr<int> mAlive = std::make_shared<int>(0);
};

}  // namespace corvana
