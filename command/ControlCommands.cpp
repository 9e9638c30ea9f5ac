// The commands that tell the agent or the execute program what to do: launch, enable, disable,
// pause, continue, stop, skip, post.

#include <algorithm>
#include <istream>
#include <iterator>
#include <ostream>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "actions/ProgrammedAction.h"
#include "command/ActionWords.h"
#include "command/CommandHome.h"
#include "command/Commands.h"
#include "command/RunningAgent.h"
#include "core/record/Preferences.h"

namespace corvana {

namespace {

int notReached(const RunningAgent& agent, const Console& console) {
  return failed(console, {ErrorKind::unavailable, agent.absence()});
}

int toldState(const char* text, const RunningAgent& agent, bool json, const Console& console) {
  if (json) {
    console.out << jsonText(agent.status());
  } else {
    console.out << text << '\n';
  }
  return kDone;
}

/// Changes what an agent finds when it starts.
Outcome storeEnabled(CommandHome& home, bool enabled) {
  SettingsFiles& files = home.store().settings();
  const auto held = files.lockSchedulerSettings();
  ZAN_Value settings = files.schedulerSettings();
  if (!settings.isDictionary()) settings = ZAN_Value::dictionary();
  settings.setValue(PreferenceKey::scheduleDisabled, enabled ? 0 : 1);
  return files.saveSchedulerSettings(settings);
}

int setEnabled(bool enabled, Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(console, words.error());
  CommandHome home(console);
  RunningAgent agent(home);
  if (agent.presence() == RunningAgent::Presence::silent) return notReached(agent, console);
  if (!agent.answers()) {
    if (const Outcome stored = storeEnabled(home, enabled); !stored)
      return failed(console, stored.error());
    if (json) {
      console.out << jsonText(ZAN_Value::dictionary({{"agent", false}, {"enabled", enabled}}));
    } else {
      console.out << agent.absence() << "\nAutomatic execution will be " << (enabled ? "on" : "off")
                  << " when it starts.\n";
    }
    return kDone;
  }
  const Outcome posted = agent.client().post(
      {kAgentName, "ActivateExecution", ZAN_Value::dictionary({{"Activate", enabled}})});
  if (!posted) return failed(console, posted.error());
  agent.refresh();
  if (!agent.answers()) return notReached(agent, console);
  if (agent.status()["enabled"].boolValue() != enabled)
    return failed(console, {ErrorKind::refused, "the agent did not follow"});
  return toldState(enabled ? "Automatic execution is on." : "Automatic execution is off.", agent,
                   json, console);
}

int setPaused(bool paused, Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(console, words.error());
  CommandHome home(console);
  RunningAgent agent(home);
  if (!agent.answers() && !agent.executeRuns()) return notReached(agent, console);
  const ZAN_Value details = ZAN_Value::dictionary({{"Pause", paused}});
  // Another home's agent must not hear it, while the execute program may outlive its own.
  if (agent.answers()) {
    if (const Outcome posted = agent.client().post({kAgentName, "ActionPause", details}); !posted)
      return failed(console, posted.error());
  }
  if (const Outcome posted = agent.client().post({kExecuteName, "ActionPause", details}); !posted)
    return failed(console, posted.error());
  if (!agent.answers()) {
    console.err << "corvana9: " << agent.absence() << '\n';
    console.out << "The execute program was told.\n";
    return kCouldNot;
  }
  agent.refresh();
  if (!agent.answers()) return notReached(agent, console);
  if (agent.status()["paused"].boolValue() != paused)
    return failed(console, {ErrorKind::refused, "the agent did not follow"});
  return toldState(paused ? "Paused." : "Going on.", agent, json, console);
}

bool isQueued(const ZAN_Value& queue, std::int64_t reference) {
  const auto& records = queue.elements();
  return std::any_of(records.begin(), records.end(),
                     [&](const ZAN_Value& record) { return record.integer("ref") == reference; });
}

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

int tellExecute(const char* object, const char* text, Arguments& arguments,
                const Console& console) {
  const bool json = arguments.json();
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(console, words.error());
  CommandHome home(console);
  RunningAgent agent(home);
  if (!agent.executeRuns()) {
    if (!agent.answers()) console.err << "corvana9: " << agent.absence() << '\n';
    return failed(console, {ErrorKind::absent, "nothing is being executed"});
  }
  if (const Outcome posted = agent.client().post({kExecuteName, object, {}}); !posted)
    return failed(console, posted.error());
  return toldState(text, agent, json, console);
}

}  // namespace

int launchCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const bool estimate = arguments.flag("--estimate");
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(console, words.error());
  const auto reference = referenceFrom(words->front());
  if (!reference) return wrongWords(console, reference.error());
  CommandHome home(console);
  RunningAgent agent(home);
  if (!agent.answers()) return notReached(agent, console);
  const auto answer =
      estimate ? launchEstimate(agent.client(), *reference) : agent.client().launch(*reference);
  if (!answer) return failed(console, {answer.error().kind, "the agent: " + answer.error().text});
  const bool queued = *answer == "queued";
  if (json) {
    console.out << jsonText(
        ZAN_Value::dictionary({{"ref", *reference}, {"queued", queued}, {"answer", *answer}}));
    return queued ? kDone : kCouldNot;
  }
  if (!queued) return failed(console, {ErrorKind::refused, printable(*answer)});
  const ProgrammedAction* action =
      home.isThere() ? home.tree().rootItem().actionForReference(*reference) : nullptr;
  console.out << "queued " << *reference
              << (action == nullptr ? std::string() : ": " + printable(action->getTitle())) << '\n';
  return kDone;
}

int enableCommand(Arguments& arguments, const Console& console) {
  return setEnabled(true, arguments, console);
}

int disableCommand(Arguments& arguments, const Console& console) {
  return setEnabled(false, arguments, console);
}

int pauseCommand(Arguments& arguments, const Console& console) {
  return setPaused(true, arguments, console);
}

int continueCommand(Arguments& arguments, const Console& console) {
  return setPaused(false, arguments, console);
}

int stopCommand(Arguments& arguments, const Console& console) {
  return tellExecute("ActionStop", "The execute program was told to stop.", arguments, console);
}

int skipCommand(Arguments& arguments, const Console& console) {
  return tellExecute("SkipItem", "The execute program was told to skip the current item.",
                     arguments, console);
}

int postCommand(Arguments& arguments, const Console& console) {
  const auto words = arguments.words(2, 3);
  if (!words) return wrongWords(console, words.error());
  std::string name = (*words)[0];
  if (name == "agent") name = kAgentName;
  if (name == "execute") name = kExecuteName;
  if (name == "shutdown") name = kShutDownName;
  if (name == "main") name = kMainApplicationName;
  ZAN_Value details;
  if (words->size() == 3) {
    const bool fromInput = (*words)[2] == "-";
    auto value = ZAN_Json::valueWithJson(
        fromInput ? std::string(std::istreambuf_iterator<char>(console.in), {}) : (*words)[2]);
    if (!value) return wrongWords(console, {value.error().kind, "JSON: " + value.error().text});
    if (!value->isDictionary())
      return wrongWords(console, {ErrorKind::refused, "JSON: the details must be an object"});
    details = *std::move(value);
  }
  if (const Outcome posted = BusAgentClient().post({name, (*words)[1], details}); !posted)
    return failed(console, posted.error());
  return kDone;
}

}  // namespace corvana
