#include <algorithm>
#include <cmath>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "command/ActionWords.h"
#include "command/RunningAgent.h"
#include "core/record/Preferences.h"
#include "core/work/AgeAlarm.h"
#include "core/work/ComingActions.h"
#include "platform/linux/Modules.h"
#include "platform/linux/TerminationSignals.h"
#include "platform/qt/BusAgentClient.h"
#include "platform/qt/QtRunLoop.h"
#include "remote/Pairing.h"

// The commands that ask the agent what it does, or tell it and the execute program what to do.

namespace corvana {

namespace {

constexpr std::size_t kRuns = 3;
constexpr std::size_t kEvents = 5;

/// Why machines that are paired with this one cannot reach it, though they may; empty else.
std::string channelTrouble(CommandHome& home, const ZAN_Value& settings) {
  if (settings.integer(PreferenceKey::allowRemoteControl) == 0 ||
      PairedMachines(home.store()).all().empty())
    return {};
  const Outcome tried = ModuleChannels::tried();
  return tried ? std::string() : tried.error().text;
}

/// From the agent, else from the files.
ZAN_Value statusOf(CommandHome& home, RunningAgent& agent) {
  const ZAN_Value& status = agent.status();
  const ZAN_Value settings =
      home.isThere() ? home.store().settings().schedulerSettings() : ZAN_Value();
  const auto fact = [&](const char* asked, ZAN_Value stored) {
    return agent.answers() ? status[asked] : stored;
  };
  const bool executes = !status["current"].isNull();
  ZAN_Value waiting = 0;
  if (agent.answers()) {
    const std::int64_t count = status.integer("queueCount");
    waiting = count > 0 && executes ? count - 1 : count;
  }
  if (!agent.answers() && home.isThere())
    waiting =
        std::ranges::count_if(storedOccasions(home.store(), settings["SchedulerActionsToDoList"]),
                              [](const QueueRecord& record) { return !record.begun; });
  ZAN_Value runs = ZAN_Value::array();
  ZAN_Value events = ZAN_Value::array();
  ZAN_Value overdue = ZAN_Value::array();
  ZAN_Value lacking =
      agent.answers() && status.contains("lacking") ? status["lacking"] : ZAN_Value::array();
  if (home.isThere()) {
    ProgrammedAction::Nodes actions;
    home.tree().rootItem().getListOfAllProgrammedActions(actions);
    for (const ProgrammedAction* action : actions) {
      const auto since = AgeAlarm::overdueSince(*action, home.calendar(), home.now());
      if (!since) continue;
      overdue.append(ZAN_Value::dictionary(
          {{"ref", action->getReference()},
           {"title", action->getTitle()},
           {"since", ZAN_Value::date(*since)},
           {"days", static_cast<std::int64_t>((home.now() - *since) / 86400)}}));
    }
    if (!agent.answers()) {
      for (const ZAN_Value& ref : settings[PreferenceKey::lacking].elements()) {
        const ProgrammedAction* action = home.action(ref.integerValue());
        lacking.append(ZAN_Value::dictionary(
            {{"ref", ref}, {"title", action == nullptr ? std::string() : action->getTitle()}}));
      }
    }
    const ZAN_Value coming = home.comingRuns(kRuns, agent.circumstances());
    for (ZAN_Value run : coming.elements()) {
      run.removeKey("shutdown");
      runs.append(std::move(run));
    }
    const ZAN_Value log = ActionLog(home.store()).readLogList();
    for (const ZAN_Value& event : log.elements().last(std::min(log.size(), kEvents))) {
      events.append(ZAN_Value::dictionary({{"date", event["M"]},
                                           {"code", event.integer("C")},
                                           {"text", ActionLog::messageForEntry(event)}}));
    }
  }
  return ZAN_Value::dictionary(
      {{"agent", agent.answers()},
       {"reason", agent.absence()},
       {"enabled", agent.answers() ? status["enabled"].boolValue()
                                   : settings.integer(PreferenceKey::scheduleDisabled) == 0},
       {"disabledWhenDone", status["disabledWhenDone"].boolValue()},
       {"paused", status["paused"].boolValue()},
       {"context", fact("context", settings[PreferenceKey::currentContext]).integerValue()},
       {"errorCode", fact("errorCode", settings[PreferenceKey::errorInExecution]).integerValue()},
       {"lacking", lacking},
       {"executing", agent.executeRuns()},
       {"current", status["current"]},
       {"waiting", waiting},
       {"hold", status["hold"]},
       {"noSuccess", overdue},
       {"unprovenControl", settings.integer(PreferenceKey::allowRemoteControl) != 0 &&
                               settings.integer(PreferenceKey::remoteProvenOnly) == 0},
       {"channelTrouble", channelTrouble(home, settings)},
       {"next", runs},
       {"log", events},
       {"status", status}});
}

constexpr std::string_view kStatusLines =
    "{agent?The agent runs, since {status.started:date} (process {status.pid}).\n}"
    "{agent!{reason}\nWhat its files say:\n}"
    "Automatic execution: {enabled?on{disabledWhenDone?, off when all is done}}{enabled!off}\n"
    "{paused?Paused: corvana9 continue lets it go on\n}"
    "{context?Context: {context:context}\n}"
    "{status.otherStartupDisk?The start-up disk is another one than before; nothing runs until "
    "that is answered.\n}"
    "{current?Executing: {current:action}{current.task:task}{current.progress?, "
    "{current.progress:rounded} %}"
    "{current.progressText?, {current.progressText}}"
    "{current.started?, since {current.started:clock}}{current.retry?, once more after a crash}"
    "{current.stopping?, being stopped}\n{current.stuck?{current.stuck}\n}}"
    "{current!{agent!{executing?Executing: an execute program runs\n}}}"
    "Waiting in the queue: {waiting}\n{hold?{hold.text}\n}"
    "{status.storage*{}\n}"
    "{errorCode?There were failures: corvana9 log\n}"
    "{lacking*Complete but for what cannot be copied: {:action}; corvana9 edit {ref} "
    "--exclude-missing leaves that out\n}"
    "{noSuccess*No success for {days} days: {:action}\n}"
    "{unprovenControl?Remote control is unproven: anybody on the network may control this machine; "
    "corvana9 remote --on makes it safe.\n}"
    "{channelTrouble?Paired machines cannot reach this one: {channelTrouble}\n}"
    "{next?Next:\n}{next!Next: no run is scheduled\n}{next*  {date:date}  {:action}{:held}\n}"
    "{log?Last events:\n{log*  {date:date}  {text}\n}}";

/// The saved queue in the form in which the agent shows its own. What had begun runs on, or is
/// settled by the next agent.
ZAN_Value savedQueue(CommandHome& home, const RunningAgent& agent) {
  ZAN_Value queue = ZAN_Value::array();
  if (!home.isThere()) return queue;
  const ZAN_Value settings = home.store().settings().schedulerSettings();
  for (const QueueRecord& record :
       storedOccasions(home.store(), settings["SchedulerActionsToDoList"])) {
    const ProgrammedAction* action = home.action(record.ref);
    queue.append(ZAN_Value::dictionary(
        {{"ref", record.ref},
         {"title", action == nullptr ? std::string() : action->getTitle()},
         {"date", record.date > 0 ? ZAN_Value::date(record.date) : ZAN_Value()},
         {"estimateSize", record.estimateSize != 0 && !record.isTask()},
         {"task", record.task},
         {"running", record.begun && agent.executeRuns()},
         {"interrupted", record.begun && !agent.executeRuns()}}));
  }
  return queue;
}

constexpr std::string_view kQueueLines =
    "{agent!{reason}\nThe queue as it was saved:\n}{queue!The queue is empty.\n}"
    "{queue*{#}. {:action}{task:task}{running?, running}{interrupted?, its end was not seen}"
    "{running!{interrupted!{date?{date:from}}}}{estimateSize?, only estimates the "
    "size}\n}";

Error notReached(const RunningAgent& agent) { return {ErrorKind::unavailable, agent.absence()}; }

/// The agent has done as it was told.
Answer toldState(const char* text, const RunningAgent& agent) {
  return {agent.status(), std::string(text) + '\n'};
}

/// Changes what an agent finds when it starts.
Outcome storePreference(CommandHome& home, std::string_view key, std::int64_t value) {
  SettingsFiles& files = home.store().settings();
  const auto held = files.lockSchedulerSettings();
  ZAN_Value settings = files.schedulerSettings();
  if (!settings.isDictionary()) settings = ZAN_Value::dictionary();
  settings.setValue(key, value);
  return files.saveSchedulerSettings(settings);
}

Answer setEnabled(bool enabled, Arguments& arguments, const Console& console) {
  arguments.json();
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  RunningAgent agent(home);
  if (agent.presence() == RunningAgent::Presence::silent) return notReached(agent);
  if (!agent.answers()) {
    const Outcome stored = storePreference(home, PreferenceKey::scheduleDisabled, enabled ? 0 : 1);
    if (!stored) return stored.error();
    return {ZAN_Value::dictionary({{"agent", false}, {"enabled", enabled}}),
            agent.absence() + "\nAutomatic execution will be " + (enabled ? "on" : "off") +
                " when it starts.\n"};
  }
  const Outcome posted = agent.client().post(
      {kAgentName, "ActivateExecution", ZAN_Value::dictionary({{"Activate", enabled}})});
  if (!posted) return posted.error();
  agent.refresh();
  if (!agent.answers()) return notReached(agent);
  if (agent.status()["enabled"].boolValue() != enabled)
    return Error{ErrorKind::refused, "the agent did not follow"};
  return toldState(enabled ? "Automatic execution is on." : "Automatic execution is off.", agent);
}

Answer setPaused(bool paused, Arguments& arguments, const Console& console) {
  arguments.json();
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  RunningAgent agent(home);
  if (!agent.answers() && !agent.executeRuns()) return notReached(agent);
  const ZAN_Value details = ZAN_Value::dictionary({{"Pause", paused}});
  // Another home's agent must not hear it, while the execute program may outlive its own.
  if (agent.answers()) {
    if (const Outcome posted = agent.client().post({kAgentName, "ActionPause", details}); !posted)
      return posted.error();
  }
  if (const Outcome posted = agent.client().post({kExecuteName, "ActionPause", details}); !posted)
    return posted.error();
  if (!agent.answers()) {
    Answer answer = notReached(agent);
    answer.text = "The execute program was told.\n";
    return answer;
  }
  agent.refresh();
  if (!agent.answers()) return notReached(agent);
  if (agent.status()["paused"].boolValue() != paused)
    return Error{ErrorKind::refused, "the agent did not follow"};
  return toldState(paused ? "Paused." : "Going on.", agent);
}

Answer tellExecute(const char* object, const char* text, Arguments& arguments,
                   const Console& console) {
  arguments.json();
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  RunningAgent agent(home);
  if (!agent.executeRuns()) {
    if (!agent.answers()) Writer(console, false).complain(agent.absence());
    return Error{ErrorKind::absent, "nothing is being executed"};
  }
  // A stop goes by way of the agent, which sees to it that it comes to an end.
  const bool byAgent = agent.answers() && std::string_view(object) == "ActionStop";
  const DistributedNotification message{
      byAgent ? kAgentName : kExecuteName, byAgent ? "StopExecution" : object, {}};
  if (const Outcome posted = agent.client().post(message); !posted) return posted.error();
  return toldState(text, agent);
}

}  // namespace

Answer statusCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  RunningAgent agent(home);
  const ZAN_Value status = statusOf(home, agent);
  TextForm form(home.calendar());
  form.with("task", taskInWords);
  form.with("held", [&](const ZAN_Value& run) {
    const std::string held = heldText(run, agent.circumstances());
    return held.empty() ? held : "  (" + held + ')';
  });
  form.with("context", [](const ZAN_Value& value) { return contextName(value.integerValue()); });
  form.with("rounded", [](const ZAN_Value& value) {
    return std::to_string(std::lround(value.doubleValue()));
  });
  return withStorageTroubles({status, form.fill(kStatusLines, status)}, home);
}

