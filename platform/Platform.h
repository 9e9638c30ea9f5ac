#pragma once

#include "platform/Clock.h"
#include "platform/DistributedNotifications.h"
#include "platform/Input.h"
#include "platform/Machine.h"
#include "platform/Network.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"
#include "platform/UserInterface.h"
#include "platform/Volumes.h"

namespace corvana {

class KeyedChannels;

/// Everything that the agent asks of its surroundings, in one hand: real, or simulated with a
/// virtual clock.
struct Platform {
  Clock& clock;
  RunLoop& runLoop;
  Machine& machine;
  Power& power;
  Processes& processes;
  Input& input;
  UserInterface& userInterface;
  DistributedNotifications& notifications;
  SystemLog& systemLog;
  Volumes& volumes;
  Network& network;
  ServiceDiscovery& services;
  ServerSockets& serverSockets;
  AgentObject* agentObject = nullptr;      ///< null: nobody can ask the agent
  KeyedChannels* keyedChannels = nullptr;  ///< null: nothing is encrypted

  /// The same surroundings with another loop.
  Platform withRunLoop(RunLoop& loop) const {
    return {clock,   loop,          machine,       power,       processes,
            input,   userInterface, notifications, systemLog,   volumes,
            network, services,      serverSockets, agentObject, keyedChannels};
  }
};

}  // namespace corvana
