#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fstream>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "command/ActionWords.h"
#include "command/RunningAgent.h"
#include "core/record/Preferences.h"
#include "core/work/ComingActions.h"
#include "core/work/WhyNot.h"
#include "platform/linux/ProcessTable.h"
#include "platform/linux/Spawn.h"
#include "volumes/VolumeIdentity.h"

// The command for the coming runs: as a list, as a calendar, or of records that it is given.

// What the next run of an action would do.

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
    case WhyNot::Cause::targetAway:
      return "target away";
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

namespace {

constexpr std::int64_t kUsualCount = 10;
constexpr std::int64_t kMostRuns = 100'000;

std::optional<ReferenceTime> numberOf(const std::string& text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value))
    return std::nullopt;
  return value;
}

/// The shortest decimal number that reads as the same instant.
std::string secondsText(ReferenceTime date) {
  std::array<char, 32> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), date);
  return {buffer.data(), result.ptr};
}

/// A text value of iCalendar.
std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '\\' || c == ';' || c == ',') result += '\\';
    if (c == '\n') {
      result += "\\n";
    } else if (static_cast<unsigned char>(c) >= 0x20 || c == '\t') {
      result += c;
    }
  }
  return result;
}

/// Adds a line, folded so that none is longer than 75 bytes and no character is cut.
void addLine(std::string& document, std::string line) {
  constexpr std::size_t kLongest = 75;
  while (line.size() > kLongest) {
    std::size_t cut = kLongest;
    while (cut > 1 && (static_cast<unsigned char>(line[cut]) & 0xC0) == 0x80) --cut;
    document.append(line, 0, cut) += "\r\n";
    line.replace(0, cut, " ");
  }
  document += line + "\r\n";
}

/// An iCalendar document (RFC 5545) with one event a run, in UTC; what is held up is tentative.
std::string calendarOf(const ZAN_Value& runs, const CommandHome& home,
                       const Circumstances& circumstances) {
  const ZAN_DateUtils utc("UTC", "C");
  const std::string_view pattern = "%Y%m%dT%H%M%SZ";
  std::string document;
  addLine(document, "BEGIN:VCALENDAR");
  addLine(document, "VERSION:2.0");
  addLine(document, "PRODID:-//Corvana 9//Scheduler//EN");
  addLine(document, "X-WR-TIMEZONE:" + escaped(home.calendar().zoneName()));
  for (const ZAN_Value& run : runs.elements()) {
    const std::string start = utc.format(run["date"].doubleValue(), pattern);
    addLine(document, "BEGIN:VEVENT");
    addLine(document, "UID:" + start + "-" + std::to_string(run.integer("ref")) + "@corvana9");
    addLine(document, "DTSTAMP:" + utc.format(home.now(), pattern));
    addLine(document, "DTSTART:" + start);
    addLine(document, "SUMMARY:" + escaped(run["title"].stringView()));
    std::string description = heldText(run, circumstances);
    addLine(document, description.empty() ? "STATUS:CONFIRMED" : "STATUS:TENTATIVE");
    if (run["shutdown"].boolValue()) {
      description = "Runs when the machine is shut down." +
                    (description.empty() ? std::string() : '\n' + description);
    }
    if (!description.empty()) addLine(document, "DESCRIPTION:" + escaped(description));
    addLine(document, "TRANSP:TRANSPARENT");
    addLine(document, "END:VEVENT");
  }
  addLine(document, "END:VCALENDAR");
  return document;
}

Answer datesOfRecords(const std::string& path, ReferenceTime now, bool firstAfterStartup,
                      const Console& console) {
  const Result<std::string> json = readText(path, console);
  if (!json) return json.error();
  const Result<ZAN_Value> records = ZAN_Json::valueWithJson(*json);
  if (!records) return Error{records.error().kind, path + ": " + records.error().text};
  if (!records->isArray()) return Error{ErrorKind::damaged, path + ": not an array of records"};
  const std::string zone = ZAN_DateUtils::systemZoneName();
  const ZAN_DateUtils calendar(zone, ZAN_DateUtils::systemRegionName());
  ConsoleLog log(console);
  if (!calendar.isKnownZone()) log.write(zone + ": unknown time zone, UTC is used");
  const ActionsTools tools(calendar, now, [&log](const std::string& line) { log.write(line); });
  std::string lines;
  for (const ZAN_Value& record : records->elements()) {
    bool shutDown = false;
    const auto date = tools.getNextScheduleDateForSettings(record, firstAfterStartup, &shutDown);
    lines += "{\"date\": " + (date ? secondsText(*date) : "null") +
             ", \"shutdown\": " + (shutDown ? "true" : "false") + "}\n";
  }
  return Answer::ofText(lines);
}

