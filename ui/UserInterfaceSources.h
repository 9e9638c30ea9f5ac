#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvana {

class LaunchStep;
class SchedulerCommands;
class StatusItem;
class ZAN_Value;
enum class Ability;
struct MachineDuties;
struct Records;
struct Work;

/// What menus and windows are made from: they read it when they are drawn, and whatever the user
/// wants goes through `commands`. Reading may bring lists up to date with their files, and nothing
/// else. All of it outlives them. Thread: main.
struct UserInterfaceSources {
  UserInterfaceSources(Records& records, Work& work, MachineDuties& machine,
                       const LaunchStep& launchStep, SchedulerCommands& commands,
                       StatusItem& statusItem);

  Records& records;
  Work& work;
  MachineDuties& machine;
  const LaunchStep& launchStep;
  SchedulerCommands& commands;
  StatusItem& statusItem;

  /// Why the machine has not got an ability, as a sentence; empty when it has. A desktop knows more
  /// than the duties.
  std::function<std::string(Ability)> lacking;

  // The account of the reports: its settings are those of the main application.
  std::function<void(const std::string& key, const ZAN_Value& value)> setMailSetting;
  std::function<void()> sendTestMail;
  std::function<std::string()> testMailResult;  ///< in a sentence; empty before the first test

  // The machines that are paired with this one.
  std::function<void()> offerPairing;         ///< to whoever comes within two minutes
  std::function<std::string()> pairingState;  ///< in a sentence; empty before the first offer
  /// {"name", "sender"} each.
  std::function<ZAN_Value()> pairedMachines;
  /// Gives the machine of that sender another name; forgets it for an empty one.
  std::function<void(const std::string& sender, const std::string& name)> renamePaired;
};

/// Queues an action as asked for by hand. Why that was refused, in a line; empty when it was not.
std::string queueByHand(const UserInterfaceSources& sources, std::int64_t ref);

/// The same for several, of a group each of its actions; says in a line what came of it.
std::string launchByHand(const UserInterfaceSources& sources,
                         const std::vector<std::int64_t>& refs);

}  // namespace corvana
