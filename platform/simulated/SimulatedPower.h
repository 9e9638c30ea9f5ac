#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/Power.h"

namespace corvana {

/// A machine that sleeps, wakes and goes down when the test says so, and keeps what was asked.
class SimulatedPower final : public Power {
 public:
  void observe(Observer observer) override { mObserver = std::move(observer); }
  bool canWake() const override { return clockWakes; }
  Outcome scheduleWake(std::int64_t time, const std::string& identifier) override;
  void cancelWake(std::int64_t time, const std::string& identifier) override;
  Outcome shutDown() override;

  void willSleep() const;
  void didWake() const;
  void shutDownIsOff() const;

  std::set<std::int64_t> wakes;     ///< programmed now
  std::vector<std::string> events;  ///< "schedule 725889600", "cancel 725889600" in order
  Outcome wakeOutcome;              ///< what it answers; a refusal programs nothing
  bool clockWakes = true;
  std::string identifier;   ///< the last one given
  int shutDowns = 0;        ///< how often it was asked to power off
  Outcome shutDownOutcome;  ///< what it answers

 private:
  Observer mObserver;
};

}  // namespace corvana
