#pragma once

namespace corvana {

class ActionStore;
class ActionTree;
class DebugLog;
class ExecutionCounters;
class Messages;
class Preferences;
class SchedulerLog;
class SiblingChannel;
class SiblingWatch;
class SurveyExecution;
class VolumeIdentity;
class ZAN_StringTable;
class ZAN_StringUtils;
struct Platform;
struct SchedulerState;

/// What the queue, the evaluation and the supervision lean on, in one hand. Everything outlives
/// them.
struct WorkSurroundings {
  Platform& platform;
  ActionTree& tree;
  ActionStore& store;
  ExecutionCounters& counters;
  Preferences& preferences;
  SchedulerState& state;
  SchedulerLog& log;
  DebugLog& debugLog;
  SurveyExecution& survey;
  Messages& messages;
  SiblingChannel& siblings;
  SiblingWatch& siblingWatch;
  VolumeIdentity& volumes;
  const ZAN_StringTable& texts;
  const ZAN_StringUtils& strings;
};

}  // namespace corvana