Answer queueCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  RunningAgent agent(home);
  const auto queue =
      agent.answers() ? agent.client().queue() : Result<ZAN_Value>(savedQueue(home, agent));
  if (!queue) return Error{queue.error().kind, "the agent: " + queue.error().text};
  const ZAN_Value value = ZAN_Value::dictionary(
      {{"agent", agent.answers()}, {"reason", agent.absence()}, {"queue", *queue}});
  TextForm form(home.calendar());
  form.with("task", taskInWords);
  form.with("from", [&](const ZAN_Value& date) {
    const ReferenceTime from = date.asDate().value_or(0);
    return from > home.now() ? ", from " + home.dateText(from) + " on"
                             : ", waiting since " + home.dateText(from);
  });
  return {value, form.fill(kQueueLines, value)};
}

Answer launchCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const bool estimate = arguments.flag("--estimate");
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(words.error());
  const auto reference = referenceFrom(words->front());
  if (!reference) return wrongWords(reference.error());
  CommandHome home(console);
  RunningAgent agent(home);
  if (!agent.answers()) return notReached(agent);
  const auto said =
      estimate ? launchEstimate(agent.client(), *reference) : agent.client().launch(*reference);
  if (!said) return Error{said.error().kind, "the agent: " + said.error().text};
  const bool queued = *said == "queued";
  Answer answer = queued ? Answer() : Error{ErrorKind::refused, printable(*said)};
  answer.value =
      ZAN_Value::dictionary({{"ref", *reference}, {"queued", queued}, {"answer", *said}});
  if (!queued) return answer;
  const ProgrammedAction* action = home.action(*reference);
  answer.text = "queued " + std::to_string(*reference) +
                (action ? ": " + printable(action->getTitle()) : std::string()) + '\n';
  // What keeps the queue from going on is of use to whoever has just asked for a run.
  const auto now = agent.client().status();
  const ZAN_Value hold = now ? (*now)["hold"] : ZAN_Value();
  answer.value->setValue("hold", hold);
  if (hold.isDictionary()) answer.text += printable(hold.string("text")) + '\n';
  return answer;
}

