#include "command/RunningAgent.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "platform/linux/ProcessTable.h"

namespace corvana {

namespace {

bool isSameFolder(const std::string& one, const std::string& other) {
  std::error_code unknown;
  return one == other || std::filesystem::equivalent(one, other, unknown);
}

ZAN_Value withPlainDates(const ZAN_Value& value) {
  if (const auto date = value.asDate()) return *date;
  if (value.isArray()) {
    std::vector<ZAN_Value> elements;
    for (const ZAN_Value& one : value.elements()) elements.push_back(withPlainDates(one));
    return ZAN_Value::array(std::move(elements));
  }
  if (value.isDictionary()) {
    ZAN_Value dictionary = ZAN_Value::dictionary();
    for (const auto& entry : value.entries())
      dictionary.setValue(entry.key.stringView(), withPlainDates(entry.value));
    return dictionary;
  }
  return value;
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
    mExecuteRuns = mStatus["executing"].boolValue();
    return;
  }
  bool agentRuns = false;
  mExecuteRuns = false;
  for (const auto& process : ProcessTable(mHome.machine().homeFolder()).list()) {
    agentRuns |= process.bundleExecutable == "Corvana 9 Scheduler";
    mExecuteRuns |= process.bundleExecutable == "Corvana 9 Execute";
  }
  mPresence = agentRuns ? Presence::silent : Presence::absent;
  mAbsence = agentRuns ? "The agent runs, but cannot be asked: " + reason + "."
                       : "The agent is not running. Start it: corvana9-scheduler";
}

std::string jsonText(const ZAN_Value& value, bool compact) {
  const auto json =
      ZAN_Json::jsonWithValue(withPlainDates(value), {.compact = compact, .plain = true});
  return (json ? *json : "null") + "\n";
}

std::string contextName(std::int64_t context) {
  constexpr std::array<const char*, 4> kNames{"", "office", "home", "nomad"};
  return context >= 0 && context < 4 ? kNames[static_cast<std::size_t>(context)] : "unknown";
}

std::string namedAction(const std::string& title, std::int64_t reference) {
  const std::string shown = title.empty() ? "(no such action)" : printable(title);
  return shown + " [" + std::to_string(reference) + "]";
}

}  // namespace corvana
