#pragma once

#include "platform/linux/SystemClock.h"
#include "platform/qt/BusConnection.h"

namespace corvana {

/// The system's login manager: tells of sleep and shut-down, powers off, and waits with a shut-down
/// for those who hold it up. The system bus may be missing, go away and come back; so may the login
/// manager. Thread: main.
class Logind {
 public:
  struct Handlers {
    std::function<void(bool begins)> prepareForSleep;  ///< false: the machine is awake again
    /// A power-off or restart begins, or does not happen after all.
    std::function<void(bool begins)> prepareForShutdown;
  };

  /// `log` hears once when there is no system bus, or no login manager on it.
  Logind(RunLoop& runLoop, SystemLog& log,
         BusConnection::Address address = BusConnection::systemBusAddress);
  Logind(const Logind&) = delete;
  Logind& operator=(const Logind&) = delete;
  ~Logind();

  void setHandlers(Handlers handlers);

  /// Whether a power-off or restart is under way.
  bool isShuttingDown() const;

  /// Asks for a power-off, without any question to the user. Returns when the login manager has
  /// answered, some seconds at most.
  Outcome powerOff();

  /// From now on a shut-down waits for this process, as long as the system allows; again after the
  /// login manager was away. `why` is shown to the user.
  void holdUpShutDown(const std::string& who, const std::string& why);
  void letShutDown();
  bool isHoldingUpShutDown() const;

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

/// Sleep and power-off by the login manager, waking by the wake-up helper.
class LogindPower final : public Power {
 public:
  /// The login manager outlives this object, which takes its handlers.
  LogindPower(Logind& logind, WakeAlarm alarm);
  ~LogindPower() override;

  void observe(Observer observer) override { mObserver = std::move(observer); }
  bool canWake() const override { return mAlarm.canWake(); }
  Outcome scheduleWake(std::int64_t time, const std::string& identifier) override;
  void cancelWake(std::int64_t time, const std::string& identifier) override;
  Outcome shutDown() override;

 private:
  Logind& mLogind;
  WakeAlarm mAlarm;
  Observer mObserver;
};

}  // namespace corvana
