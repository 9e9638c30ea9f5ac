#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>

#include "platform/RunLoop.h"
#include "remote/Allowance.h"
#include "remote/AllowedAddresses.h"
#include "remote/BurstGate.h"
#include "remote/RemoteCommand.h"

namespace corvana {

class ActionTree;
class Messages;
class Preferences;
class RemoteControlClient;
class SchedulerCommands;
class SchedulerLog;
class ZAN_StringTable;
struct Platform;
struct SchedulerState;

/// Lets other machines of the local network see this one and control it, as long as the user allows
/// it. What they send is not trusted: it is bounded in size, number and pace, and what comes too
/// quickly is dropped unread, which the log says once for each burst. Thread: main.
class RemoteControl {
 public:
  /// What it leans on; everything outlives it.
  struct Surroundings {
    Platform& platform;
    SchedulerState& state;
    Preferences& preferences;
    ActionTree& tree;
    SchedulerCommands& commands;
    SchedulerLog& log;
    Messages& messages;
    const ZAN_StringTable& texts;
  };

  explicit RemoteControl(const Surroundings& surroundings);
  ~RemoteControl();
  RemoteControl(const RemoteControl&) = delete;
  RemoteControl& operator=(const RemoteControl&) = delete;

  /// Publishes this machine, or takes it back, as the preferences want it. What was published
  /// before is taken back first; then the new name follows a quarter of a second later.
  void publishRemoteControl();
  /// Does what another machine wants; anything that is no command is ignored.
  void receiveFromRemoteController(std::span<const std::byte> data);
  /// Takes the machine back for good.
  void stop();

  bool isPublished() const { return mClient != nullptr; }

 private:
  void publish();
  void receive(const std::string& address, std::span<const std::byte> data);
  void tellDropped(BurstGate& burst, const char* text, const std::string& sender);
  void launchSome();
  bool accepts(const std::string& address);
  void tellLeftOut(std::size_t leftOut, std::size_t all);
  void run(const RemoteCommand::Activate& command);
  void run(const RemoteCommand::Launch& command);
  void run(const RemoteCommand::Message& command);

  Surroundings m;
  std::unique_ptr<RemoteControlClient> mClient;
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
