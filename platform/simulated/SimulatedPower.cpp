#include "platform/simulated/SimulatedPower.h"

namespace corvana {

Outcome SimulatedPower::scheduleWake(std::int64_t time, const std::string& whose) {
  events.push_back("schedule " + std::to_string(time));
  identifier = whose;
  if (wakeOutcome) wakes.insert(time);
  return wakeOutcome;
}

void SimulatedPower::cancelWake(std::int64_t time, const std::string& whose) {
  events.push_back("cancel " + std::to_string(time));
  identifier = whose;
  wakes.erase(time);
}

Outcome SimulatedPower::shutDown() {
  ++shutDowns;
  return shutDownOutcome;
}

void SimulatedPower::willSleep() const {
  if (mObserver.willSleep) mObserver.willSleep();
}

void SimulatedPower::didWake() const {
  if (mObserver.didWake) mObserver.didWake();
}

void SimulatedPower::shutDownIsOff() const {
  if (mObserver.shutDownIsOff) mObserver.shutDownIsOff();
}

}  // namespace corvana
