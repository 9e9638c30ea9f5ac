#pragma once

#include "command/CommandHome.h"
#include "platform/qt/BusAgentClient.h"

namespace corvana {

/// The agent of the home folder that a command works on, as far as it can be reached.
class RunningAgent {
 public:
  enum class Presence {
    answers,
    silent,  ///< it runs, but not on this session bus, or it does not answer
    absent
  };

  /// Asks once.
  explicit RunningAgent(CommandHome& home);

  Presence presence() const { return mPresence; }
  bool answers() const { return mPresence == Presence::answers; }
  /// Whether an execute program of this home runs.
  bool executeRuns() const { return mExecuteRuns; }
  /// As the agent answers it; null unless it answers.
  const ZAN_Value& status() const { return mStatus; }
  /// What holds actions up, from the agent, else from its files.
  Circumstances circumstances() const;
  /// Asks again.
  void refresh();
  /// Why it does not answer and what to do, in one sentence each; empty when it answers.
  const std::string& absence() const { return mAbsence; }

  BusAgentClient& client() { return mClient; }

 private:
  CommandHome& mHome;
  BusAgentClient mClient;
  Presence mPresence = Presence::absent;
  bool mExecuteRuns = false;
  ZAN_Value mStatus;
  std::string mAbsence;
};

/// Names of the programs on the bus.
inline constexpr const char* kAgentName = "CVA9_SchedulerNotification";
inline constexpr const char* kExecuteName = "CVA9_ExecuteNotification";
inline constexpr const char* kMainApplicationName = "CVA9_MainAppliNotification";
inline constexpr const char* kShutDownName = "CVA9_ShutDownNotification";

/// Has the agent launch an estimate: "queued", or why not.
Result<std::string> launchEstimate(BusAgentClient& client, std::int64_t reference);

/// "office", "home", "nomad", or nothing.
std::string contextName(std::int64_t context);
/// Why a run will not take place as things are, in a few words; empty for one that is not held.
std::string heldText(const ZAN_Value& run, const Circumstances& circumstances);
/// Tells a running agent that the stored tree has changed, so that it reads it again at once, and
/// waits until the bus has it. Does nothing when there is no session bus: the agent finds the
/// change by itself at its next evaluation.
void tellAgentThatActionListChanged();

}  // namespace corvana
