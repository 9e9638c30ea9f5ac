#include <algorithm>
#include <charconv>
#include <fstream>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "command/ActionWords.h"
#include "command/CommandHome.h"
#include "command/RunningAgent.h"
#include "core/record/Preferences.h"
#include "core/work/ComingActions.h"
#include "core/work/WhyNot.h"
#include "platform/linux/ProcessTable.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

namespace {

/// One that is asked for the first time may have to look over the network.
constexpr double kSecondsForAVolume = 3;

/// What the processes and the agent's settings file tell of the agent.
struct Seen {
  bool agentRuns = false;
  WhyNot::Situation situation;
};

/// The reference that an execute program was started with; 0 when it cannot be told.
std::int64_t executedReference(std::int64_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/cmdline", std::ios::binary);
  std::string program;
  std::string words;
  std::int64_t reference = 0;
  if (std::getline(file, program, '\0') && std::getline(file, words, '\0')) {
    std::from_chars(words.data(), words.data() + words.size(), reference);
  }
  return reference;
}

/// What the agent itself tells; false when it does not.
bool askAgent(CommandHome& home, Seen& seen) {
  RunningAgent agent(home);
  seen.agentRuns = agent.presence() != RunningAgent::Presence::absent;
  if (!agent.answers()) return false;
  const auto queue = agent.client().queue();
  if (!queue) return false;
  const ZAN_Value& status = agent.status();
  WhyNot::Situation& situation = seen.situation;
  situation.scheduleDisabled = !status["enabled"].boolValue();
  situation.disabledWhenDone = status["disabledWhenDone"].boolValue();
  situation.startedFromNewMachine = status["otherStartupDisk"].boolValue();
  situation.paused = status["paused"].boolValue();
  situation.headRuns = status["executing"].boolValue();
  situation.headHold = status["hold"].string("text");
  situation.idleTimeIsSeen = status["idleTimeIsSeen"].boolValue();
  situation.context = static_cast<ActionContext>(status.integer("context"));
  for (const auto& record : queue->elements()) situation.queue.push_back(record.integer("ref"));
  return true;
}

Seen lookAround(CommandHome& home) {
  Seen seen;
  if (askAgent(home, seen)) return seen;
  WhyNot::Situation& situation = seen.situation;
  situation.idleTimeIsSeen = false;
  for (const auto& process : ProcessTable(home.machine().homeFolder()).list()) {
    if (process.bundleExecutable != "Corvana 9 Execute") continue;
    if (const auto reference = executedReference(process.pid); reference != 0) {
      situation.headRuns = true;
      situation.queue.insert(situation.queue.begin(), reference);
    }
  }
  const ZAN_Value preferences = home.store().settings().schedulerSettings();
  situation.scheduleDisabled = preferences.integer(PreferenceKey::scheduleDisabled) != 0;
  situation.context =
      static_cast<ActionContext>(preferences.integer(PreferenceKey::currentContext));
  for (const auto& record : storedOccasions(home.store(), preferences["SchedulerActionsToDoList"]))
    if (std::ranges::find(situation.queue, record.ref) == situation.queue.end())
      situation.queue.push_back(record.ref);
  return seen;
}

std::string_view nameOf(WhyNot::Cause cause) {
  switch (cause) {
    case WhyNot::Cause::running:
      return "running";
    case WhyNot::Cause::queued:
      return "queued";
    case WhyNot::Cause::notAutomatic:
      return "not automatic";
    case WhyNot::Cause::waitsForEvent:
      return "waits for event";
    case WhyNot::Cause::noDate:
      return "no date";
    case WhyNot::Cause::notDue:
      return "not due";
    case WhyNot::Cause::outOfHours:
      return "out of hours";
    case WhyNot::Cause::otherContext:
      return "other context";
    case WhyNot::Cause::disabled:
      return "disabled";
    case WhyNot::Cause::disabledSoon:
      return "disabled soon";
    case WhyNot::Cause::otherMachine:
      return "other machine";
    case WhyNot::Cause::paused:
      return "paused";
    case WhyNot::Cause::volumeMissing:
      return "volume missing";
    case WhyNot::Cause::incomplete:
      return "incomplete";
    case WhyNot::Cause::deletionsToConfirm:
      return "deletions to confirm";
  }
  return {};
}

constexpr std::string_view kWhyLines =
    "{reference}: {title}\n{agent!- {:absence}\n}"
    // Without its texts the command says at least what it is about.
    "{reasons*- {text}{text!{cause}}\n{remedy?  {remedy}\n}}{reasons!{:due}\n}";

}  // namespace

Answer whyCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(words.error());
  const auto reference = referenceFrom(words->front());
  if (!reference) return wrongWords(reference.error());
  CommandHome home(console);
  const ProgrammedAction* action = home.action(*reference);
  if (action == nullptr)
    return Error{ErrorKind::absent, words->front() + ": no action has this reference"};
  const Seen seen = lookAround(home);
  const auto system = home.volumes(kSecondsForAVolume);
  VolumeIdentity volumes(*system);
  ZAN_StringTable texts;
  if (const Outcome loaded = home.loadAgentTexts(texts); !loaded)
    console.err << loaded.error().text << '\n';
  const ZAN_StringUtils strings(home.machine().regionName(), home.machine().timeZoneName());
  const WhyNot why(home.tools(), {texts, strings}, volumes, [&](std::int64_t ref) {
    const auto* other = home.action(ref);
    return other ? other->getTitle() : std::to_string(ref);
  });
  ZAN_Value reasons = ZAN_Value::array();
  for (const auto& reason : why.reasons(*action, seen.situation)) {
    reasons.append(ZAN_Value::dictionary({{"cause", nameOf(reason.cause)},
                                          {"text", reason.text},
                                          {"remedy", reason.remedyByCommand}}));
  }
  const auto next = why.nextDate(*action);
  const ZAN_Value value = ZAN_Value::dictionary({{"reference", action->getReference()},
                                                 {"title", action->getTitle()},
                                                 {"agent", seen.agentRuns},
                                                 {"next", next ? ZAN_Value(*next) : ZAN_Value()},
                                                 {"reasons", reasons}});
  TextForm form(home.calendar());
  form.with("absence", [&](const ZAN_Value&) {
    return texts.text("WhySchedulerAbsent") + "\n  " +
           texts.text("WhyRemedyCommand",
                      {texts.text("WhySchedulerAbsentRemedy"), "corvana9-scheduler"});
  });
  form.with("due", [&](const ZAN_Value& answer) {
    const bool agentRuns = answer["agent"].boolValue();
    return texts.text(agentRuns ? "WhyDueSoon" : "WhyDue");
  });
  return {value, form.fill(kWhyLines, value)};
}

}  // namespace corvana
