#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

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
