#pragma once

#include <functional>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// What tells one start-up disk from another; 0 is unknown.
struct StartupVolume {
  std::string name;                ///< its label; "/" when it has none that can be found out
  std::uint64_t size = 0;          ///< bytes of the block device
  std::uint64_t creationDate = 0;  ///< of the file system, seconds since 2001
  std::uint64_t volumeSize = 0;    ///< bytes of the file system, as folder descriptions carry them
};

/// What the program asks of the machine it runs on and of the user it runs for. Thread: main.
class Machine {
 public:
  virtual ~Machine() = default;

  virtual std::string homeFolder() const = 0;
  virtual std::string desktopFolder() const = 0;
  virtual std::string downloadsFolder() const = 0;
  /// The user's configuration folder, where "corvana9/defaults.ini" lies.
  virtual std::string configurationFolder() const = 0;
  virtual std::string loginName() const = 0;
  /// The first part of the machine's name.
  virtual std::string networkName() const = 0;
  /// As the machine calls itself, with its domain when it has one.
  virtual std::string hostName() const = 0;
  /// Tells this machine from others, whatever it is called; 1 to 12 letters and digits.
  virtual std::string machineIdentifier() const = 0;
  /// The number of the user of this session.
  virtual std::int64_t userIdentifier() const = 0;
  /// IANA name such as "Europe/Paris", or "UTC"; asked at each evaluation, since it may change.
  virtual std::string timeZoneName() const = 0;
  /// POSIX name of the region for dates and numbers, such as "fr_FR.UTF-8" or "C".
  virtual std::string regionName() const = 0;
  /// Languages the user reads, most wanted first, such as "fr", "en".
  virtual std::vector<std::string> languageNames() const = 0;
  /// 10.8.0 is 100800.
  virtual int systemVersion() const = 0;
  /// Full path of the running program.
  virtual std::string executablePath() const = 0;
  /// Path of the agent's own application bundle, the ".app" around the running program.
  virtual std::string bundlePath() const = 0;
  /// Whether the file belongs to root and runs with root's rights.
  virtual bool isOwnedByRootAndSetUserId(const std::string& path) const = 0;
  /// The process's standard user defaults, null without that key.
  virtual ZAN_Value userDefault(const std::string& key) const = 0;
  virtual void setUserDefault(const std::string& key, const ZAN_Value& value) = 0;
  /// The volume that the system runs from; nothing when it cannot be read or is on no block device.
  virtual std::optional<StartupVolume> startupVolume() const = 0;
  /// What the user's session starts: the full path of each program, as far as it can be told.
  virtual std::vector<std::string> loginItems() const = 0;
};

/// The system log: one line a call, for the administrator.
class SystemLog {
 public:
  virtual ~SystemLog() = default;
  virtual void write(const std::string& line) = 0;
};

/// The machine's sleep, its waking and its end. Where the system cannot tell or do one of them,
/// that is said once in the system log and only that is lacking. Thread: main.
class Power {
 public:
  struct Observer {
    std::function<void()> willSleep;
    std::function<void()> didWake;
    /// A shut-down or restart that had begun does not happen after all.
    std::function<void()> shutDownIsOff;
  };

  virtual ~Power() = default;

  /// From now on these are called from the loop. A second observer replaces the first; an empty one
  /// ends it.
  virtual void observe(Observer observer) = 0;

  /// Whether there is a clock that could wake it.
  virtual bool canWake() const { return true; }
  /// Lets the machine wake at `time`, whole seconds since the reference date. It holds over the end
  /// of this process; the same again changes nothing. `identifier` says whose it is. An error says
  /// what the user can do.
  virtual Outcome scheduleWake(std::int64_t time, const std::string& identifier) = 0;
  /// Takes that wish back; one that is not there is ignored.
  virtual void cancelWake(std::int64_t time, const std::string& identifier) = 0;

  /// Asks the system to power off, or says why it will not. While the machine is going down already
  /// nothing is asked for, so a restart stays a restart.
  virtual Outcome shutDown() = 0;
};

}  // namespace corvana
