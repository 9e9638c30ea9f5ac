#include "command/RunningAgent.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "platform/linux/ProcessTable.h"

namespace corvana {

namespace {

bool isSameFolder(const std::string& one, const std::string& other) {
  std::error_code unknown;
  return one == other || std::filesystem::equivalent(one, other, unknown);
}

}  // namespace

RunningAgent::RunningAgent(CommandHome& home) : mHome(home) { refresh(); }

void RunningAgent::refresh() {
  mStatus = {};
  mAbsence.clear();
  std::string reason;
  if (const auto status = mClient.status(); !status) {
    reason = status.error().kind == ErrorKind::absent ? "it is not on this session bus"
                                                      : status.error().text;
  } else if (!isSameFolder(status->string("home"), mHome.machine().homeFolder())) {
    reason = "the one on this session bus works in " + printable(status->string("home"));
  } else {
    mPresence = Presence::answers;
    mStatus = *status;
    mExecuteRuns = mStatus["executing"].boolValue() || mStatus["waitsForOther"].boolValue();
    return;
  }
  bool agentRuns = false;
  mExecuteRuns = false;
  for (const auto& process : ProcessTable(mHome.machine().homeFolder()).list()) {
    agentRuns |= process.bundleExecutable == "Corvana 9 Scheduler";
    mExecuteRuns |= process.bundleExecutable == "Corvana 9 Execute" && !process.isDying;
  }
  mPresence = agentRuns ? Presence::silent : Presence::absent;
  mAbsence = agentRuns ? "The agent runs, but cannot be asked: " + reason + "."
                       : "The agent is not running. Start it: corvana9-scheduler";
}

Circumstances RunningAgent::circumstances() const {
  if (!answers()) return mHome.storedCircumstances();
  return {.disabled = !mStatus["enabled"].boolValue() || mStatus["disabledWhenDone"].boolValue(),
          .otherMachine = mStatus["otherStartupDisk"].boolValue(),
          .paused = mStatus["paused"].boolValue(),
          .context = static_cast<ActionContext>(mStatus.integer("context"))};
}

namespace {

bool isQueued(const ZAN_Value& queue, std::int64_t reference) {
  const auto& records = queue.elements();
  return std::any_of(records.begin(), records.end(), [&](const ZAN_Value& record) {
    return record.integer("ref") == reference && !record.contains("task");
  });
}

}  // namespace

/// The agent launches an estimate only by a message, to which nobody answers: the queue tells.
Result<std::string> launchEstimate(BusAgentClient& client, std::int64_t reference) {
  const auto before = client.queue();
  if (!before) return before.error();
  if (isQueued(*before, reference)) return std::string("it already waits in the queue");
  const Outcome posted =
      client.post({kAgentName, "LaunchAction",
                   ZAN_Value::dictionary({{"Ref", reference}, {"EstimateSize", 1}})});
  if (!posted) return posted.error();
  const auto after = client.queue();
  if (!after) return after.error();
  return std::string(isQueued(*after, reference) ? "queued"
                                                 : "it was not queued; see corvana9 why");
}

std::string contextName(std::int64_t context) {
  constexpr std::array<const char*, 4> kNames{"", "office", "home", "nomad"};
  return context >= 0 && context < 4 ? kNames[static_cast<std::size_t>(context)] : "unknown";
}

std::string heldText(const ZAN_Value& run, const Circumstances& circumstances) {
  const std::string_view held = run["held"].stringView();
  if (held == nameOf(Hold::disabled)) return "will not run: automatic execution is off";
  if (held == nameOf(Hold::paused)) return "will wait: the agent is paused";
  if (held == nameOf(Hold::otherContext)) {
    return "will not run: the context is " +
           contextName(static_cast<std::int64_t>(circumstances.context));
  }
  if (held == nameOf(Hold::otherMachine)) {
    return "will not run: the start-up disk is another one";
  }
  return {};
}

void tellAgentThatActionListChanged() {
  // Without a bus nobody hears it, and nobody needs to.
  static_cast<void>(BusAgentClient().post({kAgentName, "ActionListChanged", {}}));
}

}  // namespace corvana
