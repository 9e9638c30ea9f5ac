#pragma once

#include "platform/Power.h"
#include "platform/linux/WakeAlarm.h"
#include "platform/qt/Logind.h"

namespace corvana {

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
