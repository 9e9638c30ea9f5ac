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

}  // namespace corvana
