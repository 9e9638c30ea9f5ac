#pragma once

#include "ZANCocoaFramework/ZAN_Value.h"
#include "platform/Machine.h"
#include "platform/RunLoop.h"

namespace corvana {

/// Has the agent run the actions of the shut-down while the system waits with it: from the
/// beginning of a shut-down until the agent has ended, which it does when everything is done, or
/// until the user skips the rest. A shut-down is never held up for an agent that does not work: one
/// that is not there, is paused or switched off. Thread: main.
class ShutdownWatch {
 public:
  /// What it does to its surroundings.
  struct Hands {
    /// The agent's status; null when it does not answer.
    std::function<ZAN_Value()> agentStatus;
    /// Posts a message without details to the agent.
    std::function<void(const std::string& object)> tellAgent;
    /// Offers the user to skip the rest, and takes the offer back.
    std::function<void()> offerSkip;
    std::function<void()> closeOffer;
    /// The system goes on with the shut-down, and this program ends.
    std::function<void()> leave;
  };

  ShutdownWatch(RunLoop& runLoop, SystemLog& log, Hands hands);
  ~ShutdownWatch();
  ShutdownWatch(const ShutdownWatch&) = delete;
  ShutdownWatch& operator=(const ShutdownWatch&) = delete;

  /// A shut-down begins, or does not happen after all.
  void prepareForShutdown(bool begins);
  /// The agent came, or has left.
  void agentIsOn(bool on);
  /// The agent's status is another one.
  void agentChanged();
  /// The user does not want to wait: what runs is stopped.
  void skip();

 private:
  enum class State { waiting, lookingForAgent, running, skipping, left };

  void startActions(const ZAN_Value& status);
  /// Why the agent would not run anything; nothing when it works.
  static std::optional<std::string> idleReason(const ZAN_Value& status);
  void leave(const std::string& why);
  void leaveIn(double seconds, const std::string& why);

  RunLoop& mRunLoop;
  SystemLog& mLog;
  Hands mHands;
  State mState = State::waiting;
  RunLoop::TimerId mTimer = 0;
};

}  // namespace corvana
