#include <algorithm>
#include <cmath>
#include <ostream>

#include "actions/ActionLog.h"
#include "command/CommandHome.h"
#include "command/Commands.h"
#include "command/RunningAgent.h"
#include "command/RunsText.h"
#include "core/record/Preferences.h"

namespace corvana {

namespace {

constexpr std::size_t kRuns = 3;
constexpr std::size_t kEvents = 5;

/// What is to be shown, from the agent or from the files.
struct Facts {
  bool agent = false;
  bool enabled = true;
  bool disabledWhenDone = false;
  bool paused = false;
  std::int64_t context = 0;
  std::int64_t errorCode = 0;
  std::size_t waiting = 0;
  ZAN_Value current;
  std::vector<NamedRun> runs;
  ZAN_Value events = ZAN_Value::array();
};

Facts factsOf(CommandHome& home, RunningAgent& agent, const Console& console) {
  Facts facts;
  facts.agent = agent.answers();
  const ZAN_Value& status = agent.status();
  if (facts.agent) {
    facts.enabled = status["enabled"].boolValue();
    facts.disabledWhenDone = status["disabledWhenDone"].boolValue();
    facts.paused = status["paused"].boolValue();
    facts.context = status.integer("context");
    facts.errorCode = status.integer("errorCode");
    facts.current = status["current"];
    facts.waiting = static_cast<std::size_t>(status.integer("queueCount"));
    if (!facts.current.isNull() && facts.waiting > 0) --facts.waiting;
  }
  if (!home.isThere()) return facts;
  if (!facts.agent) {
    const ZAN_Value settings = home.store().settings().schedulerSettings();
    facts.enabled = settings.integer(PreferenceKey::scheduleDisabled) == 0;
    facts.context = settings.integer(PreferenceKey::currentContext);
    facts.errorCode = settings.integer(PreferenceKey::errorInExecution);
    facts.waiting = settings["SchedulerActionsToDoList"].size();
  }
  facts.runs = comingRuns(home, kRuns, console);
  const ZAN_Value log = ActionLog(home.store()).readLogList();
  for (std::size_t i = log.size() - std::min(log.size(), kEvents); i < log.size(); ++i)
    facts.events.append(log.at(i));
  return facts;
}

void printCurrent(const ZAN_Value& current, const CommandHome& home, std::ostream& out) {
  out << "Executing: " << namedAction(current.string("title"), current.integer("ref"));
  if (const double progress = current["progress"].doubleValue(); progress > 0)
    out << ", " << std::lround(progress) << " %";
  if (const auto started = current["started"].asDate())
    out << ", since " << home.calendar().format(*started, "%H:%M:%S");
  if (current.integer("retry") > 0) out << ", once more after a crash";
  out << '\n';
}

void print(const Facts& facts, const RunningAgent& agent, const CommandHome& home,
           std::ostream& out) {
  if (facts.agent) {
    out << "The agent runs, since "
        << home.dateText(agent.status()["started"].asDate().value_or(home.now())) << " (process "
        << agent.status().integer("pid") << ").\n";
  } else {
    out << agent.absence() << "\nWhat its files say:\n";
  }
  out << "Automatic execution: "
      << (!facts.enabled           ? "off"
          : facts.disabledWhenDone ? "on, off when all is done"
                                   : "on")
      << '\n';
  if (facts.paused) out << "Paused: corvana9 continue lets it go on\n";
  if (facts.context != 0) out << "Context: " << contextName(facts.context) << '\n';
  if (agent.status()["otherStartupDisk"].boolValue())
    out << "The start-up disk is another one than before; nothing runs until that is answered.\n";
  if (!facts.current.isNull()) {
    printCurrent(facts.current, home, out);
  } else if (!facts.agent && agent.executeRuns()) {
    out << "Executing: an execute program runs\n";
  }
  out << "Waiting in the queue: " << facts.waiting << '\n';
  if (facts.errorCode != 0) out << "There were failures: corvana9 log\n";
  out << (facts.runs.empty() ? "Next: no run is scheduled\n" : "Next:\n");
  for (const NamedRun& run : facts.runs) {
    out << "  " << home.dateText(run.date) << "  " << namedAction(run.title, run.reference) << '\n';
  }
  if (facts.events.empty()) return;
  out << "Last events:\n";
  for (const ZAN_Value& event : facts.events.elements()) {
    const auto date = event["M"].asDate();
    out << "  " << (date ? home.dateText(*date) : std::string("at some time")) << "  "
        << printable(ActionLog::messageForEntry(event)) << '\n';
  }
}

ZAN_Value asValue(const Facts& facts, const RunningAgent& agent) {
  ZAN_Value runs = ZAN_Value::array();
  for (const NamedRun& run : facts.runs) {
    runs.append(
        ZAN_Value::dictionary({{"date", run.date}, {"ref", run.reference}, {"title", run.title}}));
  }
  ZAN_Value events = ZAN_Value::array();
  for (const ZAN_Value& event : facts.events.elements()) {
    events.append(ZAN_Value::dictionary({{"date", event["M"]},
                                         {"code", event.integer("C")},
                                         {"text", ActionLog::messageForEntry(event)}}));
  }
  return ZAN_Value::dictionary({{"agent", facts.agent},
                                {"reason", agent.absence()},
                                {"enabled", facts.enabled},
                                {"disabledWhenDone", facts.disabledWhenDone},
                                {"paused", facts.paused},
                                {"context", facts.context},
                                {"errorCode", facts.errorCode},
                                {"executing", agent.executeRuns()},
                                {"current", facts.current},
                                {"waiting", static_cast<long long>(facts.waiting)},
                                {"next", runs},
                                {"log", events},
                                {"status", agent.status()}});
}

}  // namespace

int statusCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(console, words.error());
  CommandHome home(console);
  RunningAgent agent(home);
  const Facts facts = factsOf(home, agent, console);
  if (json) {
    console.out << jsonText(asValue(facts, agent));
  } else {
    print(facts, agent, home, console.out);
  }
  return kDone;
}

}  // namespace corvana
