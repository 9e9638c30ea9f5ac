#pragma once

namespace corvana {

class AgentObject;
class Clock;
class DistributedNotifications;
class Input;
class KeyedChannels;
class Machine;
class Network;
class Power;
class Processes;
class RunLoop;
class ServerSockets;
class ServiceDiscovery;
class SystemLog;
class UserInterface;
class Volumes;

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