Answer enableCommand(Arguments& arguments, const Console& console) {
  return setEnabled(true, arguments, console);
}

Answer disableCommand(Arguments& arguments, const Console& console) {
  return setEnabled(false, arguments, console);
}

Answer contextCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const auto words = arguments.words(0, 1);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  RunningAgent agent(home);
  std::int64_t context = static_cast<std::int64_t>(agent.circumstances().context);
  const auto answer = [&](const std::string& reason) -> Answer {
    const std::string name = context == 0 ? "none" : contextName(context);
    return {ZAN_Value::dictionary({{"agent", agent.answers()}, {"context", name}}),
            reason + "Context: " + name + '\n'};
  };
  const std::string absence = agent.answers() ? std::string() : agent.absence() + '\n';
  if (words->empty()) return answer(absence);

  std::int64_t wanted = words->front() == "none" || words->front() == "any" ? 0 : 1;
  while (wanted > 0 && wanted < 4 && contextName(wanted) != words->front()) ++wanted;
  if (wanted == 4) {
    return wrongWords(
        {ErrorKind::refused, "\"" + words->front() + "\" is not one of office, home, nomad, none"});
  }
  context = wanted;
  if (agent.presence() == RunningAgent::Presence::silent) return notReached(agent);
  if (!agent.answers()) {
    const Outcome stored = storePreference(home, PreferenceKey::currentContext, wanted);
    return stored ? answer(absence) : Answer(stored.error());
  }
  const Outcome posted =
      agent.client().post({kAgentName, "SetContext", ZAN_Value::dictionary({{"Context", wanted}})});
  if (!posted) return posted.error();
  agent.refresh();
  if (!agent.answers()) return notReached(agent);
  if (agent.status().integer("context") != wanted)
    return Error{ErrorKind::refused, "the agent did not follow"};
  return answer({});
}

