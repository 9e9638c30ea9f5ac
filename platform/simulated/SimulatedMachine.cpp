#include "platform/simulated/SimulatedMachine.h"

namespace corvana {

SimulatedMachine::SimulatedMachine(const std::string& homeFolder)
    : home(homeFolder),
      desktop(homeFolder + "/Desktop"),
      downloads(homeFolder + "/Downloads"),
      configuration(homeFolder + "/.config") {
  setProductFolder(home + "/Applications");
}

ZAN_Value SimulatedMachine::userDefault(const std::string& key) const {
  const auto found = userDefaults.find(key);
  return found == userDefaults.end() ? ZAN_Value() : found->second;
}

void SimulatedMachine::setUserDefault(const std::string& key, const ZAN_Value& value) {
  if (value.isNull()) {
    userDefaults.erase(key);
  } else {
    userDefaults[key] = value;
  }
}

void SimulatedMachine::setProductFolder(const std::string& folder) {
  bundle = folder + "/Corvana 9.app/Contents/Resources/Corvana 9 Scheduler.app";
  executable = bundle + "/Contents/MacOS/Corvana 9 Scheduler";
}

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
