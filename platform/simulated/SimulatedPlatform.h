#pragma once

#include "platform/Platform.h"
#include "platform/simulated/SimulatedMachine.h"
#include "platform/simulated/SimulatedNetwork.h"
#include "platform/simulated/SimulatedNotifications.h"
#include "platform/simulated/SimulatedProcesses.h"
#include "platform/simulated/SimulatedUserInterface.h"
#include "platform/simulated/SimulatedVolumes.h"
#include "platform/simulated/TemporaryFolder.h"

namespace corvana {

/// A whole machine for tests: virtual time, a home folder of its own, and twins of everything that
/// the agent asks of its surroundings, which keep what was asked. Begins on Tuesday 2024-01-02 at
/// 12:00:00 UTC.
class SimulatedPlatform {
 public:
  static constexpr ReferenceTime kFirstDate = 725889600.0;

  explicit SimulatedPlatform(ReferenceTime now = kFirstDate) : time(now) {}
  SimulatedPlatform(const SimulatedPlatform&) = delete;
  SimulatedPlatform& operator=(const SimulatedPlatform&) = delete;
  ~SimulatedPlatform() { time.finishThreads(); }

  /// The references to hand to the agent.
  Platform platform() {
    return {clock,   runLoop,       machine,       power,     processes,
            input,   userInterface, notifications, systemLog, volumes,
            network, services,      serverSockets, nullptr,   keyedChannels};
  }

  TemporaryFolder folder;  ///< the home
  VirtualTime time;
  SimulatedClock clock{time};
  SimulatedRunLoop runLoop{time};
  SimulatedMachine machine{folder.path()};
  SimulatedPower power;
  SimulatedProcesses processes{time, runLoop, machine.executable};
  SimulatedInput input{runLoop};
  SimulatedUserInterface userInterface{runLoop};
  SimulatedNotifications notifications{runLoop};
  SimulatedSystemLog systemLog;
  SimulatedNetwork network{time};
  SimulatedServiceDiscovery services{runLoop};
  SimulatedServerSockets serverSockets{runLoop};
  KeyedChannels* keyedChannels = nullptr;  ///< the test's
  SimulatedVolumes volumes{runLoop, folder.at("Volumes")};
};

}  // namespace corvana