Answer pauseCommand(Arguments& arguments, const Console& console) {
  return setPaused(true, arguments, console);
}

Answer continueCommand(Arguments& arguments, const Console& console) {
  return setPaused(false, arguments, console);
}

Answer stopCommand(Arguments& arguments, const Console& console) {
  return tellExecute("ActionStop", "The execute program was told to stop.", arguments, console);
}

Answer skipCommand(Arguments& arguments, const Console& console) {
  return tellExecute("SkipItem", "The execute program was told to skip the current item.",
                     arguments, console);
}

Answer postCommand(Arguments& arguments, const Console& console) {
  const auto words = arguments.words(2, 3);
  if (!words) return wrongWords(words.error());
  std::string name = (*words)[0];
  if (name == "agent") name = kAgentName;
  if (name == "execute") name = kExecuteName;
  if (name == "shutdown") name = kShutDownName;
  if (name == "main") name = kMainApplicationName;
  ZAN_Value details;
  if (words->size() == 3) {
    const bool fromInput = (*words)[2] == "-";
    auto value = ZAN_Json::valueWithJson(fromInput ? *readText("-", console) : (*words)[2]);
    if (!value) return wrongWords({value.error().kind, "JSON: " + value.error().text});
    if (!value->isDictionary())
      return wrongWords({ErrorKind::refused, "JSON: the details must be an object"});
    details = *std::move(value);
  }
  if (const Outcome posted = BusAgentClient().post({name, (*words)[1], details}); !posted)
    return posted.error();
  return {};
}

