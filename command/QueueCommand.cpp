#include <ostream>

#include "actions/ProgrammedAction.h"
#include "command/CommandHome.h"
#include "command/Commands.h"
#include "command/RunningAgent.h"

namespace corvana {

namespace {

/// The saved queue in the form in which the agent shows its own; the one that was running is not in
/// it.
ZAN_Value savedQueue(CommandHome& home) {
  ZAN_Value queue = ZAN_Value::array();
  if (!home.isThere()) return queue;
  const ZAN_Value settings = home.store().settings().schedulerSettings();
  for (const ZAN_Value& record : settings["SchedulerActionsToDoList"].elements()) {
    const std::int64_t ref = record.integer("Ref");
    const ProgrammedAction* action = home.tree().rootItem().actionForReference(ref);
    queue.append(
        ZAN_Value::dictionary({{"ref", ref},
                               {"title", action == nullptr ? std::string() : action->getTitle()},
                               {"date", record["Date"]},
                               {"estimateSize", record.integer("EstimateSize") != 0},
                               {"running", false}}));
  }
  return queue;
}

void print(const ZAN_Value& queue, const CommandHome& home, std::ostream& out) {
  if (queue.empty()) out << "The queue is empty.\n";
  std::size_t place = 0;
  for (const ZAN_Value& record : queue.elements()) {
    out << ++place << ". " << namedAction(record.string("title"), record.integer("ref"));
    const auto date = record["date"].asDate();
    if (record["running"].boolValue()) {
      out << ", running";
    } else if (date && *date > home.now()) {
      out << ", from " << home.dateText(*date) << " on";
    } else if (date) {
      out << ", waiting since " << home.dateText(*date);
    }
    if (record["estimateSize"].boolValue()) out << ", only estimates the size";
    out << '\n';
  }
}

}  // namespace

int queueCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(console, words.error());
  CommandHome home(console);
  RunningAgent agent(home);
  ZAN_Value queue;
  if (agent.answers()) {
    auto asked = agent.client().queue();
    if (!asked) return failed(console, {asked.error().kind, "the agent: " + asked.error().text});
    queue = *std::move(asked);
  } else {
    queue = savedQueue(home);
  }
  if (json) {
    console.out << jsonText(ZAN_Value::dictionary(
        {{"agent", agent.answers()}, {"reason", agent.absence()}, {"queue", queue}}));
    return kDone;
  }
  if (!agent.answers()) console.out << agent.absence() << "\nThe queue as it was saved:\n";
  print(queue, home, console.out);
  return kDone;
}

}  // namespace corvana
