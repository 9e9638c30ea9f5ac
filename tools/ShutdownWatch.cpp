#include "tools/ShutdownWatch.h"

#include <utility>

namespace corvana {

namespace {

/// An agent that restarts itself is back by then.
constexpr double kAgentComesBack = 3;
/// So long the agent may take to end what it runs.
constexpr double kAgentEnds = 10;

}  // namespace

ShutdownWatch::ShutdownWatch(RunLoop& runLoop, SystemLog& log, Hands hands)
    : mRunLoop(runLoop), mLog(log), mHands(std::move(hands)) {}

ShutdownWatch::~ShutdownWatch() { mRunLoop.cancel(mTimer); }

void ShutdownWatch::prepareForShutdown(bool begins) {
  if (!begins) {
    // What was started goes on; the agent has heard it too and does not end.
    if (mState != State::left && std::exchange(mState, State::waiting) == State::running)
      mHands.closeOffer();
    mRunLoop.cancel(std::exchange(mTimer, 0));
    return;
  }
  if (mState != State::waiting) return;
  const ZAN_Value status = mHands.agentStatus();
  if (!status.isNull()) {
    startActions(status);
    return;
  }
  mState = State::lookingForAgent;
  leaveIn(kAgentComesBack, "no agent runs");
}

void ShutdownWatch::startActions(const ZAN_Value& status) {
  mRunLoop.cancel(std::exchange(mTimer, 0));
  if (const auto reason = idleReason(status)) {
    leave(*reason);
    return;
  }
  mState = State::running;
  mLog.write(
      "The actions of the shut-down are run; to skip them: corvana9 post shutdown "
      "SkipShutDownActions");
  mHands.offerSkip();
  mHands.tellAgent("LaunchShutDownActions");
}

void ShutdownWatch::agentIsOn(bool on) {
  if (mState == State::lookingForAgent && on) {
    if (const ZAN_Value status = mHands.agentStatus(); !status.isNull()) startActions(status);
  } else if (mState == State::running && !on) {
    leave("the agent has ended");
  } else if (mState == State::skipping && !on) {
    leave("the user has skipped them");
  }
}

void ShutdownWatch::agentChanged() {
  if (mState != State::running) return;
  const ZAN_Value status = mHands.agentStatus();
  if (status.isNull()) return;
  if (const auto reason = idleReason(status)) leave(*reason);
}

void ShutdownWatch::skip() {
  if (mState == State::lookingForAgent) leave("the user has skipped them");
  if (mState != State::running) return;
  mState = State::skipping;
  mHands.closeOffer();
  mHands.tellAgent("QuitCVAProcess");
  leaveIn(kAgentEnds, "the user has skipped them, and the agent does not end");
}

std::optional<std::string> ShutdownWatch::idleReason(const ZAN_Value& status) {
  if (status["paused"].boolValue()) return "the agent is paused";
  if (!status["enabled"].boolValue()) return "automatic execution is off";
  return std::nullopt;
}

void ShutdownWatch::leaveIn(double seconds, const std::string& why) {
  mTimer = mRunLoop.performAfter(seconds, [this, why] {
    mTimer = 0;
    leave(why);
  });
}

void ShutdownWatch::leave(const std::string& why) {
  mRunLoop.cancel(std::exchange(mTimer, 0));
  if (mState == State::running) mHands.closeOffer();
  mState = State::left;
  mLog.write("The shut-down goes on: " + why);
  mHands.leave();
}

}  // namespace corvana