namespace {

std::string stateInWords(const ZAN_Value& status) {
  std::string text = status["enabled"].boolValue() ? "on" : "off";
  if (status["disabledWhenDone"].boolValue()) text += ", off when all is done";
  if (status["paused"].boolValue()) text += ", paused";
  const std::int64_t count = status.integer("queueCount");
  if (const ZAN_Value& current = status["current"]; !current.isNull()) {
    text += ", executing " + namedAction(current.string("title"), current.integer("ref"));
    if (const std::string how = current.string("progressText"); !how.empty()) text += ", " + how;
    if (count > 1) text += ", " + std::to_string(count - 1) + " waiting";
  } else if (count > 0) {
    text += ", " + std::to_string(count) + " in the queue";
  } else {
    text += ", nothing to do";
  }
  if (status.integer("errorCode") != 0) text += ", there were failures";
  return text;
}

/// Prints one line for each thing that happens.
class Printer {
 public:
  Printer(CommandHome& home, RunningAgent& agent, const Writer& writer)
      : mHome(home), mAgent(agent), mWriter(writer) {}

  void notified(const DistributedNotification& notification) {
    std::string line = notification.name + " " + notification.object;
    if (!notification.userInfo.isNull()) {
      line += " " + jsonText(notification.userInfo, true);
      line.pop_back();
    }
    tell("message", line,
         {{"name", notification.name},
          {"object", notification.object},
          {"details", notification.userInfo}});
  }

  /// `again`: also when it is what was printed last.
  void state(bool again) {
    mAgent.refresh();
    const std::string words =
        mAgent.answers() ? "agent: " + stateInWords(mAgent.status()) : mAgent.absence();
    if (!again && words == mLastWords && !mWriter.isJson()) return;
    mLastWords = words;
    tell("state", words,
         {{"agent", mAgent.answers()}, {"reason", mAgent.absence()}, {"status", mAgent.status()}});
  }

  void agentIsOn(bool on) {
    tell(on ? "agent came" : "agent left", on ? "the agent has come" : "the agent has left", {});
    if (on) state(true);
  }

 private:
  void tell(const char* name, const std::string& line,
            std::initializer_list<std::pair<std::string_view, ZAN_Value>> details) {
    const ReferenceTime now = mClock.now();
    ZAN_Value event = ZAN_Value::dictionary({{"event", name}});
    for (const auto& [key, value] : details) event.setValue(key, value);
    event.setValue("date", now);
    mWriter.tell(event, mHome.calendar().format(now, "%H:%M:%S") + "  " + line);
  }

  CommandHome& mHome;
  RunningAgent& mAgent;
  const Writer& mWriter;
  SystemClock mClock;
  std::string mLastWords;
};

}  // namespace

Answer watchCommand(Arguments& arguments, const Console& console) {
  const Writer writer(console, arguments.json());
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  TerminationSignals terminations(true);
  const QtApplication application;
  CommandHome home(console);
  RunningAgent agent(home);
  if (!agent.client().hasBus())
    return Error{ErrorKind::unavailable, "there is no session bus to listen to"};

  QtRunLoop loop;
  ConsoleLog log(console);
  Printer printer(home, agent, writer);
  const auto leaveIfUnheard = [&] {
    if (!console.out.good()) loop.quit(kCouldNot);
  };
  BusConnection connection(loop, log);
  const BusWatch watch(connection, {[&](const DistributedNotification& notification) {
                                      printer.notified(notification);
                                      leaveIfUnheard();
                                    },
                                    [&] {
                                      printer.state(false);
                                      leaveIfUnheard();
                                    },
                                    [&](bool on) {
                                      printer.agentIsOn(on);
                                      leaveIfUnheard();
                                    }});
  printer.state(true);
  terminations.watch(loop, [&loop](const auto&) { loop.quit(kDone); });
  Answer ended;
  ended.code = loop.run();
  return ended;
}

}  // namespace corvana
