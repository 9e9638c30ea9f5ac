#pragma once

#include <functional>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// A message between the programs of the product: which program it is for, what it says, and
/// details.
struct DistributedNotification {
  std::string name;
  std::string object;  ///< empty: none
  ZAN_Value userInfo;  ///< a dictionary with text keys, or null
};

/// The channel between the programs of one user. Thread: main.
class DistributedNotifications {
 public:
  using Handler = std::function<void(const DistributedNotification&)>;
  virtual ~DistributedNotifications() = default;
  /// Delivered at once to whoever listens now; nobody listening is no error.
  virtual void post(const DistributedNotification& notification) = 0;
  /// One handler a name; a second one replaces the first.
  virtual void observe(const std::string& name, Handler handler) = 0;
  virtual void stopObserving(const std::string& name) = 0;
};

/// What the agent answers to other programs of its user. Thread: main.
class AgentAnswers {
 public:
  virtual ~AgentAnswers() = default;

  /// What it does now: a dictionary.
  virtual ZAN_Value status() = 0;
  /// The queue, head first: an array of dictionaries.
  virtual ZAN_Value queue() = 0;
  /// The actions with their next dates, in order: an array of dictionaries.
  virtual ZAN_Value next() = 0;
  /// Why an action does not run now or will not at its next date; empty when nothing is in its way.
  /// Fails for an action that is not there.
  virtual Result<std::vector<std::string>> why(std::int64_t ref) = 0;
  /// Queues an action as if by hand, or says why not. It is safe when the call returns, or at the
  /// end of `together`.
  virtual Outcome launch(std::int64_t ref) = 0;
  /// Performs `body`, which launches what came at once and returns, as this does, whether more
  /// follow at once: what it queued is then stored with those, at the latest with the one that says
  /// that none do.
  virtual bool together(const std::function<bool()>& body) = 0;
};

/// The place where other programs find the agent and ask it. Where there is no such place nobody
/// asks, and the agent goes on. Thread: main.
class AgentObject {
 public:
  virtual ~AgentObject() = default;

  /// From now on `answers` is asked, until `disappear`.
  virtual void appear(AgentAnswers& answers) = 0;
  virtual void disappear() = 0;
  /// What would be answered has changed: tells everybody who listens, once for all changes of one
  /// pass of the loop.
  virtual void changed() = 0;
};

}  // namespace corvana
