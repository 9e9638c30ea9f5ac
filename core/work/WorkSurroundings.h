#pragma once

namespace corvana {

class ActionStore;
class ActionTree;
class History;
class MailSender;
class Messages;
class Preferences;
class SchedulerLog;
class SchedulerState;
class SiblingChannel;
class SiblingWatch;
class VolumeIdentity;
struct Platform;

/// What the queue, the evaluation and the supervision lean on, in one hand. Everything outlives
/// them.
struct WorkSurroundings {
  Platform& platform;
  ActionTree& tree;
  ActionStore& store;
  History& history;
  Preferences& preferences;
  SchedulerState& state;
  SchedulerLog& log;
  Messages& messages;
  SiblingChannel& siblings;
  SiblingWatch& siblingWatch;
  VolumeIdentity& volumes;
};

}  // namespace corvana
