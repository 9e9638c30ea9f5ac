#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>

#include "platform/Changes.h"
#include "platform/RunLoop.h"
#include "remote/Allowance.h"
#include "remote/AllowedAddresses.h"
#include "remote/BurstGate.h"
#include "remote/RemoteCommand.h"

namespace corvana {

class RemoteControlClient;
class SchedulerCommands;
struct Records;

/// Lets other machines of the local network see this one and control it, as long as the user allows
/// it. What they send is not trusted: it is bounded in size, number and pace, and what comes too
/// quickly is dropped unread, which the log says once for each burst. Thread: main.
class RemoteControl {
 public:
  RemoteControl(Records& records, SchedulerCommands& commands);
  ~RemoteControl();
  RemoteControl(const RemoteControl&) = delete;
  RemoteControl& operator=(const RemoteControl&) = delete;

  /// Begins to publish this machine, and follows what changes.
  void start();
  /// Publishes this machine, or takes it back, as the preferences want it. What was published
  /// before is taken back first; then the new name follows a quarter of a second later.
  void publishRemoteControl();
  /// Does what another machine wants; anything that is no command is ignored.
  void receiveFromRemoteController(std::span<const std::byte> data);
  /// Takes the machine back for good.
  void stop();

  bool isPublished() const { return mClient != nullptr; }

 private:
  void follow(ChangeSet changes);
  void publish();
  void takeBack();
  void receive(const std::string& address, std::span<const std::byte> data);
  void tellDropped(BurstGate& burst, const char* text, const std::string& sender);
  void launchSome();
  bool accepts(const std::string& address);
  void tellLeftOut(std::size_t leftOut, std::size_t all);
  void run(const RemoteCommand::Activate& command);
  void run(const RemoteCommand::Launch& command);
  void run(const RemoteCommand::Message& command);

  Records& m;
  SchedulerCommands& mCommander;
  std::unique_ptr<RemoteControlClient> mClient;
  bool mFollows = false;
  bool mPublishedAsDisabled = false;
  RunLoop::TimerId mPublication = 0;  ///< not 0: it is published then
  AllowedAddresses mAllowed;
  std::size_t mToldLeftOut = 0;
  Allowance mCommands;
  Allowance mMessages;
  Allowance mRefusals;
  BurstGate mDroppedCommands;
  BurstGate mDroppedMessages;
  std::deque<std::int64_t> mToLaunch;
  RunLoop::TimerId mLaunching = 0;  ///< not 0: goes on with those that are to be launched
};

}  // namespace corvana