Answer comingRuns(std::size_t count, bool asCalendar, const Console& console) {
  CommandHome home(console);
  const Circumstances circumstances = RunningAgent(home).circumstances();
  const ZAN_Value runs = home.comingRuns(count, circumstances);
  if (asCalendar)
    return withStorageTroubles(Answer::ofText(calendarOf(runs, home, circumstances)), home);
  TextForm form(home.calendar());
  form.with("when", [&](const ZAN_Value& run) {
    const std::string held = heldText(run, circumstances);
    const bool isDue = run["date"].doubleValue() <= home.now();
    const char* when = run["shutdown"].boolValue() ? "  (at shutdown)"
                       : isDue && held.empty()     ? "  (due now)"
                                                   : "";
    return when + (held.empty() ? held : "  (" + held + ')');
  });
  return withStorageTroubles(
      {runs, form.fill("{!No run is scheduled.\n}{*{date:date}  {title} [{ref}]{:when}\n}", runs)},
      home);
}

}  // namespace

Answer nextCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const bool asCalendar = arguments.flag("--ics");
  const std::optional<std::string> records = arguments.option("--records");
  const std::optional<std::string> nowText = arguments.option("--now");
  const std::optional<ReferenceTime> now = nowText ? numberOf(*nowText) : std::nullopt;
  const bool firstAfterStartup = arguments.flag("--first-after-startup");
  const std::optional<std::int64_t> count = arguments.number("--count", 1, kMostRuns);
  if (nowText && !now)
    arguments.complain("--now wants seconds since 2001-01-01 00:00:00 UTC, not \"" + *nowText +
                       "\"");
  if (records) {
    if (!nowText) arguments.complain("--records wants --now too");
    if (count || asCalendar) arguments.complain("--count and --ics do not go with --records");
  } else if (nowText || firstAfterStartup) {
    arguments.complain("--now and --first-after-startup go with --records");
  } else if (asCalendar && json) {
    arguments.complain("--ics or --json, not both");
  }
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  return records ? datesOfRecords(*records, *now, firstAfterStartup, console)
                 : comingRuns(static_cast<std::size_t>(count.value_or(kUsualCount)), asCalendar,
                              console);
}

namespace {

constexpr std::size_t kShown = 20;
constexpr std::size_t kMost = 50'000;
/// A look at a large tree on a slow disk.
constexpr double kPatience = 3600;

std::string itemsInWords(const ZAN_Value& part) {
  const ZAN_StringUtils strings("C");
  const std::uint64_t files = part["files"].unsignedValue();
  return std::to_string(files) + (files == 1 ? " file, " : " files, ") +
         strings.getShortSizeBytes(part["bytes"].unsignedValue());
}

constexpr std::string_view kLines =
    "{title} [{reference}]{possible!: a run would do nothing\n  {reason}\n}"
    "{possible?\nwould copy     {copy:part}\n{copy.items*  + {}\n}"
    "would replace  {replace:part}\n{replace.items*  > {}\n}"
    "would change   {change:part} (dates, rights)\n"
    "would delete   {delete:part}\n{delete.items*  - {}\n}"
    "{toConfirm?It would ask before it deletes: {reason}\n}"
    "{missing?Not possible:\n{missing*  {}\n}}"
    "{losses?The disk of the copies does not keep: {losses:listed}\n}}";

}  // namespace

Answer planCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const bool areAllWanted = arguments.flag("--all");
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(words.error());
  const auto reference = referenceFrom(words->front());
  if (!reference) return wrongWords(reference.error());
  CommandHome home(console);
  const auto tool = home.tool("plan");
  if (!tool) return tool.error();
  const auto told =
      runToolBlocking({"/usr/bin/env", "HOME=" + home.machine().homeFolder(), *tool,
                       std::to_string(*reference), std::to_string(areAllWanted ? kMost : kShown)},
                      kPatience);
  if (!told) return told.error();
  const auto plan = ZAN_Json::valueWithJson(*told);
  if (!plan) return plan.error();
  if (!plan->contains("title")) return Error{ErrorKind::absent, plan->string("reason")};
  TextForm form(home.calendar());
  form.with("part", itemsInWords).with("listed", [](const ZAN_Value& list) {
    std::string text;
    for (const ZAN_Value& one : list.elements()) text += (text.empty() ? "" : ", ") + one.string();
    return text;
  });
  ZAN_Value shown = *plan;
  for (const char* part : {"copy", "replace", "delete"}) {
    ZAN_Value paths = ZAN_Value::array();
    const ZAN_Value& items = (*plan)[part]["items"];
    for (const ZAN_Value& item : items.elements()) paths.append(item.string("path"));
    if ((*plan)[part]["files"].unsignedValue() > items.size())
      paths.append("... (--all lists " + std::to_string(kMost) + ")");
    ZAN_Value changed = shown[part];
    changed.setValue("items", std::move(paths));
    shown.setValue(part, std::move(changed));
  }
  Answer answer(*plan, form.fill(kLines, shown));
  if (!(*plan)["possible"].boolValue()) answer.code = kCouldNot;
  return answer;
}

}  // namespace corvana
