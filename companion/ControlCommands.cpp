// The commands that are messages to the agent and to the execute program.

#include <algorithm>
#include <ostream>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "companion/ActionWords.h"
#include "companion/AgentChannel.h"
#include "companion/CommandHome.h"
#include "companion/Commands.h"
#include "platform/linux/ProcessTable.h"

namespace corvana {

namespace {

constexpr const char* kAgent = "CVA9_SchedulerNotification";
constexpr const char* kExecute = "CVA9_ExecuteNotification";

bool runs(CommandHome& home, std::string_view program) {
  const auto processes = ProcessTable(home.machine().homeFolder()).list();
  return std::ranges::any_of(processes, [&](const RunningProcess& process) {
    return process.bundleExecutable == program;
  });
}

int posted(const DistributedNotification& message, const Console& console) {
  if (postOnBus(message)) return kDone;
  return failed(console, {ErrorKind::unavailable, "session bus: there is none"});
}

int toldAgent(std::string_view object, const ZAN_Value& details, const Console& console) {
  CommandHome home(console);
  if (!runs(home, "Corvana 9 Scheduler")) {
    return failed(console, {ErrorKind::unavailable, "Corvana 9 Scheduler: it does not run"});
  }
  return posted({kAgent, std::string(object), details}, console);
}

int toldExecute(std::string_view object, const ZAN_Value& details, const Console& console) {
  CommandHome home(console);
  if (!runs(home, "Corvana 9 Execute")) {
    return failed(console, {ErrorKind::absent, "Corvana 9 Execute: nothing is being executed"});
  }
  return posted({kExecute, std::string(object), details}, console);
}

template <class Tell>
int withoutWords(Arguments& arguments, const Console& console, Tell tell) {
  const auto words = arguments.words(0, 0);
  return words ? tell() : wrongWords(console, words.error());
}

int activate(Arguments& arguments, const Console& console, bool active) {
  return withoutWords(arguments, console, [&] {
    return toldAgent("ActivateExecution", ZAN_Value::dictionary({{"Activate", active}}), console);
  });
}

/// The agent holds the next actions back, the execute program the one that runs.
int pause(Arguments& arguments, const Console& console, bool paused) {
  return withoutWords(arguments, console, [&] {
    const ZAN_Value details = ZAN_Value::dictionary({{"Pause", paused}});
    const int code = toldAgent("ActionPause", details, console);
    return code == kDone ? posted({kExecute, "ActionPause", details}, console) : code;
  });
}

}  // namespace

int launchCommand(Arguments& arguments, const Console& console) {
  const bool estimate = arguments.flag("--estimate");
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(console, words.error());
  const auto reference = referenceFrom(words->front());
  if (!reference) return wrongWords(console, reference.error());
  CommandHome home(console);
  const ProgrammedAction* action =
      home.isThere() ? home.tree().rootItem().actionForReference(*reference) : nullptr;
  if (action == nullptr) {
    return failed(console, {ErrorKind::absent, words->front() + ": no action has this reference"});
  }
  if (action->getSettings().integer("TriggerPreventManualLaunch") != 0) {
    return failed(console,
                  {ErrorKind::refused, words->front() + ": launching it by hand is switched off"});
  }
  const int code = toldAgent(
      "LaunchAction",
      ZAN_Value::dictionary({{"Ref", *reference}, {"EstimateSize", estimate ? 1 : 0}}), console);
  if (code == kDone) {
    console.out << "the agent was asked to run " << *reference << ": "
                << printable(action->getTitle()) << '\n';
  }
  return code;
}

int enableCommand(Arguments& arguments, const Console& console) {
  return activate(arguments, console, true);
}

int disableCommand(Arguments& arguments, const Console& console) {
  return activate(arguments, console, false);
}

int pauseCommand(Arguments& arguments, const Console& console) {
  return pause(arguments, console, true);
}

int continueCommand(Arguments& arguments, const Console& console) {
  return pause(arguments, console, false);
}

int stopCommand(Arguments& arguments, const Console& console) {
  return withoutWords(arguments, console, [&] { return toldExecute("ActionStop", {}, console); });
}

int skipCommand(Arguments& arguments, const Console& console) {
  return withoutWords(arguments, console, [&] { return toldExecute("SkipItem", {}, console); });
}

int postCommand(Arguments& arguments, const Console& console) {
  const auto words = arguments.words(2, 3);
  if (!words) return wrongWords(console, words.error());
  ZAN_Value details;
  if (words->size() == 3) {
    const auto value = ZAN_Json::valueWithJson((*words)[2]);
    if (!value) return wrongWords(console, {ErrorKind::refused, "JSON: " + value.error().text});
    if (!value->isDictionary()) return wrongWords(console, {ErrorKind::refused, "JSON: no object"});
    details = *value;
  }
  return posted({(*words)[0], (*words)[1], details}, console);
}

}  // namespace corvana
