#pragma once

#include <functional>
#include <string>

namespace corvana {

class ActionQueue;
class ActionStore;
class ActionTree;
class ExecuteSupervisor;
class History;
class LaunchStep;
class Messages;
class Preferences;
class SchedulerCommands;
class SchedulerLog;
class StatusItem;
class SurveyExecution;
class TriggerEvaluation;
class VolumeIdentity;
class VolumeMounter;
class ZAN_StringTable;
class ZAN_StringUtils;
class ZAN_Value;
enum class Ability;
struct MachineDuties;
struct Platform;
struct Records;
struct SchedulerState;
struct Work;

/// What menus and windows are made from: they read it when they are drawn, and whatever the user
/// wants goes through `commands`. Reading may bring lists up to date with their files, and nothing
/// else. All of it outlives them. Thread: main.
struct UserInterfaceSources {
  UserInterfaceSources(Records& records, Work& work, MachineDuties& machine,
                       const LaunchStep& launchStep, SchedulerCommands& commands,
                       StatusItem& statusItem);

  Platform& platform;
  SchedulerCommands& commands;
  SchedulerState& state;
  Preferences& preferences;
  ActionStore& store;
  ActionTree& tree;
  History& history;
  SchedulerLog& log;
  Messages& messages;
  ActionQueue& queue;
  TriggerEvaluation& evaluation;
  ExecuteSupervisor& supervisor;
  SurveyExecution& survey;
  VolumeIdentity& volumes;
  VolumeMounter& mounter;
  StatusItem& statusItem;
  const ZAN_StringTable& texts;
  const ZAN_StringUtils& strings;

  /// What holds the scheduler up, or what it does, in a line.
  std::function<std::string()> statusInformation;
  /// Why the head of the queue does not start now; empty when nothing holds it.
  std::function<std::string()> launchHold;
  std::function<std::string()> surveyLine;
  /// Why the machine has not got an ability, as a sentence; empty when it has.
  std::function<std::string(Ability)> lacking;

  std::function<std::string()> strayFolders;      ///< their names
  std::function<std::string()> strayFoldersDate;  ///< when they were seen, as shown
  /// How far their deletion has got, as shown; empty while nothing is being deleted.
  std::function<std::string()> strayFoldersProgress;
  /// Deletes them and, when none is left, goes on with what was held back.
  std::function<void()> repairAndContinue;
  std::function<int()> freePercent;  ///< of the start-up disk

  // The account of the reports: its settings are those of the main application.
  std::function<void(const std::string& key, const ZAN_Value& value)> setMailSetting;
  std::function<void()> sendTestMail;
  std::function<std::string()> testMailResult;  ///< in a sentence; empty before the first test
};

}  // namespace corvana
