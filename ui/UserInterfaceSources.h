#pragma once

namespace corvana {

class ActionQueue;
class ActionStore;
class ActionTree;
class ExecuteSupervisor;
class History;
class Messages;
class Preferences;
class SchedulerCommands;
class SchedulerLog;
class StatusItem;
class SurveyExecution;
class TriggerEvaluation;
class VolumeIdentity;
class ZAN_StringTable;
class ZAN_StringUtils;
struct Platform;
struct SchedulerState;

/// What menus and windows are made from. They read it when they are drawn and change nothing in it:
/// whatever the user wants goes through `commands`. All of it outlives them. Thread: main.
struct UserInterfaceSources {
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
  StatusItem& statusItem;
  const ZAN_StringTable& texts;
  const ZAN_StringUtils& strings;
};

}  // namespace corvana
